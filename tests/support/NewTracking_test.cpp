#include "tests/support/NewTracking.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/KvTest.h"
#include "tests/support/Mistakes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace kvtest;

using NewTracking = KvTest;

struct alignas(64) Wide {
    std::array<char, 64> bytes;
};

// A block size for which the test program makes no other block.
constexpr std::size_t kBytes = 7744;

// One form of allocation and deallocation. The operators are called by name, since compilers may omit a
// new-expression whose object is deleted at once.
struct Form {
    const char* name;
    std::function<void*()> obtain;
    std::function<void(void*)> giveBack;
};

constexpr std::align_val_t kWide{64};

std::vector<Form> forms() {
    return {
        {"plain", [] { return ::operator new(kBytes); }, [](void* p) { ::operator delete(p); }},
        {"array", [] { return ::operator new[](kBytes); }, [](void* p) { ::operator delete[](p); }},
        {"nothrow", [] { return ::operator new(kBytes, std::nothrow); },
         [](void* p) { ::operator delete(p, std::nothrow); }},
        {"nothrow array", [] { return ::operator new[](kBytes, std::nothrow); },
         [](void* p) { ::operator delete[](p, std::nothrow); }},
        {"aligned", [] { return ::operator new(kBytes, kWide); },
         [](void* p) { ::operator delete(p, kWide); }},
        {"aligned array", [] { return ::operator new[](kBytes, kWide); },
         [](void* p) { ::operator delete[](p, kWide); }},
        {"nothrow aligned", [] { return ::operator new(kBytes, kWide, std::nothrow); },
         [](void* p) { ::operator delete(p, kWide, std::nothrow); }},
        {"nothrow aligned array", [] { return ::operator new[](kBytes, kWide, std::nothrow); },
         [](void* p) { ::operator delete[](p, kWide, std::nothrow); }},
#ifdef __cpp_sized_deallocation // some compilers need a switch for these forms
        {"sized", [] { return ::operator new(kBytes); }, [](void* p) { ::operator delete(p, kBytes); }},
        {"sized array", [] { return ::operator new[](kBytes); },
         [](void* p) { ::operator delete[](p, kBytes); }},
        {"sized aligned", [] { return ::operator new(kBytes, kWide); },
         [](void* p) { ::operator delete(p, kBytes, kWide); }},
        {"sized aligned array", [] { return ::operator new[](kBytes, kWide); },
         [](void* p) { ::operator delete[](p, kBytes, kWide); }},
#endif
    };
}

TEST_F(NewTracking, EveryFormIsCounted) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        const long blocks = liveNewBlocks();
        const long calls = newCalls();
        void* block = form.obtain();
        EXPECT_EQ(liveNewBlocks(), blocks + 1);
        EXPECT_EQ(newCalls(), calls + 1);
        EXPECT_EQ(liveNewBlocksOfSize(kBytes), 1);
        form.giveBack(block);
        EXPECT_EQ(liveNewBlocks(), blocks);
        EXPECT_EQ(liveNewBlocksOfSize(kBytes), 0);
    }
}

TEST_F(NewTracking, EveryFormFailsItsOwnWay) {
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        const long blocks = liveNewBlocks();
        void* block = nullptr;
        bool threw = false;
        failNew(1, false);
        try {
            block = form.obtain();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        allowNew();
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(threw, std::string_view(form.name).find("nothrow") == std::string_view::npos);
        EXPECT_EQ(failedNews(), 1);
        EXPECT_EQ(liveNewBlocks(), blocks);
    }
}

TEST_F(NewTracking, AlignmentIsKept) {
    Wide* wide = new Wide;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide) % alignof(Wide), 0u);
    delete wide;
}

TEST_F(NewTracking, DeletingNullIsNoDelete) {
    const long blocks = liveNewBlocks();
    ::operator delete(nullptr);
    EXPECT_EQ(liveNewBlocks(), blocks);
}

TEST_F(NewTracking, ALibraryAllocatesHereToo) {
    const long blocks = liveNewBlocks();
    {
        GxDbFullSubentPath path;
        path.objectIds().setLogicalLength(3);
        const GxDbFullSubentPath copy = path;
        EXPECT_EQ(liveNewBlocks(), blocks + 2);
    }
    EXPECT_EQ(liveNewBlocks(), blocks);
}

TEST_F(NewTracking, CallsAreCountedBySize) {
    ::operator delete(::operator new(72));
    ::operator delete(::operator new(72));
    EXPECT_EQ(newCallsOfSize(72), 2);
    EXPECT_EQ(newCallsOfSize(73), 0);
}

TEST_F(NewTracking, SizesAreForgottenWhenTrackingStartsAgain) {
    void* block = ::operator new(72);
    trackNewSizes(true);
    EXPECT_EQ(liveNewBlocksOfSize(72), 0);
    EXPECT_EQ(newCallsOfSize(72), 0);
    ::operator delete(block);
    EXPECT_EQ(liveNewBlocksOfSize(72), 0);
}

TEST_F(NewTracking, TheNthCallFailsOnce) {
    failNew(2, false);
    void* first = ::operator new(8, std::nothrow);
    void* second = ::operator new(8, std::nothrow);
    void* third = ::operator new(8, std::nothrow);
    allowNew();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(failedNews(), 1);
    ::operator delete(first);
    ::operator delete(third);
}

TEST_F(NewTracking, TheNthCallAndAllAfterItFail) {
    failNew(2, true);
    void* first = ::operator new(8, std::nothrow);
    void* second = ::operator new(8, std::nothrow);
    void* third = ::operator new(8, std::nothrow);
    allowNew();
    void* fourth = ::operator new(8, std::nothrow);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third, nullptr);
    EXPECT_NE(fourth, nullptr);
    EXPECT_EQ(failedNews(), 2);
    ::operator delete(first);
    ::operator delete(fourth);
}

TEST_F(NewTracking, ABlockOfThePlatformIsNotDeletable) {
    void* block = _kvMalloc(16);
    const long wrong = wrongDeletes();
    deleteByMistake(block);
    EXPECT_EQ(wrongDeletes(), wrong + 1);
    EXPECT_TRUE(kvinmemory::isLiveBlock(block));
    _kvFree(block);
    SetUp(); // so that TearDown() does not report the wrong delete
}

TEST_F(NewTracking, CountsAreExactAcrossThreads) {
    const long calls = newCallsOfSize(88);
    const auto work = [] {
        for (int i = 0; i < 500; ++i)
            ::operator delete(::operator new(88));
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(newCallsOfSize(88), calls + 1000);
    EXPECT_EQ(liveNewBlocksOfSize(88), 0);
}

} // namespace
