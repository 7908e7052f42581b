// sortByStub: puts whatever has a stub into the order of the stubs' addresses.
#pragma once

#include "base/KvLargeBlocks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace kvdetail {

// Sorts by `stub`, an address as a number, equal ones in the order in which they are: digit by digit from the
// lowest in which any two differ, since a comparing sort takes as long as all that is done with what is
// sorted. That order most often is the one of the ids, which only the application can tell. O(n).
// std::bad_alloc when there is no memory.
template <class Item>
void sortByStub(std::vector<Item, LargeArrayAllocator<Item>>& items) {
    constexpr unsigned kDigitBits = 11;
    constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
    constexpr std::size_t kFewestItems = kDigits / 8; // below, counting digits takes longer than comparing

    if (items.size() < kFewestItems) {
        std::stable_sort(items.begin(), items.end(),
                         [](const Item& a, const Item& b) { return a.stub < b.stub; });
        return;
    }
    std::uintptr_t differences = 0;
    for (const Item& item : items)
        differences |= item.stub ^ items.front().stub;

    std::vector<Item, LargeArrayAllocator<Item>> sorted(items.size());
    while (differences != 0) {
        const auto shift = static_cast<unsigned>(__builtin_ctzll(differences));
        const auto digitOf = [shift](const Item& item) { return (item.stub >> shift) & (kDigits - 1); };
        std::array<std::size_t, kDigits> places{};
        for (const Item& item : items)
            ++places[digitOf(item)];
        std::size_t place = 0;
        for (std::size_t& count : places)
            place += std::exchange(count, place);
        for (const Item& item : items)
            sorted[places[digitOf(item)]++] = item;
        items.swap(sorted);
        const std::uintptr_t sortedBits = ((std::uintptr_t{kDigits} - 1) << shift);
        differences &= ~sortedBits;
    }
}

} // namespace kvdetail
