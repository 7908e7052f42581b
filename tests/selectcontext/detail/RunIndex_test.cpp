#include "selectcontext/detail/RunIndex.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/detail/SetData.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace {

using kvdetail::ItemKeys;
using kvdetail::Markers;
using kvdetail::RunIndex;
using kvdetail::SSetData;
using kvdetail::Store;
using kvinmemory::makeEqual;
using kvtest::id;
using Entry = RunIndex::Entry;
using Keys = RunIndex::Keys;
using Path = KvVector<GxDbObjectId>;
using Numbers = std::vector<unsigned long>;

Path pathOf(const Numbers& numbers) {
    Path path;
    path.setLogicalLength(static_cast<int>(numbers.size()));
    for (std::size_t i = 0; i < numbers.size(); ++i)
        path.at(static_cast<int>(i)) = id(numbers[i]);
    return path;
}

struct Item {
    unsigned long sub;
    long marker = -1;
    Numbers path = {};
};

// Has items of id(kMain), and next to them an item of a lower id and an item of a higher id.
class RunIndexTest : public kvtest::SetTest {
protected:
    static constexpr unsigned long kMain = 500;
    static constexpr std::size_t kFew = RunIndex::kFewestItems;

    // Makes the paths, which stay to the end of the process. The constructor does so before the test counts
    // allocations.
    RunIndexTest() { paths(); }

    void SetUp() override {
        SetTest::SetUp();
        startAgain();
    }

    void TearDown() override {
        data.reset();
        SetTest::TearDown();
    }

    void startAgain() {
        data = kvdetail::makeData();
        add({1}, kMain - 1);
        add({1}, kMain + 1);
    }

    kvdetail::IdIndex& index() const { return kvdetail::indexOf(*data); }
    SSetData::DataMap& map() const { return data->dataMap; }
    Entry first() const { return std::as_const(map()).lower_bound(id(kMain)); }
    Entry behind() const { return std::as_const(map()).upper_bound(id(kMain)); }
    Entry entryAt(std::size_t i) const { return std::next(first(), static_cast<std::ptrdiff_t>(i)); }

    static selected_entity* recordOf(Entry entry) { return kvdetail::slotAt(entry->second)->value; }

    // Adds an item behind all other items of the main id. Returns the entry of the item.
    Entry add(const Item& item, unsigned long main = kMain) const {
        auto record = std::make_unique<selected_entity>();
        record->mainEntId = id(main);
        record->subEntId = id(item.sub);
        record->gsMarker = item.marker;
        record->nestedEntFullPath = pathOf(item.path);
        kvdetail::appendRecord(*data, std::move(record), index().endOf(id(main)));
        return std::prev(index().endOf(id(main)));
    }

    void addAll(const std::vector<Item>& items) const {
        for (const Item& item : items)
            add(item);
    }

    // Adds items with the sub ids id(1) to id(count).
    void addSubs(unsigned long count) const {
        for (unsigned long n = 1; n <= count; ++n)
            add({n});
    }

    // Adds items with few different sub ids, markers and paths, so that many items have equal keys.
    void addMixed(unsigned long count, const std::vector<long>& markers) const {
        std::mt19937 random(2);
        for (unsigned long n = 0; n < count; ++n)
            add(Item{random() % 12, markers[random() % markers.size()], paths()[random() % paths().size()]});
    }

    static const std::vector<Numbers>& paths() {
        static const std::vector<Numbers> all{{}, {1}, {2}, {1, 2}, {2, 1}, {0}};
        return all;
    }

    std::unique_ptr<RunIndex> build(Keys keys) const {
        return RunIndex::build(map(), first(), *data->entities, keys);
    }

    // Removes the entry from the map, and deletes the record of its item. Returns what noteErasing() returns.
    bool erase(RunIndex& run, Entry entry) const {
        const bool isUpdated = run.noteErasing(map(), entry, recordOf(entry));
        const std::unique_ptr<selected_entity> record(recordOf(entry));
        Store::Slot* const slot = kvdetail::slotAt(entry->second);
        map().erase(entry);
        data->entities->removeSlot(slot, data->entities->pageOf(slot), true);
        --data->entityCount;
        return isUpdated;
    }

