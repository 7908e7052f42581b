#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Threads.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

// Tests handles that share data. They are used, copied and destroyed on different threads at the same time.
// The thread sanitizer reports data races.

namespace {

using kvinmemory::livePaths;
using kvtest::addRecord;
using kvtest::addRecords;
using kvtest::cloneOf;
using kvtest::elementAt;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::onThreads;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::SegmentArray;
using kvtest::SSetData;
using kvtest::waitUntilOne;

constexpr std::size_t kThreads = 4;
constexpr int kRounds = 200;

class SharedDataThreads : public kvtest::ThreadTest {
protected:
    void SetUp() override {
        ThreadTest::SetUp();
        expectNothingLeft();
    }
};

unsigned long sumOfMarkers(const GxapSelectSet& set) {
    unsigned long sum = 0;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step())
        sum += static_cast<unsigned long>(it.gsMarker());
    return sum;
}

// Returns a set of records with the markers 1 to `count`. Each record has a value in every field except the
// sub-selection.
std::unique_ptr<GxapSelectSet> richSet(unsigned long count) {
    auto set = std::make_unique<GxapSelectSet>();
    for (unsigned long n = 1; n <= count; ++n) {
        selected_entity& record = addRecord(*set, id(n), id(100 + n), static_cast<long>(n));
        record.nestedEntFullPath = kvtest::idVector({1, 2});
        record.hlVpArray.setLogicalLength(2);
        record.selectedEntityInfo = kvtest::makeFullInfo();
        giveSegments(record, 2);
    }
    return set;
}

std::size_t idsOnSegments(const GxapSelectSet& set) {
    std::size_t ids = 0;
    for (std::size_t n = 0; n < set.sharedData->entityCount; ++n) {
        const SegmentArray& segments = *recordAt(set, n)->highlightSegmentArray;
        for (int i = 0; i < segments.logicalLength(); ++i)
            ids +=
                static_cast<std::size_t>(std::as_const(*elementAt(segments, i)).objectIds().logicalLength());
    }
    return ids;
}

} // namespace

TEST_F(SharedDataThreads, AllHoldersReadAndThenDropTheDataAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        auto source = richSet(3);
        std::vector<std::unique_ptr<GxapSelectSet>> handles;
        for (std::size_t n = 0; n < kThreads; ++n)
            handles.push_back(std::make_unique<GxapSelectSet>(*source));
        source.reset();

        onThreads(kThreads, [&](std::size_t n) {
            // The thread that drops the last handle destroys the data. Only the reference count makes the
            // reads of the other threads happen before the destruction.
            EXPECT_EQ(sumOfMarkers(*handles[n]), 6u);
            EXPECT_EQ(handles[n]->find(id(2), id(102), 2L), 1);
            handles[n].reset();
        });
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(SharedDataThreads, OwnerWritesInPlaceOnceTheReaderHasDropped) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet owner;
        addRecords(owner, 3);
        auto reader = std::make_unique<GxapSelectSet>(owner);
        const SSetData* const data = owner.sharedData;

        std::thread reading([&] {
            EXPECT_EQ(sumOfMarkers(*reader), static_cast<unsigned long>(-3));
            reader.reset();
        });
        waitUntilOne(data->refCount);
        SSetData* const written = kvtest::edit(owner).writeData();
        EXPECT_EQ(written, data) << "nobody else holds it, so it is not copied";
        for (std::size_t n = 0; n < 3; ++n)
            recordAt(owner, n)->gsMarker = 7;
        written->selectByNestedMode = true;
        reading.join();
    }
}

