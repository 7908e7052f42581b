// The measured operations. Each operation is a class: the constructor prepares the operation, and run() is
// measured.
#pragma once

#include "bench/Item.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace kvbench {

enum class Order { kAscending, kShuffled };

inline const char* nameOf(Order order) {
    return order == Order::kAscending ? "ascending" : "shuffled";
}

constexpr unsigned kSelectionSeed = 1;
constexpr unsigned kAccessSeed = 2;
constexpr unsigned kRemovalSeed = 3;

// Returns the numbers below `count`, ascending or shuffled. The same seed gives the same shuffle for every
// contender and in every run. The result is kept for later calls.
inline const std::vector<std::size_t>& indices(std::size_t count, Order order,
                                               unsigned seed = kSelectionSeed) {
    static std::map<std::tuple<std::size_t, Order, unsigned>, std::vector<std::size_t>> kept;
    std::vector<std::size_t>& result = kept[{count, order, seed}];
    if (!result.empty())
        return result;
    result.resize(count);
    std::iota(result.begin(), result.end(), std::size_t{0});
    if (order == Order::kShuffled)
        std::shuffle(result.begin(), result.end(), std::mt19937_64(seed));
    return result;
}

// Makes all lists of indices() that the measurements with these arguments will use.
inline void prepareIndices(std::size_t count, Order order) {
    indices(count, order);
    indices(std::max<std::size_t>(count / 10, 1) * 10, order);
    indices(count, Order::kShuffled, kAccessSeed);
    indices(count, Order::kShuffled, kRemovalSeed);
}

// Returns `count` whole entities with different ids. The lowest id is idAt(first).
inline Picks picks(std::size_t count, Order order, std::size_t first = 0) {
    Picks result;
    result.reserve(count);
    for (const std::size_t index : indices(count, order))
        result.push_back({idAt(first + index), GxDbObjectId(), -1});
    return result;
}

// A source of items. Operations take a source as the template argument `Source`. Every source has:
//   Items, and items(count, order, first): `count` different items, made from the indices `first` and above;
//   kThreeKeysDiffer: whether any two items differ in main id, sub id or marker.
struct WholeEntities {
    using Items = Picks;
    static constexpr bool kThreeKeysDiffer = true;

    static Items items(std::size_t count, Order order, std::size_t first = 0) {
        return picks(count, order, first);
    }
};

template <class Set, class Items = Picks>
void fill(Set& set, const Items& items) {
    for (const auto& pick : items)
        set.select(pick);
}

// Returns the distance between two positions that are looked up. The distance is usually 1. Some contenders
// find a position by counting through a list. For these contenders, only about kMostAsked positions are
// looked up.
template <class Set>
std::size_t stepFor(std::size_t count) {
    constexpr std::size_t kMostAsked = 20;
    return Set::kIndexesPositions ? 1 : std::max<std::size_t>(count / kMostAsked, 1);
}

inline std::size_t stepsIn(std::size_t count, std::size_t step) {
    return (count + step - 1) / step;
}

// Stops the compiler from removing the computation of `value`.
inline void keep(std::uintptr_t value) {
    asm volatile("" : : "r"(value) : "memory");
}

inline void require(bool held) {
    if (!held)
        std::abort();
}

// Every operation class has:
//   kName;
//   kIsRepeatable: whether run() can be timed many times after one preparation;
//   Operation(count, order): prepares;
//   run(): does the work that is timed;
//   itemsDealtWith(): the number of items that one run handles;
//   check(): aborts if the last run had a wrong result.

template <class Set, class Source = WholeEntities>
struct Select {
    static constexpr const char* kName = "select";
    static constexpr bool kIsRepeatable = false;

    Select(std::size_t count, Order order) : mItems(Source::items(count, order)) {}
    void run() { fill(mSet, mItems); }
    std::size_t itemsDealtWith() const { return mItems.size(); }
    void check() const { require(mSet.size() == mItems.size()); }

    typename Source::Items mItems;
    Set mSet;
};

template <class Set, class Source = WholeEntities>
struct Filled {
    Filled(std::size_t count, Order order) : mItems(Source::items(count, order)) { fill(mSet, mItems); }
    std::size_t itemsDealtWith() const { return mItems.size(); }

    typename Source::Items mItems;
    Set mSet;
};

template <class Set, class Source = WholeEntities>
struct Reselect : Filled<Set, Source> {
    static constexpr const char* kName = "re-select (refused)";
    static constexpr bool kIsRepeatable = true;

    using Filled<Set, Source>::Filled;
    void run() { fill(this->mSet, this->mItems); }
    void check() const { require(this->mSet.size() == this->mItems.size()); }
};

template <class Set>
struct Presence : Filled<Set> {
    static constexpr const char* kName = "presence by id";
    static constexpr bool kIsRepeatable = true;

    using Filled<Set>::Filled;
    void run() {
        mFound = 0;
        for (const Pick& pick : this->mItems)
            mFound += std::size_t{this->mSet.has(pick.mainId)};
    }
    void check() const { require(mFound == this->mItems.size()); }

    std::size_t mFound = 0;
};

