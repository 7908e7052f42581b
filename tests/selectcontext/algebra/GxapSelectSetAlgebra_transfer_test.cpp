#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace {

using kvtest::count;
using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::items;
using kvtest::Items;
using kvtest::kPageSlots;
using kvtest::numberOf;
using kvtest::owners;
using kvtest::plainItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::shareData;
using kvtest::Unique;

using ConstIterator = GxapSelectSet::ConstIterator;
using Numbers = std::vector<unsigned long>;

class Transfer : public kvtest::EditTest {};
class TransferWithoutExcluder : public kvtest::EditTest {};
class TransferIntoItself : public kvtest::EditTest {};
class TransferCallback : public kvtest::EditTest {};

// Excludes main ids by a rule. `asked` has the ids that transfer() asked about, in order.
class Excluder : public IGxapSSetEntityExcluder {
public:
    explicit Excluder(std::function<bool(unsigned long)> rule) : mRule(std::move(rule)) {}

    bool isExcluded(GxDbObjectId mainEntId) override {
        asked.push_back(numberOf(mainEntId));
        return mRule(asked.back());
    }

    Numbers asked;

private:
    std::function<bool(unsigned long)> mRule;
};

Excluder nothing() {
    return Excluder([](unsigned long) { return false; });
}

Excluder everything() {
    return Excluder([](unsigned long) { return true; });
}

Excluder evenOnes() {
    return Excluder([](unsigned long n) { return n % 2 == 0; });
}

// --- without an excluder

TEST_F(TransferWithoutExcluder, SharesTheData) {
    const SetOf source({{1}, {2}}, Unique::kOff);
    SetOf target{{8}}, out{{9}};
    const ConstIterator it = target.set.begin();
    source.set.transfer(target.set, nullptr, &out.set);
    EXPECT_TRUE(shareData(target.set, source.set));
    EXPECT_EQ(owners(source.set), 2u);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(items(out.set), plainItems(9, 1));
    EXPECT_EQ(leftRecords({&source.set, &out.set}), 0u);
}

TEST_F(TransferWithoutExcluder, TakesTheDataOfASetThatHasNone) {
    GxapSelectSet source;
    source.releaseData();
    SetOf target{{8}};
    source.transfer(target.set, nullptr, nullptr);
    EXPECT_EQ(target.set.sharedData, nullptr);
    EXPECT_EQ(source.sharedData, nullptr);
}

TEST_F(TransferWithoutExcluder, IntoItselfDoesNothing) {
    SetOf s{{1}};
    const ConstIterator it = s.set.begin();
    s.set.transfer(s.set, nullptr, &s.set);
    EXPECT_EQ(items(s.set), plainItems(1, 1));
    EXPECT_EQ(kvtest::at(it), 1u);
    EXPECT_EQ(owners(s.set), 1u);
}

// --- with an excluder

TEST_F(Transfer, SplitsTheItems) {
    const SetOf source{{1}, {2}, {3}, {4}};
    SetOf target{{8}}, out{{9}};
    Excluder excluder = evenOnes();
    source.set.transfer(target.set, &excluder, &out.set);
    EXPECT_EQ(items(target.set), (Items{{8}, {1}, {3}}));
    EXPECT_EQ(items(out.set), (Items{{9}, {2}, {4}}));
    EXPECT_EQ(items(source.set), plainItems(1, 4));
    EXPECT_TRUE(invariants(target.set) && invariants(out.set) && invariants(source.set));
}

TEST_F(Transfer, AsksOnceForEachRecordInStoreOrder) {
    const SetOf source{{5}, {1}, {5, 2}, {3}};
    GxapSelectSet target;
    Excluder excluder = evenOnes();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{5, 1, 5, 3}));
}

TEST_F(Transfer, DropsExcludedItemsThatNobodyTakes) {
    const SetOf source{{1}, {2}, {3}};
    GxapSelectSet target;
    Excluder excluder = evenOnes();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

TEST_F(Transfer, OfNothingLeavesTheTargetAsItWas) {
    const SetOf source{{1}, {2}};
    SetOf target{{8}};
    const GxapSelectSet sharer(target.set);
    const ConstIterator it = target.set.begin();
    Excluder excluder = everything();
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_TRUE(shareData(target.set, sharer));
    EXPECT_EQ(kvtest::at(it), 8u);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2}));
}

