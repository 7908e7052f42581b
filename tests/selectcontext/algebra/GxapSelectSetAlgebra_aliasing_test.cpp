// Tests merge() and minus() when target and operands are the same set or share their data, in every
// combination. Compares the results with those of a model.

#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

using kvtest::addressOf;
using kvtest::edit;
using kvtest::id;
using kvtest::Item;
using kvtest::Items;

using ConstIterator = GxapSelectSet::ConstIterator;

// --- the model

struct ModelItem {
    Item item;
    bool indexed = true;
};

struct ModelData {
    std::vector<ModelItem> items;
    bool unique = true;
    bool nested = false;
};

// A set of the model. Two sets with the same `data` pointer share their data.
struct ModelSet {
    std::shared_ptr<ModelData> data = std::make_shared<ModelData>();
    bool iteratorsDisabled = false;

    bool isShared() const { return data.use_count() > 1; }
    bool isEmpty() const { return data->items.empty(); }
};

class Model {
public:
    static void merge(ModelSet& target, ModelSet* a, ModelSet* b) {
        if (a != &target && b != &target)
            clear(target);
        if (!a && !b)
            return;
        if (!b)
            return share(target, *a);
        if (!a || a->isEmpty())
            return share(target, *b);
        share(target, *a);
        if (b->isEmpty())
            return;
        const ModelData added = *b->data;
        const bool unique = a->data->unique || added.unique;
        if (added.nested && !target.data->nested)
            writeData(target).nested = true;
        writeData(target).unique = unique;
        for (const ModelItem& held : added.items)
            append(target, held.item);
    }

    static void minus(ModelSet& target, ModelSet* a, ModelSet* b) {
        if (a != &target)
            clear(target);
        if (!a || a->isEmpty())
            return;
        share(target, *a);
        if (!b || b->isEmpty())
            return;
        const ModelData taken = *b->data;
        for (const ModelItem& held : taken.items)
            remove(target, held.item);
    }

    static void share(ModelSet& target, const ModelSet& other) {
        if (target.data == other.data)
            return;
        target.data = other.data;
        target.iteratorsDisabled = true;
    }

    // The number of removed items. Their records are left to the test.
    static std::size_t removals;

private:
    static ModelData& writeData(ModelSet& set) {
        if (!set.isShared())
            return *set.data;
        set.data = std::make_shared<ModelData>(*set.data);
        for (ModelItem& held : set.data->items)
            held.indexed = true;
        set.iteratorsDisabled = true;
        return *set.data;
    }

    static void clear(ModelSet& set) {
        if (!set.isShared()) {
            set.data->items.clear();
            return;
        }
        set.data = std::make_shared<ModelData>();
        set.iteratorsDisabled = true;
    }

    static bool isNoMarker(long marker) { return marker == 0 || marker == -1; }

    static bool areMarkersEqual(long a, long b) { return a == b || (isNoMarker(a) && isNoMarker(b)); }

    static bool areSame(const Item& a, const Item& b) {
        Item other = b;
        if (areMarkersEqual(a.marker, b.marker))
            other.marker = a.marker;
        return a == other;
    }

    static void append(ModelSet& set, const Item& item) {
        const auto isHeld = [&](const ModelItem& held) { return held.indexed && areSame(held.item, item); };
        if (set.data->unique && std::any_of(set.data->items.begin(), set.data->items.end(), isHeld))
            return;
        writeData(set).items.push_back({item});
    }

    static void remove(ModelSet& set, const Item& item) {
        const auto isLike = [&](const ModelItem& held) {
            return held.indexed && held.item.main == item.main && held.item.sub == item.sub &&
                   areMarkersEqual(held.item.marker, item.marker);
        };
        const auto isExact = [&](const ModelItem& held) {
            return isLike(held) && held.item.marker == item.marker;
        };
        if (std::none_of(set.data->items.begin(), set.data->items.end(), isLike))
            return;
        std::vector<ModelItem>& items = writeData(set).items;
        const auto found = std::find_if(items.begin(), items.end(), isExact);
        if (found == items.end())
            return;
        items.erase(found);
        ++removals;
    }
};

std::size_t Model::removals = 0;

// --- the cases

// The sets of a case: the target and two other sets.
enum Player { kTarget, kA, kB, kPlayers };
enum class Operand { kNull, kTarget, kA, kB };
enum class Sharing { kApart, kTargetAndA, kTargetAndB, kAAndB, kAll };
enum class Bystanders { kNone, kOfEach };
enum class Contents { kOverlapping, kEmptyTarget, kEmptyA, kEmptyB, kPartlyIndexed };

std::ostream& operator<<(std::ostream& out, Operand operand) {
    return out << (std::array<const char*, 4>{"Null", "This", "A", "B"})[static_cast<std::size_t>(operand)];
}

std::ostream& operator<<(std::ostream& out, Sharing sharing) {
    return out << (std::array<const char*, 5>{"Apart", "ThisSharesA", "ThisSharesB", "ASharesB",
                                              "AllShare"})[static_cast<std::size_t>(sharing)];
}