    Entry addTo(RunIndex& run, const Item& item) const {
        const Entry entry = add(item);
        EXPECT_TRUE(run.noteAdded(entry, *recordOf(entry)));
        return entry;
    }

    static bool hasKeys(Entry entry, const ItemKeys& keys) {
        return recordOf(entry) && kvdetail::hasKeys(*recordOf(entry), keys);
    }

    Entry walkTo(const ItemKeys& keys) const {
        return std::find_if(first(), behind(), [&](const auto& entry) {
            const selected_entity* const record = kvdetail::slotAt(entry.second)->value;
            return record && kvdetail::hasKeys(*record, keys);
        });
    }

    // Returns the entry that `run` finds. Returns the place behind the run if `run` finds none.
    static Entry findIn(const RunIndex& run, const ItemKeys& keys) {
        const Entry* const found = run.find(keys, [&](Entry entry) { return hasKeys(entry, keys); });
        return found ? *found : run.end();
    }

    // Expects that `run` finds the items that a walk finds, for all combinations of keys.
    void expectFindsAsAWalk(const RunIndex& run, const Numbers& subs,
                            const std::vector<long>& markers) const {
        std::vector<Path> all;
        for (const Numbers& numbers : paths())
            all.push_back(pathOf(numbers));
        for (const unsigned long sub : subs) {
            const GxDbObjectId main = id(kMain), subId = id(sub);
            for (const long marker : markers) {
                for (const Markers which : {Markers::kEqual, Markers::kExact, Markers::kAny}) {
                    for (const Path& path : all) {
                        const Path* const wanted = run.keys() == Keys::kMarkerAndPath ? &path : nullptr;
                        const ItemKeys keys{main, subId, marker, wanted, which};
                        if (!run.canFind(keys))
                            continue;
                        ASSERT_EQ(findIn(run, keys), walkTo(keys)) << "sub " << sub << " marker " << marker
                                                                   << " of kind " << static_cast<int>(which);
                    }
                }
            }
        }
    }

    void expectFindsAsAWalk(const RunIndex& run) const {
        Numbers subs;
        for (unsigned long n = 0; n <= 14; ++n)
            subs.push_back(n);
        expectFindsAsAWalk(run, subs, {-1, 0, 1, 2, 3, 4, 5, 99});
    }

    void expectFinds(const RunIndex& run, unsigned long sub, Entry wanted, long marker = -1) const {
        EXPECT_EQ(findIn(run, {id(kMain), id(sub), marker, nullptr}), wanted) << sub;
    }

    std::unique_ptr<SSetData> data;
};

class RunIndexByKeys : public RunIndexTest, public ::testing::WithParamInterface<Keys> {};

INSTANTIATE_TEST_SUITE_P(, RunIndexByKeys, ::testing::Values(Keys::kMarker, Keys::kMarkerAndPath),
                         [](const auto& keys) {
                             return keys.param == Keys::kMarker ? "Marker" : "MarkerAndPath";
                         });

// ---- finding

TEST_F(RunIndexTest, KeysForALookUpHaveThePathIfThereIsOne) {
    const Path path;
    EXPECT_EQ(RunIndex::keysFor({id(1), id(2), 0, nullptr}), Keys::kMarker);
    EXPECT_EQ(RunIndex::keysFor({id(1), id(2), 0, &path}), Keys::kMarkerAndPath);
}

TEST_P(RunIndexByKeys, FindsTheFirstItemWithTheKeys) {
    addMixed(400, {-1, 0, 1, 5});
    const auto run = build(GetParam());
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(run->mainStub(), id(kMain).stub());
    EXPECT_EQ(run->keys(), GetParam());
    expectFindsAsAWalk(*run);
}

TEST_P(RunIndexByKeys, FindsTheFirstItemAmongManyMarkers) {
    addMixed(400, {1, -1, 2, 3, 0, 4, 5});
    const auto run = build(GetParam());
    ASSERT_NE(run, nullptr);
    expectFindsAsAWalk(*run);
}

