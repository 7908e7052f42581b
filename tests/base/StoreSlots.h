// Reads the pages of a paged store directly, without calling the store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvtest {

constexpr std::uint32_t kBeforeFirst = 0xFFFFFFFFu; // the position of an iterator before the first element
constexpr const wchar_t* kAccessError = L"Error access KvTrucker";

template <class Store>
std::size_t pageCount(const Store& store) {
    std::size_t count = 0;
    for (const auto* page = store.head; page; page = page->next)
        ++count;
    return count;
}

// Returns the occupied slots in store order.
template <class Store>
std::vector<typename Store::Slot*> occupiedSlots(const Store& store) {
    std::vector<typename Store::Slot*> slots;
    for (auto* page = store.head; page; page = page->next) {
        for (auto* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (slot->free == 0)
                slots.push_back(slot);
        }
    }
    return slots;
}

} // namespace kvtest
