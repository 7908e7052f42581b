#include "selectcontext/detail/IdIndex.h"

#include "base/detail/Shortcuts.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/detail/SetData.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace {

using kvdetail::DataMap;
using kvdetail::IdIndex;
using kvdetail::Store;
using kvtest::ascending;
using kvtest::fillStore;
using kvtest::id;
using kvtest::isIndexed;
using kvtest::Numbers;
using kvtest::shuffled;

Numbers descending(std::size_t count) {
    Numbers numbers = ascending(count);
    std::reverse(numbers.begin(), numbers.end());
    return numbers;
}

// Returns the numbers of `count` ids in random order. The numbers are from 1 to 97, so most of them come many
// times.
Numbers repeated(std::size_t count, unsigned seed) {
    Numbers numbers = shuffled(count, seed);
    for (unsigned long& n : numbers)
        n = n % 97 + 1;
    return numbers;
}

std::vector<Store::Slot*> slotsOf(const Store& store) {
    return kvtest::occupiedSlots(store);
}

using Entries = std::vector<std::pair<const GxDbStub*, unsigned long>>;

Entries entriesOf(const DataMap& map) {
    Entries entries;
    for (const auto& entry : map)
        entries.emplace_back(entry.first.stub(), entry.second);
    return entries;
}

// Has data that no set uses, with the index of the data.
class IdIndexTest : public kvtest::SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        startAgain();
    }

    void TearDown() override {
        data.reset();
        SetTest::TearDown();
    }

    void startAgain() { data = kvdetail::makeData(); }

    IdIndex& index() const { return kvdetail::indexOf(*data); }
    DataMap& map() const { return data->dataMap; }
    Store& store() const { return *data->entities; }

    // Adds an entry behind the other entries of id(n).
    IdIndex::Entry add(unsigned long n) const {
        return index().insert(index().endOf(id(n)), id(n), slotNumber(n));
    }

    void addAll(const Numbers& numbers) const {
        for (const unsigned long n : numbers)
            add(n);
    }

    // Returns the address of a slot that does not exist. Entries may have any address, since an index without
    // run indexes reads no slots.
    static const Store::Slot* slotNumber(unsigned long n) { return kvdetail::slotAt(16 * n); }

    bool hasHash() const { return index().currentHash() != nullptr; }

    // Expects that the run is at the first entry of the id. For an id without entries, the run must be at the
    // place where an entry of the id belongs.
    void expectRun(const IdIndex::Run& run, const GxDbObjectId& wanted) const {
        const auto first = std::as_const(map()).lower_bound(wanted);
        EXPECT_EQ(run.isHeld, first != map().end() && first->first == wanted);
        EXPECT_EQ(run.entry, first);
    }

    void expectFinds(unsigned long n) const {
        SCOPED_TRACE(::testing::Message() << "id " << n);
        expectRun(index().find(id(n)), id(n));
        expectRun(index().findToRemove(id(n)), id(n));
        EXPECT_EQ(index().endOf(id(n)), std::as_const(map()).upper_bound(id(n)));
    }

    void expectFindsAll(unsigned long last) const {
        for (unsigned long n = 0; n <= last && !HasFailure(); ++n)
            expectFinds(n);
    }

    std::unique_ptr<kvdetail::SSetData> data;
};

// ---- looking ids up, with and without a hash

enum class Hash { kNone, kMade };

class IdIndexLookUp : public IdIndexTest, public ::testing::WithParamInterface<Hash> {
protected:
    // Adds a hundred ids. Every tenth of them has four entries, and the rest have one. The odd ids are not
    // in the index.
    void fill() const {
        for (const unsigned long n : shuffled(100, 1))
            add(2 * n);
        for (const unsigned long n : shuffled(10, 2)) {
            for (int i = 0; i < 3; ++i)
                add(20 * n);
        }
        prepare();
    }

    // Makes the hash, or drops it. Must be called before each look-up, since a look-up may make a hash.
    void prepare() const {
        if (GetParam() == Hash::kMade)
            index().expectSearches();
        else
            index().dropHints();
        ASSERT_EQ(hasHash(), kvdetail::kHasIdHash && GetParam() == Hash::kMade);
    }
};

INSTANTIATE_TEST_SUITE_P(, IdIndexLookUp, ::testing::Values(Hash::kNone, Hash::kMade),
                         [](const auto& hash) { return hash.param == Hash::kMade ? "Hash" : "NoHash"; });

TEST_P(IdIndexLookUp, FindsTheFirstEntryOfEveryIdAndThePlacesOfTheOthers) {
    fill();
    for (unsigned long n = 0; n <= 210; ++n) {
        prepare();
        expectFinds(n);
    }
}