TEST_F(Transfer, FromAnEmptySetAsksForNothing) {
    const GxapSelectSet source;
    SetOf target{{8}};
    Excluder excluder = nothing();
    source.transfer(target.set, &excluder, nullptr);
    EXPECT_TRUE(excluder.asked.empty());
    EXPECT_EQ(items(target.set), plainItems(8, 1));
}

TEST_F(Transfer, FromASetWithoutDataCreatesIt) {
    GxapSelectSet source;
    source.releaseData();
    SetOf target{{8}};
    Excluder excluder = nothing();
    source.transfer(target.set, &excluder, nullptr);
    ASSERT_NE(source.sharedData, nullptr);
    EXPECT_EQ(count(source), 0u);
    EXPECT_TRUE(excluder.asked.empty());
    EXPECT_EQ(items(target.set), plainItems(8, 1));
}

TEST_F(Transfer, IntoASetWithoutDataCreatesIt) {
    const SetOf source{{1}, {2}};
    GxapSelectSet target, out;
    target.releaseData();
    out.releaseData();
    Excluder excluder = evenOnes();
    source.set.transfer(target, &excluder, &out);
    EXPECT_EQ(items(target), plainItems(1, 1));
    EXPECT_EQ(items(out), plainItems(2, 1));
}

TEST_F(Transfer, FollowsTheUniqueRuleOfEachReceiver) {
    const SetOf source({{1}, {1}, {2}, {2}}, Unique::kOff);
    SetOf target({{1}}, Unique::kOn), out({{2}}, Unique::kOff);
    Excluder excluder = evenOnes();
    source.set.transfer(target.set, &excluder, &out.set);
    EXPECT_EQ(items(target.set), plainItems(1, 1));
    EXPECT_EQ(items(out.set), (Items{{2}, {2}, {2}}));
}

TEST_F(Transfer, CopiesKeysPathAndInfo) {
    const SetOf source{{1, 2, 3, {7}, 1.5}};
    kvtest::giveSegments(*record(source.set, 0), 1);
    GxapSelectSet target;
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(items(target), items(source.set));
    EXPECT_NE(record(target, 0), record(source.set, 0));
    EXPECT_NE(record(target, 0)->selectedEntityInfo, record(source.set, 0)->selectedEntityInfo);
    EXPECT_EQ(record(target, 0)->highlightSegmentArray, nullptr);
}

TEST_F(Transfer, LeavesTheFlagsOfTheReceivers) {
    SetOf source({{1}, {2}}, Unique::kOff);
    edit(source.set).setSelectByNestedMode(true);
    SetOf target, out;
    Excluder excluder = evenOnes();
    source.set.transfer(target.set, &excluder, &out.set);
    for (const SetOf* receiver : {&target, &out}) {
        EXPECT_TRUE(receiver->data().unique);
        EXPECT_FALSE(receiver->set.isSelectByNestedMode());
    }
}

TEST_F(Transfer, MakesSharedReceiversPrivate) {
    const SetOf source{{1}, {2}};
    SetOf target{{8}}, out{{9}};
    const GxapSelectSet targetSharer(target.set), outSharer(out.set);
    Excluder excluder = evenOnes();
    source.set.transfer(target.set, &excluder, &out.set);
    EXPECT_EQ(items(target.set), (Items{{8}, {1}}));
    EXPECT_EQ(items(out.set), (Items{{9}, {2}}));
    EXPECT_EQ(items(targetSharer), plainItems(8, 1));
    EXPECT_EQ(items(outSharer), plainItems(9, 1));
}

TEST_F(Transfer, IntoASharerOfTheSourceAddsToItsCopy) {
    const SetOf source({{1}, {2}}, Unique::kOff);
    GxapSelectSet target(source.set);
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(items(target), (Items{{1}, {2}, {1}, {2}}));
    EXPECT_EQ(items(source.set), plainItems(1, 2));
    EXPECT_EQ(owners(source.set), 1u);
}

TEST_F(Transfer, MayUseOneReceiverForBoth) {
    const SetOf source{{1}, {2}, {3}};
    GxapSelectSet target;
    Excluder excluder = evenOnes();
    source.set.transfer(target, &excluder, &target);
    EXPECT_EQ(items(target), plainItems(1, 3));
}

TEST_F(Transfer, PassesOverRecordsWithoutAMainId) {
    SetOf source{{1}, {2}, {3}};
    record(source.set, 1)->mainEntId = GxDbObjectId();
    GxapSelectSet target, out;
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, &out);
    EXPECT_EQ(excluder.asked, (Numbers{1, 3}));
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
    EXPECT_EQ(count(out), 0u);
}

