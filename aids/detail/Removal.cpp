#include "aids/detail/Removal.h"
#include "aids/detail/ItemOrder.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <utility>

namespace kv::detail {
namespace {

using Entry = Data::DataMap::iterator;

// Erases the first entry of [first, last) that leads to the slot. Returns whether there was one.
bool eraseAmong(Data& data, Entry first, Entry last, const Slot* slot) {
    const Entry found = std::find_if(first, last, [slot](const Data::DataMap::value_type& entry) {
        return entry.second == addressOf(slot);
    });
    if (found == last)
        return false;
    data.dataMap.erase(found);
    return true;
}

// Frees the slot, whose index entry is erased already. Returns the record.
Record freeSlot(Data& data, Slot* slot) {
    Record record(slot->value);
    data.entities->removeSlot(slot, data.entities->pageOf(slot), true);
    if (data.entityCount > 0)
        --data.entityCount;
    return record;
}

// Erases the entries of [first, last) that lead to one of the slots, which are sorted by address. Returns how
// many were erased.
std::size_t eraseAllAmong(Data& data, Entry first, Entry last, const std::vector<unsigned long>& sorted) {
    std::size_t erased = 0;
    while (first != last) {
        if (std::binary_search(sorted.begin(), sorted.end(), first->second)) {
            first = data.dataMap.erase(first);
            ++erased;
        } else {
            ++first;
        }
    }
    return erased;
}

std::vector<unsigned long> sortedAddresses(const std::vector<Slot*>& slots) {
    std::vector<unsigned long> sorted;
    sorted.reserve(slots.size());
    for (const Slot* slot : slots)
        sorted.push_back(addressOf(slot));
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

// Returns the main ids of the slots' records, each once.
std::vector<GxDbObjectId> idsOf(const std::vector<Slot*>& slots) {
    std::vector<GxDbObjectId> ids;
    ids.reserve(slots.size());
    for (const Slot* slot : slots)
        ids.push_back(slot->value->mainEntId);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

// Erases the entries of the slots. If a caller has changed the main id in a record, some entries are not
// found by id. Then looks through the whole index.
void eraseEntries(Data& data, const std::vector<GxDbObjectId>& ids,
                  const std::vector<unsigned long>& sorted) {
    std::size_t erased = 0;
    for (const GxDbObjectId& id : ids) {
        const auto [first, last] = data.dataMap.equal_range(id);
        erased += eraseAllAmong(data, first, last, sorted);
    }
    if (erased < sorted.size())
        eraseAllAmong(data, data.dataMap.begin(), data.dataMap.end(), sorted);
}

} // namespace

void sortByPosition(const Store& store, std::vector<Slot*>& slots) {
    std::vector<std::pair<std::uint32_t, Slot*>> placed;
    placed.reserve(slots.size());
    for (Slot* slot : slots)
        placed.emplace_back(store.positionOf(slot), slot);
    std::sort(placed.begin(), placed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::transform(placed.begin(), placed.end(), slots.begin(), [](const auto& each) { return each.second; });
}

std::vector<Slot*> slotsOfId(const Data& data, const GxDbObjectId& mainId) {
    std::vector<Slot*> slots;
    const auto [first, last] = data.dataMap.equal_range(mainId);
    for (auto entry = first; entry != last; ++entry) {
        auto* const slot = reinterpret_cast<Slot*>(entry->second);
        if (holdsItem(*data.entities, slot))
            slots.push_back(slot);
    }
    return slots;
}

std::vector<Slot*> slotsOfNumbers(const Data& data, const std::vector<std::size_t>& numbers) {
    std::vector<Slot*> slots;
    slots.reserve(numbers.size());
    auto wanted = numbers.begin();
    std::size_t number = 0;
    forEachSlot(*data.entities, [&](Slot* slot) {
        if (wanted != numbers.end() && *wanted == number) {
            slots.push_back(slot);
            ++wanted;
        }
        ++number;
    });
    return slots;
}

std::size_t numberOf(const Data& data, const Slot* slot) {
    std::size_t number = 0;
    bool isFound = false;
    forEachSlot(*data.entities, [&](const Slot* each) {
        isFound = isFound || each == slot;
        number += isFound ? 0 : 1;
    });
    return number;
}

Slot* slotForWriting(GxapSelectSet& set, Slot* slot) {
    if (set.sharedData->refCount.load() < 2)
        return slot;
    const std::vector<std::size_t> number{numberOf(*set.sharedData, slot)};
    return slotsOfNumbers(*editingOf(set).writeData(), number).front();
}

std::vector<Slot*> slotsForWriting(GxapSelectSet& set, std::vector<Slot*> slots) {
    std::sort(slots.begin(), slots.end(), std::less<>());
    slots.erase(std::unique(slots.begin(), slots.end()), slots.end());
    if (set.sharedData->refCount.load() < 2) {
        sortByPosition(*set.sharedData->entities, slots);
        return slots;
    }
    std::vector<std::size_t> numbers;
    std::size_t number = 0;
    forEachSlot(*set.sharedData->entities, [&](Slot* slot) {
        if (std::binary_search(slots.begin(), slots.end(), slot, std::less<>()))
            numbers.push_back(number);
        ++number;
    });
    return slotsOfNumbers(*editingOf(set).writeData(), numbers);
}

Record freeItem(Data& data, Slot* slot) {
    const auto [first, last] = data.dataMap.equal_range(slot->value->mainEntId);
    if (!eraseAmong(data, first, last, slot))
        eraseAmong(data, data.dataMap.begin(), data.dataMap.end(), slot);
    return freeSlot(data, slot);
}

Records freeItems(Data& data, const std::vector<Slot*>& slots) {
    const std::vector<unsigned long> sorted = sortedAddresses(slots);
    const std::vector<GxDbObjectId> ids = idsOf(slots);
    Records records;
    records.reserve(slots.size());
    eraseEntries(data, ids, sorted);
    for (Slot* slot : slots)
        records.push_back(freeSlot(data, slot));
    return records;
}

} // namespace kv::detail