TEST_P(IdIndexLookUp, FindsFromEveryPlaceThatIsNotBehindTheId) {
    fill();
    for (unsigned long n = 0; n <= 210; ++n) {
        prepare();
        const auto first = std::as_const(map()).lower_bound(id(n));
        for (auto place = index().begin(); !HasFailure(); ++place) {
            expectRun(index().findFrom(place, id(n)), id(n));
            if (place == first)
                break;
        }
    }
}

TEST_P(IdIndexLookUp, GoesFromEntryToEntryOfAnIdAndBehindThem) {
    fill();
    for (const unsigned long n : {2ul, 20ul, 100ul, 200ul}) {
        prepare();
        IdIndex::Run run = index().find(id(n));
        for (auto entry = std::as_const(map()).lower_bound(id(n)); entry != map().upper_bound(id(n));
             ++entry) {
            ASSERT_TRUE(run.isHeld);
            ASSERT_EQ(run.entry, entry);
            index().next(run, id(n));
        }
        EXPECT_FALSE(run.isHeld);
        EXPECT_EQ(run.entry, index().endOf(id(n)));
    }
}

TEST_P(IdIndexLookUp, TellsTheFirstEntryOfEachId) {
    fill();
    for (auto entry = index().begin(); entry != index().end(); ++entry)
        EXPECT_EQ(index().isFirst(entry), entry == map().lower_bound(entry->first));
}

TEST_P(IdIndexLookUp, FindsTheNullId) {
    fill();
    expectFinds(0);
    add(0);
    add(0);
    prepare();
    expectFindsAll(5);
    EXPECT_TRUE(index().find(GxDbObjectId()).isHeld);
}

TEST_P(IdIndexLookUp, FindsAnObjectByEachOfItsStubs) {
    kvinmemory::makeEqual(id(30), id(301));
    kvinmemory::makeEqual(id(40), id(302));
    kvinmemory::makeEqual(id(1), id(303)); // neither id is in the index
    fill();
    for (const unsigned long n : {30ul, 301ul, 40ul, 302ul, 1ul, 303ul}) {
        prepare();
        expectFinds(n);
    }
    EXPECT_TRUE(index().find(id(301)).isHeld);
    EXPECT_FALSE(index().find(id(303)).isHeld);
}

TEST_P(IdIndexLookUp, FollowsTheEntriesThatComeAndGo) {
    fill();
    std::mt19937 random(5);
    for (int step = 0; step < 2000; ++step) {
        const unsigned long n = random() % 230;
        if (random() % 2 == 0) {
            const auto place = index().endOf(id(n));
            const auto added = index().insert(place, id(n), slotNumber(500 + n));
            ASSERT_EQ(std::next(added), place);
            ASSERT_EQ(added->first.stub(), id(n).stub());
            ASSERT_EQ(added->second, kvdetail::slotAddress(slotNumber(500 + n)));
        } else if (index().size() > 60) {
            index().erase(std::next(index().begin(), static_cast<long>(random() % index().size())));
        }
        ASSERT_EQ(hasHash(), GetParam() == Hash::kMade && kvdetail::kHasIdHash);
        expectFinds(n);
        ASSERT_FALSE(HasFailure());
        prepare();
    }
    expectFindsAll(240);
}

TEST_P(IdIndexLookUp, EntriesOfAnIdStayInTheOrderInWhichTheyWereAdded) {
    fill();
    for (unsigned long n = 1; n <= 5; ++n)
        index().insert(index().endOf(id(50)), id(50), slotNumber(600 + n));
    index().erase(std::next(index().find(id(50)).entry, 2));
    std::vector<unsigned long> found;
    for (IdIndex::Run run = index().find(id(50)); run.isHeld; index().next(run, id(50)))
        found.push_back(run.entry->second / 16);
    EXPECT_EQ(found, (std::vector<unsigned long>{50, 601, 603, 604, 605}));
}

TEST_P(IdIndexLookUp, ErasesTheOneEntry) {
    fill();
    for (const int ordinal : {0, 3, 1, 0, 0}) {
        Entries expected = entriesOf(map());
        const IdIndex::Run run = index().find(id(40));
        if (!run.isHeld)
            break;
        const auto entry = std::next(run.entry, ordinal);
        expected.erase(expected.begin() + std::distance(index().begin(), entry));
        index().erase(entry);
        EXPECT_EQ(entriesOf(map()), expected);
        expectFindsAll(210);
    }
    EXPECT_FALSE(index().find(id(40)).isHeld);
}

TEST_P(IdIndexLookUp, ErasingNeedsNoMemory) {
    kvtest::forEachAllocationFailure(
        [this](kvtest::FailurePoint& point) {
            startAgain();
            fill();
            point.run([this] {
                while (index().size() > 0)
                    index().erase(index().begin());
            });
        },
        kvtest::Expect::None);
}

// ---- the hash

class IdIndexHash : public IdIndexTest {
protected:
    static constexpr unsigned long kEntries = 160;

    void SetUp() override {
        IdIndexTest::SetUp();
        addAll(ascending(kEntries));
    }

