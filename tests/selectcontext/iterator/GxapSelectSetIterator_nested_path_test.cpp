#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <vector>

// Tests which picks are nested, and how their paths are read, filtered and replaced.

namespace {

using kvinmemory::DatabaseCall;
using kvinmemory::databaseEvents;
using kvinmemory::makeEqual;
using kvtest::AnyId;
using kvtest::edit;
using kvtest::id;
using kvtest::idVector;
using kvtest::Lines;
using kvtest::numbersOf;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::subentPath;
using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;
using Ids = KvVector<GxDbObjectId>;
using Numbers = std::vector<unsigned long>;

constexpr GxErrorStatus kRefused = static_cast<GxErrorStatus>(7);

// A set of one item with a nested path.
class Picked {
public:
    Picked(AnyId mainId, std::initializer_list<AnyId> path, AnyId subId = GxDbObjectId(), long marker = -1) {
        const Ids nested = idVector(path);
        edit(set).select(mainId.value, subId.value, marker, nullptr, &nested);
    }

    selected_entity& record() { return *recordAt(set, 0); }

    GxapSelectSet set;
};

void leaveWithoutStorage(selected_entity& record) {
    const kvtest::WithoutEmptyBlock withoutEmptyBlock;
    const Ids none;
    record.nestedEntFullPath = none;
}

class NestedIds : public kvtest::SetTest {};

TEST_F(NestedIds, AreThoseOfTheRecord) {
    const Picked picked(1ul, {1ul, 2ul}, 2ul);
    EXPECT_EQ(picked.set.begin().mainEntId(), id(1));
    EXPECT_EQ(picked.set.begin().subEntId(), id(2));
}

TEST_F(NestedIds, AreNullWithoutARecord) {
    const Picked picked(1ul, {1ul, 2ul}, 2ul);
    ConstIterator disabled = picked.set.begin();
    disabled.disable();
    for (const ConstIterator& it : {picked.set.end(), disabled}) {
        EXPECT_EQ(it.mainEntId().stub(), nullptr);
        EXPECT_EQ(it.subEntId().stub(), nullptr);
    }
}

class IsNestedEnt : public kvtest::SetTest {
protected:
    static bool isNested(std::initializer_list<AnyId> path, AnyId subId = GxDbObjectId()) {
        const Picked picked(1ul, path, subId);
        return picked.set.begin().isNestedEnt();
    }
};

TEST_F(IsNestedEnt, IsFalseForAPathOfNoIdOrOne) {
    EXPECT_FALSE(isNested({}));
    EXPECT_FALSE(isNested({1ul}));
    EXPECT_FALSE(isNested({1ul}, 1ul));
}

TEST_F(IsNestedEnt, IsTrueForAPathOfThreeIdsOrMore) {
    EXPECT_TRUE(isNested({1ul, 2ul, 3ul}));
    EXPECT_TRUE(isNested({1ul, 2ul, 3ul}, 2ul));
    EXPECT_TRUE(isNested({1ul, 2ul, 3ul}, 1ul));
    EXPECT_TRUE(isNested({7ul, 7ul, 7ul, 7ul}, 9ul));
}

TEST_F(IsNestedEnt, IsTrueForTwoIdsWithoutASubId) {
    EXPECT_TRUE(isNested({1ul, 2ul}));
}

TEST_F(IsNestedEnt, IsTrueForTwoIdsWhenTheSubIdIsTheMainId) {
    EXPECT_TRUE(isNested({1ul, 2ul}, 1ul));
}

TEST_F(IsNestedEnt, IsFalseForTwoIdsWhenTheSubIdIsAnother) {
    EXPECT_FALSE(isNested({1ul, 2ul}, 2ul));
    EXPECT_FALSE(isNested({1ul, 2ul}, 3ul));
}

TEST_F(IsNestedEnt, ComparesTheIdsAsThePlatformDoes) {
    makeEqual(id(1), id(8));
    EXPECT_TRUE(isNested({1ul, 2ul}, 8ul));
}

TEST_F(IsNestedEnt, KnowsANullSubIdAsThePlatformDoes) {
    makeEqual(GxDbObjectId(), id(8));
    EXPECT_TRUE(isNested({1ul, 2ul}, 8ul));
}

TEST_F(IsNestedEnt, IsFalseForAPathWithoutStorage) {
    Picked picked(1ul, {1ul, 2ul});
    leaveWithoutStorage(picked.record());
    EXPECT_FALSE(picked.set.begin().isNestedEnt());
}

TEST_F(IsNestedEnt, IsFalseWithoutARecord) {
    const Picked picked(1ul, {1ul, 2ul});
    EXPECT_FALSE(picked.set.end().isNestedEnt());
    ConstIterator it = picked.set.begin();
    it.disable();
    EXPECT_FALSE(it.isNestedEnt());
}

TEST_F(IsNestedEnt, IsFalseOnANullRecord) {
    Picked picked(1ul, {1ul, 2ul});
    const auto record = kvtest::takeRecordOut(picked.set, 0);
    EXPECT_FALSE(picked.set.begin().isNestedEnt());
}

class FullSubentPath : public kvtest::SetTest {
protected:
    static GxDbFullSubentPath before() {
        GxDbFullSubentPath path = subentPath({91, 92, 93, 94}, 3, 55);
        path.subentId().extra = &sExtra;
        return path;
    }