TEST_P(RunIndexByKeys, FindsInARunWhoseMarkersAreAllNone) {
    addMixed(200, {-1});
    expectFindsAsAWalk(*build(GetParam()));
    startAgain();
    addMixed(200, {0});
    expectFindsAsAWalk(*build(GetParam()));
}

TEST_F(RunIndexTest, FindsAnyMarkerAmongFourButNotAmongFive) {
    addMixed(100, {-1, 0, 1, 5});
    const auto run = build(Keys::kMarker);
    const GxDbObjectId main = id(kMain), sub = id(3);
    const ItemKeys any{main, sub, 0, nullptr, Markers::kAny};
    EXPECT_TRUE(run->canFind(any));
    addTo(*run, {3, 7});
    EXPECT_FALSE(run->canFind(any));
    EXPECT_TRUE(run->canFind({main, sub, 0, nullptr, Markers::kEqual}));
    EXPECT_TRUE(run->canFind({main, sub, 0, nullptr, Markers::kExact}));
    expectFindsAsAWalk(*run);
}

TEST_F(RunIndexTest, GoesOnToTheNextItemWithTheKeysUntilOnePasses) {
    addAll({{7, 0}, {8, 0}, {7, -1}, {7, 0}, {7, -1}, {7, 5}});
    const auto run = build(Keys::kMarker);
    const GxDbObjectId main = id(kMain), sub = id(7);
    std::vector<std::ptrdiff_t> asked;
    const auto noneOf = [&](Entry entry) {
        asked.push_back(std::distance(first(), entry));
        return false;
    };
    EXPECT_EQ(run->find({main, sub, 0, nullptr}, noneOf), nullptr);
    EXPECT_EQ(asked, (std::vector<std::ptrdiff_t>{0, 2, 3, 4}));
    asked.clear();
    EXPECT_EQ(run->find({main, sub, 0, nullptr, Markers::kAny}, noneOf), nullptr);
    EXPECT_EQ(asked, (std::vector<std::ptrdiff_t>{0, 2, 3, 4, 5}));
    asked.clear();
    EXPECT_EQ(run->find({main, sub, 0, nullptr, Markers::kExact}, noneOf), nullptr);
    EXPECT_EQ(asked, (std::vector<std::ptrdiff_t>{0, 3}));
}

TEST_F(RunIndexTest, OrderOfThePathCounts) {
    addAll({{7, -1, {1, 2}}, {7, -1, {2, 1}}, {7, -1, {1}}, {7, -1, {}}});
    const auto run = build(Keys::kMarkerAndPath);
    for (std::size_t i = 0; i < 4; ++i) {
        const GxDbObjectId main = id(kMain), sub = id(7);
        const Path path = recordOf(entryAt(i))->nestedEntFullPath;
        EXPECT_EQ(findIn(*run, {main, sub, -1, &path}), entryAt(i)) << i;
    }
}

TEST_F(RunIndexTest, EndIsTheEntryBehindTheRun) {
    addSubs(100);
    const auto run = build(Keys::kMarker);
    EXPECT_EQ(run->end(), behind());
    addTo(*run, {500});
    EXPECT_EQ(run->end(), behind());
    ASSERT_TRUE(erase(*run, entryAt(100)));
    ASSERT_TRUE(erase(*run, entryAt(99)));
    ASSERT_TRUE(erase(*run, entryAt(0)));
    EXPECT_EQ(run->end(), behind());
    EXPECT_EQ(run->end()->first, id(kMain + 1));
}

// An entry that is added after an erasure gets the node of the erased entry.
TEST_F(RunIndexTest, EndIsNotThatOfALastEntryThatWasErased) {
    addSubs(100);
    const auto run = build(Keys::kMarker);
    ASSERT_TRUE(erase(*run, entryAt(99)));
    add({1}, kMain - 2);
    EXPECT_EQ(run->end(), behind());
    ASSERT_TRUE(erase(*run, entryAt(98)));
    add({1}, kMain + 2);
    EXPECT_EQ(run->end(), behind());
}

TEST_F(RunIndexTest, EndOfTheLastRunIsThatOfTheMap) {
    addSubs(100);
    const auto run =
        RunIndex::build(map(), std::as_const(map()).find(id(kMain + 1)), *data->entities, Keys::kMarker);
    EXPECT_EQ(run->end(), std::as_const(map()).end());
}