    void findOften(unsigned long times) const {
        for (unsigned long n = 1; n <= times; ++n)
            EXPECT_TRUE(index().find(id(n)).isHeld);
    }
};

TEST_F(IdIndexHash, IsMadeOnceSearchesHaveCostAsMuch) {
    EXPECT_FALSE(hasHash());
    findOften(kEntries / 16 - 1);
    EXPECT_FALSE(hasHash());
    findOften(1);
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

TEST_F(IdIndexHash, IsNotMadeForIdsThatAreNotFound) {
    for (unsigned long n = kEntries + 1; n <= 10 * kEntries; ++n)
        EXPECT_FALSE(index().find(id(n)).isHeld);
    EXPECT_FALSE(index().find(GxDbObjectId()).isHeld);
    EXPECT_FALSE(hasHash());
}

TEST_F(IdIndexHash, IsMadeAtOnceWhereManySearchesAreExpected) {
    index().expectSearches();
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

TEST_F(IdIndexHash, IsMadeForNoFewEntries) {
    startAgain();
    addAll(ascending(10));
    index().expectSearches();
    for (int i = 0; i < 100; ++i)
        expectFinds(5);
    EXPECT_FALSE(hasHash());
}

TEST_F(IdIndexHash, IsMadeFrom48EntriesOn) {
    startAgain();
    addAll(ascending(47));
    index().expectSearches();
    EXPECT_FALSE(hasHash());
    add(48);
    index().expectSearches();
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

TEST_F(IdIndexHash, IsMadeBySearchesForRemovalsFrom1000EntriesOn) {
    constexpr unsigned long kMany = 1000;
    startAgain();
    addAll(ascending(kMany - 1));
    for (unsigned long n = 2; n < kMany - 1; ++n)
        EXPECT_TRUE(index().findToRemove(id(n)).isHeld);
    EXPECT_FALSE(hasHash());
    add(kMany);
    for (unsigned long n = 2; n < kMany; ++n)
        EXPECT_TRUE(index().findToRemove(id(n)).isHeld);
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

// The whole hash has some 250 pages, and allocates most of them twice.
TEST_F(IdIndexTest, LongIndexIsHashedAPartWithEachSearch) {
    constexpr unsigned long kMany = 20000;
    addAll(ascending(kMany));
    unsigned long searches = 0;
    while (!hasHash() && searches < kMany) {
        const long before = kvtest::newCalls();
        EXPECT_TRUE(index().find(id(++searches)).isHeld);
        ASSERT_LE(kvtest::newCalls() - before, 100) << searches;
    }
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
    if (kvdetail::kHasIdHash) {
        EXPECT_LE(searches, kMany / 8);
    }
}

TEST_F(IdIndexTest, HashMadeInPartsFollowsEditsBetweenThem) {
    constexpr unsigned long kMany = 4000;
    std::mt19937 random(4);
    addAll(shuffled(kMany, 1));
    for (int step = 0; step < 20000 && !hasHash(); ++step) {
        const IdIndex::Run run = index().find(id(random() % kMany + 1));
        if (run.isHeld && random() % 2 == 0)
            index().erase(run.entry);
        add(random() % kMany + 1);
    }
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
    expectFindsAll(kMany);
}

TEST_F(IdIndexTest, HashMadeInPartsBeginsAgainAfterAnEditByHand) {
    constexpr unsigned long kMany = 4000;
    addAll(ascending(kMany));
    for (unsigned long n = 1; n <= kMany / 16 + 3; ++n)
        index().find(id(n));
    map().erase(map().begin());
    for (unsigned long n = 2; n <= kMany / 8; ++n)
        index().find(id(n));
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
    expectFindsAll(kMany);
}

TEST_F(IdIndexHash, IsDroppedUntilSearchesHaveCostAsMuchAgain) {
    findOften(kEntries);
    index().dropHints();
    EXPECT_FALSE(hasHash());
    findOften(1);
    EXPECT_FALSE(hasHash());
    findOften(kEntries);
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

TEST_F(IdIndexHash, GoesWithTheEntries) {
    index().expectSearches();
    index().clear();
    EXPECT_FALSE(hasHash());
    EXPECT_FALSE(index().find(id(5)).isHeld);
    addAll(ascending(kEntries));
    EXPECT_FALSE(hasHash());
    findOften(kEntries);
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
}

TEST_F(IdIndexHash, IsDroppedOnceMostOfManyIdsAreErased) {
    constexpr unsigned long kMany = 5000;
    startAgain();
    addAll(ascending(kMany));
    index().expectSearches();
    while (index().size() > kMany / 2)
        index().erase(index().begin());
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
    while (index().size() > 100)
        index().erase(index().begin());
    EXPECT_FALSE(hasHash());
}

TEST_F(IdIndexTest, ErasingItsLastEntryGivesTheMemoryOfManyBack) {
    const long before = kvtest::liveNewBlocks();
    addAll(shuffled(5000, 3));
    index().expectSearches();
    while (index().size() != 0)
        index().erase(index().begin());
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    add(7);
    expectFinds(7);
}

TEST_F(IdIndexTest, ErasingItsLastEntryKeepsTheMemoryOfAFew) {
    add(7);
    index().erase(index().begin());
    const long before = kvtest::newCalls();
    add(8);
    EXPECT_EQ(kvtest::newCalls(), before);
}

TEST_F(IdIndexHash, GoesWithASecondStubOfAnObject) {
    kvinmemory::makeEqual(id(30), id(301));
    index().expectSearches();
    add(301);
    EXPECT_FALSE(hasHash());
    expectFinds(30);
    expectFinds(301);
    index().expectSearches();
    EXPECT_FALSE(hasHash()) << "it would take the object for two";
}

TEST_F(IdIndexHash, IsMadeOrNotWithoutMemory) {
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        index().dropHints();
        const kvtest::Outcome outcome = point.run([this] { index().expectSearches(); });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(hasHash(), !outcome.injected);
        expectFinds(17);
    });
}

// ---- entries that come without memory

TEST_F(IdIndexHash, InsertsAllOrNothing) {
    for (const bool isHashed : {false, true}) {
        kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            startAgain();
            addAll(ascending(kEntries));
            if (isHashed)
                index().expectSearches();
            unsigned long next = kEntries + 1;
            point.run([&] {
                for (; next <= 3 * kEntries; ++next)
                    add(next);
            });
            ASSERT_EQ(index().size(), next - 1);
            for (unsigned long n = 1; n <= 3 * kEntries + 1; n += 3)
                expectFinds(n);
            for (; next <= 3 * kEntries; ++next)
                add(next);
            EXPECT_EQ(index().size(), 3 * kEntries);
            expectFinds(3 * kEntries);
        });
    }
}

// ---- an empty index

TEST_F(IdIndexTest, EmptyIndexHoldsNothing) {
    EXPECT_EQ(index().size(), 0u);
    EXPECT_EQ(index().begin(), index().end());
    index().expectSearches();
    for (const GxDbObjectId& wanted : {GxDbObjectId(), id(5)}) {
        for (const IdIndex::Run& run :
             {index().find(wanted), index().findToRemove(wanted), index().findFrom(index().end(), wanted)}) {
            EXPECT_FALSE(run.isHeld);
            EXPECT_EQ(run.entry, index().end());
        }
        EXPECT_EQ(index().endOf(wanted), index().end());
    }
    index().clear();
    EXPECT_EQ(index().size(), 0u);
}

TEST_F(IdIndexTest, FirstEntryIsFoundAndErased) {
    const auto entry = add(5);
    EXPECT_EQ(index().begin(), entry);
    EXPECT_TRUE(index().isFirst(entry));
    expectFindsAll(6);
    index().erase(entry);
    EXPECT_EQ(index().size(), 0u);
    expectFindsAll(6);
}

// ---- clearing

TEST_F(IdIndexTest, ClearedIndexGivesItsMemoryBack) {
    add(1);
    index().clear();
    const long before = kvtest::liveNewBlocks();
    addAll(ascending(3000));
    EXPECT_GT(kvtest::liveNewBlocks(), before);
    index().clear();
    EXPECT_EQ(index().size(), 0u);
    EXPECT_TRUE(map().empty());
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    addAll(ascending(100));
    expectFindsAll(101);
}

TEST_F(IdIndexTest, ClearingTakesNoEntryThatTheCallerHolds) {
    addAll(ascending(100));
    DataMap::node_type node = map().extract(map().find(id(17)));
    index().clear();
    EXPECT_EQ(index().size(), 0u);
    addAll(ascending(100));
    EXPECT_EQ(node.key(), id(17));
    map().insert(std::move(node));
    EXPECT_EQ(map().count(id(17)), 2u);
    expectFindsAll(101);
}

TEST_F(IdIndexTest, ClearingTakesNoEntryOfAnotherMapWithTheSamePool) {
    addAll(ascending(100));
    DataMap mine(map().get_allocator());
    mine.merge(map());
    addAll(ascending(10));
    index().clear();
    EXPECT_EQ(index().size(), 0u);
    EXPECT_EQ(mine.size(), 100u);
    EXPECT_EQ(mine.count(id(100)), 1u);
}

TEST_F(IdIndexTest, ClearingNeedsNoMemory) {
    kvtest::forEachAllocationFailure(
        [this](kvtest::FailurePoint& point) {
            addAll(ascending(100));
            point.run([this] { index().clear(); });
            EXPECT_EQ(index().size(), 0u);
        },
        kvtest::Expect::None);
}

// ---- a map that a caller has changed

class IdIndexTampering : public IdIndexTest {
protected:
    void SetUp() override {
        IdIndexTest::SetUp();
        addAll(ascending(100));
        index().expectSearches();
    }

    // Expects that every function of the index works on the present map.
    void expectWorks() const {
        expectFindsAll(120);
        for (const unsigned long n : {60ul, 110ul, 110ul}) {
            const std::size_t held = map().count(id(n));
            add(n);
            EXPECT_EQ(map().count(id(n)), held + 1);
            index().expectSearches();
            expectFindsAll(120);
        }
        index().erase(index().find(id(60)).entry);
        index().erase(index().find(id(110)).entry);
        expectFindsAll(120);
        index().clear();
        EXPECT_TRUE(map().empty());
        expectFindsAll(3);
        addAll(shuffled(100, 4));
        index().expectSearches();
        expectFindsAll(120);
    }
};

TEST_F(IdIndexTampering, HashIsNotUsedOnceAnEntryCameOrWentByHand) {
    map().erase(map().find(id(17)));
    EXPECT_FALSE(hasHash());
    map().emplace(id(17), 16 * 17);
    EXPECT_FALSE(hasHash()) << "as many entries as before";
    expectWorks();
}

TEST_F(IdIndexTampering, HashIsNotUsedWhileAnEntryIsOut) {
    const DataMap::node_type node = map().extract(map().find(id(17)));
    EXPECT_FALSE(hasHash());
    map().emplace(id(17), 1);
    EXPECT_FALSE(hasHash()) << "as many entries as before";
    expectWorks();
}

TEST_F(IdIndexTampering, HashIsNotUsedForAnEntryThatWasGivenAnotherId) {
    DataMap::node_type node = map().extract(map().find(id(17)));
    node.key() = id(50);
    map().insert(map().find(id(50)), std::move(node));
    EXPECT_FALSE(hasHash());
    EXPECT_EQ(index().find(id(50)).entry->second, 16u * 17);
    expectWorks();
}

TEST_F(IdIndexTampering, MapOfTheCallersOwnIsSearched) {
    DataMap own;
    own.insert(map().begin(), map().end());
    map() = std::move(own);
    EXPECT_FALSE(hasHash());
    expectWorks();
}

TEST_F(IdIndexTampering, MapsSwappedWithOtherData) {
    const auto other = kvdetail::makeData();
    fillStore(*other, ascending(50));
    kvdetail::indexOf(*other).rebuild();
    kvdetail::indexOf(*other).expectSearches();
    map().swap(other->dataMap);
    EXPECT_FALSE(hasHash());
    EXPECT_EQ(index().size(), 50u);
    EXPECT_EQ(kvdetail::indexOf(*other).size(), 100u);
    EXPECT_TRUE(kvdetail::indexOf(*other).find(id(100)).isHeld);
    expectWorks();
    kvdetail::indexOf(*other).clear();
    EXPECT_TRUE(other->dataMap.empty());
}

TEST_F(IdIndexTampering, MapOfDataThatIsGone) {
    {
        const auto gone = kvdetail::makeData();
        fillStore(*gone, ascending(70));
        kvdetail::indexOf(*gone).rebuild();
        map().swap(gone->dataMap);
    }
    EXPECT_EQ(index().size(), 70u);
    expectWorks();
}

// A pool does not notice entries that move between two maps of the pool.
TEST_F(IdIndexTampering, MapThatSharesItsPoolGetsNoHash) {
    DataMap mine(map().get_allocator());
    mine.emplace(id(900), 16);
    index().dropHints();
    const long before = kvtest::newCalls();
    index().expectSearches();
    for (unsigned long n = 1; n <= 100; ++n)
        static_cast<void>(index().find(id(n)));
    EXPECT_EQ(kvtest::newCalls(), before) << "it is not even tried";
    EXPECT_FALSE(hasHash());
    DataMap::node_type node = map().extract(map().find(id(17)));
    mine.insert(std::move(node));
    expectWorks();
}

TEST_F(IdIndexTampering, MapThatWasMovedFrom) {
    const DataMap mine(std::move(map()));
    map().clear();
    EXPECT_FALSE(hasHash());
    EXPECT_EQ(mine.size(), 100u);
    expectWorks();
    EXPECT_EQ(mine.count(id(100)), 1u);
}

TEST_F(IdIndexTampering, RebuildingReplacesWhateverIsThere) {
    fillStore(*data, shuffled(100, 3));
    map().emplace(id(900), 16);
    index().rebuild();
    EXPECT_TRUE(isIndexed(*data));
    DataMap own;
    own.emplace(id(900), 16);
    map() = std::move(own);
    index().rebuild();
    EXPECT_TRUE(isIndexed(*data));
    map() = DataMap();
    map().emplace(id(900), 16);
    EXPECT_TRUE(index().rebuildOfFirsts().empty());
    EXPECT_TRUE(isIndexed(*data));
    index().expectSearches();
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash) << "the map has a pool of the index again";
}

