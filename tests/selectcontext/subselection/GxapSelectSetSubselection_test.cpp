#include "tests/selectcontext/subselection/SubselectionTest.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvtest::count;
using kvtest::edit;
using kvtest::id;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isLiveRecord;
using kvtest::kNoId;
using kvtest::owners;
using kvtest::pathCopiesLeft;
using kvtest::record;
using kvtest::registrations;
using kvtest::SegmentArray;
using kvtest::shareData;
using kvtest::subentPath;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;
using Path = GxDbFullSubentPath;

constexpr int kInvalidIndex = 24;

class FindMainSubsel : public kvtest::SubselectionTest {};
class EditMainSubsel : public kvtest::SubselectionTest {};
class AppendSubsel : public kvtest::SubselectionTest {};
class AppendSubselOfNewEntity : public kvtest::SubselectionTest {};
class RemoveSubsel : public kvtest::SubselectionTest {};
class RemoveSubselAt : public kvtest::SubselectionTest {};
class FindSubsel : public kvtest::SubselectionTest {};
class GetSubselAt : public kvtest::SubselectionTest {};
class BadSubselPath : public kvtest::SubselectionTest {};

std::vector<std::int64_t> parts(const selected_entity* of) {
    return kvtest::indicesOf(*of->subselPathArray);
}

using Parts = std::vector<std::int64_t>;

// --- findMainSubsel, reading

TEST_F(FindMainSubsel, StandsOnTheItemOfTheEntity) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const ConstIterator it = std::as_const(set).findMainSubsel(second);
    EXPECT_EQ(it.get(), record(set, 1));
    EXPECT_EQ(it.index, 1);
    EXPECT_TRUE(std::as_const(set).findMainSubsel(first) == set.begin());
}

TEST_F(FindMainSubsel, TakesTheFirstOfTheIndex) {
    GxapSelectSet set;
    edit(set).append(first, second);
    edit(set).append(first, third);
    EXPECT_EQ(std::as_const(set).findMainSubsel(first).get(), record(set, 0));
    kvtest::reverseIndex(*set.sharedData);
    EXPECT_EQ(std::as_const(set).findMainSubsel(first).get(), record(set, 1));
}

TEST_F(FindMainSubsel, OfAnEmptySetIsDoneAtTheFirstPosition) {
    const GxapSelectSet set;
    for (const GxDbObjectId& wanted : {first, kNoId}) {
        const ConstIterator it = set.findMainSubsel(wanted);
        EXPECT_TRUE(it.isDone());
        EXPECT_EQ(it.index, 0);
        EXPECT_EQ(it.set, &set);
        EXPECT_EQ(registrations(set), 1);
    }
}

TEST_F(FindMainSubsel, OfASetWithoutDataIsDoneAndCreatesNone) {
    GxapSelectSet set;
    set.releaseData();
    const ConstIterator it = std::as_const(set).findMainSubsel(first);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(FindMainSubsel, OfAnIdThatIsNotHeldIsTheEnd) {
    GxapSelectSet set;
    edit(set).append(second, kNoId);
    for (const GxDbObjectId& wanted : {first, third, kNoId}) {
        EXPECT_TRUE(std::as_const(set).findMainSubsel(wanted) == set.end());
        EXPECT_EQ(std::as_const(set).findMainSubsel(wanted).index, 1);
    }
}

TEST_F(FindMainSubsel, OfAnItemThatTheIndexHasLostIsTheEnd) {
    GxapSelectSet set;
    edit(set).append(first, second);
    edit(set).append(first, third);
    edit(set).remove(first, second);
    EXPECT_TRUE(std::as_const(set).findMainSubsel(first) == set.end());
}

TEST_F(FindMainSubsel, OfAnEntryWithoutASlotIsDone) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    set.sharedData->dataMap.emplace(second, 0);
    const ConstIterator it = std::as_const(set).findMainSubsel(second);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.index, -1);
}