TEST_F(Transfer, PassesOverNullRecords) {
    SetOf source{{1}, {2}, {3}};
    const auto taken = kvtest::takeRecordOut(source.set, 1);
    GxapSelectSet target;
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 3}));
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

TEST_F(Transfer, TakesAlsoWhatTheIndexHasLost) {
    SetOf source{{1, 1}, {1, 2}, {3}};
    edit(source.set).remove(id(1), id(1));
    GxapSelectSet target;
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(items(target), (Items{{1, 2}, {3}}));
}

TEST_F(Transfer, GoesAcrossPages) {
    const SetOf source(plainItems(1, kPageSlots + 1));
    GxapSelectSet target, out;
    Excluder excluder = evenOnes();
    source.set.transfer(target, &excluder, &out);
    EXPECT_EQ(count(target), kPageSlots / 2 + 1);
    EXPECT_EQ(count(out), kPageSlots / 2);
    EXPECT_EQ(excluder.asked, kvtest::idRange(1, kPageSlots + 1));
}

TEST_F(Transfer, LeavesNoIteratorRegistered) {
    const SetOf source{{1}, {2}};
    const ConstIterator it = source.set.begin();
    GxapSelectSet target;
    Excluder excluder = nothing();
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(registrations(source.set), 1);
    EXPECT_EQ(registrations(target), 0);
}

TEST_F(Transfer, PassesOnWhatTheExcluderThrows) {
    struct Refusal {};
    const SetOf source{{1}, {2}, {3}};
    GxapSelectSet target;
    Excluder excluder([](unsigned long n) -> bool {
        if (n == 2)
            throw Refusal();
        return false;
    });
    EXPECT_THROW(source.set.transfer(target, &excluder, nullptr), Refusal);
    EXPECT_EQ(items(target), plainItems(1, 1));
    EXPECT_EQ(registrations(source.set), 0);
    EXPECT_TRUE(invariants(target));
}

// --- into the set itself

TEST_F(TransferIntoItself, DoublesWhatWasThereWithoutUnique) {
    SetOf s({{1}, {2}, {3}}, Unique::kOff);
    Excluder excluder = nothing();
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {1}, {2}, {3}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(TransferIntoItself, AddsTheItemsThatAreNotExcluded) {
    SetOf s({{1}, {2}, {3}}, Unique::kOff);
    GxapSelectSet out;
    Excluder excluder = evenOnes();
    s.set.transfer(s.set, &excluder, &out);
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {1}, {3}}));
    EXPECT_EQ(items(out), plainItems(2, 1));
}

TEST_F(TransferIntoItself, ChangesNothingWithUnique) {
    SetOf s{{1}, {2}};
    Excluder excluder = nothing();
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2}));
    EXPECT_EQ(items(s.set), plainItems(1, 2));
}

TEST_F(TransferIntoItself, AddsTheExcludedItemsWhereItTakesThose) {
    SetOf s({{1}, {2}, {3}, {4}}, Unique::kOff);
    GxapSelectSet target;
    Excluder excluder = evenOnes();
    s.set.transfer(target, &excluder, &s.set);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3, 4}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {4}, {2}, {4}}));
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

TEST_F(TransferIntoItself, AsBothReceiversDoublesWhatWasThere) {
    SetOf s({{1}, {2}, {3}}, Unique::kOff);
    Excluder excluder = evenOnes();
    s.set.transfer(s.set, &excluder, &s.set);
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {1}, {2}, {3}}));
}

TEST_F(TransferIntoItself, EndsAcrossPages) {
    SetOf s(plainItems(1, kPageSlots), Unique::kOff);
    Excluder excluder = nothing();
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(count(s.set), 2 * kPageSlots);
    EXPECT_EQ(excluder.asked.size(), kPageSlots);
    EXPECT_TRUE(invariants(s.set));
}

// Returns an excluder that removes items from the set: when it is asked about id(n), it removes the items
// taken[n]. The fixture deletes the removed records.
Excluder takingOut(GxapSelectSet& set, std::map<unsigned long, Numbers> taken,
                   std::function<bool(unsigned long)> rule) {
    return Excluder([&set, taken = std::move(taken), rule = std::move(rule)](unsigned long n) {
        const auto found = taken.find(n);
        if (found != taken.end()) {
            for (const unsigned long other : found->second)
                EXPECT_TRUE(edit(set).remove(id(other))) << other;
        }
        return rule(n);
    });
}

