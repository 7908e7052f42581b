#include "aids/Schemes.h"
#include "aids/Items.h"
#include "aids/detail/ItemOrder.h"
#include "aids/detail/Removal.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <utility>

namespace kv {
namespace {

using detail::Slot;
using ItemList = std::vector<const selected_entity*>;

bool isSame(const selected_entity& a, const selected_entity& b) {
    return detail::compareItems(a, b) == 0 && detail::isSameTransform(a, b);
}

// Returns the slots of the items that are the same as the picked one.
std::vector<Slot*> slotsOf(const GxapSelectSet& set, const selected_entity& picked) {
    if (!detail::hasItems(set))
        return {};
    const auto found = set.findInMap(picked.mainEntId, picked.subEntId, picked.gsMarker,
                                     &picked.nestedEntFullPath, picked.selectedEntityInfo);
    if (found == set.sharedData->dataMap.end())
        return {};
    std::vector<Slot*> slots = detail::slotsOfId(*set.sharedData, picked.mainEntId);
    const auto isOther = [&picked](const Slot* slot) { return !isSame(*slot->value, picked); };
    slots.erase(std::remove_if(slots.begin(), slots.end(), isOther), slots.end());
    return slots;
}

// What is to be done to a set. Nothing has been done yet.
struct Plan {
    std::vector<Slot*> doomed;
    ItemList arriving;
};

Plan planOfAdding(const ItemRange& picked) {
    Plan plan;
    for (const selected_entity& item : picked)
        plan.arriving.push_back(&item);
    return plan;
}

Plan planOfToggling(const GxapSelectSet& set, const ItemRange& picked, bool arePicksAdded) {
    Plan plan;
    for (const selected_entity& item : picked) {
        const std::vector<Slot*> held = slotsOf(set, item);
        plan.doomed.insert(plan.doomed.end(), held.begin(), held.end());
        if (held.empty() && arePicksAdded)
            plan.arriving.push_back(&item);
    }
    return plan;
}

// Each picked item keeps one item of the set that is the same. All others are doomed.
Plan planOfReplacing(const GxapSelectSet& set, const ItemRange& picked) {
    Plan plan;
    std::set<Slot*> kept;
    for (const selected_entity& item : picked) {
        const std::vector<Slot*> held = slotsOf(set, item);
        const bool isKept =
            std::any_of(held.begin(), held.end(), [&kept](Slot* slot) { return kept.insert(slot).second; });
        if (!isKept)
            plan.arriving.push_back(&item);
    }
    if (!detail::hasItems(set))
        return plan;
    detail::forEachSlot(*set.sharedData->entities, [&](Slot* slot) {
        if (kept.count(slot) == 0)
            plan.doomed.push_back(slot);
    });
    return plan;
}

Plan planOf(const GxapSelectSet& set, Scheme scheme, const ItemRange& picked) {
    switch (scheme) {
    case Scheme::kReplace:
        return planOfReplacing(set, picked);
    case Scheme::kAdd:
        return planOfAdding(picked);
    case Scheme::kRemove:
        return planOfToggling(set, picked, false);
    case Scheme::kToggle:
        return planOfToggling(set, picked, true);
    }
    return {};
}

// Appends copies of the items, and returns those that the set did not refuse. An append makes shared data
// private at most once, before the first item is in `came`. So the records stay where they are.
ItemList append(GxapSelectSet& set, const ItemList& arriving) {
    ItemList came;
    came.reserve(arriving.size());
    for (const selected_entity* item : arriving) {
        const std::uint32_t before = set.sharedData ? set.sharedData->entityCount : 0;
        detail::editingOf(set).append(item);
        if (set.sharedData && set.sharedData->entityCount != before)
            came.push_back(std::prev(set.sharedData->entities->tail->fillEnd)->value);
    }
    return came;
}

} // namespace

Applied apply(GxapSelectSet& set, Scheme scheme, const GxapSelectSet& picked) {
    const ItemRange range = items(picked); // `picked` may be the set itself
    const Plan plan = planOf(set, scheme, range);
    Applied applied;
    if (!plan.doomed.empty()) {
        const std::vector<Slot*> slots = detail::slotsForWriting(set, plan.doomed);
        applied.went = detail::freeItems(*set.sharedData, slots);
    }
    applied.came = append(set, plan.arriving);
    return applied;
}

} // namespace kv
