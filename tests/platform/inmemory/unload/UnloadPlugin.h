// Entry point of the plug-ins that InMemoryUnload_test.cpp loads.
#pragma once

// Uses the libraries that the plug-in links. Returns the number of failed expectations. The plug-in keeps no
// object of these libraries after the call.
extern "C" __attribute__((visibility("default"))) int kvUnloadPluginRun();
