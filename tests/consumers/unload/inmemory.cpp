// A plug-in on the in-memory platform.
#include "Plugin.h"
#include "platform/inmemory/InMemoryDatabase.h"

int runPlugin() {
    kvinmemory::setLogging(true);
    kvinmemory::trackMemory(true);
    kvinmemory::Database drawing;
    return useLibrary(drawing.addEntity("door"), drawing.addEntity("desk"));
}