TEST_F(FindMainSubsel, CopiesNothing) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    EXPECT_EQ(std::as_const(set).findMainSubsel(second).get(), record(sharer, 1));
    EXPECT_TRUE(shareData(set, sharer));
}

// --- findMainSubsel, writing

TEST_F(EditMainSubsel, StandsOnTheItemOfTheEntity) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const Iterator it = edit(set).findMainSubsel(second);
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(static_cast<const ConstIterator&>(it).get(), record(set, 1));
    EXPECT_TRUE(kvtest::isRegistered(set, it));
}

TEST_F(EditMainSubsel, OfAFoundItemCopiesSharedData) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    const ConstIterator before = set.begin();
    Iterator it = edit(set).findMainSubsel(second);
    EXPECT_FALSE(shareData(set, sharer));
    EXPECT_EQ(it.get(), record(set, 1));
    EXPECT_EQ(before.truckerIterator, nullptr);
    EXPECT_EQ(registrations(set), 1);
}

TEST_F(EditMainSubsel, OfWhatIsNotFoundCopiesNothing) {
    GxapSelectSet set;
    edit(set).append(second, kNoId);
    const GxapSelectSet sharer(set);
    for (const GxDbObjectId& wanted : {first, third, kNoId})
        EXPECT_TRUE(edit(set).findMainSubsel(wanted) == set.end());
    EXPECT_TRUE(shareData(set, sharer));
}

TEST_F(EditMainSubsel, OfASetWithNothingIsDone) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    EXPECT_TRUE(edit(set).findMainSubsel(first).isDone());
    EXPECT_EQ(edit(set).findMainSubsel(kNoId).index, 0);
    EXPECT_TRUE(shareData(set, sharer));
    set.releaseData();
    EXPECT_TRUE(edit(set).findMainSubsel(first).isDone());
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(EditMainSubsel, BehindASlotWithoutARecordStandsOnTheItem) {
    GxapSelectSet set;
    for (const GxDbObjectId& entity : {first, second, third})
        edit(set).append(entity, kNoId);
    const auto taken = kvtest::takeRecordOut(set, 0);
    Iterator it = edit(set).findMainSubsel(second);
    EXPECT_EQ(it.get(), record(set, 1));
    EXPECT_TRUE(it == set.findItr(second));
}

// A slot has no record, and the copy of the data lacks that slot. So the item has another position in the
// copy.
TEST_F(EditMainSubsel, BehindASlotWithoutARecordOfSharedDataStandsOnTheItemOfTheCopy) {
    GxapSelectSet set;
    for (const GxDbObjectId& entity : {first, second, third})
        edit(set).append(entity, kNoId);
    const auto taken = kvtest::takeRecordOut(set, 0);
    const GxapSelectSet sharer(set);
    Iterator it = edit(set).findMainSubsel(second);
    EXPECT_FALSE(shareData(set, sharer));
    EXPECT_EQ(it.get(), record(set, 0));
    EXPECT_TRUE(it == set.findItr(second));
}

TEST_F(EditMainSubsel, OutlivesTheDataItsArgumentIsIn) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxDbObjectId& inside = record(set, 1)->mainEntId;
    const kvtest::FleetingSharer sharer(set);
    EXPECT_EQ(edit(set).findMainSubsel(inside).index, 1);
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(count(set), 2u);
}

// --- paths that lead nowhere

TEST_F(BadSubselPath, WithoutIdsIsRefused) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    const Path empty;
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(empty));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(empty));
    EXPECT_TRUE(shareData(set, sharer));
    EXPECT_EQ(count(set), 2u);
}

TEST_F(BadSubselPath, ToAnInvalidIdIsRefused) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    const GxDbObjectId invalid[] = {kNoId, id(12345), database.addInvalid()};
    for (const GxDbObjectId& last : invalid) {
        EXPECT_FALSE(edit(set).appendSubentPathSubsel(subentPath({second, last}, 1, 1)));
        EXPECT_FALSE(edit(set).removeSubentPathSubsel(subentPath({second, last}, 1, 1)));
    }
    EXPECT_TRUE(shareData(set, sharer));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

