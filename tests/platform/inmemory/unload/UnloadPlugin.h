// Entry point of the plug-ins that InMemoryUnload_test.cpp loads.
#pragma once

// Uses the libraries that the plug-in links. Returns the number of failed expectations. After the call, the
// plug-in has none of their objects.
extern "C" __attribute__((visibility("default"))) int kvUnloadPluginRun();
