#include "selectcontext/detail/LongRuns.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/detail/SetData.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

namespace {

using kvdetail::LongRuns;
using kvdetail::RunIndex;
using kvdetail::SSetData;
using kvtest::id;
using Entry = RunIndex::Entry;
using Keys = RunIndex::Keys;

constexpr Keys kBoth[] = {Keys::kMarker, Keys::kMarkerAndPath};

class LongRunsTest : public kvtest::SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        data = kvdetail::makeData();
        runs.emplace();
    }

    void TearDown() override {
        runs.reset();
        data.reset();
        SetTest::TearDown();
    }

    SSetData::DataMap& map() const { return data->dataMap; }
    kvdetail::IdIndex& index() const { return kvdetail::indexOf(*data); }
    Entry first(unsigned long main) const { return std::as_const(map()).lower_bound(id(main)); }
    static selected_entity* recordOf(Entry entry) { return kvdetail::slotAt(entry->second)->value; }

    Entry addItem(unsigned long main, unsigned long sub) const {
        auto record = std::make_unique<selected_entity>();
        record->mainEntId = id(main);
        record->subEntId = id(sub);
        kvdetail::appendRecord(*data, std::move(record), index().endOf(id(main)));
        return std::prev(index().endOf(id(main)));
    }

    // Adds items with the sub ids id(1) to id(count).
    void addItems(unsigned long main, unsigned long count) const {
        for (unsigned long n = 1; n <= count; ++n)
            addItem(main, n);
    }

    std::unique_ptr<RunIndex> build(unsigned long main, Keys keys) const {
        return RunIndex::build(map(), first(main), *data->entities, keys);
    }

    const RunIndex* addRun(unsigned long main, Keys keys = Keys::kMarker) const {
        return runs->add(map(), build(main, keys));
    }

    const RunIndex* find(unsigned long main, Keys keys = Keys::kMarker) const {
        return runs->find(map(), id(main).stub(), keys);
    }

    // Returns the entry that the index of the run of `main` finds for the sub id. `keys` chooses one of the
    // two indexes of the run.
    std::optional<Entry> findItem(unsigned long main, unsigned long sub, Keys keys = Keys::kMarker) const {
        const KvVector<GxDbObjectId> path;
        const GxDbObjectId mainId = id(main), subId = id(sub);
        const kvdetail::ItemKeys wanted{mainId, subId, -1, keys == Keys::kMarkerAndPath ? &path : nullptr};
        const Entry* const found = find(main, keys)->find(wanted, [&](Entry entry) {
            return kvdetail::hasKeys(*recordOf(entry), wanted);
        });
        return found ? std::optional(*found) : std::nullopt;
    }

    // Adds an entry and updates the run indexes, as the id index does.
    Entry insert(unsigned long main, unsigned long sub) {
        EXPECT_TRUE(runs->prepareEdit(map()));
        const Entry entry = addItem(main, sub);
        runs->noteAdded(map(), entry, *recordOf(entry));
        runs->follow(map());
        return entry;
    }

    void erase(Entry entry) {
        EXPECT_TRUE(runs->prepareEdit(map()));
        runs->noteErasing(map(), entry, recordOf(entry));
        const std::unique_ptr<selected_entity> record(recordOf(entry));
        kvdetail::Store::Slot* const slot = kvdetail::slotAt(entry->second);
        map().erase(entry);
        data->entities->removeSlot(slot, data->entities->pageOf(slot), true);
        --data->entityCount;
        runs->follow(map());
    }

    std::unique_ptr<SSetData> data;
    std::optional<LongRuns> runs;
};

TEST_F(LongRunsTest, HaveNoIndexAtFirst) {
    addItems(1, 100);
    EXPECT_FALSE(runs->isInUse());
    EXPECT_EQ(find(1), nullptr);
    EXPECT_FALSE(runs->prepareEdit(map()));
}

