// Links the shared library. Links or loads a plug-in, which has a static copy of the library. Returns 0 if
// both copies work, and if each has its own named sets.
#include "Plugin.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdio>
#ifdef LOADS_PLUGIN
#include <dlfcn.h>
#endif

namespace {

struct Plugin {
    decltype(&selectInPlugin) select;
    decltype(&forgetInPlugin) forget;
};

#ifdef LOADS_PLUGIN
Plugin plugin() {
    void* const loaded = dlopen("libplugin.so", RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        std::puts(dlerror());
        return {};
    }
    return {reinterpret_cast<decltype(&selectInPlugin)>(dlsym(loaded, "selectInPlugin")),
            reinterpret_cast<decltype(&forgetInPlugin)>(dlsym(loaded, "forgetInPlugin"))};
}
#else
Plugin plugin() {
    return {&selectInPlugin, &forgetInPlugin};
}
#endif

bool selects() {
    kvinmemory::Database drawing;
    const GxDbObjectId door = drawing.addEntity("door");
    GxapSelectSet set;
    static_cast<GxapSSetWriteAccessor&>(set).append(door, GxDbObjectId());
    const GxapSelectSet copy(set);
    static_cast<GxapSSetWriteAccessor&>(set).clear();
    return copy.find(door) == 0 && set.find(door) == -1;
}

int failed(const char* what) {
    std::printf("failed: %s\n", what);
    return 1;
}

} // namespace

int main() {
    const Plugin other = plugin();
    if (other.select == nullptr || other.forget == nullptr)
        return failed("finding the plug-in");
    void* const ours = GxapSelectSetListManager::getInstance();
    void* const theirs = other.select();
    if (theirs == nullptr || !selects())
        return failed("selecting");
    if (ours == theirs)
        return failed("keeping named sets apart");
    other.forget();
    if (GxapSelectSetListManager::s_smartPtrSSList != ours)
        return failed("keeping named sets");
    GxapSelectSetListManager::destroy();
    std::puts("both copies work");
    return 0;
}