std::ostream& operator<<(std::ostream& out, Bystanders bystanders) {
    return out << (bystanders == Bystanders::kNone ? "Private" : "Shared");
}

// A variant of a case. In `unique` and `nested`, bit n is the flag of the set of Player n.
struct Variant {
    Contents contents;
    unsigned unique;
    unsigned nested;
};

std::ostream& operator<<(std::ostream& out, const Variant& variant) {
    return out << "contents " << static_cast<int>(variant.contents) << ", unique " << variant.unique
               << ", nested " << variant.nested;
}

std::vector<Variant> variants() {
    std::vector<Variant> all;
    for (unsigned unique = 0; unique < 8; ++unique) {
        for (const Contents contents : {Contents::kOverlapping, Contents::kEmptyTarget, Contents::kEmptyA,
                                        Contents::kEmptyB, Contents::kPartlyIndexed})
            all.push_back({contents, unique, 0});
    }
    for (unsigned nested = 1; nested < 8; ++nested)
        all.push_back({Contents::kOverlapping, 0, nested});
    return all;
}

Items itemsOf(Player player, Contents contents) {
    if (contents == Contents::kEmptyTarget && player == kTarget)
        return {};
    if (contents == Contents::kEmptyA && player == kA)
        return {};
    if (contents == Contents::kEmptyB && player == kB)
        return {};
    switch (player) {
    case kTarget:
        return {{1}, {9}, {2, 5}, {9}, {6, 0, 0}};
    case kA:
        return {{1}, {2, 5, 0}, {3, 0, 4, {7}}, {3, 0, 4, {8}}, {1}, {4, 0, -1, {}, 1.5}, {6, 0, -1}, {3, 1}};
    default:
        return {{2, 5, -1}, {3, 0, 4, {8}}, {5}, {1}, {4, 0, -1, {}, 2.5}, {6, 0, -1}, {5}, {3, 1}};
    }
}

// The sets of one case, in the library and in the model.
class Arrangement {
public:
    Arrangement(Sharing sharing, Bystanders bystanders, const Variant& variant) {
        for (const Player player : {kTarget, kA, kB})
            fill(player, variant);
        if (sharing == Sharing::kTargetAndA || sharing == Sharing::kAll)
            share(kTarget, kA);
        if (sharing == Sharing::kTargetAndB || sharing == Sharing::kAll)
            share(kTarget, kB);
        if (sharing == Sharing::kAAndB)
            share(kA, kB);
        if (bystanders == Bystanders::kOfEach)
            addBystanders();
        for (std::size_t i = 0; i < mSets.size(); ++i) {
            mModel[i]->iteratorsDisabled = false;
            mIterators.push_back(std::make_unique<ConstIterator>(mSets[i].get(), 0));
        }
    }

    GxapSelectSet& target() { return *mSets[kTarget]; }
    ModelSet& modelTarget() { return *mModel[kTarget]; }
    const GxapSelectSet* set(Operand operand) const {
        return operand == Operand::kNull ? nullptr : mSets[playerOf(operand)].get();
    }
    ModelSet* model(Operand operand) const {
        return operand == Operand::kNull ? nullptr : mModel[playerOf(operand)].get();
    }

    void expectAgreement() const {
        for (std::size_t i = 0; i < mSets.size(); ++i) {
            SCOPED_TRACE(i < kPlayers ? "of set " + std::to_string(i) : "of bystander " + std::to_string(i));
            expectSame(*mSets[i], *mModel[i]);
            EXPECT_EQ(mIterators[i]->truckerIterator == nullptr, mModel[i]->iteratorsDisabled);
            for (std::size_t j = 0; j < i; ++j)
                EXPECT_EQ(mSets[i]->sharedData == mSets[j]->sharedData, mModel[i]->data == mModel[j]->data)
                    << "with set " << j;
        }
        EXPECT_TRUE(kvtest::invariants(*mSets[kTarget], kvtest::IndexState::kMayLackEntries));
    }

    // Steps all iterators. A step from a freed page must not read freed memory.
    void stepAllIterators() const {
        for (const auto& it : mIterators)
            it->step();
    }

private:
    static std::size_t playerOf(Operand operand) { return static_cast<std::size_t>(operand) - 1; }

    void fill(Player player, const Variant& variant) {
        mSets.push_back(std::make_unique<GxapSelectSet>());
        mModel.push_back(std::make_unique<ModelSet>());
        GxapSelectSet& set = *mSets.back();
        ModelData& model = *mModel.back()->data;
        const Items items = itemsOf(player, variant.contents);
        const bool unique = (variant.unique >> player & 1) != 0;
        kvtest::fill(set, items, unique ? kvtest::Unique::kOn : kvtest::Unique::kOff);
        set.sharedData->selectByNestedMode = (variant.nested >> player & 1) != 0;
        for (const Item& item : items)
            model.items.push_back({item});
        model.unique = unique;
        model.nested = set.sharedData->selectByNestedMode;
        if (variant.contents == Contents::kPartlyIndexed)
            loseIndexEntries(set, model);
    }

