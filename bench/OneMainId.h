// Operations on items that share one main id, such as the parts of one entity, or the occurrences of an
// entity in nested blocks. An index of main ids alone does not tell such items apart.
#pragma once

#include "bench/Item.h"
#include "bench/Operations.h"
#include "bench/peers/SelectContext.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <type_traits>
#include <vector>

namespace kvbench {

// The library again, as a contender with a main id of its own for each item. The other keys are the same as
// those of the items that share one main id. The report compares the two contenders.
class ManyMainIds : public SelectContext {
public:
    static constexpr const char* kName = "KvSelectContext, n main ids";
};

template <class Set>
constexpr bool kSharesMainId = !std::is_same_v<Set, ManyMainIds>;

// For each item, a peer looks through all items that have the same main id. With this many items, an
// operation on the set takes up to a second.
constexpr std::size_t kLargestOfPeers = 10000;

template <class Set>
constexpr bool kIsPeer = !std::is_base_of_v<SelectContext, Set>;

template <class Set>
constexpr std::size_t kLargestOfOneMainId = kIsPeer<Set> ? std::min(Set::kLargest, kLargestOfPeers)
                                                         : Set::kLargest;

template <class Set>
bool isLongForPeers(std::size_t count) {
    return kIsPeer<Set> && count >= kLargestOfPeers;
}

// The first indices for the ids of sub-entities, inner blocks and outer blocks. Main ids begin at index 0.
// The indices are so far apart that no id has two meanings.
constexpr std::size_t kFirstSubId = 10000000;
constexpr std::size_t kFirstInner = 20000000;
constexpr std::size_t kFirstOuter = 30000000;

// Each of the following classes stands for the key in which the items differ. Each class has kName,
// kThreeKeysDiffer and itemOf(mainId, index).

struct SubIdsDiffer {
    static constexpr const char* kName = "sub ids differ";
    static constexpr bool kThreeKeysDiffer = true;

    static Pick itemOf(const GxDbObjectId& mainId, std::size_t index) {
        return {mainId, idAt(kFirstSubId + index), -1};
    }
};

struct MarkersDiffer {
    static constexpr const char* kName = "markers differ";
    static constexpr bool kThreeKeysDiffer = true;

    static Pick itemOf(const GxDbObjectId& mainId, std::size_t index) {
        return {mainId, GxDbObjectId(), static_cast<long>(index) + 1};
    }
};

// Each outer block contains a hundred of the items. So in a large set, each id of a path is also in other
// paths.
struct PathsDiffer {
    static constexpr const char* kName = "paths differ";
    static constexpr bool kThreeKeysDiffer = false;

    static NestedPick itemOf(const GxDbObjectId& mainId, std::size_t index) {
        constexpr std::size_t kPerOuter = 100;
        NestedPick pick{{mainId, GxDbObjectId(), -1}, {}};
        pick.path.setLogicalLength(3);
        pick.path.at(0) = idAt(kFirstOuter + index / kPerOuter);
        pick.path.at(1) = idAt(kFirstInner + index % kPerOuter);
        pick.path.at(2) = mainId;
        return pick;
    }
};

// Makes items that differ as `Difference` says. They share one main id, unless the contender `Set` is
// ManyMainIds.
template <class Set, class Difference>
struct OneMainId {
    using Items = std::vector<decltype(Difference::itemOf(GxDbObjectId(), 0))>;
    static constexpr bool kThreeKeysDiffer = Difference::kThreeKeysDiffer || !kSharesMainId<Set>;

    static Items items(std::size_t count, Order order, std::size_t first = 0) {
        Items result;
        result.reserve(count);
        for (const std::size_t index : indices(count, order))
            result.push_back(Difference::itemOf(idAt(kSharesMainId<Set> ? 0 : first + index), first + index));
        return result;
    }
};

template <class Difference, class Operation>
std::string nameOfOneMainId() {
    return std::string("one main id, ") + Difference::kName + ": " + Operation::kName;
}

// Lists the operations in the order of the report.
template <class Set, class Source>
using OperationsOf = OperationList<Select<Set, Source>, Reselect<Set, Source>, Contains<Set, Source>,
                                   RemoveByKeys<Set, Source>, Merge<Set, Source>, Minus<Set, Source>>;

template <class... Differences>
struct DifferenceList {};

using AllDifferences = DifferenceList<SubIdsDiffer, MarkersDiffer, PathsDiffer>;

} // namespace kvbench
