// Tests sets that share highlight paths, each on its own thread.
#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace {

using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::id;
using kvtest::recordAt;
using kvtest::segmentsAt;

using HighlightPathsOnThreads = kvtest::ThreadTest;

constexpr int kRounds = 200;

// Runs each function on its own thread.
void onTwoThreads(const std::function<void()>& first, const std::function<void()>& second) {
    kvtest::onThreads(2, [&](std::size_t n) { n == 0 ? first() : second(); });
}

// Reads every path, so that a sanitizer reports a path that is deleted too early.
std::int64_t sumOf(const GxapSelectSet& set) {
    std::int64_t sum = 0;
    for (const std::int64_t index : segmentsAt(set, 0))
        sum += index;
    return sum;
}

// A set of one item, which has three segments, and a clone of the set.
struct SharingPair {
    SharingPair() {
        first = std::make_unique<GxapSelectSet>();
        edit(*first).append(id(1), GxDbObjectId());
        addSegments(*first, 0, {1, 2, 3});
        second = kvtest::cloneOf(*first);
    }

    std::unique_ptr<GxapSelectSet> first, second;
};

TEST_F(HighlightPathsOnThreads, DieOnceWhenBothSharersDie) {
    for (int round = 0; round < kRounds; ++round) {
        SharingPair pair;
        const auto die = [](std::unique_ptr<GxapSelectSet>& set) {
            EXPECT_EQ(sumOf(*set), 6);
            set.reset();
        };
        onTwoThreads([&] { die(pair.first); }, [&] { die(pair.second); });
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(HighlightPathsOnThreads, DieOnceWhenBothSharersClear) {
    for (int round = 0; round < kRounds; ++round) {
        SharingPair pair;
        const auto clear = [](GxapSelectSet& set) {
            EXPECT_EQ(sumOf(set), 6);
            edit(set).begin().setHighlightSegment(nullptr);
        };
        onTwoThreads([&] { clear(*pair.first); }, [&] { clear(*pair.second); });
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(HighlightPathsOnThreads, AreSeenByTheSharerThatStays) {
    for (int round = 0; round < kRounds; ++round) {
        SharingPair pair;
        onTwoThreads(
            [&] {
                addSegments(*pair.first, 0, {4});
                EXPECT_EQ(sumOf(*pair.first), 10);
                edit(*pair.first).begin().setHighlightSegment(nullptr);
                pair.first.reset();
            },
            [&] {
                EXPECT_EQ(sumOf(*pair.second), 6);
                addSegments(*pair.second, 0, {5});
                EXPECT_EQ(sumOf(*pair.second), 11);
            });
        EXPECT_EQ(sumOf(*pair.second), 11);
        ASSERT_EQ(livePaths(), 4);
    }
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(HighlightPathsOnThreads, AreClonedOnOneWhileTheyAreGivenUpOnTheOther) {
    for (int round = 0; round < kRounds; ++round) {
        SharingPair pair;
        onTwoThreads([&] { pair.first.reset(); },
                     [&] {
                         const auto third = kvtest::cloneOf(*pair.second);
                         recordAt(*third, 0)->highlightSegmentArray->at(0);
                         pair.second.reset();
                         EXPECT_EQ(sumOf(*third), 6);
                     });
        ASSERT_EQ(livePaths(), 0);
    }
}

} // namespace