// ---- rebuilding

class IdIndexRebuild : public IdIndexTest {
protected:
    void expectRebuilds(const Numbers& numbers) {
        startAgain();
        fillStore(*data, numbers);
        index().rebuild();
        EXPECT_TRUE(isIndexed(*data));
    }
};

TEST_F(IdIndexRebuild, OfAnEmptyStoreLeavesAnEmptyIndex) {
    addAll({1, 2});
    expectRebuilds({});
}

TEST_F(IdIndexRebuild, WithoutAStoreLeavesAnEmptyIndex) {
    addAll(ascending(100));
    index().expectSearches();
    delete std::exchange(data->entities, nullptr);
    index().rebuild();
    EXPECT_EQ(index().size(), 0u);
    EXPECT_FALSE(hasHash());
}

TEST_F(IdIndexRebuild, OfIdsThatAscend) {
    expectRebuilds(ascending(3000));
}

TEST_F(IdIndexRebuild, OfIdsThatDescend) {
    expectRebuilds(descending(3000));
}

TEST_F(IdIndexRebuild, OfFewAndManyIdsInNoOrder) {
    for (const std::size_t count : {1u, 2u, 20u, 255u, 256u, 257u, 5000u})
        expectRebuilds(shuffled(count, 3));
}

TEST_F(IdIndexRebuild, OfALastIdAloneOutOfOrder) {
    Numbers numbers = ascending(1000);
    numbers.back() = 500;
    expectRebuilds(numbers);
}

