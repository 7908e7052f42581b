#include "aids/Reclaim.h"
#include "aids/Inspect.h"
#include "aids/detail/ItemOrder.h"
#include "aids/detail/Removal.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kv {

using detail::Data;
using detail::editingOf;
using detail::hasItems;
using detail::Slot;
using detail::Store;

namespace {

// Returns the records of these slots that are in the slots no more. `before` has the record that was in each
// slot. `removed` must have room for all, so that nothing is lost.
void collectRemoved(const Store& store, const std::vector<Slot*>& slots,
                    const std::vector<selected_entity*>& before, Records& removed) {
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (!detail::holdsItem(store, slots[i]))
            removed.emplace_back(before[i]);
    }
}

// Calls remove(), which removes items of the main id from private data. Returns their records.
template <class Remove>
Records takeOfId(const Data& data, const GxDbObjectId& mainId, Remove remove) {
    std::vector<Slot*> slots = detail::slotsOfId(data, mainId);
    detail::sortByPosition(*data.entities, slots);
    std::vector<selected_entity*> before;
    before.reserve(slots.size());
    for (const Slot* slot : slots)
        before.push_back(slot->value);
    Records removed;
    removed.reserve(slots.size());
    remove();
    collectRemoved(*data.entities, slots, before, removed);
    return removed;
}

// Calls edit(), which only removes items from private data. Returns their records, also if an exception ends
// the edit: the records are then destroyed. A removal moves no record and leaves the order as it was. So the
// records that remain are found by one walk, which needs no memory.
template <class Edit>
Records takeRemoved(const Data& data, Edit edit) {
    std::vector<selected_entity*> before;
    before.reserve(data.entityCount);
    detail::forEachSlot(*data.entities, [&](const Slot* slot) { before.push_back(slot->value); });
    Records removed;
    removed.reserve(before.size());
    const auto collect = [&] {
        auto next = before.begin();
        detail::forEachSlot(*data.entities, [&](const Slot* slot) {
            for (; *next != slot->value; ++next)
                removed.emplace_back(*next);
            ++next;
        });
        for (; next != before.end(); ++next)
            removed.emplace_back(*next);
    };
    try {
        edit();
    } catch (...) {
        collect();
        throw;
    }
    collect();
    return removed;
}

// Returns the slot of the item at this position, or null.
Slot* slotAt(const GxapSelectSet& set, int index) {
    if (!hasItems(set) || index < 0)
        return nullptr;
    Slot* const slot = set.sharedData->entities->elementAt(index);
    return slot && slot->value ? slot : nullptr;
}

} // namespace

Records take(GxapSelectSet& set, const GxDbObjectId& mainId) {
    const GxDbObjectId id = mainId; // the argument may be a field of an item
    if (id.isNull() || !hasItems(set) || set.findInMap(id) == set.sharedData->dataMap.end())
        return {};
    const Data& data = *editingOf(set).writeData();
    return takeOfId(data, id, [&] { editingOf(set).remove(id); });
}

Records take(GxapSelectSet& set, const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !hasItems(set) || set.findInMap(id, sub) == set.sharedData->dataMap.end())
        return {};
    const Data& data = *editingOf(set).writeData();
    return takeOfId(data, id, [&] { editingOf(set).remove(id, sub); });
}

Records take(GxapSelectSet& set, const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !hasItems(set) || set.findInMap(id, sub, gsMarker) == set.sharedData->dataMap.end())
        return {};
    const Data& data = *editingOf(set).writeData();
    return takeOfId(data, id, [&] { editingOf(set).remove(id, sub, gsMarker); });
}

Record takeAt(GxapSelectSet& set, int index) {
    Slot* const slot = slotAt(set, index);
    if (!slot)
        return nullptr;
    Slot* const writable = detail::slotForWriting(set, slot);
    return detail::freeItem(*set.sharedData, writable);
}

Records takeIf(GxapSelectSet& set, const std::function<bool(const selected_entity&)>& isDoomed) {
    const Data* const asked = set.sharedData;
    std::vector<std::size_t> doomed;
    {
        const ItemRange range = items(set);
        std::size_t number = 0;
        for (const selected_entity& item : range) {
            if (isDoomed(item))
                doomed.push_back(number);
            ++number;
        }
        if (set.sharedData != asked)
            return {};
    }
    if (doomed.empty())
        return {};
    Data& data = *editingOf(set).writeData();
    return detail::freeItems(data, detail::slotsOfNumbers(data, doomed));
}

Records takeMinus(GxapSelectSet& set, const GxapSelectSet& other) {
    if (!hasItems(set) || !hasItems(other))
        return {};
    const Data& data = *editingOf(set).writeData();
    return takeRemoved(data, [&] { editingOf(set).minus(&set, &other); });
}

Records takeSetUnique(GxapSelectSet& set, bool on) {
    if (set.sharedData && set.sharedData->unique == on)
        return {};
    const Data& data = *editingOf(set).writeData();
    return takeRemoved(data, [&] { editingOf(set).setUnique(on); });
}

// ---- Sub-selections