TEST_F(RunIndexTest, LeavesEntriesWithoutARecordOut) {
    addSubs(100);
    std::vector<std::unique_ptr<selected_entity>> taken;
    for (const std::size_t i : {0u, 50u, 99u})
        taken.emplace_back(std::exchange(kvdetail::slotAt(entryAt(i)->second)->value, nullptr));
    const auto run = build(Keys::kMarker);
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(run->end(), behind());
    expectFinds(*run, 1, run->end());
    expectFinds(*run, 2, entryAt(1));
    expectFinds(*run, 99, entryAt(98));
    addTo(*run, {1});
    expectFinds(*run, 1, entryAt(100));
}

// Some look-ups pass `candidate` entries with other keys than the wanted ones. The hash of the other keys is
// then equal to the hash of the wanted keys.
TEST_F(RunIndexTest, TellsItemsWithEqualHashesApart) {
    constexpr unsigned long kMany = 200000;
    addSubs(kMany);
    const auto run = build(Keys::kMarker);
    std::size_t asked = 0;
    std::vector<Entry> shared;
    Entry entry = first();
    for (unsigned long n = 1; n <= kMany; ++n, ++entry) {
        const GxDbObjectId main = id(kMain), sub = id(n);
        const ItemKeys keys{main, sub, -1, nullptr};
        const std::size_t before = asked;
        const Entry* const found = run->find(keys, [&](Entry candidate) {
            ++asked;
            return hasKeys(candidate, keys);
        });
        ASSERT_TRUE(found && *found == entry) << n;
        if (asked - before > 1)
            shared.push_back(entry);
    }
    ASSERT_FALSE(shared.empty()) << "the test needs more items";
    EXPECT_LT(asked, kMany + 100);
    for (const Entry one : shared) {
        const unsigned long n = kvtest::numberOf(recordOf(one)->subEntId);
        ASSERT_TRUE(erase(*run, one));
        expectFinds(*run, n, run->end());
    }
}

// ---- several stubs of one object

TEST_P(RunIndexByKeys, FindsTheFirstItemByWhicheverStub) {
    makeEqual(id(2), id(12));
    makeEqual(id(3), id(13));
    makeEqual(id(3), id(14));
    addMixed(100, {-1, 0, 1});
    for (const unsigned long n : {13ul, 12ul, 2ul, 3ul, 12ul, 13ul}) {
        for (const Numbers& path : paths())
            add({n, 1, path});
    }
    expectFindsAsAWalk(*build(GetParam()));
}

TEST_F(RunIndexTest, FindsPathsByWhicheverStub) {
    makeEqual(id(1), id(40));
    makeEqual(id(2), id(41));
    addAll({{7, -1, {40, 2}}, {7, -1, {1, 2}}, {7, -1, {2, 40}}, {7, -1, {41}}});
    const auto run = build(Keys::kMarkerAndPath);
    const GxDbObjectId main = id(kMain), sub = id(7);
    const std::pair<Numbers, std::size_t> expected[] = {{{1, 41}, 0}, {{40, 2}, 0}, {{1, 2}, 0}, {{41, 1}, 2},
                                                        {{2, 1}, 2},  {{2}, 3},     {{41}, 3},   {{1}, 4}};
    for (const auto& [numbers, position] : expected) {
        const Path path = pathOf(numbers);
        EXPECT_EQ(findIn(*run, {main, sub, -1, &path}), entryAt(position));
    }
}

TEST_F(RunIndexTest, NullSubIdMayEqualAnother) {
    makeEqual(id(9), GxDbObjectId());
    addAll({{1}, {9}, {0}, {2}});
    const auto run = build(Keys::kMarker);
    expectFinds(*run, 0, entryAt(1));
    expectFinds(*run, 9, entryAt(1));
}

