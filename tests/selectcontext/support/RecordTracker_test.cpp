#include "tests/selectcontext/support/RecordTracker.h"

#include "tests/selectcontext/support/SetTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

namespace {

using kvtest::appendIds;
using kvtest::edit;
using kvtest::id;
using kvtest::RecordTracker;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

using Recording = RecordTracker::Recording;
using Start = RecordTracker::Start;

class RecordTrackerTest : public kvtest::SetTest {
protected:
    static constexpr unsigned long kMany = 200; // of so many records, most are in chunks

    // The data of a set has the size of a record. Makes the tracker ignore the data.
    static void ignoreData(RecordTracker& tracker, const GxapSelectSet& set) {
        tracker.ignore(set.sharedData);
    }

    static std::vector<selected_entity*> recordsOf(const GxapSelectSet& set) {
        std::vector<selected_entity*> records;
        for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step())
            records.push_back(it.get());
        return records;
    }
};

TEST_F(RecordTrackerTest, KnowsARecordFromItsCreationToItsDeletion) {
    RecordTracker tracker;
    auto record = std::make_unique<selected_entity>();
    const selected_entity* const address = record.get();
    EXPECT_TRUE(tracker.isLive(address));
    EXPECT_THAT(tracker.live(), ElementsAre(address));
    EXPECT_EQ(tracker.blockCount(), 1u);
    record.reset();
    EXPECT_FALSE(tracker.isLive(address));
    EXPECT_THAT(tracker.live(), IsEmpty());
    EXPECT_EQ(tracker.liveCount(), 0u);
}

TEST_F(RecordTrackerTest, KnowsNoRecordThatIsOlder) {
    const selected_entity record;
    const auto older = std::make_unique<selected_entity>();
    RecordTracker tracker;
    EXPECT_FALSE(tracker.isLive(older.get()));
    EXPECT_FALSE(tracker.isLive(&record));
    EXPECT_THAT(tracker.live(), IsEmpty());
}

TEST_F(RecordTrackerTest, KnowsTheRecordsOfALargeSetAndNoOthers) {
    RecordTracker tracker;
    {
        GxapSelectSet set;
        ignoreData(tracker, set);
        appendIds(set, 1, kMany);
        const Recording pause(tracker, false);
        EXPECT_THAT(tracker.live(), ::testing::UnorderedElementsAreArray(recordsOf(set)));
        EXPECT_EQ(tracker.liveCount(), kMany);
        for (const selected_entity* record : recordsOf(set))
            EXPECT_TRUE(tracker.isLive(record));
        EXPECT_FALSE(tracker.isLive(recordsOf(set).back() + 1));
    }
    EXPECT_THAT(tracker.live(), IsEmpty());
}

TEST_F(RecordTrackerTest, KnowsARecordThatAnEditLeavesUntilItIsDeleted) {
    RecordTracker tracker;
    GxapSelectSet set;
    ignoreData(tracker, set);
    appendIds(set, 1, kMany);
    selected_entity* const removed = *edit(set).getAt(kMany - 1);
    edit(set).remove(id(kMany));
    EXPECT_TRUE(tracker.isLive(removed));
    EXPECT_THAT(tracker.live(), Contains(removed));
    delete removed;
    EXPECT_FALSE(tracker.isLive(removed));
    EXPECT_THAT(tracker.live(), Not(Contains(removed)));
    EXPECT_EQ(tracker.liveCount(), kMany - 1);
}

TEST_F(RecordTrackerTest, TakesEachNewRecordOnce) {
    RecordTracker tracker;
    GxapSelectSet set;
    ignoreData(tracker, set);
    appendIds(set, 1, kMany);
    EXPECT_EQ(tracker.takeNew().size(), kMany);
    EXPECT_THAT(tracker.takeNew(), IsEmpty());
    appendIds(set, kMany + 1, 1);
    EXPECT_THAT(tracker.takeNew(), ElementsAre(*edit(set).getAt(kMany)));
}

TEST_F(RecordTrackerTest, TakesARecordInTheMemoryOfAnotherAsNew) {
    RecordTracker tracker;
    alignas(16) static unsigned char memory[sizeof(selected_entity)];
    tracker.allocated(memory, sizeof(memory));
    EXPECT_EQ(tracker.takeNew().size(), 1u);
    tracker.freed(memory);
    tracker.allocated(memory, sizeof(memory));
    EXPECT_EQ(tracker.takeNew().size(), 1u);
}

TEST_F(RecordTrackerTest, TakesNoBlockForARecordWhileItIsPaused) {
    RecordTracker tracker(Start::kPaused);
    const auto before = std::make_unique<selected_entity>();
    std::unique_ptr<selected_entity> meanwhile;
    {
        const Recording recording(tracker, true);
        meanwhile = std::make_unique<selected_entity>();
    }
    const auto after = std::make_unique<selected_entity>();
    EXPECT_THAT(tracker.live(), ElementsAre(meanwhile.get()));
}

TEST_F(RecordTrackerTest, CallsOnceWhenTheNextRecordIsMade) {
    RecordTracker tracker;
    int calls = 0;
    tracker.atNextRecord([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);
    const auto first = std::make_unique<selected_entity>();
    EXPECT_EQ(calls, 1);
    const auto second = std::make_unique<selected_entity>();
    EXPECT_EQ(calls, 1);
}

} // namespace