TEST_F(TransferIntoItself, OfASetThatLosesItemsToComeVisitsTheOthersOnce) {
    SetOf s(plainItems(1, 6), Unique::kOff);
    Excluder excluder = takingOut(s.set, {{1, {3}}, {2, {6}}}, [](unsigned long) { return false; });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 4, 5}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {4}, {5}, {1}, {2}, {4}, {5}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(TransferIntoItself, OfASetThatLosesItemsBeforeVisitsTheOthersOnce) {
    SetOf s(plainItems(1, 6), Unique::kOff);
    Excluder excluder = takingOut(s.set, {{2, {1}}, {4, {3}}, {6, {5}}}, [](unsigned long) { return false; });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(items(s.set), (Items{{2}, {4}, {6}, {2}, {4}, {6}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(TransferIntoItself, OfASetThatLosesItsLastItemsEndsWithoutTheNewOnes) {
    SetOf s(plainItems(1, 5), Unique::kOff);
    Excluder excluder = takingOut(s.set, {{1, {5, 4}}, {2, {3}}}, [](unsigned long) { return false; });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {1}, {2}}));
}

TEST_F(TransferIntoItself, OfASetThatLosesItemsWhereItTakesTheExcludedOnes) {
    SetOf s(plainItems(1, 6), Unique::kOff);
    GxapSelectSet target;
    Excluder excluder = takingOut(s.set, {{2, {5}}, {4, {6}}}, [](unsigned long n) { return n % 2 == 0; });
    s.set.transfer(target, &excluder, &s.set);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3, 4}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {4}, {2}, {4}}));
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

// The excluder empties the last page, which is then freed. The new items are on a new page, which may have
// the address of the freed page.
TEST_F(TransferIntoItself, OfASetThatLosesItsLastPageEndsWithoutTheNewItems) {
    SetOf s(plainItems(1, kPageSlots + 3), Unique::kOff);
    Excluder excluder = takingOut(s.set, {{5, {kPageSlots + 3, kPageSlots + 2, kPageSlots + 1}}},
                                  [](unsigned long n) { return n < 6; });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, kvtest::idRange(1, kPageSlots));
    EXPECT_EQ(count(s.set), kPageSlots + kPageSlots - 5);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(TransferIntoItself, OfASetThatLosesItsFirstPageVisitsTheOthersOnce) {
    SetOf s(plainItems(1, 2 * kPageSlots), Unique::kOff);
    Excluder excluder = takingOut(s.set, {{kPageSlots + 1, kvtest::idRange(1, kPageSlots)}},
                                  [](unsigned long n) { return n <= kPageSlots; });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, kvtest::idRange(1, 2 * kPageSlots));
    Numbers expected = kvtest::idRange(kPageSlots + 1, kPageSlots);
    const Numbers once = expected;
    expected.insert(expected.end(), once.begin(), once.end());
    EXPECT_EQ(kvtest::mainIds(s.set), expected);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(TransferIntoItself, OfASetToWhichTheExcluderAppendsVisitsNoneOfThat) {
    SetOf s(plainItems(1, 3), Unique::kOff);
    Excluder excluder([&s](unsigned long n) {
        edit(s.set).append(id(100 + n), GxDbObjectId());
        return n == 2;
    });
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {3}, {101}, {1}, {102}, {103}, {3}}));
}

// The first append copies the shared data. The copying disables the iterator of transfer(), so transfer()
// ends.
TEST_F(TransferIntoItself, OfSharedDataEndsWithTheFirstItemThatIsAdded) {
    SetOf s({{2}, {1}, {3}}, Unique::kOff);
    const GxapSelectSet sharer(s.set);
    Excluder excluder = evenOnes();
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{2, 1}));
    EXPECT_EQ(items(s.set), (Items{{2}, {1}, {3}, {1}}));
    EXPECT_EQ(items(sharer), (Items{{2}, {1}, {3}}));
    EXPECT_EQ(registrations(s.set), 0);
}

TEST_F(TransferIntoItself, OfSharedDataAsksOnWhileItemsAreRefused) {
    SetOf s{{1}, {2}, {3}};
    const GxapSelectSet sharer(s.set);
    Excluder excluder = nothing();
    s.set.transfer(s.set, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 3}));
    EXPECT_TRUE(shareData(s.set, sharer));
}

TEST_F(TransferIntoItself, OfSharedDataEndsWithTheFirstExcludedItemWhereItTakesThose) {
    SetOf s({{1}, {2}, {4}}, Unique::kOff);
    const GxapSelectSet sharer(s.set);
    GxapSelectSet target;
    Excluder excluder = evenOnes();
    s.set.transfer(target, &excluder, &s.set);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}, {4}, {2}}));
    EXPECT_EQ(items(target), plainItems(1, 1));
}

