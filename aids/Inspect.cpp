#include "aids/Inspect.h"
#include "aids/Reclaim.h"
#include "aids/detail/Removal.h"

#include <map>
#include <new>
#include <utility>

namespace kv {

using detail::Data;
using detail::Slot;
using detail::Store;

// ---- Iterators

IteratorState whyDone(const GxapSelectSet::ConstIterator& it) {
    if (!it.set)
        return IteratorState::kSetIsGone;
    if (!it.set->sharedData || !it.set->sharedData->entities)
        return IteratorState::kSetHasNoData;
    if (!it.truckerIterator)
        return IteratorState::kDisabled;
    const Store* const store = it.set->sharedData->entities;
    const Store::iterator& at = *it.truckerIterator;
    if (at.trucker != store) // the other store may not exist any more, so it is not asked
        return IteratorState::kOnOtherStore;
    if (it.isDone())
        return IteratorState::kAtEnd;
    if (at.position == Store::kNoPosition && !at.page)
        return IteratorState::kBeforeFirst;
    if (!at.page || !at.slot)
        return IteratorState::kOutside;
    if (!at.isOnPage())
        return IteratorState::kOnReleasedPage;
    return at.valueHere() ? IteratorState::kOnItem : IteratorState::kOnRemovedItem;
}

const char* textOf(IteratorState state) noexcept {
    switch (state) {
    case IteratorState::kOnItem:
        return "on an item";
    case IteratorState::kAtEnd:
        return "at the end";
    case IteratorState::kBeforeFirst:
        return "before the first item";
    case IteratorState::kOutside:
        return "at an index beyond the end";
    case IteratorState::kOnRemovedItem:
        return "on an item that was removed";
    case IteratorState::kOnReleasedPage:
        return "on an item that was removed with its whole page";
    case IteratorState::kOnOtherStore:
        return "on an item of data that the set has no more";
    case IteratorState::kDisabled:
        return "disabled, since the set has released the data";
    case IteratorState::kSetHasNoData:
        return "of a set without data";
    case IteratorState::kSetIsGone:
        return "of a set that is gone";
    }
    return "in an unknown state";
}

// ---- Stale items

namespace {

// Closes the entity before it returns: a destructor could not pass an exception on.
GxErrorStatus openedAndClosed(const GxDbObjectId& id) {
    GxDbObjectPointerBase<GxDbEntity> entity;
    const GxErrorStatus status = entity.open(id, GxDb::kForRead, false);
    entity.closeInternal();
    return status;
}

} // namespace

std::vector<StaleItem> staleItems(const GxapSelectSet& set) {
    std::vector<StaleItem> stale;
    std::map<GxDbObjectId, GxErrorStatus> statuses;
    int position = 0;
    for (const selected_entity& item : items(set)) {
        auto known = statuses.find(item.mainEntId);
        if (known == statuses.end())
            known = statuses.emplace(item.mainEntId, openedAndClosed(item.mainEntId)).first;
        if (known->second != eOk)
            stale.push_back({position, item.mainEntId, known->second});
        ++position;
    }
    return stale;
}

// ---- One exact item

namespace {

using ConstIterator = GxapSelectSet::ConstIterator;

// Returns the slot of the iterator's item. Returns null if the iterator is on no item of the set.
Slot* slotOf(const GxapSelectSet& set, const ConstIterator& it) {
    if (it.set != &set || whyDone(it) != IteratorState::kOnItem || !*it.truckerIterator->valueHere())
        return nullptr;
    return it.truckerIterator->slot;
}

// Gives the iterator a position again, and registers it, if making the data private has disabled it. Needs
// memory, so it comes before the removal.
void enable(const GxapSelectSet& set, ConstIterator& it) {
    if (it.truckerIterator)
        return;
    auto position = std::make_unique<Store::iterator>(set.sharedData->entities->end());
    set.addIterator(&it);
    it.truckerIterator = position.release();
}

// Puts the iterator on the item at `position` - 1, so that a step leads to `position`.
void moveBehind(const Data& data, ConstIterator& it, int position) {
    Store::iterator& at = *it.truckerIterator;
    if (position > 0) {
        at = data.entities->iteratorAt(position - 1);
    } else {
        at = data.entities->end();
        if (data.entities->head)
            at.toBeforeFirst();
    }
    it.index = data.entities->head ? position - 1 : 0;
}

} // namespace

Record takeExactly(GxapSelectSet& set, ConstIterator& it) {
    Slot* const slot = slotOf(set, it);
    if (!slot)
        return nullptr;
    Slot* const writable = detail::slotForWriting(set, slot);
    Data& data = *set.sharedData;
    enable(set, it);
    const auto position = static_cast<int>(data.entities->positionOf(writable));
    Record record = detail::freeItem(data, writable);
    moveBehind(data, it, position);
    return record;
}

bool removeExactly(GxapSelectSet& set, ConstIterator& it) {
    // The record stays with whoever has its address.
    return takeExactly(set, it).release() != nullptr;
}

// ---- Entity infos

OwnedInfo makeInfo(const InfoFields& fields) {
    void* const memory = _kvMalloc(sizeof(GxapSelectedEntInfo));
    if (!memory)
        throw std::bad_alloc();
    OwnedInfo info(new (memory) GxapSelectedEntInfo);
    info->word0 = fields.word0;
    info->word1 = fields.word1;
    info->halfWord = fields.halfWord;
    const auto points = static_cast<int>(fields.points.size());
    info->pointArray.setLogicalLength(points);
    for (int i = 0; i < points; ++i)
        info->pointArray.at(i) = fields.points[static_cast<std::size_t>(i)];
    if (fields.fence)
        info->setSelFenceResultInfo(*fields.fence);
    if (fields.transform)
        info->setCompoundTransformWithBTROffset(*fields.transform);
    return info;
}

} // namespace kv