TEST_F(SharedDataThreads, OwnerClearsInPlaceOnceTheReaderHasDropped) {
    const std::function<void(GxapSelectSet&)> clears[] = {
        [](GxapSelectSet& owner) { owner.sharedData->clear(); },
        [](GxapSelectSet& owner) { kvtest::edit(owner).clear(); }};
    for (int round = 0; round < kRounds; ++round) {
        const auto owner = richSet(3);
        const SSetData* const data = owner->sharedData;
        auto reader = std::make_unique<GxapSelectSet>(*owner);
        std::thread reading([&] {
            EXPECT_EQ(idsOnSegments(*reader), 6u);
            reader.reset();
        });
        waitUntilOne(data->refCount);
        clears[round % 2](*owner);
        EXPECT_EQ(owner->sharedData, data);
        EXPECT_EQ(data->entityCount, 0u);
        reading.join();
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(SharedDataThreads, HandlesAreCopiedAndDestroyedOnManyThreads) {
    const GxapSelectSet shared;
    addRecord(*shared.sharedData, id(1));
    std::vector<GxapSelectSet> handles(kThreads, shared);
    onThreads(kThreads, [&](std::size_t n) {
        GxapSelectSet assigned;
        for (int round = 0; round < 20 * kRounds; ++round) {
            const GxapSelectSet copy(handles[n]);
            assigned = copy;
            assigned.releaseData();
        }
    });
    EXPECT_EQ(owners(shared), 1u + kThreads);
    handles.clear();
    EXPECT_EQ(owners(shared), 1u);
}

TEST_F(SharedDataThreads, EachSharerWritesToACopyOfItsOwn) {
    for (int round = 0; round < kRounds / 4; ++round) {
        auto source = richSet(4);
        std::vector<GxapSelectSet> handles(kThreads, *source);
        onThreads(kThreads, [&](std::size_t n) {
            kvtest::edit(handles[n]).append(id(50 + n), id(60 + n));
            EXPECT_EQ(handles[n].sharedData->entityCount, 5u);
            EXPECT_EQ(handles[n].find(id(50 + n)), 4);
        });
        EXPECT_EQ(source->sharedData->entityCount, 4u);
        for (std::size_t n = 0; n < kThreads; ++n) {
            EXPECT_NE(handles[n].sharedData, source->sharedData);
            EXPECT_TRUE(kvtest::invariants(handles[n]));
        }
        source.reset();
        handles.clear();
        ASSERT_EQ(livePaths(), 0);
    }
}

// ---- highlight paths that clones on different threads share

TEST_F(SharedDataThreads, ClonesWithSharedPathsDieAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        auto source = richSet(3);
        std::vector<std::unique_ptr<GxapSelectSet>> clones;
        for (std::size_t n = 1; n < kThreads; ++n)
            clones.push_back(cloneOf(*source));
        clones.push_back(std::move(source));

        onThreads(kThreads, [&](std::size_t n) {
            EXPECT_EQ(idsOnSegments(*clones[n]), 6u);
            clones[n].reset();
        });
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(SharedDataThreads, ClonesAreMadeAndDestroyedOnTwoThreadsAtOnce) {
    auto source = richSet(3);
    std::vector<std::unique_ptr<GxapSelectSet>> own;
    own.push_back(cloneOf(*source));
    own.push_back(std::move(source));
    onThreads(own.size(), [&](std::size_t n) {
        for (int round = 0; round < kRounds; ++round) {
            auto next = cloneOf(*own[n]);
            EXPECT_EQ(idsOnSegments(*next), 6u);
            own[n] = std::move(next);
        }
    });
    EXPECT_EQ(livePaths(), 6);
    own.clear();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedDataThreads, OneSharerOfPathsAddsWhileTheOtherClears) {
    for (int round = 0; round < kRounds; ++round) {
        auto source = richSet(1);
        auto clone = cloneOf(*source);
        onThreads(2, [&](std::size_t n) {
            GxapSelectSet::Iterator it(n == 0 ? source.get() : clone.get(), 0);
            if (n == 0) {
                const GxDbFullSubentPath added;
                it.setHighlightSegment(&added);
            } else {
                it.setHighlightSegment(nullptr);
            }
        });
        EXPECT_EQ(livePaths(), 3);
        EXPECT_EQ(idsOnSegments(*source), 2u);
        EXPECT_EQ(recordAt(*clone, 0)->highlightSegmentArray, nullptr);
        source.reset();
        EXPECT_EQ(livePaths(), 0);
    }
}

TEST_F(SharedDataThreads, LastSharerDeletesThePathsAfterTheOthersHaveReadThem) {
    for (int round = 0; round < kRounds; ++round) {
        // The records share only their segments. So only the counts of the segments order the two threads.
        auto source = std::make_unique<GxapSelectSet>();
        giveSegments(addRecord(*source, id(1)), 2);
        auto clone = cloneOf(*source);
        const KvVectorBlock* const block = recordAt(*source, 0)->highlightSegmentArray->data.block;
        std::thread reading([&] {
            EXPECT_EQ(idsOnSegments(*clone), 2u);
            clone.reset();
        });
        waitUntilOne(block->refCount);
        source.reset();
        reading.join();
        ASSERT_EQ(livePaths(), 0);
    }
}

TEST_F(SharedDataThreads, UnrelatedSetsShareNothingThatHasToBeOrdered) {
    onThreads(kThreads, [](std::size_t) {
        for (int round = 0; round < kRounds / 4; ++round) {
            auto set = richSet(2);
            const auto clone = cloneOf(*set);
            set.reset();
            EXPECT_EQ(idsOnSegments(*clone), 4u);
        }
    });
    EXPECT_EQ(livePaths(), 0);
}