    static bool isUntouched(const GxDbFullSubentPath& path) { return path == before(); }

    static int sExtra;
};

int FullSubentPath::sExtra = 0;

TEST_F(FullSubentPath, LeadsToTheMainIdWithTheMarkerAsIndex) {
    const Picked picked(2ul, {1ul, 2ul, 3ul}, GxDbObjectId(), 7);
    GxDbFullSubentPath path = before();
    EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
    EXPECT_EQ(numbersOf(path), Numbers({1, 2}));
    EXPECT_EQ(path.subentId().type, 0);
    EXPECT_EQ(path.subentId().index, 7);
    EXPECT_EQ(path.subentId().extra, nullptr);
}

TEST_F(FullSubentPath, FillsAPathThatWasEmpty) {
    const Picked picked(3ul, {1ul, 2ul, 3ul});
    GxDbFullSubentPath path;
    EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
    EXPECT_EQ(numbersOf(path), Numbers({1, 2, 3}));
}

TEST_F(FullSubentPath, IsOneIdWhenTheMainIdComesFirst) {
    const Picked picked(1ul, {1ul, 2ul, 3ul});
    GxDbFullSubentPath path = before();
    EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
    EXPECT_EQ(numbersOf(path), Numbers({1}));
}

TEST_F(FullSubentPath, EndsAtTheFirstOfSeveralMainIds) {
    const Picked picked(2ul, {1ul, 2ul, 3ul, 2ul});
    GxDbFullSubentPath path;
    EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
    EXPECT_EQ(numbersOf(path), Numbers({1, 2}));
}

TEST_F(FullSubentPath, FindsTheMainIdAsThePlatformComparesAndCopiesThePathsOwn) {
    makeEqual(id(2), id(8));
    const Picked picked(2ul, {1ul, 8ul, 2ul});
    GxDbFullSubentPath path;
    EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
    EXPECT_EQ(numbersOf(path), Numbers({1, 8}));
}

TEST_F(FullSubentPath, CarriesEveryMarkerWhole) {
    for (const long marker : {-1L, 0L, 1L << 40, -(1L << 40)}) {
        const Picked picked(1ul, {1ul}, GxDbObjectId(), marker);
        GxDbFullSubentPath path;
        EXPECT_TRUE(picked.set.begin().getFullSubentPath(path));
        EXPECT_EQ(path.subentId().index, marker);
    }
}

TEST_F(FullSubentPath, NeedsTheMainIdInThePath) {
    const Picked picked(4ul, {1ul, 2ul, 3ul}, 2ul);
    GxDbFullSubentPath path = before();
    EXPECT_FALSE(picked.set.begin().getFullSubentPath(path));
    EXPECT_TRUE(isUntouched(path));
}

TEST_F(FullSubentPath, NeedsAPath) {
    Picked picked(4ul, {});
    GxDbFullSubentPath path = before();
    EXPECT_FALSE(picked.set.begin().getFullSubentPath(path));
    leaveWithoutStorage(picked.record());
    EXPECT_FALSE(picked.set.begin().getFullSubentPath(path));
    EXPECT_TRUE(isUntouched(path));
}

TEST_F(FullSubentPath, NeedsARecord) {
    Picked picked(1ul, {1ul, 2ul});
    GxDbFullSubentPath path = before();
    EXPECT_FALSE(picked.set.end().getFullSubentPath(path));
    const auto record = kvtest::takeRecordOut(picked.set, 0);
    EXPECT_FALSE(picked.set.begin().getFullSubentPath(path));
    EXPECT_TRUE(isUntouched(path));
}

TEST_F(FullSubentPath, NeedsAPosition) {
    Picked picked(1ul, {1ul, 2ul});
    ConstIterator disabled = picked.set.begin();
    disabled.disable();
    GxapSelectSet other;
    other.releaseData();
    const ConstIterator withoutData(&other, 0);
    GxDbFullSubentPath path = before();
    EXPECT_FALSE(disabled.getFullSubentPath(path));
    EXPECT_FALSE(withoutData.getFullSubentPath(path));
    EXPECT_TRUE(isUntouched(path));
}

TEST_F(FullSubentPath, LeavesTheRecordAndSharedDataAlone) {
    const Picked picked(2ul, {1ul, 2ul, 3ul});
    const GxapSelectSet copy(picked.set);
    const void* const block = picked.set.begin().nestedEntFullPath().data.block;
    GxDbFullSubentPath path;
    picked.set.begin().getFullSubentPath(path);
    path.objectIds()[0] = id(9);
    EXPECT_EQ(owners(copy), 2u);
    EXPECT_EQ(picked.set.begin().nestedEntFullPath().data.block, block);
    EXPECT_EQ(numbersOf(picked.set.begin().nestedEntFullPath()), Numbers({1, 2, 3}));
}

// Has a drawing with the entities A, B and C.
class FilteredPath : public kvtest::DrawingTest {
protected:
    void SetUp() override {
        DrawingTest::SetUp();
        a = drawing().addEntity("A");
        b = drawing().addEntity("B");
        c = drawing().addEntity("C");
    }

