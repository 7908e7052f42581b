// Entering whole stores into an index.

#include "selectcontext/OrderedIndex.h"
#include "base/KvShortcuts.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/StubOrder.h"

#include <algorithm>

namespace kvdetail {

void OrderedIndex::add(const Store::Slot* slot) {
    const GxDbObjectId& id = slot->value->mainEntId;
    if (!kHasOrderedIndex) {
        mData.dataMap.emplace(id, slotAddress(slot));
        return;
    }
    if (mAscends) {
        if (enterNext(id, slotAddress(slot)))
            return;
        startWaiting();
    }
    mWaiting.push_back({reinterpret_cast<std::uintptr_t>(id.stub()), slot});
}

void OrderedIndex::finish() {
    if (mAscends)
        return;
    sortByStub(mWaiting);
    if (!enterSorted())
        enterOneByOne();
}

// Enters the id behind all others where it belongs there: behind a lower id, or behind the same one.
bool OrderedIndex::enterNext(const GxDbObjectId& id, unsigned long address) {
    DataMap& map = mData.dataMap;
    if (!map.empty()) {
        const GxDbObjectId& last = map.rbegin()->first;
        if (last.stub() != id.stub() && !(last < id))
            return false;
    }
    map.emplace_hint(map.end(), id, address);
    return true;
}

void OrderedIndex::startWaiting() {
    mWaiting.reserve(mData.dataMap.size() + 1);
    for (const auto& [id, address] : mData.dataMap)
        mWaiting.push_back({reinterpret_cast<std::uintptr_t>(id.stub()), slotAt(address)});
    clearIndex(mData);
    mAscends = false;
}

// False, with an empty index, where the entries are not in the order of their ids, or where two stubs name
// one object.
bool OrderedIndex::enterSorted() {
    const bool isSorted = std::all_of(mWaiting.begin(), mWaiting.end(), [this](const Waiting& entry) {
        return enterNext(GxDbObjectId(reinterpret_cast<GxDbStub*>(entry.stub)), slotAddress(entry.slot));
    });
    if (!isSorted)
        clearIndex(mData);
    return isSorted;
}

void OrderedIndex::enterOneByOne() {
    forEachOccupied(*mData.entities, [this](const Store::Slot* slot) {
        if (slot->value)
            mData.dataMap.emplace(slot->value->mainEntId, slotAddress(slot));
    });
}

} // namespace kvdetail