TEST_F(LongRunsTest, FindAnIndexByItsStubAndItsKeys) {
    addItems(1, 100);
    addItems(2, 100);
    const RunIndex* const added = addRun(1);
    ASSERT_NE(added, nullptr);
    EXPECT_TRUE(runs->isInUse());
    EXPECT_EQ(find(1), added);
    EXPECT_EQ(find(1, Keys::kMarkerAndPath), nullptr);
    EXPECT_EQ(find(2), nullptr);
    const RunIndex* const byPath = addRun(1, Keys::kMarkerAndPath);
    EXPECT_EQ(find(1, Keys::kMarkerAndPath), byPath);
    EXPECT_EQ(find(1), added);
}

TEST_F(LongRunsTest, KeepTheFirstOfTwoIndexesOfARun) {
    addItems(1, 100);
    const RunIndex* const added = addRun(1);
    EXPECT_EQ(addRun(1), added);
    EXPECT_EQ(find(1), added);
}

TEST_F(LongRunsTest, AddNoneWhereThereIsNone) {
    EXPECT_EQ(runs->add(map(), nullptr), nullptr);
    EXPECT_FALSE(runs->isInUse());
}

TEST_F(LongRunsTest, FindEachOfManyIndexes) {
    constexpr unsigned long kMany = 2000; // enough for several runs in each list of LongRuns
    for (unsigned long n = 1; n <= kMany; ++n)
        addItem(n, n);
    for (unsigned long n = 1; n <= kMany; ++n) {
        for (const Keys keys : kBoth)
            ASSERT_NE(addRun(n, keys), nullptr);
    }
    for (unsigned long n = 1; n <= kMany; ++n) {
        for (const Keys keys : kBoth) {
            ASSERT_NE(find(n, keys), nullptr);
            EXPECT_EQ(find(n, keys)->mainStub(), id(n).stub());
            EXPECT_EQ(find(n, keys)->keys(), keys);
        }
    }
}

TEST_F(LongRunsTest, DropTheIndexesOfOneRunOnly) {
    constexpr unsigned long kMany = 2000;
    for (unsigned long n = 1; n <= kMany; ++n) {
        addItem(n, n);
    }
    for (unsigned long n = 1; n <= kMany; ++n) {
        for (const Keys keys : kBoth)
            addRun(n, keys);
    }
    for (unsigned long n = 1; n <= kMany; n += 2)
        runs->drop(id(n).stub());
    for (unsigned long n = 1; n <= kMany; ++n) {
        for (const Keys keys : kBoth)
            ASSERT_EQ(find(n, keys) == nullptr, n % 2 == 1) << n;
    }
    EXPECT_NE(addRun(1), nullptr);
    EXPECT_NE(find(1), nullptr);
}

TEST_F(LongRunsTest, AreNotInUseOnceTheyAreCleared) {
    addItems(1, 100);
    addRun(1);
    runs->clear();
    EXPECT_FALSE(runs->isInUse());
    EXPECT_EQ(find(1), nullptr);
    EXPECT_NE(addRun(1), nullptr);
}

// ---- the id index changes

TEST_F(LongRunsTest, IndexIsNotFoundOnceTheIdIndexWasChangedUnseen) {
    addItems(1, 100);
    addRun(1);
    addItem(7, 1);
    EXPECT_EQ(find(1), nullptr);
    EXPECT_EQ(addRun(1, Keys::kMarkerAndPath), nullptr) << "other readers may be using what is outdated";
    EXPECT_EQ(find(1, Keys::kMarkerAndPath), nullptr);
}

TEST_F(LongRunsTest, EditDeletesIndexesThatAreOutdated) {
    addItems(1, 100);
    addRun(1);
    addItem(7, 1);
    EXPECT_FALSE(runs->prepareEdit(map()));
    EXPECT_FALSE(runs->isInUse());
    EXPECT_NE(addRun(1), nullptr);
    EXPECT_TRUE(runs->prepareEdit(map()));
    EXPECT_NE(find(1), nullptr);
}

TEST_F(LongRunsTest, IndexIsNotFoundForTheEntriesOfOtherData) {
    addItems(1, 100);
    addRun(1);
    const auto other = kvdetail::makeData();
    map().swap(other->dataMap);
    EXPECT_EQ(find(1), nullptr);
    map().swap(other->dataMap);
    EXPECT_NE(find(1), nullptr);
}

