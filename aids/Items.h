// items(): walks the items of a set by range-for, by standard algorithms and by C++20 ranges.
#pragma once

#include "selectcontext/GxapSelectSet.h"

#include <cstddef>
#include <iterator>
#include <utility>

#if __cplusplus >= 202002L
#include <ranges>
#endif

namespace kv {

// The items that a set had when the range was made, in the order of selection. A set without data, or without
// items, gives an empty range.
//
// The range is one more owner of the set's data. So an edit of the set during a walk first gives the set a
// copy of its data, as an edit of any shared set does. The walk goes on over the items as they were. The set
// may even be destroyed. Items that the walk gives are then not those of the set. To change items, use an
// iterator of the write accessor. Nothing is registered with the set.
//
// Invariant: the range owns one reference to its data, or has no data.
//
// Making, copying and destroying a range cost O(1). The destructor costs O(n) if no set uses the data any
// more. An edit during the walk costs O(n) more than usual. Nothing here throws.
//
// Thread safety: one range belongs to one thread at a time. That may be another thread than that of the set.
class ItemRange {
    using Data = GxapSelectSet::SSetData;
    using Store = Data::Store;

public:
    // A position in a range. Valid while the range or a copy of the range exists. A walk must not go on
    // behind the end. Stepping costs O(slots skipped).
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = selected_entity;
        using difference_type = std::ptrdiff_t;
        using pointer = const selected_entity*;
        using reference = const selected_entity&;

        iterator() noexcept = default;

        reference operator*() const noexcept { return *mSlot->value; }
        pointer operator->() const noexcept { return mSlot->value; }

        iterator& operator++() noexcept {
            ++mSlot;
            if (!isOnItem())
                toNextItem();
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator before = *this;
            ++*this;
            return before;
        }

        friend bool operator==(const iterator& a, const iterator& b) noexcept { return a.mSlot == b.mSlot; }
        friend bool operator!=(const iterator& a, const iterator& b) noexcept { return a.mSlot != b.mSlot; }

    private:
        friend class ItemRange;

        explicit iterator(const Store::Page* first) noexcept {
            if (!first)
                return;
            enter(first);
            if (!isOnItem())
                toNextItem();
        }

        bool isOnItem() const noexcept { return mSlot < mEnd && !mSlot->free && mSlot->value; }

        // Skips free slots, and slots into which a caller has put null.
        void toNextItem() noexcept {
            for (;;) {
                for (; mSlot < mEnd; ++mSlot) {
                    if (isOnItem())
                        return;
                }
                if (!mPage->next)
                    break;
                enter(mPage->next);
            }
            *this = iterator();
        }

        void enter(const Store::Page* page) noexcept {
            mPage = page;
            mSlot = page->slots;
            mEnd = page->fillEnd;
        }

        const Store::Page* mPage = nullptr;
        const Store::Slot* mSlot = nullptr; // null: the end
        const Store::Slot* mEnd = nullptr;
    };
    using const_iterator = iterator;

    ItemRange() noexcept = default;
    explicit ItemRange(const GxapSelectSet& set) noexcept : ItemRange(set.sharedData) {}
    ItemRange(const ItemRange& other) noexcept : ItemRange(other.mData) {}
    ItemRange(ItemRange&& other) noexcept : mData(std::exchange(other.mData, nullptr)) {}
    ItemRange& operator=(ItemRange other) noexcept {
        std::swap(mData, other.mData);
        return *this;
    }
    ~ItemRange() {
        if (mData)
            mData->delRef();
    }

    // O(1), or O(slots skipped) if the first items were removed.
    iterator begin() const noexcept {
        return iterator(mData && mData->entities ? mData->entities->head : nullptr);
    }
    iterator end() const noexcept { return {}; }
    bool empty() const noexcept { return begin() == end(); }

private:
    explicit ItemRange(const Data* data) noexcept : mData(data) {
        if (mData)
            mData->addRef();
    }

    const Data* mData = nullptr;
};

// Returns the items of the set: for (const selected_entity& item : kv::items(set)). See ItemRange.
inline ItemRange items(const GxapSelectSet& set) noexcept {
    return ItemRange(set);
}

} // namespace kv

#if __cplusplus >= 202002L
// A range is cheap to copy and to move, so adaptors such as std::views::filter take it by value.
template <>
inline constexpr bool std::ranges::enable_view<kv::ItemRange> = true;
#endif
