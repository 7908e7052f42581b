// Tests that the last dlclose removes the library and the in-memory platform from the process. This program
// is not linked with the libraries in kLibraries. The tests load them at run time, directly or with a
// plug-in.

#include <array>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>

namespace {

constexpr int kRounds = 100;

struct NamedFile {
    const char* name;
    const char* path;
};

std::ostream& operator<<(std::ostream& out, const NamedFile& file) {
    return out << file.name;
}

constexpr std::array kLibraries{
    NamedFile{"OsBase", KV_OS_BASE},
    NamedFile{"Rx", KV_RX},
    NamedFile{"Geometry", KV_GEOMETRY},
    NamedFile{"Database", KV_DATABASE},
#ifdef KV_SELECT_CONTEXT
    NamedFile{"SelectContext", KV_SELECT_CONTEXT},
#endif
};

// Returns whether the file is loaded. With RTLD_NOLOAD, dlopen() loads nothing, and returns null if the file
// is not loaded.
bool isLoaded(const char* path) {
    void* const handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr)
        return false;
    dlclose(handle);
    return true;
}

std::string loadedLibraries() {
    std::string names;
    for (const NamedFile& library : kLibraries) {
        if (isLoaded(library.path))
            names += std::string(library.name) + ' ';
    }
    return names;
}

// Calls the plug-in's entry point. Returns the number of failed expectations, or -1 without an entry point.
int runPlugin(void* plugin) {
    void* const entry = dlsym(plugin, "kvUnloadPluginRun");
    if (entry == nullptr) {
        ADD_FAILURE() << dlerror();
        return -1;
    }
    return reinterpret_cast<int (*)()>(entry)();
}

class LoadedLibrary : public ::testing::TestWithParam<NamedFile> {
protected:
    void SetUp() override { ASSERT_EQ(loadedLibraries(), ""); }
};

TEST_P(LoadedLibrary, IsGoneAfterItsLastClose) {
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        void* const library = dlopen(GetParam().path, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        EXPECT_TRUE(isLoaded(GetParam().path));
        ASSERT_EQ(dlclose(library), 0) << dlerror();
        EXPECT_EQ(loadedLibraries(), "");
    }
}

TEST_P(LoadedLibrary, StaysUntilItsLastClose) {
    void* const first = dlopen(GetParam().path, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(first, nullptr) << dlerror();
    void* const second = dlopen(GetParam().path, RTLD_NOW | RTLD_LOCAL);
    ASSERT_EQ(second, first);
    ASSERT_EQ(dlclose(first), 0) << dlerror();
    EXPECT_TRUE(isLoaded(GetParam().path));
    ASSERT_EQ(dlclose(second), 0) << dlerror();
    EXPECT_EQ(loadedLibraries(), "");
}

INSTANTIATE_TEST_SUITE_P(EveryLibrary, LoadedLibrary, testing::ValuesIn(kLibraries),
                         [](const auto& test) { return std::string(test.param.name); });

class LoadedPlugin : public ::testing::TestWithParam<NamedFile> {};

TEST_P(LoadedPlugin, TakesTheLibrariesThatItUsedAlong) {
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        void* const plugin = dlopen(GetParam().path, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        EXPECT_NE(loadedLibraries(), "");
        EXPECT_EQ(runPlugin(plugin), 0);
        ASSERT_EQ(dlclose(plugin), 0) << dlerror();
        EXPECT_FALSE(isLoaded(GetParam().path));
        EXPECT_EQ(loadedLibraries(), "");
    }
}

constexpr std::array kPlugins{
    NamedFile{"OfThePlatform", KV_PLATFORM_PLUGIN},
#ifdef KV_SELECTION_PLUGIN
    NamedFile{"OfTheLibrary", KV_SELECTION_PLUGIN},
#endif
};

INSTANTIATE_TEST_SUITE_P(EveryPlugin, LoadedPlugin, testing::ValuesIn(kPlugins),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
