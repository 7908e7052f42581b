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

// The library, as a contender whose items each have a main id of their own. The other keys of the items are
// those of the items that share one main id. The report compares the figures of one main id with the figures
// of this contender.
class ManyMainIds : public SelectContext {
public:
    static constexpr const char* kName = "KvSelectContext, n main ids";
};

template <class Set>
constexpr bool kSharesMainId = !std::is_same_v<Set, ManyMainIds>;

// An operation of a peer looks through all items that have the main id. With this many items, the operation
// takes up to a second.
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

// The ids of main entities, sub-entities and containers are far from each other.
constexpr std::size_t kFirstSubId = 10000000;
constexpr std::size_t kFirstInner = 20000000;
constexpr std::size_t kFirstOuter = 30000000;

// Each of these classes names a key in which the items differ. It has kName, kThreeKeysDiffer and
// itemOf(mainId, index).

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

// Each outer block contains a hundred occurrences. So in large sets, every id of a path is also in other
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

// Makes the items for the contender `Set`. The items differ as `Difference` says.
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