    // Returns the names of the objects with these ids.
    Lines namesOf(const Ids& ids) {
        Lines names;
        for (int i = 0; i < ids.logicalLength(); ++i)
            names.emplace_back(drawing().nameOf(ids.at(i)));
        return names;
    }

    // Returns the names of the ids that getFilteredNestedFullPath() keeps from this path. Expects that it
    // returns true.
    Lines filtered(std::initializer_list<AnyId> path) {
        const Picked picked(a, path);
        Ids ids;
        EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
        return namesOf(ids);
    }

    GxDbObjectId a, b, c;
};

TEST_F(FilteredPath, KeepsWhatOpensInOrder) {
    EXPECT_EQ(filtered({c, a, b}), Lines({"C", "A", "B"}));
}

TEST_F(FilteredPath, KeepsAnIdAsOftenAsItOccurs) {
    EXPECT_EQ(filtered({a, b, a}), Lines({"A", "B", "A"}));
}

TEST_F(FilteredPath, DropsErasedObjects) {
    drawing().erase(b);
    EXPECT_EQ(filtered({a, b, c}), Lines({"A", "C"}));
}

TEST_F(FilteredPath, DropsWhatIsNoEntity) {
    const GxDbObjectId layer = drawing().add(std::make_unique<kvinmemory::NonEntity>(), "layer");
    EXPECT_EQ(filtered({layer, a, c}), Lines({"A", "C"}));
}

TEST_F(FilteredPath, DropsInvalidAndNullIds) {
    drawing().invalidate(b);
    EXPECT_EQ(filtered({a, b, GxDbObjectId(), drawing().addInvalid(), c}), Lines({"A", "C"}));
}

TEST_F(FilteredPath, OfNothingThatOpensIsEmptyAndThere) {
    drawing().erase(a);
    drawing().erase(b);
    EXPECT_EQ(filtered({a, b}), Lines());
}

TEST_F(FilteredPath, MayLackTheMainId) {
    EXPECT_EQ(filtered({b, c}), Lines({"B", "C"}));
}

TEST_F(FilteredPath, OpensAndClosesOneByOne) {
    drawing().erase(b);
    filtered({a, b, c});
    EXPECT_EQ(calls(), Lines({"open A", "close A", "open B", "open C", "close C"}));
}

TEST_F(FilteredPath, OpensForReadingAndNothingErased) {
    filtered({a, b});
    for (const auto& event : databaseEvents(DatabaseCall::Open)) {
        EXPECT_EQ(event.mode, GxDb::kForRead);
        EXPECT_FALSE(event.openErased);
    }
}

TEST_F(FilteredPath, DeletesEntitiesThatAreNotResident) {
    const GxDbObjectId made = drawing().addNonResident("made");
    EXPECT_EQ(filtered({a, made, c}), Lines({"A", "made", "C"}));
    EXPECT_EQ(calls(), Lines({"open A", "close A", "open made", "delete", "open C", "close C"}));
}

TEST_F(FilteredPath, DropsButReleasesWhatAFailedOpenYields) {
    const GxDbObjectId made = drawing().addNonResident("made");
    drawing().forceOpenStatus(b, kRefused, true);
    drawing().forceOpenStatus(made, kRefused, true);
    EXPECT_EQ(filtered({a, b, made}), Lines({"A"}));
    EXPECT_EQ(calls(), Lines({"open A", "close A", "open B", "close B", "open made", "delete"}));
}

TEST_F(FilteredPath, ReplacesWhatTheIdsWere) {
    const Picked picked(a, {b});
    Ids ids = idVector({a, a, c});
    EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(ids), Lines({"B"}));
}