TEST_F(IdIndexRebuild, KeepsEqualIdsInStoreOrder) {
    expectRebuilds(repeated(3000, 4));
    expectRebuilds({7, 3, 7, 7, 3});
}

TEST_F(IdIndexRebuild, OfOneIdAlone) {
    expectRebuilds(Numbers(1000, 7));
}

TEST_F(IdIndexRebuild, OfIdsThatDifferInHighBitsOnly) {
    Numbers numbers;
    for (const unsigned long n : shuffled(1000, 5))
        numbers.push_back((n << 40) + 3);
    expectRebuilds(numbers);
}

TEST_F(IdIndexRebuild, OfNullIds) {
    expectRebuilds({4, 0, 3, 0});
}

TEST_F(IdIndexRebuild, OfSeveralPages) {
    expectRebuilds(shuffled(3 * kvtest::kPageSlots, 6));
}

TEST_F(IdIndexRebuild, OfDistinctStubsOfOneObject) {
    kvinmemory::makeEqual(id(3), id(900));
    kvinmemory::makeEqual(id(5), id(6));
    kvinmemory::makeEqual(id(400), id(2));
    expectRebuilds(ascending(1000));
    expectRebuilds(shuffled(1000, 6));
    expectRebuilds({1, 900, 3, 900, 5, 6, 5});
}

