#include "selectcontext/detail/IdBatch.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kvdetail {

bool IdBatch::sort() {
    if (!mIsSorted)
        sortByStub();
    mIsSorted = true;
    return isInOrderOfIds();
}

bool IdBatch::isInOrderOfIds() const {
    return std::adjacent_find(begin(), end(), [](const Item& a, const Item& b) {
               return a.stub != b.stub && !(a.id() < b.id());
           }) == end();
}

// LSD radix sort with 11 bits per pass. Each pass begins at the lowest unsorted bit in which any two stubs
// differ. With std::sort, an operation that uses a batch would take twice as long.
void IdBatch::sortByStub() {
    constexpr unsigned kDigitBits = 11;
    constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
    constexpr std::size_t kFewestItems = kDigits / 8; // with fewer items, stable_sort is faster

    if (mItems.size() < kFewestItems) {
        std::stable_sort(mItems.begin(), mItems.end(),
                         [](const Item& a, const Item& b) { return a.stub < b.stub; });
        return;
    }
    std::uintptr_t differences = 0;
    for (const Item& item : mItems)
        differences |= item.stub ^ mItems.front().stub;

    std::vector<Item> sorted(mItems.size());
    while (differences != 0) {
        const auto shift = static_cast<unsigned>(__builtin_ctzll(differences));
        const auto digitOf = [shift](const Item& item) { return (item.stub >> shift) & (kDigits - 1); };
        std::array<std::size_t, kDigits> ends{};
        for (const Item& item : mItems)
            ++ends[digitOf(item)];
        std::size_t sum = 0;
        for (std::size_t& count : ends)
            sum += std::exchange(count, sum);
        for (const Item& item : mItems)
            sorted[ends[digitOf(item)]++] = item;
        mItems.swap(sorted);
        const std::uintptr_t sortedBits = (std::uintptr_t{kDigits} - 1) << shift;
        differences &= ~sortedBits;
    }
}

} // namespace kvdetail