TEST_F(FilteredPath, LeavesAVectorThatSharedTheIds) {
    const Picked picked(a, {b});
    Ids ids = idVector({a, c});
    const Ids other = ids;
    EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(other), Lines({"A", "C"}));
}

TEST_F(FilteredPath, MayGoIntoASharerOfThePath) {
    const Picked picked(a, {a, b, c});
    drawing().erase(a);
    Ids ids = picked.set.begin().nestedEntFullPath();
    EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(ids), Lines({"B", "C"}));
    EXPECT_EQ(namesOf(picked.set.begin().nestedEntFullPath()), Lines({"A", "B", "C"}));
}

TEST_F(FilteredPath, IntoTheRecordsOwnPathEmptiesItFirst) {
    Picked picked(a, {a, b});
    Iterator it = edit(picked.set).begin();
    EXPECT_FALSE(it.getFilteredNestedFullPath(it.get()->nestedEntFullPath));
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 0);
    EXPECT_TRUE(calls().empty());
}

TEST_F(FilteredPath, IsTheSameWithTheNestedModeOn) {
    Picked picked(a, {a, b});
    edit(picked.set).setSelectByNestedMode(true);
    Ids ids;
    EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(ids), Lines({"A", "B"}));
}

TEST_F(FilteredPath, LeavesSharedDataAlone) {
    const Picked picked(a, {a, b});
    const GxapSelectSet copy(picked.set);
    Ids ids;
    picked.set.begin().getFilteredNestedFullPath(ids);
    EXPECT_EQ(owners(copy), 2u);
}