TEST_F(RunIndexTest, StubsOfOneObjectAreErasedOneByOne) {
    makeEqual(id(3), id(300));
    addSubs(100);
    const auto run = build(Keys::kMarker);
    addTo(*run, {300});
    expectFinds(*run, 300, entryAt(2));
    ASSERT_TRUE(erase(*run, entryAt(2)));
    expectFinds(*run, 3, entryAt(99));
    expectFinds(*run, 300, entryAt(99));
    ASSERT_TRUE(erase(*run, entryAt(99)));
    expectFinds(*run, 3, run->end());
    expectFinds(*run, 300, run->end());
}

TEST_P(RunIndexByKeys, RunOfTwoStubsOfOneMainIdHasNoIndex) {
    makeEqual(id(kMain), id(kMain + 200));
    addSubs(100);
    add({101}, kMain + 200);
    EXPECT_EQ(build(GetParam()), nullptr);
}

TEST_F(RunIndexTest, EntryOfAnotherStubOfTheMainIdEndsTheIndex) {
    makeEqual(id(kMain), id(kMain + 200));
    addSubs(100);
    const auto run = build(Keys::kMarker);
    const Entry entry = add({101}, kMain + 200);
    EXPECT_FALSE(run->noteAdded(entry, *recordOf(entry)));
}

// ---- items that come and go

TEST_P(RunIndexByKeys, FindsItemsThatWereAdded) {
    addMixed(100, {-1, 1});
    const auto run = build(GetParam());
    std::mt19937 random(7);
    for (const long marker : {0l, 1l, 2l, 3l, -1l, 4l, 5l}) {
        for (int i = 0; i < 20; ++i)
            addTo(*run, {random() % 14, marker, paths()[random() % paths().size()]});
        expectFindsAsAWalk(*run);
    }
}

TEST_P(RunIndexByKeys, FindsWhatIsLeftWhileItemsComeAndGo) {
    addMixed(500, {-1, 0, 1, 5});
    auto run = build(GetParam());
    std::mt19937 random(9);
    int ended = 0;
    for (int step = 0; step < 600; ++step) {
        const auto size = static_cast<unsigned>(std::distance(first(), behind()));
        if (random() % 3 == 0) {
            addTo(*run,
                  {random() % 12, static_cast<long>(random() % 3) - 1, paths()[random() % paths().size()]});
        } else if (!erase(*run, entryAt(random() % size))) {
            ++ended;
            run = build(GetParam());
        }
        if (step % 50 == 0)
            expectFindsAsAWalk(*run);
    }
    EXPECT_GT(ended, 0);
    EXPECT_LT(ended, 8);
}

TEST_F(RunIndexTest, ErasesFirstMiddleAndLastItemOfEqualKeys) {
    for (const std::size_t gone : {0u, 1u, 2u, 3u}) {
        startAgain();
        addAll({{7}, {7}, {7}, {7}});
        addSubs(100);
        const auto run = build(Keys::kMarker);
        std::vector<Entry> expected;
        for (std::size_t i = 0; i < 4; ++i) {
            if (i != gone)
                expected.push_back(entryAt(i));
        }
        expected.push_back(entryAt(4 + 6)); // the entry that addSubs() added
        ASSERT_TRUE(erase(*run, entryAt(gone)));
        expected.push_back(addTo(*run, {7}));
        std::vector<Entry> found;
        const GxDbObjectId main = id(kMain), sub = id(7);
        run->find({main, sub, -1, nullptr}, [&](Entry entry) {
            found.push_back(entry);
            return false;
        });
        EXPECT_EQ(found, expected) << "without number " << gone;
    }
}

TEST_F(RunIndexTest, ItemAddedBehindTheErasedLastOfItsKeysIsFound) {
    addSubs(100);
    const auto run = build(Keys::kMarker);
    const Entry second = addTo(*run, {7});
    ASSERT_TRUE(erase(*run, second));
    const Entry third = addTo(*run, {7});
    ASSERT_TRUE(erase(*run, entryAt(6)));
    expectFinds(*run, 7, third);
    ASSERT_TRUE(erase(*run, third));
    expectFinds(*run, 7, run->end());
    expectFinds(*run, 7, addTo(*run, {7}));
}

