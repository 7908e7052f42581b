#include "selectcontext/detail/Edits.h"

#include <memory>
#include <utility>

namespace kvdetail {

void addItem(GxapSSetWriteAccessor& set, const ItemKeys& keys, OwnedInfo&& info, IdIndex::Entry place) {
    SSetData& held = *set.sharedData;
    // The memory of shared data is not touched.
    const bool isShared = held.refCount.load() >= 2;
    auto record = isShared ? std::make_unique<selected_entity>() : newRecord(held);
    setKeys(*record, keys, std::move(info));

    // The keys may be part of the data that this lets go: nothing of them is read from here on.
    SSetData& data = isShared ? *set.writeData() : held;
    if (isShared)
        place = indexOf(data).endOf(record->mainEntId);
    appendRecord(data, std::move(record), place);
}

ExactItem findToRemove(GxapSSetWriteAccessor& set, const ItemKeys& keys, const IdIndex::Run& run) {
    const SSetData* const searched = set.sharedData;
    if (!findItem(*searched, run, keys).isHeld)
        return {};
    const SSetData& data = *set.writeData();
    IdIndex& index = indexOf(data);
    for (IdIndex::Run at = &data == searched ? run : index.find(keys.mainId); at.isHeld;
         index.next(at, keys.mainId)) {
        const OccupiedSlot place(*data.entities, at.entry->second);
        if (place.holds(keys.subId) && place.slot->value->gsMarker == keys.gsMarker)
            return {at.entry, place};
    }
    return {};
}

void removeItem(SSetData& data, const ExactItem& item) {
    freeSlot(data, item.place);
    indexOf(data).erase(item.entry);
    countDown(data);
}

} // namespace kvdetail