TEST_F(FilteredPath, OfAnItemWithoutPathIsFalseAndEmpty) {
    Picked picked(a, {});
    Ids ids = idVector({a, b});
    EXPECT_FALSE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(ids.logicalLength(), 0);

    leaveWithoutStorage(picked.record());
    ids = idVector({a, b});
    EXPECT_FALSE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(ids.logicalLength(), 0);
    EXPECT_TRUE(calls().empty());
}

TEST_F(FilteredPath, AtTheEndIsFalseAndEmpty) {
    const Picked picked(a, {a});
    Ids ids = idVector({a, b});
    EXPECT_FALSE(picked.set.end().getFilteredNestedFullPath(ids));
    EXPECT_EQ(ids.logicalLength(), 0);
}

TEST_F(FilteredPath, OfANullRecordIsFalseAndEmpty) {
    Picked picked(a, {a});
    const auto record = kvtest::takeRecordOut(picked.set, 0);
    Ids ids = idVector({a, b});
    EXPECT_FALSE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(ids.logicalLength(), 0);
}

TEST_F(FilteredPath, WithoutAPositionLeavesTheIds) {
    const Picked picked(a, {a});
    ConstIterator disabled = picked.set.begin();
    disabled.disable();
    GxapSelectSet other;
    other.releaseData();
    const ConstIterator withoutData(&other, 0);
    Ids ids = idVector({a, b});
    EXPECT_FALSE(disabled.getFilteredNestedFullPath(ids));
    EXPECT_FALSE(withoutData.getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(ids), Lines({"A", "B"}));
    EXPECT_TRUE(calls().empty());
}

// Opening an entity may run code of the application, which may replace the path. The result is that of the
// old path.
TEST_F(FilteredPath, IsThatOfTheStartWhenThePathIsReplacedMeanwhile) {
    std::function<void()> whenOpened;
    const GxDbObjectId made = drawing().addNonResident(
        [&] {
            whenOpened();
            return std::make_unique<kvinmemory::Entity>();
        },
        "made");
    Picked picked(a, {made, b, c});
    whenOpened = [&] { picked.record().nestedEntFullPath = Ids(); };
    Ids ids;
    EXPECT_TRUE(picked.set.begin().getFilteredNestedFullPath(ids));
    EXPECT_EQ(namesOf(ids), Lines({"made", "B", "C"}));
}

class SetNestedPath : public kvtest::SetTest {};

TEST_F(SetNestedPath, SharesTheStorage) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids path = idVector({3ul, 4ul});
    edit(picked.set).begin().setNestedEntFullPath(path);
    EXPECT_EQ(picked.record().nestedEntFullPath.data.block, path.data.block);
    EXPECT_EQ(path.data.block->refCount.load(), 2u);
}

TEST_F(SetNestedPath, FreesTheOldStorageThatNobodyElseHas) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids path = idVector({3ul, 4ul});
    const long blocks = kvinmemory::liveBlocks();
    edit(picked.set).begin().setNestedEntFullPath(path);
    EXPECT_EQ(kvinmemory::liveBlocks(), blocks - 2); // the block of the old path, and its elements
}

TEST_F(SetNestedPath, LeavesTheOldStorageToItsOtherOwners) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids old = picked.set.begin().nestedEntFullPath();
    edit(picked.set).begin().setNestedEntFullPath(idVector({3ul}));
    EXPECT_EQ(old.data.block->refCount.load(), 1u);
    EXPECT_EQ(numbersOf(old), Numbers({1, 2}));
}