TEST_F(BadSubselPath, ToAnIdThatIsHeldButNotValidIsRefused) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    database.invalidate(second);
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(second, 2)));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

TEST_F(BadSubselPath, CreatesNoData) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(Path()));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(Path()));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(set.sharedData, nullptr);
}

// --- appendSubentPathSubsel

TEST_F(AppendSubsel, AddsACopyToTheList) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const Path path = part(second, 2);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(path));
    ASSERT_EQ(parts(record(set, 1)), (Parts{1, 2}));
    const Path* stored = kvtest::elementAt(*record(set, 1)->subselPathArray, 1);
    EXPECT_NE(stored, &path);
    EXPECT_TRUE(*stored == path);
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(registrations(set), 0);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AppendSubsel, GoesByTheLastIdOfThePath) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    subselect(*record(set, 0), {1});
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(subentPath({first, third, second}, 1, 4)));
    EXPECT_EQ(parts(record(set, 0)), (Parts{1}));
    EXPECT_EQ(parts(record(set, 1)), (Parts{4}));
}

TEST_F(AppendSubsel, AllowsDuplicates) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(second, 3)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{3, 3}));
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 3)), 0);
}

TEST_F(AppendSubsel, FillsAListWithoutABlock) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    record(set, 0)->subselPathArray = kvtest::newSegmentsWithoutBlock();
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 3)));
    EXPECT_EQ(parts(record(set, 0)), (Parts{3}));
}

TEST_F(AppendSubsel, GrowsTheListByOneEachTime) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    Parts expected;
    for (std::int64_t n = 1; n <= 40; ++n) {
        EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(second, n)));
        expected.push_back(n);
    }
    EXPECT_EQ(parts(record(set, 1)), expected);
}

TEST_F(AppendSubsel, ToAnOrdinaryItemIsRefused) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(record(set, 0)->subselPathArray, nullptr);
    EXPECT_FALSE(record(set, 0)->hasSubselPaths);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AppendSubsel, ToAnItemWithHalfOfASubselectionIsRefused) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 1)));
    record(set, 0)->hasSubselPaths = false;
    const auto list = std::make_unique<SegmentArray>();
    record(set, 0)->subselPathArray = list.get();
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(list->logicalLength(), 0);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(AppendSubsel, AsksTheFirstItemOfTheEntityOnly) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    edit(set).append(first, second);
    subselect(*record(set, 1), {1});
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
    kvtest::reverseIndex(*set.sharedData);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
}

TEST_F(AppendSubsel, LeavesTheListOfASharingSetAlone) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    const ConstIterator it = set.begin();
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(second, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
    EXPECT_EQ(parts(record(sharer, 1)), (Parts{1}));
    EXPECT_EQ(owners(sharer), 1u);
    EXPECT_EQ(it.truckerIterator, nullptr);
}

TEST_F(AppendSubsel, ToAnOrdinaryItemOfSharedDataCopiesTheData) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_FALSE(shareData(set, sharer));
    EXPECT_EQ(kvtest::items(set), kvtest::items(sharer));
}

TEST_F(AppendSubsel, TakesAPathOfItsOwnList) {
    GxapSelectSet set;
    const SegmentArray& list = fillWithSubselection(set, {1, 2});
    const GxapSelectSet sharer(set);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(*list.at(1)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2, 2}));
}

TEST_F(AppendSubsel, LeavesNothingBehindWhenCopyingThePathThrows) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const Path path = part(second, 2);
    const long paths = kvinmemory::livePaths();
    kvinmemory::throwFromPathCopy(1);
    EXPECT_THROW(edit(set).appendSubentPathSubsel(path), kvinmemory::PlatformFailure);
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
    EXPECT_EQ(kvinmemory::livePaths(), paths);
    EXPECT_EQ(registrations(set), 0);
}

// --- appendSubentPathSubsel of an entity that is not in the set