    // Removes all index entries of id(1) and id(6). The items stay in the store. remove() with a main id and
    // a sub id leaves items with another sub id in the same state.
    static void loseIndexEntries(GxapSelectSet& set, ModelData& model) {
        set.sharedData->dataMap.erase(id(1));
        set.sharedData->dataMap.erase(id(6));
        for (ModelItem& held : model.items)
            held.indexed = held.item.main != 1 && held.item.main != 6;
    }

    void share(Player player, Player other) {
        *mSets[other] = *mSets[player];
        Model::share(*mModel[other], *mModel[player]);
    }

    void addBystanders() {
        for (std::size_t i = 0; i < kPlayers; ++i) {
            mSets.push_back(std::make_unique<GxapSelectSet>(*mSets[i]));
            mModel.push_back(std::make_unique<ModelSet>(*mModel[i]));
        }
    }

    static void expectSame(const GxapSelectSet& set, const ModelSet& model) {
        const GxapSelectSet::SSetData& data = *set.sharedData;
        Items expected;
        for (const ModelItem& held : model.data->items)
            expected.push_back(held.item);
        EXPECT_EQ(kvtest::items(set), expected);
        EXPECT_EQ(data.unique, model.data->unique);
        EXPECT_EQ(data.selectByNestedMode, model.data->nested);
        EXPECT_EQ(data.refCount.load(), static_cast<std::uint32_t>(model.data.use_count()));
        expectSameIndex(data, *model.data);
    }

    static void expectSameIndex(const GxapSelectSet::SSetData& data, const ModelData& model) {
        const auto slots = kvtest::occupiedSlots(data);
        ASSERT_EQ(slots.size(), model.items.size());
        for (std::size_t i = 0; i < slots.size(); ++i) {
            const bool indexed =
                std::any_of(data.dataMap.begin(), data.dataMap.end(),
                            [&](const auto& entry) { return entry.second == addressOf(slots[i]); });
            EXPECT_EQ(indexed, model.items[i].indexed) << "item " << i;
        }
    }

    std::vector<std::unique_ptr<GxapSelectSet>> mSets;
    std::vector<std::unique_ptr<ModelSet>> mModel;
    std::vector<std::unique_ptr<ConstIterator>> mIterators;
};

using Case = std::tuple<Operand, Operand, Sharing, Bystanders>;

std::string nameOf(const ::testing::TestParamInfo<Case>& info) {
    std::ostringstream name;
    name << "Of" << std::get<0>(info.param) << "And" << std::get<1>(info.param) << std::get<2>(info.param)
         << std::get<3>(info.param);
    return name.str();
}

class Aliased : public kvtest::EditTest, public ::testing::WithParamInterface<Case> {
protected:
    template <class Operation>
    static void tryAllVariants(Operation operation) {
        const auto [a, b, sharing, bystanders] = GetParam();
        for (const Variant& variant : variants()) {
            Arrangement sets(sharing, bystanders, variant);
            operation(sets, a, b);
            sets.expectAgreement();
            sets.stepAllIterators();
            if (HasFailure()) {
                ADD_FAILURE() << variant;
                return;
            }
        }
    }
};

class MergeAliased : public Aliased {};
class MinusAliased : public Aliased {};

TEST_P(MergeAliased, AgreesWithItsSteps) {
    tryAllVariants([](Arrangement& sets, Operand a, Operand b) {
        edit(sets.target()).merge(sets.set(a), sets.set(b));
        Model::merge(sets.modelTarget(), sets.model(a), sets.model(b));
    });
    EXPECT_EQ(kvtest::liveRecords().size(), 0u) << "records left behind";
}

TEST_P(MinusAliased, AgreesWithItsSteps) {
    Model::removals = 0;
    tryAllVariants([](Arrangement& sets, Operand a, Operand b) {
        edit(sets.target()).minus(sets.set(a), sets.set(b));
        Model::minus(sets.modelTarget(), sets.model(a), sets.model(b));
    });
    EXPECT_EQ(kvtest::liveRecords().size(), Model::removals) << "records left behind";
}

const auto kAllCases =
    ::testing::Combine(::testing::Values(Operand::kNull, Operand::kTarget, Operand::kA, Operand::kB),
                       ::testing::Values(Operand::kNull, Operand::kTarget, Operand::kA, Operand::kB),
                       ::testing::Values(Sharing::kApart, Sharing::kTargetAndA, Sharing::kTargetAndB,
                                         Sharing::kAAndB, Sharing::kAll),
                       ::testing::Values(Bystanders::kNone, Bystanders::kOfEach));

INSTANTIATE_TEST_SUITE_P(Sets, MergeAliased, kAllCases, nameOf);
INSTANTIATE_TEST_SUITE_P(Sets, MinusAliased, kAllCases, nameOf);

} // namespace