TEST_F(SetNestedPath, DoesNothingForTheStorageThatIsThere) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids path = picked.set.begin().nestedEntFullPath();
    Iterator it = edit(picked.set).begin();
    it.setNestedEntFullPath(path);
    it.setNestedEntFullPath(it.nestedEntFullPath());
    EXPECT_EQ(path.data.block->refCount.load(), 2u);
    EXPECT_EQ(numbersOf(it.nestedEntFullPath()), Numbers({1, 2}));
}

TEST_F(SetNestedPath, KeepsTheContentsWhenTheCallersVectorChanges) {
    Picked picked(1ul, {});
    Ids path = idVector({3ul, 4ul});
    edit(picked.set).begin().setNestedEntFullPath(path);
    path.at(0) = id(9);
    path.setLogicalLength(1);
    EXPECT_EQ(numbersOf(picked.set.begin().nestedEntFullPath()), Numbers({3, 4}));
}

TEST_F(SetNestedPath, MayBeEmptyOrWithoutStorage) {
    Picked picked(1ul, {1ul, 2ul});
    Iterator it = edit(picked.set).begin();
    it.setNestedEntFullPath(Ids());
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 0);
    it.setNestedEntFullPath(idVector({1ul}));
    {
        const kvtest::WithoutEmptyBlock withoutEmptyBlock;
        it.setNestedEntFullPath(Ids());
    }
    EXPECT_EQ(it.nestedEntFullPath().data.block, nullptr);
}

TEST_F(SetNestedPath, GoesStraightIntoDataThatIsShared) {
    const Picked picked(1ul, {1ul, 2ul});
    const GxapSelectSet copy(picked.set);
    Iterator it(&picked.set, 0);
    it.setNestedEntFullPath(idVector({3ul}));
    EXPECT_EQ(owners(copy), 2u);
    EXPECT_EQ(numbersOf(copy.begin().nestedEntFullPath()), Numbers({3}));
}

TEST_F(SetNestedPath, LeavesTheIndexAndIsFoundByThePath) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids path = idVector({3ul});
    edit(picked.set).begin().setNestedEntFullPath(path);
    EXPECT_EQ(picked.set.find(id(1)), 0);
    EXPECT_EQ(picked.set.find(id(1), GxDbObjectId(), &path), 0);
    EXPECT_TRUE(kvtest::invariants(picked.set));
}

TEST_F(SetNestedPath, DoesNothingWithoutARecord) {
    Picked picked(1ul, {1ul, 2ul});
    const Ids path = idVector({3ul});
    Iterator atEnd = edit(picked.set).end();
    Iterator disabled = edit(picked.set).begin();
    disabled.disable();
    atEnd.setNestedEntFullPath(path);
    disabled.setNestedEntFullPath(path);
    EXPECT_EQ(path.data.block->refCount.load(), 1u);
    EXPECT_EQ(numbersOf(picked.set.begin().nestedEntFullPath()), Numbers({1, 2}));
}

TEST_F(SetNestedPath, DoesNothingOnANullRecord) {
    Picked picked(1ul, {1ul, 2ul});
    const auto record = kvtest::takeRecordOut(picked.set, 0);
    const Ids path = idVector({3ul});
    edit(picked.set).begin().setNestedEntFullPath(path);
    EXPECT_EQ(path.data.block->refCount.load(), 1u);
}

class StaticEmptyPath : public kvtest::SetTest {};

TEST_F(StaticEmptyPath, IsOneForAllIteratorsWithoutARecordAndSharesTheEmptyBlock) {
    const Picked first(1ul, {1ul});
    const Picked second(1ul, {2ul});
    ConstIterator disabled = first.set.begin();
    disabled.disable();
    const Ids& empty = first.set.end().nestedEntFullPath();
    EXPECT_EQ(&empty, &second.set.end().nestedEntFullPath());
    EXPECT_EQ(&empty, &disabled.nestedEntFullPath());
    EXPECT_EQ(empty.data.block, gpEmptyVectorData);
    EXPECT_EQ(empty.logicalLength(), 0);
}

} // namespace