TEST_F(AppendSubselOfNewEntity, AddsAPlainItem) {
    GxapSelectSet set;
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(subentPath({third, first}, 1, 1)));
    ASSERT_EQ(count(set), 1u);
    const selected_entity* added = record(set, 0);
    EXPECT_TRUE(added->mainEntId == first);
    EXPECT_TRUE(added->subEntId.isNull());
    EXPECT_EQ(added->gsMarker, -1);
    EXPECT_EQ(added->nestedEntFullPath.logicalLength(), 0);
    EXPECT_EQ(added->hlVpArray.logicalLength(), 0);
    EXPECT_EQ(added->highlightSegmentArray, nullptr);
    EXPECT_FALSE(added->hasSubselPaths);
    EXPECT_EQ(added->subselPathArray, nullptr);
    EXPECT_TRUE(invariants(set));
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(AppendSubselOfNewEntity, MarksItsInfo) {
    GxapSelectSet set;
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    const GxapSelectedEntInfo* info = record(set, 0)->selectedEntityInfo;
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->word0, 6u);
    const GxapSelectedEntInfo fresh;
    EXPECT_EQ(info->word1, fresh.word1);
    EXPECT_EQ(info->halfWord, fresh.halfWord);
    EXPECT_EQ(info->getBTRMatPtr(), nullptr);
    EXPECT_EQ(info->getFenceInfoPtr(), nullptr);
    EXPECT_TRUE(kvinmemory::isLiveBlock(info));
}

TEST_F(AppendSubselOfNewEntity, LeavesThePathsCopyUnreleasedAndNothingElse) {
    GxapSelectSet set;
    const Path path = part(first, 1);
    const auto before = pathCopiesLeft();
    const long infos = kvinmemory::liveBlocksOfSize(sizeof(GxapSelectedEntInfo));
    const long paths = kvinmemory::livePaths();
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(path));
    EXPECT_EQ(kvinmemory::livePaths(), paths + 1);
    EXPECT_EQ(pathCopiesLeft().size(), before.size() + 1);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(sizeof(GxapSelectedEntInfo)), infos + 1);
    EXPECT_EQ(leftRecords({&set}), 0u);
}

TEST_F(AppendSubselOfNewEntity, KeepsNoSubselectionAndBlocksTheNextOne) {
    GxapSelectSet set;
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 1)), -1);
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_FALSE(edit(set).appendSubentPathSubsel(part(first, 2)));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 1u);
}

TEST_F(AppendSubselOfNewEntity, AddsBehindTheOthers) {
    GxapSelectSet set;
    edit(set).append(third, kNoId);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(second, 1)));
    ASSERT_EQ(count(set), 3u);
    EXPECT_TRUE(record(set, 1)->mainEntId == first);
    EXPECT_TRUE(record(set, 2)->mainEntId == second);
}

TEST_F(AppendSubselOfNewEntity, CopiesSharedData) {
    GxapSelectSet set;
    edit(set).append(third, kNoId);
    const GxapSelectSet sharer(set);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(count(sharer), 1u);
}

TEST_F(AppendSubselOfNewEntity, CreatesMissingData) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(AppendSubselOfNewEntity, AddsAnotherItemForOneThatTheIndexHasLost) {
    GxapSelectSet set;
    edit(set).append(first, second);
    edit(set).append(first, third);
    edit(set).remove(first, second);
    EXPECT_TRUE(edit(set).appendSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 2u);
    EXPECT_TRUE(invariants(set, IndexState::kMayLackEntries));
}

TEST_F(AppendSubselOfNewEntity, LeavesNothingBehindWhenCopyingThePathThrows) {
    GxapSelectSet set;
    const Path path = part(first, 1);
    const long paths = kvinmemory::livePaths();
    kvinmemory::throwFromPathCopy(1);
    EXPECT_THROW(edit(set).appendSubentPathSubsel(path), kvinmemory::PlatformFailure);
    EXPECT_EQ(count(set), 0u);
    EXPECT_EQ(kvinmemory::livePaths(), paths);
}

