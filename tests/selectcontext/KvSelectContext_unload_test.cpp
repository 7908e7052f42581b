// Loads and unloads the library at run time. The test is not linked with the library.

#include "base/KvVector.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

TEST(LoadedLibrary, SharesTheEmptyBlockTwiceUntilItIsUnloaded) {
    const std::uint32_t before = gpEmptyVectorData->refCount;
    void* const library = dlopen(KV_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(gpEmptyVectorData->refCount, before + 2);
    ASSERT_EQ(dlclose(library), 0) << dlerror();
    EXPECT_EQ(gpEmptyVectorData->refCount, before);
}

} // namespace
