// The entry points of the plug-in.
#pragma once

extern "C" {

// Selects an item and names the set. Returns the plug-in's manager of named sets, or null after an error.
__attribute__((visibility("default"))) void* selectInPlugin();

// Destroys the plug-in's manager of named sets.
__attribute__((visibility("default"))) void forgetInPlugin();
}
