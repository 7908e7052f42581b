// Tests sets while the application changes the order and the equality of ids, which it must not do. Answers
// may then be wrong, but every item keeps its record, and no memory is corrupted. Once the order is the old
// one again, updateDataMap() makes everything as it was.
#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/selectcontext/support/LongRunTestSupport.h"
#include "tests/support/SetInvariants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace {

// The ways in which the application orders ids. Each is a strict weak order.
enum class Order {
    kByAddress,
    kReversed,
    kScattered, // another order of the same ids
    kInGroups,  // eight neighbours are equal
    kAllEqual,
    kAllOther, // no id is less than another, and none equals another, not even itself
};

Order gOrder = Order::kByAddress;
long gComparisons = 0;

std::uintptr_t placeOf(const GxDbStub* stub) {
    const auto address = reinterpret_cast<std::uintptr_t>(stub);
    switch (gOrder) {
    case Order::kReversed:
        return ~address;
    case Order::kScattered:
        return address * 0x9E3779B97F4A7C15u;
    case Order::kInGroups:
        return address / 128;
    case Order::kAllEqual:
    case Order::kAllOther:
        return 0;
    case Order::kByAddress:
        break;
    }
    return address;
}

} // namespace

// Replace the platform's comparisons of ids.
bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    ++gComparisons;
    return gOrder != Order::kAllOther && placeOf(a) == placeOf(b);
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    ++gComparisons;
    return placeOf(a) < placeOf(b);
}

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::idVector;
using kvtest::invariants;
using kvtest::Item;
using kvtest::itemOf;
using kvtest::items;
using kvtest::Items;
using kvtest::kNoId;
using kvtest::kRunMain;
using kvtest::plainItems;
using kvtest::SetOf;
using kvtest::Unique;

constexpr Order kOrders[] = {Order::kByAddress, Order::kReversed, Order::kScattered,
                             Order::kInGroups,  Order::kAllEqual, Order::kAllOther};

// Returns whether count, store and index agree, whatever the order of the ids.
::testing::AssertionResult isSound(const GxapSelectSet& set) {
    using ::testing::AssertionFailure;
    const kvtest::SSetData& data = *set.sharedData;
    const ::testing::AssertionResult store = kvtest::invariants(*data.entities);
    if (!store)
        return store;
    kvtest::setinvariants::StoredRecords records = kvtest::setinvariants::storedRecords(*data.entities);
    if (records.size() != data.entityCount)
        return AssertionFailure() << "entityCount is not the number of occupied slots";
    for (const auto& entry : data.dataMap) {
        const auto found = records.find(entry.second);
        if (found == records.end())
            return AssertionFailure() << "an entry names no occupied slot, or one that another entry names";
        if (found->second.record->mainEntId.stub() != entry.first.stub())
            return AssertionFailure() << "a record is indexed under another main id";
        records.erase(found);
    }
    return ::testing::AssertionSuccess();
}

class ChangedOrder : public kvtest::EditTest {
protected:
    void SetUp() override {
        EditTest::SetUp();
        gOrder = Order::kByAddress;
    }

    void TearDown() override {
        gOrder = Order::kByAddress;
        EditTest::TearDown();
    }

    // Makes the set hash its ids.
    static void lookUpAll(const GxapSelectSet& set, unsigned long count) {
        for (unsigned long n = 1; n <= count; ++n)
            EXPECT_EQ(set.find(id(n)), static_cast<int>(n - 1));
    }
};

// --- what the set keeps beside the index

TEST_F(ChangedOrder, DoesNotLeadTheHashToAnErasedEntry) {
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 100);
    edit(set).append(id(100), id(1)); // an id with two items
    lookUpAll(set, 100);
    gOrder = Order::kInGroups;
    edit(set).remove(id(16), kNoId, -1);
    edit(set).remove(id(17), kNoId, -1);
    gOrder = Order::kByAddress;
    EXPECT_EQ(set.find(id(16)), -1);
    EXPECT_EQ(set.find(id(17)), -1);
    EXPECT_EQ(set.find(id(18)), 15);
    EXPECT_TRUE(invariants(set));
}

TEST_F(ChangedOrder, DoesNotLeadTheIndexOfARunToAnErasedEntry) {
    SetOf s(kvtest::plainRun(100));
    kvtest::select(s.set, {kRunMain + 1});
    kvtest::indexRun(s.set);
    gOrder = Order::kReversed;
    kvtest::select(s.set, {kRunMain, 200}); // behind kRunMain + 1
    edit(s.set).remove(id(kRunMain), id(200), -1);
    edit(s.set).remove(id(kRunMain + 1));
    gOrder = Order::kByAddress;
    kvtest::select(s.set, {kRunMain, 300});
    EXPECT_EQ(s.set.find(id(kRunMain), id(300)), 100);
    EXPECT_TRUE(invariants(s.set));
}

// --- what holds after the change

TEST_F(ChangedOrder, LeavesEveryItemInItsPlace) {
    SetOf s(plainItems(1, 100));
    lookUpAll(s.set, 100);
    for (const Order order : kOrders) {
        gOrder = order;
        EXPECT_EQ(items(s.set), plainItems(1, 100));
        EXPECT_EQ(itemOf(*s.set.getAt(40)), (Item{41}));
    }
}