// --- an excluder that changes the set that is transferred

// Returns an excluder that runs `work` when it is asked for the first time, and excludes nothing.
Excluder nothingButFirst(std::function<void()> work) {
    return Excluder([work = std::move(work), isFirst = true](unsigned long) mutable {
        if (std::exchange(isFirst, false))
            work();
        return false;
    });
}

TEST_F(TransferCallback, ThatClearsTheSetFindsItsItemGone) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { edit(source.set).clear(); });
    kvtest::expectMessage([&] { source.set.transfer(target, &excluder, nullptr); }, kvtest::kAccessError);
    EXPECT_EQ(excluder.asked, (Numbers{1}));
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(registrations(source.set), 0);
}

// The new item may be in the memory of the cleared item. The test allows two results: transfer() finds the
// new item, or transfer() throws.
TEST_F(TransferCallback, ThatClearsAndFillsTheSetFindsTheNewItemOrNone) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] {
        edit(source.set).clear();
        edit(source.set).append(id(7), GxDbObjectId());
    });
    try {
        source.set.transfer(target, &excluder, nullptr);
        EXPECT_EQ(items(target), plainItems(7, 1));
    } catch (KvExceptionWithMsg* raised) {
        const std::unique_ptr<KvExceptionWithMsg> owner(raised);
        EXPECT_STREQ(raised->message(), kvtest::kAccessError);
        EXPECT_EQ(count(target), 0u);
    }
    EXPECT_EQ(items(source.set), plainItems(7, 1));
    EXPECT_EQ(registrations(source.set), 0);
}

TEST_F(TransferCallback, ThatTakesTheItemOutFindsItGone) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { edit(source.set).remove(id(1)); });
    kvtest::expectMessage([&] { source.set.transfer(target, &excluder, nullptr); }, kvtest::kAccessError);
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(registrations(source.set), 0);
}

TEST_F(TransferCallback, ThatClearsSharedDataEndsTheTransfer) {
    SetOf source{{1}, {2}};
    const GxapSelectSet sharer(source.set);
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { edit(source.set).clear(); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1}));
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(items(sharer), plainItems(1, 2));
}

TEST_F(TransferCallback, ThatReleasesTheDataEndsTheTransfer) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { source.set.releaseData(); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1}));
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(source.set.sharedData, nullptr);
}

TEST_F(TransferCallback, ThatReassignsTheSetEndsTheTransfer) {
    SetOf source{{1}, {2}};
    const SetOf other{{7}, {8}, {9}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { source.set = other.set; });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1}));
    EXPECT_EQ(count(target), 0u);
    EXPECT_TRUE(shareData(source.set, other.set));
}

TEST_F(TransferCallback, ThatReassignsTheSetAfterThatLeavesTheOtherDataAlone) {
    SetOf source{{1}, {2}};
    const SetOf other{{7}, {8}};
    GxapSelectSet target, out;
    Excluder excluder([&](unsigned long n) {
        if (n == 2)
            source.set = other.set;
        return n == 1;
    });
    source.set.transfer(target, &excluder, &out);
    EXPECT_EQ(items(out), plainItems(1, 1));
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(owners(other.set), 2u);
}

TEST_F(TransferCallback, ThatEditsSharedDataEndsTheTransfer) {
    SetOf source{{1}, {2}};
    const GxapSelectSet sharer(source.set);
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { edit(source.set).append(id(9), GxDbObjectId()); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1}));
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(items(source.set), (Items{{1}, {2}, {9}}));
}

TEST_F(TransferCallback, ThatAppendsToTheSetIsAskedForThatToo) {
    SetOf source{{1}, {2}};
    GxapSelectSet target;
    Excluder excluder = nothingButFirst([&] { edit(source.set).append(id(9), GxDbObjectId()); });
    source.set.transfer(target, &excluder, nullptr);
    EXPECT_EQ(excluder.asked, (Numbers{1, 2, 9}));
    EXPECT_EQ(items(target), items(source.set));
}

TEST_F(TransferCallback, ThatClearsTheTargetGetsWhatFollows) {
    SetOf source{{1}, {2}, {3}};
    SetOf target{{8}};
    Excluder excluder([&](unsigned long n) {
        if (n == 2)
            edit(target.set).clear();
        return false;
    });
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_EQ(items(target.set), plainItems(2, 2));
}

} // namespace