template <class Set>
struct Position : Filled<Set> {
    static constexpr const char* kName = "id to position";
    static constexpr bool kIsRepeatable = true;

    Position(std::size_t count, Order order) : Filled<Set>(count, order), mStep(stepFor<Set>(count)) {}

    std::size_t itemsDealtWith() const { return stepsIn(this->mItems.size(), mStep); }
    void run() {
        mSum = 0;
        for (std::size_t i = 0; i < this->mItems.size(); i += mStep)
            mSum += std::size_t{this->mSet.positionOf(this->mItems[i].mainId) == static_cast<long>(i)};
    }
    void check() const { require(mSum == itemsDealtWith()); }

    std::size_t mStep;
    std::size_t mSum = 0;
};

template <class Set>
struct Walk : Filled<Set> {
    static constexpr const char* kName = "walk";
    static constexpr bool kIsRepeatable = true;

    using Filled<Set>::Filled;
    void run() { mSum = this->mSet.walk(); }
    void check() const {
        std::uintptr_t sum = 0;
        for (const Pick& pick : this->mItems)
            sum += reinterpret_cast<std::uintptr_t>(pick.mainId.stub()) +
                   static_cast<std::uintptr_t>(pick.gsMarker);
        require(mSum == sum);
    }

    std::uintptr_t mSum = 0;
};

// Returns the sum of the markers of `count` items. Each marker is -1, which means no marker.
inline long sumOfNoMarkers(std::size_t count) {
    return -static_cast<long>(count);
}

// Reads items by position, from the first item to the last.
template <class Set>
struct WalkByIndex : Filled<Set> {
    static constexpr const char* kName = "walk by index";
    static constexpr bool kIsRepeatable = true;

    WalkByIndex(std::size_t count, Order order) : Filled<Set>(count, order), mStep(stepFor<Set>(count)) {}

    std::size_t itemsDealtWith() const { return stepsIn(this->mItems.size(), mStep); }
    void run() {
        mSum = 0;
        for (std::size_t i = 0; i < this->mItems.size(); i += mStep)
            mSum += this->mSet.at(i);
    }
    void check() const { require(mSum == sumOfNoMarkers(itemsDealtWith())); }

    std::size_t mStep;
    long mSum = 0;
};

template <class Set>
struct Nth : Filled<Set> {
    static constexpr const char* kName = "n-th item at random";
    static constexpr bool kIsRepeatable = true;

    Nth(std::size_t count, Order order)
        : Filled<Set>(count, order), mPositions(indices(count, Order::kShuffled, kAccessSeed)),
          mStep(stepFor<Set>(count)) {}

    std::size_t itemsDealtWith() const { return stepsIn(mPositions.size(), mStep); }
    void run() {
        mSum = 0;
        for (std::size_t i = 0; i < mPositions.size(); i += mStep)
            mSum += this->mSet.at(mPositions[i]);
    }
    void check() const { require(mSum == sumOfNoMarkers(itemsDealtWith())); }

    std::vector<std::size_t> mPositions;
    std::size_t mStep;
    long mSum = 0;
};

// Copies a handle and destroys the copy, once for each item of the set. So the time per item is the time of
// one copy.
template <class Set>
struct HandleCopy : Filled<Set> {
    static constexpr const char* kName = "handle copy";
    static constexpr bool kIsRepeatable = true;

    using Filled<Set>::Filled;
    void run() {
        for (std::size_t i = 0; i < this->mItems.size(); ++i) {
            const Set copy(this->mSet);
            keep(reinterpret_cast<std::uintptr_t>(&copy));
        }
    }
    void check() const { require(this->mSet.size() == this->mItems.size()); }
};

template <class Set>
struct FirstWrite : Filled<Set> {
    static constexpr const char* kName = "first write after a copy";
    static constexpr bool kIsRepeatable = false;

    FirstWrite(std::size_t count, Order order) : Filled<Set>(count, order), mCopy(this->mSet) {}
    void run() { mCopy.detach(); }
    void check() const { require(mCopy.size() == this->mItems.size()); }

    Set mCopy;
};

template <class Set>
struct RemoveHalf : Filled<Set> {
    static constexpr const char* kName = "remove half at random";
    static constexpr bool kIsRepeatable = false;

    RemoveHalf(std::size_t count, Order order) : Filled<Set>(count, order) {
        for (const std::size_t index : indices(count, Order::kShuffled, kRemovalSeed)) {
            if (mDoomed.size() < count / 2)
                mDoomed.push_back(this->mItems[index]);
        }
    }
    std::size_t itemsDealtWith() const { return mDoomed.size(); }
    void run() {
        for (const Pick& pick : mDoomed)
            this->mSet.remove(pick);
    }
    void check() const { require(this->mSet.size() == this->mItems.size() - mDoomed.size()); }

    Picks mDoomed;
};

template <class Set>
struct RemoveAllForward : Filled<Set> {
    static constexpr const char* kName = "remove all from the front";
    static constexpr bool kIsRepeatable = false;

    using Filled<Set>::Filled;
    void run() { this->mSet.removeAllForward(); }
    void check() const { require(this->mSet.size() == 0); }
};