TEST_F(ChangedOrder, IsFollowedOnceTheIndexIsUpdated) {
    for (const Order order : {Order::kReversed, Order::kScattered}) {
        gOrder = Order::kByAddress;
        SetOf s(plainItems(1, 100));
        lookUpAll(s.set, 100);
        gOrder = order;
        edit(s.set).updateDataMap();
        lookUpAll(s.set, 100);
        EXPECT_TRUE(edit(s.set).remove(id(7)));
        EXPECT_EQ(s.set.find(id(8)), 6);
        EXPECT_TRUE(invariants(s.set));
    }
}

TEST_F(ChangedOrder, IsFollowedByACopyThatIsWritten) {
    const SetOf s(plainItems(1, 100));
    gOrder = Order::kReversed;
    GxapSelectSet copy(s.set);
    edit(copy).writeData();
    lookUpAll(copy, 100);
    EXPECT_TRUE(invariants(copy));
}

TEST_F(ChangedOrder, IsNotAskedForByWalkingClearingAndDestroying) {
    auto set = std::make_unique<GxapSelectSet>();
    kvtest::fill(*set, plainItems(1, 100));
    kvtest::fill(*set, kvtest::plainRun(100));
    kvtest::indexRun(*set);
    lookUpAll(*set, 100);
    gComparisons = 0;
    auto copy = std::make_unique<GxapSelectSet>(*set);
    for (auto it = copy->begin(); !it.isDone(); it.step())
        EXPECT_NE(it.get(), nullptr);
    copy.reset();
    edit(*set).clear();
    set.reset();
    EXPECT_EQ(gComparisons, 0);
}

// --- random edits, with an order that changes between them

// Edits three sets at random. Their ids are few, and one has many items, so that all hashes are in use.
class RandomEdits {
public:
    explicit RandomEdits(unsigned seed) : mRandom(seed) {}

    void edit() {
        GxapSelectSet& set = any();
        GxapSSetWriteAccessor& writer = kvtest::edit(set);
        const Item item = anyItem();
        const GxDbObjectId main = id(item.main), sub = id(item.sub);
        switch (draw(20)) {
        case 0:
            writer.remove(main);
            break;
        case 1:
            writer.remove(main, sub);
            break;
        case 2:
        case 3:
            writer.remove(main, sub, item.marker);
            break;
        case 4:
            writer.removeAt(static_cast<int>(draw(200)));
            break;
        case 5:
            set = any();
            break;
        case 6:
            writer.merge(&any(), &any());
            break;
        case 7:
            writer.minus(&any(), &any());
            break;
        case 8:
            writer.setUnique(draw(2) == 0);
            break;
        case 9:
            writer.updateDataMap();
            break;
        case 10:
            writer.findItr(main, sub).setNestedEntFullPath(kvtest::pathOf(item));
            break;
        case 11:
            set.contains(&any());
            set.intersectedWith(&any());
            break;
        case 12:
            lookUp(set);
            break;
        default:
            for (int i = 0; i < 8; ++i)
                kvtest::select(set, anyItem());
        }
        if (set.sharedData->entityCount > kMostItems)
            writer.clear();
    }

    std::array<GxapSelectSet, 3> sets;

private:
    static constexpr std::uint32_t kMostItems = 2000;

    std::size_t draw(std::size_t below) { return mRandom() % below; }
    GxapSelectSet& any() { return sets[draw(sets.size())]; }

    Item anyItem() {
        Item item{draw(2) == 0 ? kRunMain : 450 + draw(100), draw(40), static_cast<long>(draw(4)) - 1};
        for (std::size_t i = draw(3); i-- > 0;)
            item.path[i] = 1 + draw(4);
        item.moved = draw(4) == 0 ? 1.5 : 0;
        return item;
    }

    void lookUp(const GxapSelectSet& set) {
        for (int i = 0; i < 50; ++i) {
            const Item item = anyItem();
            const kvtest::IdPath path = kvtest::pathOf(item);
            set.findInMap(id(item.main));
            set.findInMap(id(item.main), id(item.sub));
            set.findInMap(id(item.main), id(item.sub), item.marker, &path);
        }
    }

    std::mt19937 mRandom;
};

class RandomEditsInOrders : public ChangedOrder, public ::testing::WithParamInterface<unsigned> {};

TEST_P(RandomEditsInOrders, KeepEverySetSound) {
    auto random = std::make_unique<RandomEdits>(GetParam());
    std::mt19937 orders(GetParam());
    for (int round = 0; round < 150; ++round) {
        gOrder = kOrders[orders() % std::size(kOrders)];
        for (int i = 0; i < 5; ++i)
            random->edit();
        for (const GxapSelectSet& set : random->sets)
            ASSERT_TRUE(isSound(set)) << "in round " << round;
    }
    gOrder = Order::kByAddress;
    for (GxapSelectSet& set : random->sets) {
        edit(set).updateDataMap();
        EXPECT_TRUE(invariants(set));
        EXPECT_TRUE(kvtest::areFoundAsByAWalk(set, items(set)));
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomEditsInOrders, ::testing::Range(1u, 13u));

} // namespace