// --- removeSubentPathSubsel

TEST_F(RemoveSubsel, TakesTheFirstEqualPathOutOfTheList) {
    GxapSelectSet set;
    const SegmentArray& list = fillWithSubselection(set, {1, 2, 3, 2});
    const Path* last = list.at(3);
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(second, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 3, 2}));
    EXPECT_EQ(list.at(2), last);
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(RemoveSubsel, DoesNotDeleteThePath) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    const Path path = part(second, 2);
    const long paths = kvinmemory::livePaths();
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(path));
    EXPECT_EQ(kvinmemory::livePaths(), paths);
}

TEST_F(RemoveSubsel, OfAnAbsentPathKeepsTheRecord) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 3)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
    EXPECT_EQ(count(set), 2u);
}

TEST_F(RemoveSubsel, ComparesWholePaths) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(subentPath({first, second}, 1, 1)));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(subentPath({second}, 2, 1)));
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(subentPath({second}, 1, 1)));
}

TEST_F(RemoveSubsel, OfTheOnlyPathRemovesTheRecord) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const selected_entity* removed = record(set, 1);
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(set.find(second), -1);
    EXPECT_EQ(set.find(first), 0);
    EXPECT_TRUE(isLiveRecord(removed));
    EXPECT_EQ(leftRecords({&set}), 1u);
    EXPECT_TRUE(invariants(set));
}

TEST_F(RemoveSubsel, OfARecordWithAnEmptyListAnswersFalseAndRemovesIt) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(set.find(second), -1);
}

TEST_F(RemoveSubsel, OfARecordWhoseListHasNoBlockAnswersFalseAndRemovesIt) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    record(set, 0)->subselPathArray = kvtest::newSegmentsWithoutBlock();
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 0u);
}

TEST_F(RemoveSubsel, PassesOverNullElements) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1, 2});
    list.at(0) = nullptr;
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(second, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{-1}));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(count(set), 2u);
}

// Both items have the path in their sub-selections. The path is removed from the item of `second`, its last
// id.
TEST_F(RemoveSubsel, GoesByTheLastIdOfThePath) {
    Path path = subentPath({first, third, second}, 1, 4);
    GxapSelectSet set;
    SegmentArray& ofSecond = fillWithSubselection(set, {1});
    SegmentArray& ofFirst = subselect(*record(set, 0), {2});
    kvtest::append(ofSecond, &path);
    kvtest::append(ofFirst, &path);
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(path));
    EXPECT_EQ(parts(record(set, 0)), (Parts{2, 4}));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

TEST_F(RemoveSubsel, AsksTheFirstItemOfTheEntityOnly) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    edit(set).append(first, second);
    subselect(*record(set, 1), {1, 2});
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
    kvtest::reverseIndex(*set.sharedData);
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(first, 2)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

TEST_F(RemoveSubsel, FromAnOrdinaryItemOrNoneAnswersFalse) {
    GxapSelectSet set;
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    edit(set).append(first, kNoId);
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 1)));
    record(set, 0)->hasSubselPaths = true;
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(first, 1)));
    EXPECT_EQ(count(set), 1u);
}

TEST_F(RemoveSubsel, FromAnItemWithoutTheFlagAnswersFalse) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1});
    record(set, 1)->hasSubselPaths = false;
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(list.logicalLength(), 1);
    record(set, 1)->hasSubselPaths = true;
}

TEST_F(RemoveSubsel, LeavesTheListOfASharingSetAlone) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    const GxapSelectSet sharer(set);
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(second, 1)));
    EXPECT_EQ(parts(record(set, 1)), (Parts{2}));
    EXPECT_EQ(parts(record(sharer, 1)), (Parts{1, 2}));
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(part(second, 2)));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(parts(record(sharer, 1)), (Parts{1, 2}));
}

