// Loads a plug-in, calls it and unloads it, as often as the second argument says. Returns 0 if the calls
// succeed, and if the plug-in and its libraries are gone after each round.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <link.h>

namespace {

// Stops at a library whose name says that it belongs to the plug-in.
int isOfPlugin(dl_phdr_info* library, std::size_t /*bytes*/, void* /*unused*/) {
    const char* const name = library->dlpi_name;
    if (std::strstr(name, "libKv") == nullptr && std::strstr(name, "plugin.so") == nullptr)
        return 0;
    std::printf("in memory: %s\n", name);
    return 1;
}

bool isAnythingLoaded() {
    return dl_iterate_phdr(&isOfPlugin, nullptr) != 0;
}

bool runOnce(const char* path) {
    void* const plugin = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::puts(dlerror());
        return false;
    }
    void* const entry = dlsym(plugin, "runPlugin");
    const int failures = entry == nullptr ? -1 : reinterpret_cast<int (*)()>(entry)();
    if (failures != 0)
        std::printf("the plug-in returned %d\n", failures);
    return dlclose(plugin) == 0 && failures == 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const int rounds = std::atoi(argv[2]);
    for (int round = 1; round <= rounds; ++round) {
        if (!runOnce(argv[1]) || isAnythingLoaded()) {
            std::printf("failed in round %d\n", round);
            return 1;
        }
    }
    std::printf("loaded and unloaded %d times\n", rounds);
    return 0;
}