TEST_F(RunIndexTest, ItemWithoutAReadableRecordEndsTheIndex) {
    addSubs(100);
    EXPECT_FALSE(build(Keys::kMarker)->noteErasing(map(), entryAt(5), nullptr));
}

TEST_P(RunIndexByKeys, ItemWhoseKeysWereChangedByHandEndsTheIndex) {
    addSubs(100);
    recordOf(entryAt(5))->gsMarker = 0;
    const auto run = build(GetParam());
    recordOf(entryAt(5))->gsMarker = -1;
    EXPECT_FALSE(run->noteErasing(map(), entryAt(5), recordOf(entryAt(5))));
    recordOf(entryAt(6))->subEntId = id(90);
    EXPECT_FALSE(run->noteErasing(map(), entryAt(6), recordOf(entryAt(6))));
    recordOf(entryAt(7))->subEntId = id(900);
    EXPECT_FALSE(run->noteErasing(map(), entryAt(7), recordOf(entryAt(7))));
}

TEST_F(RunIndexTest, ItemWhosePathWasChangedByHandEndsTheIndexByPath) {
    addSubs(100);
    const auto run = build(Keys::kMarkerAndPath);
    recordOf(entryAt(5))->nestedEntFullPath = pathOf({4});
    EXPECT_FALSE(run->noteErasing(map(), entryAt(5), recordOf(entryAt(5))));
}

TEST_F(RunIndexTest, ItemThatWasNotAddedEndsTheIndex) {
    addSubs(100);
    const auto run = build(Keys::kMarker);
    const Entry unknown = add({7});
    EXPECT_FALSE(run->noteErasing(map(), unknown, recordOf(unknown)));
}

// The application makes the main id the first in its order, which it must not do. So an item that is added is
// before the others of its run.
TEST_F(RunIndexTest, LastItemInFrontOfTheOthersEndsTheIndexWhenItIsErased) {
    for (unsigned long main = 2; main < kMain; ++main)
        add({1}, main);
    addSubs(100);
    const auto run = build(Keys::kMarker);
    kvinmemory::makeEqual(id(kMain), id(1));
    const Entry last = addTo(*run, {200});
    ASSERT_EQ(last, map().begin());
    EXPECT_FALSE(run->noteErasing(map(), last, recordOf(last)));
}

TEST_F(RunIndexTest, IndexOfFewItemsEnds) {
    addSubs(kFew);
    const auto run = build(Keys::kMarker);
    std::size_t erased = 0;
    while (erase(*run, first()))
        ++erased;
    EXPECT_EQ(erased, kFew / 2);
}

TEST_F(RunIndexTest, IndexEndsWhenMoreItemsAreErasedThanLeft) {
    addSubs(1000);
    const auto run = build(Keys::kMarker);
    std::size_t erased = 0;
    while (erase(*run, first()))
        ++erased;
    EXPECT_EQ(erased, 500u);
}

TEST_F(RunIndexTest, PathThatBecomesEqualPutsItsItemInTheOrderOfTheRun) {
    for (unsigned long n = 0; n < 100; ++n)
        add({5, 0, {n % 2 == 0 ? 1ul : 2ul}});
    const auto run = build(Keys::kMarkerAndPath);
    for (const std::size_t moved : {11u, 1u, 99u}) {
        const Entry entry = entryAt(moved);
        ASSERT_TRUE(run->noteChangingPath(entry->second, *recordOf(entry), pathOf({1})));
        recordOf(entry)->nestedEntFullPath = pathOf({1});
        expectFindsAsAWalk(*run);
    }
    std::vector<Entry> found;
    const GxDbObjectId main = id(kMain), sub = id(5);
    const Path path = pathOf({1});
    run->find({main, sub, 0, &path}, [&](Entry entry) {
        found.push_back(entry);
        return false;
    });
    ASSERT_EQ(found.size(), 53u);
    EXPECT_EQ(found[1], entryAt(1));
    EXPECT_EQ(found[7], entryAt(11));
    EXPECT_EQ(found.back(), entryAt(99));
}