TEST_F(RemoveSubsel, OfAnAbsentPathInSharedDataCopiesTheListToo) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).removeSubentPathSubsel(part(second, 3)));
    EXPECT_FALSE(shareData(set, sharer));
    EXPECT_NE(record(set, 1)->subselPathArray->data.block, record(sharer, 1)->subselPathArray->data.block);
}

TEST_F(RemoveSubsel, TakesAPathOfItsOwnList) {
    GxapSelectSet set;
    const SegmentArray& list = fillWithSubselection(set, {1});
    EXPECT_TRUE(edit(set).removeSubentPathSubsel(*list.at(0)));
    EXPECT_EQ(count(set), 1u);
}

// --- removeSubentPathAtSubsel

TEST_F(RemoveSubselAt, TakesThePathThereOut) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2, 3});
    const long paths = kvinmemory::livePaths();
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(1, 1));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 3}));
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(1, 1));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(kvinmemory::livePaths(), paths);
    EXPECT_TRUE(invariants(set));
}

TEST_F(RemoveSubselAt, OfTheOnlyPathRemovesTheRecord) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(set.find(second), -1);
    EXPECT_EQ(leftRecords({&set}), 1u);
    EXPECT_TRUE(invariants(set));
}

TEST_F(RemoveSubselAt, OutsideTheSetAnswersFalseAndCopiesNothing) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    for (const int bad : {-1, 2, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(bad, 0)) << bad;
    EXPECT_TRUE(shareData(set, sharer));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

TEST_F(RemoveSubselAt, OfASetWithNothingAnswersFalse) {
    GxapSelectSet set;
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(0, 0));
    set.releaseData();
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(0, 0));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RemoveSubselAt, OfABadPathIndexAnswersFalse) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    for (const int bad : {-1, 3, 4, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(1, bad)) << bad;
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
}

TEST_F(RemoveSubselAt, OfTheListsLengthRaises) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    kvinmemory::installCrashRecorder();
    kvtest::expectStatus([&] { edit(set).removeSubentPathAtSubsel(1, 2); }, kInvalidIndex);
    EXPECT_EQ(kvinmemory::recordedExceptions().size(), 1u);
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
    EXPECT_TRUE(invariants(set));
}

TEST_F(RemoveSubselAt, OfTheLengthOfAnEmptyListRaisesAndKeepsTheRecord) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    kvtest::expectStatus([&] { edit(set).removeSubentPathAtSubsel(1, 0); }, kInvalidIndex);
    EXPECT_EQ(count(set), 2u);
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(1, 1));
}

TEST_F(RemoveSubselAt, OfTheLengthOfAListWithoutABlockRaises) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    record(set, 0)->subselPathArray = kvtest::newSegmentsWithoutBlock();
    kvtest::expectStatus([&] { edit(set).removeSubentPathAtSubsel(0, 0); }, kInvalidIndex);
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(0, 1));
    EXPECT_EQ(count(set), 1u);
}

TEST_F(RemoveSubselAt, OfAnOrdinaryItemAnswersFalse) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1});
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(0, 0));
    record(set, 0)->hasSubselPaths = true;
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(0, 0));
    record(set, 1)->hasSubselPaths = false;
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(list.logicalLength(), 1);
    record(set, 1)->hasSubselPaths = true;
}

TEST_F(RemoveSubselAt, OfANullRecordAnswersFalse) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const auto taken = kvtest::takeRecordOut(set, 1);
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(count(set), 2u);
}

TEST_F(RemoveSubselAt, LeavesTheListOfASharingSetAlone) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    const GxapSelectSet sharer(set);
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(parts(record(set, 1)), (Parts{2}));
    EXPECT_EQ(parts(record(sharer, 1)), (Parts{1, 2}));
}

TEST_F(RemoveSubselAt, OfABadPathIndexInSharedDataCopiesIt) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).removeSubentPathAtSubsel(1, 2));
    EXPECT_FALSE(shareData(set, sharer));
    EXPECT_EQ(parts(record(set, 1)), parts(record(sharer, 1)));
}