TEST_F(IdIndexRebuild, PassesSlotsThatAreFreeOrHoldNoRecord) {
    fillStore(*data, shuffled(300, 7));
    std::vector<std::unique_ptr<selected_entity>> taken;
    for (const std::size_t i : {0u, 17u, 18u, 200u}) {
        Store::Slot* const slot = slotsOf(store()).at(i);
        taken.emplace_back(slot->value);
        store().removeSlot(slot, store().pageOf(slot), true);
    }
    Store::Slot* const empty = slotsOf(store()).at(50);
    taken.emplace_back(std::exchange(empty->value, nullptr));
    index().rebuild();
    EXPECT_EQ(index().size(), 295u);
    empty->free = 1;
    EXPECT_TRUE(isIndexed(*data));
    empty->free = 0;
}

TEST_F(IdIndexRebuild, EndsTheHashOfTheFormerEntries) {
    fillStore(*data, shuffled(200, 8));
    index().rebuild();
    index().expectSearches();
    index().rebuild();
    EXPECT_FALSE(hasHash());
    EXPECT_TRUE(isIndexed(*data));
    expectFindsAll(201);
}

// If there is no memory for sorting, the index is rebuilt record by record.
TEST_F(IdIndexRebuild, IsCompleteOrFailsWithNothingLost) {
    int completedAllTheSame = 0;
    for (const Numbers& numbers : {ascending(600), shuffled(600, 7)}) {
        kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            startAgain();
            fillStore(*data, numbers);
            const kvtest::Outcome outcome = point.run([this] { index().rebuild(); });
            completedAllTheSame += outcome.injected && outcome.completed ? 1 : 0;
            if (outcome.completed) {
                EXPECT_TRUE(isIndexed(*data));
            }
            EXPECT_LE(index().size(), numbers.size());
            for (const auto& entry : map())
                EXPECT_EQ(kvdetail::slotAt(entry.second)->value->mainEntId.stub(), entry.first.stub());
            EXPECT_EQ(slotsOf(store()).size(), numbers.size());
            index().rebuild();
            EXPECT_TRUE(isIndexed(*data));
            data.reset();
        });
    }
    EXPECT_GT(completedAllTheSame, 0);
}