namespace {

// Returns the slot of the first item of the id, or null.
Slot* slotOfFirst(const GxapSelectSet& set, const GxDbObjectId& id) {
    if (!hasItems(set))
        return nullptr;
    const auto entry = set.findInMap(id);
    if (entry == set.sharedData->dataMap.end())
        return nullptr;
    auto* const slot = reinterpret_cast<Slot*>(entry->second);
    return detail::holdsItem(*set.sharedData->entities, slot) ? slot : nullptr;
}

using PathList = KvVector<GxDbFullSubentPath*>;

// Returns the last id of a path. Returns the null id if the path has no ids or an invalid last id.
GxDbObjectId entityOf(const GxDbFullSubentPath& path) {
    const int length = path.objectIds().logicalLength();
    const GxDbObjectId last = length > 0 ? path.objectIds()[length - 1] : GxDbObjectId();
    return last.isValid() ? last : GxDbObjectId();
}

PathList* subselectionOf(const selected_entity* item) {
    return item && item->hasSubselPaths ? item->subselPathArray : nullptr;
}

// Returns the position of the path in the list, or -1. Leaves the block of the list shared.
int positionIn(const PathList& list, const GxDbFullSubentPath& path) {
    for (int i = 0; i < list.logicalLength(); ++i) {
        const GxDbFullSubentPath* const held = list.at(i);
        if (held && *held == path)
            return i;
    }
    return -1;
}

} // namespace

SubselectionPaths::SubselectionPaths() = default;
SubselectionPaths::~SubselectionPaths() = default;

std::size_t SubselectionPaths::size() const noexcept {
    return mPaths.size();
}

// Adds the path to the item in this slot. Returns false if the item has no sub-selection.
bool SubselectionPaths::addTo(GxapSelectSet& set, Slot* slot) {
    if (!subselectionOf(slot->value))
        return false;
    PathList& list = *detail::slotForWriting(set, slot)->value->subselPathArray;
    const int length = list.logicalLength();
    list.setLogicalLength(length + 1);
    list.at(length) = mPaths.back().get();
    return true;
}

// Adds an item that has the path. Everything that needs memory comes before select().
void SubselectionPaths::addItem(GxapSelectSet& set, const GxDbObjectId& id) {
    auto list = std::make_unique<PathList>();
    list->setLogicalLength(1);
    list->at(0) = mPaths.back().get();
    InfoFields fields;
    fields.word0 = kSubselectionWord;
    editingOf(set).select(id, GxDbObjectId(), -1, makeInfo(fields).release(), nullptr);
    selected_entity* const item = set.getLast();
    item->subselPathArray = list.release();
    item->hasSubselPaths = true;
}

bool SubselectionPaths::add(GxapSelectSet& set, const GxDbFullSubentPath& path) {
    const GxDbObjectId id = entityOf(path);
    if (id.isNull())
        return false;
    struct Addition {
        std::vector<std::unique_ptr<GxDbFullSubentPath>>& paths;
        bool isDone = false;
        ~Addition() {
            if (!isDone)
                paths.pop_back();
        }
    };
    mPaths.push_back(std::make_unique<GxDbFullSubentPath>(path));
    Addition addition{mPaths};
    if (Slot* const slot = slotOfFirst(set, id)) {
        addition.isDone = addTo(set, slot);
    } else {
        addItem(set, id);
        addition.isDone = true;
    }
    return addition.isDone;
}

SubselectionPaths::Removed SubselectionPaths::remove(GxapSelectSet& set, const GxDbFullSubentPath& path) {
    const GxDbObjectId id = entityOf(path);
    Slot* const slot = id.isNull() ? nullptr : slotOfFirst(set, id);
    const PathList* const list = slot ? subselectionOf(slot->value) : nullptr;
    return list ? removeFrom(set, slot, positionIn(*list, path)) : Removed();
}

SubselectionPaths::Removed SubselectionPaths::removeAt(GxapSelectSet& set, int entityIndex, int pathIndex) {
    Slot* const slot = slotAt(set, entityIndex);
    return slot ? removeFrom(set, slot, pathIndex) : Removed();
}

SubselectionPaths::Removed SubselectionPaths::removeFrom(GxapSelectSet& set, Slot* slot, int pathIndex) {
    const PathList* const held = subselectionOf(slot->value);
    if (!held || pathIndex < 0 || pathIndex >= held->logicalLength())
        return {};
    Slot* const writable = detail::slotForWriting(set, slot);
    PathList& list = *writable->value->subselPathArray;
    list.removeAt(pathIndex);
    const bool isLast = list.logicalLength() == 0;
    return {true, isLast ? detail::freeItem(*set.sharedData, writable) : nullptr};
}

std::size_t SubselectionPaths::destroyUnused(const std::vector<const GxapSelectSet*>& sets) {
    std::vector<const GxDbFullSubentPath*> used;
    for (const GxapSelectSet* set : sets) {
        if (!set)
            continue;
        for (const selected_entity& item : items(*set)) {
            const PathList* const list = item.subselPathArray;
            for (int i = 0; list && i < list->logicalLength(); ++i)
                used.push_back(list->at(i));
        }
    }
    std::sort(used.begin(), used.end());
    const auto isUnused = [&used](const std::unique_ptr<GxDbFullSubentPath>& path) {
        return !std::binary_search(used.begin(), used.end(), path.get());
    };
    const auto first = std::remove_if(mPaths.begin(), mPaths.end(), isUnused);
    const auto count = static_cast<std::size_t>(mPaths.end() - first);
    mPaths.erase(first, mPaths.end());
    return count;
}

} // namespace kv