TEST_F(RemoveSubselAt, CountsItemsLikeAnyPosition) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    edit(set).remove(first);
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(0, 1));
    EXPECT_EQ(parts(record(set, 0)), (Parts{1}));
}

// removeSubentPathAtSubsel() empties the sub-selection of the second item, and then removes an item by the
// keys of this item. The first item has the same keys. So the first item is removed.
TEST_F(RemoveSubselAt, OfTheOnlyPathRemovesTheFirstRecordOfEqualKeys) {
    GxapSelectSet set;
    edit(set).setUnique(false);
    edit(set).append(first, kNoId);
    edit(set).append(first, kNoId);
    subselect(*record(set, 1), {1});
    const selected_entity* emptied = record(set, 1);
    EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(record(set, 0), emptied);
    EXPECT_EQ(emptied->subselPathArray->logicalLength(), 0);
}

// --- findSubentPathSubsel

TEST_F(FindSubsel, AnswersThePositionOfTheFirstEqualPath) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2, 3, 2});
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), 0);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 2)), 1);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 3)), 2);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 4)), -1);
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(FindSubsel, GoesByTheGivenIdNotByThePath) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    EXPECT_EQ(set.findSubentPathSubsel(first, part(second, 1)), -1);
    const Path foreign = subentPath({third}, 1, 9);
    Path* const kept = kvtest::elementAt(*record(set, 1)->subselPathArray, 0);
    *kept = foreign;
    EXPECT_EQ(set.findSubentPathSubsel(second, foreign), 0);
    *kept = Path();
    EXPECT_EQ(set.findSubentPathSubsel(second, Path()), 0);
}

TEST_F(FindSubsel, AsksTheFirstItemOfTheEntityOnly) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    edit(set).append(first, second);
    subselect(*record(set, 1), {1, 2});
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 2)), -1);
    kvtest::reverseIndex(*set.sharedData);
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 2)), 1);
}

TEST_F(FindSubsel, NeedsNoValidId) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    database.invalidate(second);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), 0);
}

TEST_F(FindSubsel, OfBadIdsAnswersNone) {
    GxapSelectSet set;
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), -1);
    fillWithSubselection(set, {1});
    EXPECT_EQ(set.findSubentPathSubsel(kNoId, part(second, 1)), -1);
    EXPECT_EQ(set.findSubentPathSubsel(third, part(second, 1)), -1);
    set.releaseData();
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), -1);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(FindSubsel, OfTheNullIdAnswersNoneThoughAnItemHasIt) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    record(set, 1)->mainEntId = kNoId;
    edit(set).updateDataMap();
    EXPECT_EQ(set.findSubentPathSubsel(kNoId, part(second, 1)), -1);
    EXPECT_TRUE(std::as_const(set).findMainSubsel(kNoId) == set.end());
    EXPECT_TRUE(edit(set).findMainSubsel(kNoId) == set.end());
}

TEST_F(FindSubsel, InAnythingButASubselectionAnswersNone) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    record(set, 0)->hasSubselPaths = true;
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 1)), -1);
    record(set, 1)->hasSubselPaths = false;
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), -1);
    record(set, 1)->hasSubselPaths = true;
}

TEST_F(FindSubsel, InAListWithoutABlockAnswersNone) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    record(set, 0)->subselPathArray = kvtest::newSegmentsWithoutBlock();
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 1)), -1);
}

TEST_F(FindSubsel, PassesOverNullElements) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1, 2});
    list.at(0) = nullptr;
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 2)), 1);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 1)), -1);
}

TEST_F(FindSubsel, MakesTheListPrivateButCopiesNoSharedData) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1});
    const SegmentArray sharedList(list);
    const GxapSelectSet sharer(set);
    EXPECT_EQ(set.findSubentPathSubsel(second, part(second, 9)), -1);
    EXPECT_NE(list.data.block, sharedList.data.block);
    EXPECT_TRUE(shareData(set, sharer));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1}));
}