TEST_F(RunIndexTest, ChangedPathOfAnItemThatIsNotFoundEndsTheIndex) {
    addSubs(100);
    const auto run = build(Keys::kMarkerAndPath);
    const Entry entry = entryAt(7);
    recordOf(entry)->subEntId = id(777);
    EXPECT_FALSE(run->noteChangingPath(entry->second, *recordOf(entry), pathOf({1})));
}

// ---- what it costs

TEST_P(RunIndexByKeys, AsksAboutOneItemHoweverManyThereAre) {
    addSubs(20000);
    const auto run = build(GetParam());
    const Path path;
    long asked = 0;
    kvinmemory::countIdComparisons(true);
    for (unsigned long n = 1; n <= 20000; ++n) {
        const GxDbObjectId main = id(kMain), sub = id(n);
        const ItemKeys keys{main, sub, 0, GetParam() == Keys::kMarkerAndPath ? &path : nullptr};
        ASSERT_NE(run->find(keys,
                            [&](Entry entry) {
                                ++asked;
                                return hasKeys(entry, keys);
                            }),
                  nullptr);
    }
    EXPECT_LE(asked, 20010);
    EXPECT_LE(kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls(), 10) << "items of equal hashes";
}

TEST_F(RunIndexTest, SubIdsInNoOrderAreIndexedWithFewComparisons) {
    Numbers numbers;
    for (unsigned long n = 1; n <= 10000; ++n)
        numbers.push_back(n);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(3));
    for (const unsigned long n : numbers)
        add({n});
    kvinmemory::countIdComparisons(true);
    const auto run = build(Keys::kMarker);
    EXPECT_LE(kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls(), 60000);
}

// ---- without memory

TEST_P(RunIndexByKeys, IsBuiltWithoutMemoryOrNotAtAll) {
    addMixed(150, {-1, 0, 1});
    int built = 0;
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        std::unique_ptr<RunIndex> run;
        const kvtest::Outcome outcome = point.run([&] { run = build(GetParam()); });
        EXPECT_FALSE(outcome.failed);
        EXPECT_TRUE(run || outcome.injected);
        built += run ? 1 : 0;
        if (run)
            expectFindsAsAWalk(*run);
    });
    EXPECT_GT(built, 0);
}

TEST_P(RunIndexByKeys, GrowsOrSaysThatItCannot) {
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        startAgain();
        addMixed(70, {-1, 0, 1});
        const auto run = build(GetParam());
        for (unsigned long n = 1; n <= 200; ++n)
            add({100 + n, -1, {1000 + n}});
        bool isUpdated = true;
        const kvtest::Outcome outcome = point.run([&] {
            for (Entry entry = entryAt(70); isUpdated && entry != behind(); ++entry)
                isUpdated = run->noteAdded(entry, *recordOf(entry));
        });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(isUpdated, !outcome.injected);
        if (isUpdated)
            expectFindsAsAWalk(*run);
        data.reset();
    });
}

TEST_F(RunIndexTest, ChangesAPathOrSaysThatItCannot) {
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        startAgain();
        addSubs(200);
        const auto run = build(Keys::kMarkerAndPath);
        std::vector<Path> paths;
        for (unsigned long n = 0; n < 200; ++n)
            paths.push_back(pathOf({1000 + n}));
        bool isUpdated = true;
        const kvtest::Outcome outcome = point.run([&] {
            for (std::size_t i = 0; isUpdated && i < paths.size(); ++i) {
                isUpdated = run->noteChangingPath(entryAt(i)->second, *recordOf(entryAt(i)), paths[i]);
                recordOf(entryAt(i))->nestedEntFullPath = paths[i];
            }
        });
        EXPECT_EQ(isUpdated, !outcome.injected);
        data.reset();
    });
}

TEST_P(RunIndexByKeys, ErasesWithoutMemory) {
    kvtest::forEachAllocationFailure(
        [&](kvtest::FailurePoint& point) {
            startAgain();
            addMixed(150, {-1, 0, 1});
            const auto run = build(GetParam());
            point.run([&] {
                for (const std::size_t i : {140u, 70u, 0u})
                    EXPECT_TRUE(run->noteErasing(map(), entryAt(i), recordOf(entryAt(i))));
            });
            data.reset();
        },
        kvtest::Expect::None);
}

} // namespace
