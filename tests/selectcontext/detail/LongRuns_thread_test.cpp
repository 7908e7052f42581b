// Tests readers of shared data that index long runs at the same time. The thread sanitizer finds data races.
#include "selectcontext/detail/LongRuns.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/detail/SetData.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

namespace {

using kvdetail::LongRuns;
using kvdetail::RunIndex;
using kvtest::edit;
using kvtest::id;
using kvtest::onThreads;
using Keys = RunIndex::Keys;
using Path = KvVector<GxDbObjectId>;

constexpr unsigned long kCount = 200;
constexpr int kRounds = 40;

class LongRunsThreads : public kvtest::ThreadTest {
protected:
    // Fills the set with two long runs of items with paths.
    static void fill(GxapSelectSet& set) {
        const Path path = kvtest::idVector({3});
        for (unsigned long n = 1; n <= kCount; ++n) {
            edit(set).append(id(1), id(n));
            edit(set).select(id(2), id(n), static_cast<long>(n % 3), nullptr, &path);
        }
        kvdetail::indexOf(*set.sharedData).dropHints();
    }

    // Looks each item up by all kinds of keys. Returns how many look-ups find an item.
    static std::size_t countFound(const GxapSelectSet& set) {
        const Path path = kvtest::idVector({3});
        const auto end = set.sharedData->dataMap.end();
        std::size_t found = 0;
        for (unsigned long n = kCount + 20; n > 0; --n) {
            const auto marker = static_cast<long>(n % 3);
            found += set.findInMap(id(1), id(n)) != end ? 1u : 0u;
            found += set.findInMap(id(1), id(n), 0l) != end ? 1u : 0u;
            found += set.findInMap(id(2), id(n), &path) != end ? 1u : 0u;
            found += set.findInMap(id(2), id(n), marker, &path, nullptr) != end ? 1u : 0u;
        }
        return found;
    }
};

} // namespace

TEST_F(LongRunsThreads, OneOfTwoIndexesIsPublishedToBoth) {
    GxapSelectSet set;
    fill(set);
    const kvdetail::SSetData& data = *set.sharedData;
    for (int round = 0; round < kRounds; ++round) {
        const LongRuns runs;
        const RunIndex* published[2] = {};
        onThreads(2, [&](std::size_t n) {
            published[n] = runs.add(data.dataMap, RunIndex::build(data.dataMap, data.dataMap.begin(),
                                                                  *data.entities, Keys::kMarker));
        });
        ASSERT_NE(published[0], nullptr);
        EXPECT_EQ(published[0], published[1]);
        EXPECT_EQ(runs.find(data.dataMap, id(1).stub(), Keys::kMarker), published[0]);
    }
}

TEST_F(LongRunsThreads, IndexesOfOneListArePublishedAtTheSameTime) {
    constexpr unsigned long kMany = 2000;
    GxapSelectSet set;
    kvtest::appendIds(set, 1, kMany);
    const kvdetail::SSetData& data = *set.sharedData;
    const LongRuns runs;
    onThreads(2, [&](std::size_t n) {
        auto entry = data.dataMap.begin();
        for (unsigned long i = 0; i < kMany; ++i, ++entry) {
            if (i % 2 == n)
                runs.add(data.dataMap, RunIndex::build(data.dataMap, entry, *data.entities, Keys::kMarker));
        }
    });
    for (unsigned long n = 1; n <= kMany; ++n)
        ASSERT_NE(runs.find(data.dataMap, id(n).stub(), Keys::kMarker), nullptr) << n;
}

TEST_F(LongRunsThreads, IdsThatAreUnknownAreLookedForAtTheSameTime) {
    kvdetail::EqualIds ids;
    for (unsigned long n = 1; n <= kCount; ++n)
        ids.add(id(2 * n));
    onThreads(2, [&](std::size_t) {
        for (unsigned long n = 1; n <= kCount; ++n)
            EXPECT_FALSE(ids.find(id(2 * n + 1)).has_value());
    });
    EXPECT_EQ(ids.add(id(101)), id(101).stub());
}

TEST_F(LongRunsThreads, SharersLookItemsUpAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        fill(source);
        const GxapSelectSet handles[] = {source, source};
        onThreads(2, [&](std::size_t n) { EXPECT_EQ(countFound(handles[n]), 4 * kCount); });
        EXPECT_EQ(countFound(source), 4 * kCount);
    }
}

TEST_F(LongRunsThreads, SharersLookItemsUpBySecondStubsAtTheSameTime) {
    for (unsigned long n = 1; n <= kCount; ++n)
        kvinmemory::makeEqual(id(n), id(5000 + n));
    for (int round = 0; round < kRounds / 4; ++round) {
        GxapSelectSet source;
        fill(source);
        const GxapSelectSet handles[] = {source, source};
        onThreads(2, [&](std::size_t handle) {
            const GxapSelectSet& set = handles[handle];
            for (unsigned long n = 1; n <= kCount; ++n)
                EXPECT_NE(set.findInMap(id(1), id(5000 + n)), set.sharedData->dataMap.end());
        });
    }
}

TEST_F(LongRunsThreads, SharersAreComparedAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        GxapSelectSet other;
        fill(source);
        fill(other);
        const GxapSelectSet handles[] = {source, source};
        const GxapSelectSet others[] = {other, other};
        onThreads(2, [&](std::size_t n) {
            EXPECT_TRUE(handles[n].contains(&others[n]));
            EXPECT_TRUE(others[n].contains(&handles[n]));
        });
    }
}

TEST_F(LongRunsThreads, OneSharerEditsItsCopyWhileTheOtherLooksUp) {
    for (int round = 0; round < kRounds; ++round) {
        auto reader = std::make_unique<GxapSelectSet>();
        fill(*reader);
        GxapSelectSet writer(*reader);
        onThreads(2, [&](std::size_t n) {
            if (n == 0) {
                EXPECT_EQ(countFound(*reader), 4 * kCount);
                reader.reset();
                return;
            }
            EXPECT_EQ(countFound(writer), 4 * kCount);
            edit(writer).append(id(1), id(kCount + 1));
            EXPECT_EQ(countFound(writer), 4 * kCount + 2);
        });
        EXPECT_EQ(writer.sharedData->entityCount, 2 * kCount + 1);
    }
}
