// Copying an index.

#include "selectcontext/IndexCopy.h"
#include "base/KvShortcuts.h"
#include "selectcontext/SetDetail.h"

#include <cstddef>

namespace kvdetail {

namespace {

// The only page of a store, or null.
const Store::Page* onlyPage(const Store& store) noexcept {
    return store.head == store.tail ? store.head : nullptr;
}

std::size_t usedSlots(const Store::Page* page) noexcept {
    return static_cast<std::size_t>(page->fillEnd - page->slots);
}

// Leads every entry from a slot of the original's page to the same one of the copy's, which has no holes.
// False where an entry leads to a record of another id, or does not come behind the one before it: by the id,
// or within an id by the slot. So no two lead to one record, and as many entries as records leave none out.
bool redirect(DataMap& map, const Store::Page* original, const Store::Page* copy) {
    const unsigned long usedBytes = usedSlots(copy) * sizeof(Store::Slot);
    const GxDbObjectId* last = nullptr;
    unsigned long lastOffset = 0;
    for (auto& [id, address] : map) {
        const unsigned long offset = address - slotAddress(original->slots);
        if (offset >= usedBytes || offset % sizeof(Store::Slot) != 0)
            return false;
        const Store::Slot* const slot = copy->slots + offset / sizeof(Store::Slot);
        if (slot->value->mainEntId.stub() != id.stub())
            return false;
        if (last && !(last->stub() == id.stub() ? lastOffset < offset : *last < id))
            return false;
        address = slotAddress(slot);
        last = &id;
        lastOffset = offset;
    }
    return true;
}

} // namespace

bool isWorthCopyingIndex(const SSetData& original) noexcept {
    return kHasIndexCopy && original.entityCount <= Store::kSlotsPerPage;
}

bool copyIndex(const SSetData& original, SSetData& copy) {
    const Store::Page* const from = onlyPage(*original.entities);
    const Store::Page* const to = onlyPage(*copy.entities);
    if (!from || !to || original.dataMap.size() != usedSlots(to))
        return false;
    copy.dataMap = original.dataMap;
    if (redirect(copy.dataMap, from, to))
        return true;
    clearIndex(copy);
    return false;
}

} // namespace kvdetail
