// Looks up items of shared data on several threads, each with its own handle. The first look-ups also make a
// hash. The thread sanitizer reports data races.
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

namespace {

using kvtest::appendIds;
using kvtest::edit;
using kvtest::id;
using kvtest::onThreads;

constexpr unsigned long kCount = 300;
constexpr int kRounds = 50;

using ShortcutsThreads = kvtest::ThreadTest;

std::size_t countFound(const GxapSelectSet& set) {
    std::size_t found = 0;
    for (unsigned long n = 1; n <= kCount + 20; ++n)
        found += set.findInMap(id(n)) != set.sharedData->dataMap.end() ? 1u : 0u;
    return found;
}

} // namespace

TEST_F(ShortcutsThreads, SharersLookUpAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        appendIds(source, 1, kCount);
        const GxapSelectSet handles[] = {source, source};
        onThreads(2, [&](std::size_t n) { EXPECT_EQ(countFound(handles[n]), kCount); });
        EXPECT_EQ(countFound(source), kCount);
    }
}

TEST_F(ShortcutsThreads, SharersAreComparedAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        GxapSelectSet backwards;
        appendIds(source, 1, kCount);
        for (unsigned long n = kCount; n > 0; --n)
            edit(backwards).append(id(n), GxDbObjectId());
        const GxapSelectSet handles[] = {source, source};
        onThreads(2, [&](std::size_t n) {
            const GxapSelectSet other(backwards);
            EXPECT_TRUE(handles[n].contains(&other));
            EXPECT_TRUE(other.contains(&handles[n]));
        });
    }
}

TEST_F(ShortcutsThreads, OneSharerEditsItsCopyWhileTheOtherLooksUp) {
    for (int round = 0; round < kRounds; ++round) {
        auto reader = std::make_unique<GxapSelectSet>();
        appendIds(*reader, 1, kCount);
        GxapSelectSet writer(*reader);
        onThreads(2, [&](std::size_t n) {
            if (n == 0) {
                EXPECT_EQ(countFound(*reader), kCount);
                reader.reset();
            } else {
                EXPECT_EQ(countFound(writer), kCount);
                edit(writer).append(id(kCount + 1), GxDbObjectId());
                EXPECT_EQ(countFound(writer), kCount + 1);
            }
        });
        EXPECT_EQ(writer.sharedData->entityCount, kCount + 1);
    }
}
