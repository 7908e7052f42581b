// Tests operations on data whose store a caller has taken out. The data still has its count and its index.
#include "selectcontext/KvSelectContext.h"

#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::kNoId;
using kvtest::Store;

class SetWithoutStore : public kvtest::SetTest {
protected:
    // Takes the store out of the data of `filled` while the object lives.
    class StoreOut {
    public:
        explicit StoreOut(const Filled& filled)
            : mData(*filled.set.sharedData), mStore(std::exchange(mData.entities, nullptr)) {}
        StoreOut(const StoreOut&) = delete;
        StoreOut& operator=(const StoreOut&) = delete;
        ~StoreOut() {
            std::swap(mData.entities, mStore);
            delete mStore;
        }

    private:
        GxapSelectSet::SSetData& mData;
        Store* mStore;
    };
};

TEST_F(SetWithoutStore, RemovesNothing) {
    Filled s(20);
    const StoreOut out(s);
    EXPECT_FALSE(edit(s.set).remove(id(3)));
    EXPECT_FALSE(edit(s.set).remove(id(3), kNoId));
    EXPECT_FALSE(edit(s.set).remove(id(3), kNoId, -1));
    EXPECT_FALSE(edit(s.set).removeAt(0));
    EXPECT_EQ(s.set.sharedData->dataMap.size(), 20u);
}

TEST_F(SetWithoutStore, FindsNoItemByMoreThanItsMainId) {
    Filled s(20);
    const StoreOut out(s);
    EXPECT_EQ(s.set.findInMap(id(3), kNoId), s.set.sharedData->dataMap.end());
    EXPECT_TRUE(s.set.findMainSubsel(id(3)).isDone());
    EXPECT_TRUE(edit(s.set).findMainSubsel(id(3)).isDone());
}

TEST_F(SetWithoutStore, SharedDataHasNoSubSelectionEither) {
    Filled s(20);
    const StoreOut out(s);
    GxapSelectSet copy(s.set);
    EXPECT_TRUE(edit(copy).findMainSubsel(id(3)).isDone());
}

TEST_F(SetWithoutStore, SelectMakesANewStore) {
    Filled s(0);
    delete std::exchange(s.set.sharedData->entities, nullptr);
    edit(s.set).select(id(3), kNoId, -1, nullptr, nullptr);
    EXPECT_EQ(kvtest::mainIds(s.set), std::vector<unsigned long>{3});
}

TEST_F(SetWithoutStore, SelectMakesANewStoreThoughTheCountIsNotZero) {
    Filled s(0);
    delete std::exchange(s.set.sharedData->entities, nullptr);
    s.set.sharedData->entityCount = 5;
    edit(s.set).select(id(3), kNoId, -1, nullptr, nullptr);
    EXPECT_EQ(kvtest::mainIds(s.set), std::vector<unsigned long>{3});
    EXPECT_EQ(kvtest::count(s.set), 6u);
}

TEST_F(SetWithoutStore, MayBeTheFirstOperandOfAMerge) {
    Filled s(20);
    const Filled other(30);
    const StoreOut out(s);
    GxapSelectSet merged;
    edit(merged).merge(&s.set, &other.set);
    EXPECT_EQ(kvtest::mainIds(merged), kvtest::idRange(1, 30));
}

TEST_F(SetWithoutStore, BecomesUniqueWithoutChange) {
    Filled s(20);
    edit(s.set).setUnique(false);
    const StoreOut out(s);
    edit(s.set).setUnique(true);
    EXPECT_TRUE(s.set.sharedData->unique);
    EXPECT_EQ(s.set.sharedData->dataMap.size(), 20u);
}

TEST_F(SetWithoutStore, GivesNothingToAMerge) {
    Filled s(20);
    const Filled other(30);
    const StoreOut out(s);
    GxapSelectSet merged;
    edit(merged).merge(&other.set, &s.set);
    EXPECT_EQ(kvtest::mainIds(merged), kvtest::idRange(1, 30));
    GxapSelectSet left;
    edit(left).minus(&other.set, &s.set);
    EXPECT_EQ(kvtest::mainIds(left), kvtest::idRange(1, 30));
}

} // namespace