// --- getSubentPathAtSubsel

TEST_F(GetSubselAt, AssignsThePath) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    Path path;
    EXPECT_TRUE(std::as_const(set).getSubentPathAtSubsel(1, 1, path));
    EXPECT_TRUE(path == part(second, 2));
    EXPECT_TRUE(std::as_const(set).getSubentPathAtSubsel(1, 0, path));
    EXPECT_TRUE(path == part(second, 1));
    EXPECT_EQ(parts(record(set, 1)), (Parts{1, 2}));
}

TEST_F(GetSubselAt, CopiesNothing) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1});
    const SegmentArray sharedList(list);
    const GxapSelectSet sharer(set);
    Path path;
    EXPECT_TRUE(std::as_const(set).getSubentPathAtSubsel(1, 0, path));
    EXPECT_TRUE(shareData(set, sharer));
    EXPECT_EQ(sharer.getAt(1), set.getAt(1));
}

TEST_F(GetSubselAt, OfBadIndexesLeavesThePathAlone) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    Path path = part(third, 7);
    for (const int bad : {-1, 2, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(bad, 0, path)) << bad;
    for (const int bad : {-1, 3, 4, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(1, bad, path)) << bad;
    EXPECT_TRUE(path == part(third, 7));
}

TEST_F(GetSubselAt, AsksTheCountFirst) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    set.sharedData->entityCount = 1;
    Path path;
    EXPECT_FALSE(set.getSubentPathAtSubsel(1, 0, path));
    EXPECT_EQ(path.objectIds().logicalLength(), 0);
}

TEST_F(GetSubselAt, OfTheListsLengthRaises) {
    GxapSelectSet set;
    fillWithSubselection(set, {1, 2});
    Path path = part(third, 7);
    kvinmemory::installCrashRecorder();
    kvtest::expectStatus([&] { std::as_const(set).getSubentPathAtSubsel(1, 2, path); }, kInvalidIndex);
    EXPECT_EQ(kvinmemory::recordedExceptions().size(), 1u);
    EXPECT_TRUE(path == part(third, 7));
}

TEST_F(GetSubselAt, OfTheLengthOfAnEmptyListRaises) {
    GxapSelectSet set;
    fillWithSubselection(set, {});
    Path path;
    kvtest::expectStatus([&] { std::as_const(set).getSubentPathAtSubsel(1, 0, path); }, kInvalidIndex);
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(1, 1, path));
}

TEST_F(GetSubselAt, OfTheLengthOfAListWithoutABlockRaises) {
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    record(set, 0)->hasSubselPaths = true;
    record(set, 0)->subselPathArray = kvtest::newSegmentsWithoutBlock();
    Path path;
    kvtest::expectStatus([&] { std::as_const(set).getSubentPathAtSubsel(0, 0, path); }, kInvalidIndex);
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(0, 1, path));
}

TEST_F(GetSubselAt, OfAnythingButASubselectionAnswersFalse) {
    GxapSelectSet set;
    fillWithSubselection(set, {1});
    Path path;
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(0, 0, path));
    record(set, 0)->hasSubselPaths = true;
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(0, 0, path));
    record(set, 1)->hasSubselPaths = false;
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(1, 0, path));
    record(set, 1)->hasSubselPaths = true;
}

TEST_F(GetSubselAt, OfASetWithNothingAnswersFalse) {
    GxapSelectSet set;
    Path path;
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(0, 0, path));
    set.releaseData();
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(0, 0, path));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(GetSubselAt, OfANullRecordOrElementAnswersFalse) {
    GxapSelectSet set;
    SegmentArray& list = fillWithSubselection(set, {1, 2});
    list.at(0) = nullptr;
    Path path = part(third, 7);
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(1, 0, path));
    const auto taken = kvtest::takeRecordOut(set, 1);
    EXPECT_FALSE(std::as_const(set).getSubentPathAtSubsel(1, 1, path));
    EXPECT_TRUE(path == part(third, 7));
}

} // namespace