TEST_F(LongRunsTest, TakeNoIndexOfAMapWithoutAPool) {
    addItems(1, 100);
    const SSetData::DataMap plain(map().begin(), map().end());
    auto run = RunIndex::build(plain, plain.begin(), *data->entities, Keys::kMarker);
    EXPECT_EQ(runs->add(plain, std::move(run)), nullptr);
    EXPECT_FALSE(runs->isInUse());
}

TEST_F(LongRunsTest, FollowAnItemThatIsAdded) {
    addItems(1, 100);
    for (const Keys keys : kBoth)
        addRun(1, keys);
    const Entry added = insert(1, 101);
    for (const Keys keys : kBoth)
        EXPECT_EQ(findItem(1, 101, keys), added);
}

TEST_F(LongRunsTest, FollowAnItemOfAnotherRun) {
    addItems(1, 100);
    const RunIndex* const added = addRun(1);
    const Entry other = insert(2, 101);
    EXPECT_EQ(find(1), added);
    EXPECT_EQ(findItem(1, 101), std::nullopt);
    EXPECT_EQ(findItem(1, 100), std::prev(other));
}

TEST_F(LongRunsTest, FollowAnItemThatIsErased) {
    addItems(1, 100);
    for (const Keys keys : kBoth)
        addRun(1, keys);
    erase(std::next(first(1), 4));
    for (const Keys keys : kBoth) {
        EXPECT_EQ(findItem(1, 5, keys), std::nullopt);
        EXPECT_EQ(findItem(1, 6, keys), std::next(first(1), 4));
    }
}

TEST_F(LongRunsTest, DeleteAnIndexThatCannotFollow) {
    addItems(1, 100);
    addItems(2, 100);
    for (const Keys keys : kBoth) {
        addRun(1, keys);
        addRun(2, keys);
    }
    recordOf(first(1))->gsMarker = 99;
    erase(first(1));
    for (const Keys keys : kBoth) {
        EXPECT_EQ(find(1, keys), nullptr);
        EXPECT_NE(find(2, keys), nullptr);
    }
}

// Changes the path of an item. The path is a key of only one of the two indexes.
TEST_F(LongRunsTest, DeleteOnlyThatIndexOfARunThatCannotFollow) {
    addItems(1, 100);
    for (const Keys keys : kBoth)
        addRun(1, keys);
    recordOf(first(1))->nestedEntFullPath = kvtest::idVector({5});
    erase(first(1));
    EXPECT_EQ(find(1, Keys::kMarkerAndPath), nullptr);
    EXPECT_EQ(findItem(1, 1), std::nullopt);
    EXPECT_EQ(findItem(1, 2), first(1));
}

TEST_F(LongRunsTest, DeleteTheIndexesOfARunThatGetsASecondStub) {
    kvinmemory::makeEqual(id(1), id(900));
    addItems(1, 100);
    addItems(2, 100);
    for (const Keys keys : kBoth)
        addRun(1, keys);
    addRun(2);
    insert(900, 101);
    for (const Keys keys : kBoth)
        EXPECT_EQ(find(1, keys), nullptr);
    EXPECT_NE(find(2), nullptr);
}

// ---- without memory

TEST_F(LongRunsTest, TakeAnIndexOrNoneWithoutMemory) {
    addItems(1, 100);
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        LongRuns fresh;
        auto run = build(1, Keys::kMarker);
        const RunIndex* added = nullptr;
        const kvtest::Outcome outcome = point.run([&] { added = fresh.add(map(), std::move(run)); });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(added == nullptr, outcome.injected);
        EXPECT_EQ(fresh.find(map(), id(1).stub(), Keys::kMarker), added);
    });
}

TEST_F(LongRunsTest, DeleteAnIndexThatCannotGrow) {
    addItems(1, 100);
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        runs.emplace();
        addRun(1);
        const Entry added = addItem(1, 1000);
        const kvtest::Outcome outcome = point.run([&] { runs->noteAdded(map(), added, *recordOf(added)); });
        EXPECT_FALSE(outcome.failed);
        runs->follow(map());
        if (outcome.injected)
            EXPECT_EQ(find(1), nullptr);
        else
            EXPECT_NE(findItem(1, 1000), std::nullopt);
        runs->clear();
    });
}

} // namespace
