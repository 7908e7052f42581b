// Entering whole stores into an index.

#include "selectcontext/OrderedIndex.h"
#include "base/KvShortcuts.h"
#include "selectcontext/SetDetail.h"

#include <algorithm>
#include <array>
#include <utility>

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
    sort(mWaiting);
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

// By stub, equal ones in the order in which they are: digit by digit from the lowest in which any two differ,
// since a comparing sort takes as long as all the rest.
void OrderedIndex::sort(WaitingList& entries) {
    constexpr unsigned kDigitBits = 11;
    constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
    constexpr std::size_t kFewestEntries = kDigits / 8; // below, counting digits takes longer than comparing

    if (entries.size() < kFewestEntries) {
        std::stable_sort(entries.begin(), entries.end(),
                         [](const Waiting& a, const Waiting& b) { return a.stub < b.stub; });
        return;
    }
    std::uintptr_t differences = 0;
    for (const Waiting& entry : entries)
        differences |= entry.stub ^ entries.front().stub;

    WaitingList sorted(entries.size());
    while (differences != 0) {
        const auto shift = static_cast<unsigned>(__builtin_ctzll(differences));
        const auto digitOf = [shift](const Waiting& entry) { return (entry.stub >> shift) & (kDigits - 1); };
        std::array<std::size_t, kDigits> places{};
        for (const Waiting& entry : entries)
            ++places[digitOf(entry)];
        std::size_t place = 0;
        for (std::size_t& count : places)
            place += std::exchange(count, place);
        for (const Waiting& entry : entries)
            sorted[places[digitOf(entry)]++] = entry;
        entries.swap(sorted);
        const std::uintptr_t sortedBits = ((std::uintptr_t{kDigits} - 1) << shift);
        differences &= ~sortedBits;
    }
}

} // namespace kvdetail