// ---- rebuilding the index with only the first record of each id

class IdIndexRebuildOfFirsts : public IdIndexTest {
protected:
    struct Split {
        Entries firsts; // entries in the order of the index
        std::vector<Store::Slot*> others;
    };

    Split expectedSplit() const {
        Split split;
        std::map<GxDbObjectId, const Store::Slot*> firsts;
        for (Store::Slot* slot : slotsOf(store())) {
            if (slot->value && !firsts.emplace(slot->value->mainEntId, slot).second)
                split.others.push_back(slot);
        }
        for (const auto& [first, slot] : firsts)
            split.firsts.emplace_back(first.stub(), kvdetail::slotAddress(slot));
        return split;
    }

    void expectSplit() const {
        const Split expected = expectedSplit();
        EXPECT_EQ(index().rebuildOfFirsts(), expected.others);
        EXPECT_EQ(entriesOf(map()), expected.firsts);
    }

    void expectSplits(const Numbers& numbers) {
        startAgain();
        fillStore(*data, numbers);
        expectSplit();
        index().rebuild();
        expectSplit();
    }
};

TEST_F(IdIndexRebuildOfFirsts, OfAnEmptyStoreLeavesAnEmptyIndex) {
    addAll({1, 2});
    expectSplit();
}

TEST_F(IdIndexRebuildOfFirsts, OfDifferentIdsLeavesNoOthers) {
    expectSplits(ascending(1000));
    expectSplits(descending(1000));
    expectSplits(shuffled(1000, 3));
    EXPECT_TRUE(isIndexed(*data));
}

TEST_F(IdIndexRebuildOfFirsts, OfRepeatedIdsGivesTheOthersInStoreOrder) {
    expectSplits(repeated(3000, 4));
    expectSplits(repeated(200, 5));
    expectSplits(Numbers(1000, 7));
    expectSplits({7, 3, 7, 7, 3});
}

TEST_F(IdIndexRebuildOfFirsts, OfSeveralPages) {
    expectSplits(repeated(2 * kvtest::kPageSlots + 100, 6));
}

TEST_F(IdIndexRebuildOfFirsts, OfDistinctStubsKeepsTheFirstRecordOfTheObject) {
    kvinmemory::makeEqual(id(3), id(60));
    kvinmemory::makeEqual(id(5), id(6));
    expectSplits(repeated(3000, 7));
    expectSplits({60, 5, 3, 6, 60});
    EXPECT_EQ(index().size(), 2u);
}

TEST_F(IdIndexRebuildOfFirsts, PassesSlotsWithoutARecord) {
    fillStore(*data, repeated(300, 8));
    const std::unique_ptr<selected_entity> taken(std::exchange(slotsOf(store()).at(5)->value, nullptr));
    expectSplit();
}

TEST_F(IdIndexRebuildOfFirsts, EndsTheHashOfTheFormerEntries) {
    fillStore(*data, repeated(300, 8));
    index().rebuild();
    index().expectSearches();
    expectSplit();
    EXPECT_FALSE(hasHash());
    expectFindsAll(100);
    index().expectSearches();
    EXPECT_EQ(hasHash(), kvdetail::kHasIdHash);
    expectFindsAll(100);
}

TEST_F(IdIndexRebuildOfFirsts, ClearedIndexGivesItsMemoryBackAfterwards) {
    fillStore(*data, shuffled(3000, 10));
    index().rebuildOfFirsts();
    index().clear();
    const long before = kvtest::liveNewBlocks();
    index().rebuild();
    EXPECT_GT(kvtest::liveNewBlocks(), before);
    index().rebuildOfFirsts();
    index().clear();
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    addAll(ascending(3000));
    index().clear();
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(IdIndexRebuildOfFirsts, IsDoneOrHasChangedNothing) {
    int completedAllTheSame = 0;
    for (const std::size_t count : {100u, 600u}) {
        kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            startAgain();
            fillStore(*data, repeated(count, 9));
            index().rebuild();
            const Entries before = entriesOf(map());
            const Split expected = expectedSplit();
            std::vector<Store::Slot*> others;
            const kvtest::Outcome outcome = point.run([&] { others = index().rebuildOfFirsts(); });
            completedAllTheSame += outcome.injected && outcome.completed ? 1 : 0;
            EXPECT_EQ(entriesOf(map()), outcome.failed ? before : expected.firsts);
            EXPECT_EQ(others, outcome.failed ? std::vector<Store::Slot*>() : expected.others);
            expectFindsAll(100);
            EXPECT_EQ(index().rebuildOfFirsts(), expected.others);
            EXPECT_EQ(entriesOf(map()), expected.firsts);
            data.reset();
        });
    }
    EXPECT_GT(completedAllTheSame, 0);
}

// ---- the index of a clone

class IdIndexOfAClone : public IdIndexTest {
protected:
    void TearDown() override {
        copy.reset();
        IdIndexTest::TearDown();
    }