template <class Set>
struct RemoveAllBackward : Filled<Set> {
    static constexpr const char* kName = "remove all from the back";
    static constexpr bool kIsRepeatable = false;

    using Filled<Set>::Filled;
    void run() { this->mSet.removeAllBackward(); }
    void check() const { require(this->mSet.size() == 0); }
};

// Removes all items by main id, sub id and marker, in random order.
template <class Set, class Source>
struct RemoveByKeys : Filled<Set, Source> {
    static constexpr const char* kName = "remove by three keys";
    static constexpr bool kIsRepeatable = false;

    RemoveByKeys(std::size_t count, Order order) : Filled<Set, Source>(count, order) {
        for (const std::size_t index : indices(count, Order::kShuffled, kRemovalSeed))
            mDoomed.push_back(this->mItems[index]);
    }
    void run() {
        for (const auto& pick : mDoomed)
            this->mSet.remove(pick);
    }
    void check() const { require(this->mSet.size() == 0); }

    typename Source::Items mDoomed;
};

// Two sets of `count` items each. Half of the items of one set are also in the other set.
template <class Set, class Source>
struct Overlapping {
    Overlapping(std::size_t count, Order order) : mCount(count) {
        fill(mA, Source::items(count, order));
        fill(mB, Source::items(count, order, count / 2));
    }

    // Returns the number of items of one set, not of both sets. The time per item refers to this number.
    std::size_t itemsDealtWith() const { return mCount; }

    std::size_t mCount;
    Set mA;
    Set mB;
    Set mResult;
};

template <class Set, class Source = WholeEntities>
struct Merge : Overlapping<Set, Source> {
    static constexpr const char* kName = "merge, half overlapping";
    static constexpr bool kIsRepeatable = false;

    using Overlapping<Set, Source>::Overlapping;
    void run() { this->mResult.mergeOf(this->mA, this->mB); }
    void check() const { require(this->mResult.size() == this->mCount + this->mCount / 2); }
};

// Removes the items of mB from mA by main id, sub id and marker. If all items have the same three keys, each
// item of mB removes one item of mA.
template <class Set, class Source = WholeEntities>
struct Minus : Overlapping<Set, Source> {
    static constexpr const char* kName = "minus, half overlapping";
    static constexpr bool kIsRepeatable = false;

    using Overlapping<Set, Source>::Overlapping;
    void run() { this->mResult.minusOf(this->mA, this->mB); }
    void check() const { require(this->mResult.size() == (Source::kThreeKeysDiffer ? this->mCount / 2 : 0)); }
};

template <class Set, class Source = WholeEntities>
struct Contains {
    static constexpr const char* kName = "contains an equal set";
    static constexpr bool kIsRepeatable = true;

    Contains(std::size_t count, Order order) {
        fill(mA, Source::items(count, order));
        mB = mA;
        mB.detach();
    }
    std::size_t itemsDealtWith() const { return mA.size(); }
    void run() { mHeld = mA.contains(mB); }
    void check() const { require(mHeld); }

    Set mA;
    Set mB;
    bool mHeld = false;
};

template <class Set, std::size_t kItemsPerId>
struct SetUnique {
    static constexpr const char* kName = kItemsPerId == 1 ? "setUnique, one per id" : "setUnique, ten per id";
    static constexpr bool kIsRepeatable = false;

    SetUnique(std::size_t count, Order order) : mIds(std::max<std::size_t>(count / kItemsPerId, 1)) {
        mSet.setUniqueRule(false);
        for (const std::size_t index : indices(mIds * kItemsPerId, order))
            mSet.select(
                Pick{idAt(index / kItemsPerId), GxDbObjectId(), static_cast<long>(index % kItemsPerId) + 1});
    }
    std::size_t itemsDealtWith() const { return mIds * kItemsPerId; }
    void run() { mSet.setUniqueRule(true); }
    void check() const { require(mSet.size() == mIds); }

    std::size_t mIds;
    Set mSet;
};

template <class Set>
struct Destroy {
    static constexpr const char* kName = "destruction";
    static constexpr bool kIsRepeatable = false;

    Destroy(std::size_t count, Order order) : mCount(count) { fill(*mSet, picks(count, order)); }
    std::size_t itemsDealtWith() const { return mCount; }
    void run() { mSet.reset(); }
    void check() const { require(!mSet); }

    std::size_t mCount;

    std::unique_ptr<Set> mSet = std::make_unique<Set>();
};

template <class... Operations>
struct OperationList {};

// Lists the operations in the order of the report.
template <class Set>
using AllOperations =
    OperationList<Select<Set>, Reselect<Set>, Presence<Set>, Position<Set>, Walk<Set>, WalkByIndex<Set>,
                  Nth<Set>, HandleCopy<Set>, FirstWrite<Set>, RemoveHalf<Set>, RemoveAllForward<Set>,
                  RemoveAllBackward<Set>, Merge<Set>, Minus<Set>, Contains<Set>, SetUnique<Set, 1>,
                  SetUnique<Set, 10>, Destroy<Set>>;

} // namespace kvbench
