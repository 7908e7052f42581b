#include "selectcontext/detail/Edits.h"

#include <memory>
#include <utility>

namespace kvdetail {

void addItem(GxapSSetWriteAccessor& set, const ItemKeys& keys, OwnedInfo&& info, IdIndex::Entry place) {
    SSetData& held = *set.sharedData;
    // Shared data must not change, so its record pool must not be used.
    const bool isShared = held.refCount.load() >= 2;
    auto record = isShared ? std::make_unique<selected_entity>() : newRecord(held);
    setKeys(*record, keys, std::move(info));

    // The keys may be references into data that writeData() releases. So the keys are not read after this
    // line.
    SSetData& data = isShared ? *set.writeData() : held;
    if (isShared)
        place = indexOf(data).endOf(record->mainEntId);
    appendRecord(data, std::move(record), place);
}

ExactItem findExact(const SSetData& data, const IdIndex::Run& run, ItemKeys keys) {
    keys.markers = Markers::kExact;
    ExactItem item;
    const IdIndex::Run found = findEntry(indexOf(data), run, keys, [&](IdIndex::Entry entry) {
        item.place = OccupiedSlot(*data.entities, entry->second);
        return item.place.slot && item.place.slot->value && hasKeys(*item.place.slot->value, keys);
    });
    if (!found.isHeld)
        return {};
    item.entry = found.entry;
    return item;
}

// In private data, first searches for the exact item. If the record of that item has the main id, the search
// for equal keys would also succeed, and is left out.
ExactItem findToRemove(GxapSSetWriteAccessor& set, const ItemKeys& keys, const IdIndex::Run& run) {
    const SSetData* const searched = set.sharedData;
    if (searched->refCount.load() < 2) {
        const ExactItem item = findExact(*searched, run, keys);
        if (item.place.slot && isSame(item.place.slot->value->mainEntId, keys.mainId))
            return item;
    }
    if (!findItem(*searched, run, keys).isHeld)
        return {};
    const SSetData& data = *set.writeData();
    return findExact(data, &data == searched ? run : indexOf(data).find(keys.mainId), keys);
}

// Erases the entry before it frees the slot, since erase() reads the record in the slot.
void removeItem(SSetData& data, const ExactItem& item) {
    indexOf(data).erase(item.entry);
    freeSlot(data, item.place);
    countDown(data);
}

} // namespace kvdetail