    void prepare(const Numbers& numbers) {
        startAgain();
        fillStore(*data, numbers);
        data->entityCount = static_cast<std::uint32_t>(numbers.size());
        index().rebuild();
    }

    // Removes the first item of id(n).
    void removeFromOriginal(unsigned long n) {
        const auto entry = map().find(id(n));
        Store::Slot* const slot = kvdetail::slotAt(entry->second);
        const std::unique_ptr<selected_entity> removed(slot->value);
        map().erase(entry);
        store().removeSlot(slot, store().pageOf(slot), true);
        --data->entityCount;
    }

    unsigned long& addressOf(unsigned long n) const { return map().find(id(n))->second; }

    // Expects that the clone has the index that it would have if its records had been entered one by one. The
    // index of the original must not change.
    void expectCloned() {
        const Entries before = entriesOf(map());
        copy.reset(data->clone());
        EXPECT_TRUE(isIndexed(*copy));
        EXPECT_EQ(copy->dataMap.size(), slotsOf(store()).size());
        EXPECT_EQ(copy->entityCount, data->entityCount);
        EXPECT_EQ(entriesOf(map()), before);
    }

    std::unique_ptr<kvdetail::SSetData> copy;
};

TEST_F(IdIndexOfAClone, HasEveryRecordOfFewAndMany) {
    for (const std::size_t count : {0u, 1u, 2u, 100u, 3000u}) {
        prepare(ascending(count));
        expectCloned();
        prepare(shuffled(count, 3));
        expectCloned();
    }
}

TEST_F(IdIndexOfAClone, HasEveryRecordOfOnePageAndOfTwo) {
    prepare(shuffled(kvtest::kPageSlots, 4));
    expectCloned();
    prepare(ascending(kvtest::kPageSlots + 1));
    expectCloned();
    prepare(shuffled(kvtest::kPageSlots + 1, 4));
    expectCloned();
}

TEST_F(IdIndexOfAClone, HasEqualIdsInStoreOrder) {
    prepare(repeated(3000, 5));
    expectCloned();
}

TEST_F(IdIndexOfAClone, IsCompleteWhereTheOriginalHasHoles) {
    prepare(ascending(100));
    removeFromOriginal(51);
    expectCloned();
    removeFromOriginal(100);
    expectCloned();
    prepare({7, 7, 7});
    removeFromOriginal(7);
    expectCloned();
}

TEST_F(IdIndexOfAClone, IsCompleteWhereTheOriginalLacksEntriesOrHasTooMany) {
    prepare(ascending(100));
    map().erase(id(51));
    expectCloned();
    map().emplace(id(51), addressOf(50));
    expectCloned();
    map().emplace(id(51), addressOf(50));
    expectCloned();
    map().clear();
    expectCloned();
}

TEST_F(IdIndexOfAClone, IsRightWhereTheOriginalsEntriesLeadElsewhere) {
    prepare({1, 2, 2, 3});
    const auto first = map().find(id(2));
    std::next(first)->second = first->second;
    expectCloned();
    prepare(ascending(100));
    std::swap(addressOf(17), addressOf(18));
    expectCloned();
    prepare({1, 2, 2, 3});
    std::swap(map().find(id(2))->second, std::next(map().find(id(2)))->second);
    expectCloned();
}

TEST_F(IdIndexOfAClone, IsRightWhereTheOriginalsEntriesLeadToNoUsedSlot) {
    prepare(ascending(100));
    const unsigned long good = addressOf(17);
    for (const unsigned long bad : {0ul, good + 1, kvdetail::slotAddress(store().tail->fillEnd)}) {
        addressOf(17) = bad;
        expectCloned();
    }
}

TEST_F(IdIndexOfAClone, FollowsTheRecordsWhereTheirIdsWereChanged) {
    prepare(ascending(100));
    store().at(16)->mainEntId = id(900);
    expectCloned();
    EXPECT_EQ(copy->dataMap.count(id(900)), 1u);
    EXPECT_EQ(copy->dataMap.count(id(17)), 0u);
}

TEST_F(IdIndexOfAClone, HasDistinctStubsOfOneObjectInStoreOrder) {
    kvinmemory::makeEqual(id(3), id(4));
    prepare(ascending(100));
    expectCloned();
    prepare({1, 4, 3, 5});
    expectCloned();
}

TEST_F(IdIndexOfAClone, IsCompleteOrThereIsNoClone) {
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        prepare(shuffled(100, 7));
        const kvtest::Outcome outcome = point.run([this] { copy.reset(data->clone()); });
        EXPECT_EQ(copy == nullptr, outcome.failed);
        if (copy) {
            EXPECT_TRUE(isIndexed(*copy));
        }
        EXPECT_TRUE(isIndexed(*data));
        expectCloned();
        copy.reset();
        data.reset();
    });
}

} // namespace
