// KvTrucker: a paged store whose slots never move, so the address of a slot can be a stable key.
#pragma once

#include "base/detail/OccupancyBitmap.h"
#include "base/detail/PageIndex.h"
#include "base/detail/Raise.h"
#include "base/detail/Shortcuts.h"
#include "base/detail/StoreEpoch.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace kvdetail {

constexpr const wchar_t* kStoreAccessMessage = L"Error access KvTrucker";

} // namespace kvdetail

// Allocates the pages and slot blocks of a store. allocate() returns null if there is no memory.
template <class T>
class KvTkDefaultAllocator {
public:
    static void* allocate(std::size_t bytes) noexcept { return ::operator new(bytes, std::nothrow); }
    static void deallocate(void* memory, std::size_t /*bytes*/) noexcept { ::operator delete(memory); }
};

// A store of T in pages of PageBytes bytes of slots. Appending uses new slots in order. Freed slots are used
// again only in a tail page that removeSlot() has emptied and kept. Removing frees a slot in place.
//
// Invariants:
//  1. `head` and `tail` are both null or the ends of one chain linked by `next`.
//  2. A page's slots before `fillEnd` have been used. Those from `fillEnd` on are free.
//  3. `liveCount` is the number of occupied slots of the page.
//  4. A page that a removal empties is unlinked and freed, unless the caller of removeSlot() asks to keep it.
//
// The fields are public, and callers may change them. Every operation stays within the pages' blocks,
// whatever the counts are. The store does not free a page that a caller takes out of the chain. The caller
// must keep such a page until the store frees another page or is destroyed.
//
// A store makes an index of its pages when it gets a fourth page. From its second page on, it makes a bitmap
// of the occupied slots of each page in which it frees a slot. Index and bitmaps may be out of date after a
// caller has changed pages, slots or their chain. forgetHints() then rebuilds the index and drops the
// bitmaps.
//
// Positions are 0-based counts of occupied slots in store order.
//
// Thread safety: none. A store belongs to one thread at a time.
template <class T, unsigned PageBytes, class Allocator = KvTkDefaultAllocator<T>>
class KvTrucker {
public:
    struct Slot {
        T value;
        unsigned char free; // 1: free, 0: occupied
    };
    static constexpr std::uint32_t kSlotsPerPage = PageBytes / sizeof(Slot);

    struct Page {
        Page* next;
        std::uint32_t liveCount; // occupied slots
        Slot* slots;             // the block of kSlotsPerPage slots
        Slot* fillEnd;           // the first slot that was never used

        // For the store only.
        std::uint32_t number = 0;  // index of the page in the page index
        std::uint32_t maker = 0;   // serial number of the store that made the page
        std::uint32_t birth = 0;   // epoch at which the page was made
        std::uint32_t ordinal = 0; // this is the n-th page that its store made, counted from 1
        kvdetail::OccupancyBitmap<kSlotsPerPage> occupied;
    };

    static_assert(kSlotsPerPage > 0 && PageBytes % sizeof(Slot) == 0, "a page holds a whole number of slots");
    static_assert(std::is_nothrow_default_constructible_v<T> && std::is_nothrow_copy_assignable_v<T>,
                  "filling a page and storing a value cannot throw");

    // The position of an iterator before the first element. positionOf() returns kNoPosition if there is no
    // element.
    static constexpr std::uint32_t kNoPosition = 0xFFFFFFFFu;

    // A cursor. Of all functions that free slots, only removeAt() adjusts a cursor: its argument. A cursor
    // never reads a freed page. If the store has freed any page since the cursor's last use, the cursor first
    // looks for its own page in the store's chain. The caller must not use a cursor after its store was
    // destroyed.
    struct iterator {
        const KvTrucker* trucker;
        Page* page;
        Slot* pageEnd; // one past the page's block
        Slot* slot;
        std::uint32_t position; // 1-based among the occupied slots of the page; kNoPosition: before the first
        mutable std::uint32_t epoch; // the epoch at which the page was last known to exist

        // Returns the value of the iterator's slot. Throws KvExceptionWithMsg "Error access KvTrucker" if
        // there is no slot, if the slot is free, or if its page was freed. O(1), or O(pages) after a page was
        // freed.
        T& operator*() const;

        // Advances to the next occupied slot, across pages, or to the end. An iterator before the first
        // element moves to the first element. `position` is then 0 if the first element is in the first slot,
        // and 1 otherwise. An iterator without page or slot does not move. An iterator whose page was freed
        // moves to the end. O(1), or O(slots skipped / 64) in a page with holes, or O(pages) after a page was
        // freed.
        void next() {
            if (!nextNeighbour())
                nextElsewhere();
        }

        // Returns true if the iterator is on a slot, and not on the end of a page. Reads neither page nor
        // slot.
        bool isOnSlot() const noexcept { return slot && slot < pageEnd; }

        // Moves to the next slot of the page and returns true, if that slot is occupied and the page is known
        // to exist. Otherwise does nothing and returns false.
        bool nextNeighbour() noexcept {
            // An iterator before the first element fails the last test: its `position` is the largest number.
            if (!isOnSlot() || !page || !isCurrent() || position >= page->liveCount)
                return false;
            Slot* const neighbour = slot + 1;
            if (neighbour == pageEnd || neighbour->free)
                return false;
            slot = neighbour;
            ++position;
            return true;
        }

        // Returns the address of the slot's value, if the slot is occupied and the page is known to exist.
        // Otherwise returns null.
        T* valueHere() const noexcept {
            return isOnSlot() && isCurrent() && !slot->free ? &slot->value : nullptr;
        }

        // Returns whether `page` still exists, and `slot` is in the block of `page` or one past it.
        bool isOnPage() const noexcept { return trucker && (isCurrent() || isOnFoundPage()); }

        void toBeforeFirst() noexcept {
            page = nullptr;
            pageEnd = nullptr;
            slot = nullptr;
            position = kNoPosition;
        }

    private:
        // Returns true if the store has freed no page since the iterator's page was last known to exist.
        bool isCurrent() const noexcept { return epoch == trucker->mEpoch.current(); }
        void nextElsewhere();
        void toNextPage();
        bool isOnFoundPage() const noexcept;
    };

    KvTrucker() = default;
    KvTrucker(const KvTrucker&) = delete;
    KvTrucker& operator=(const KvTrucker&) = delete;

    // Frees the pages. Does not delete what the values point to.
    ~KvTrucker() { freeAllPages(); }

    // Occupies the next slot and returns that slot. Raises KvErrorStatus 6 if there is no memory for a page.
    // O(1), plus a new page every kSlotsPerPage calls.
    Slot* append();
    Slot* append(const T& value);

    // Undoes the last append() and returns the value of its slot. The slot then counts as never used. Frees
    // the page if the page has no other used slot. Since that append(), the caller must not have removed
    // anything, and removeSlot() must not have kept an emptied tail page. O(1), or O(pages) when a page is
    // freed.
    T undoAppend();

    // The end of the store when mark() was called. Appending and removing leave a mark valid, with one
    // exception: a removeSlot() with `freeEmptyPage` false that takes the last element of the tail page.
    // mark() is O(1).
    struct Mark {
        std::uint32_t ordinal;
        const Slot* fillEnd;
    };
    Mark mark() const noexcept { return tail ? Mark{tail->ordinal, tail->fillEnd} : Mark{mMade, nullptr}; }

    // Returns whether the iterator is on an element that was appended after mark() returned `mark`. The
    // iterator must not be the end. O(1), or O(pages) after a page was freed.
    bool isBehind(const iterator& it, const Mark& mark) const noexcept {
        if (!it.page || !it.isOnPage())
            return false;
        return it.page->ordinal > mark.ordinal ||
               (it.page->ordinal == mark.ordinal && !(it.slot < mark.fillEnd));
    }

    // Returns the i-th occupied slot. Stores its page in `page`, and its index among the occupied slots of
    // that page in `indexInPage`. Beyond the last element, returns null and stores null and kNoPosition. If a
    // caller has made the `liveCount` of a page too large, the function may store another index or raise
    // KvErrorStatus 24. Raises KvErrorStatus 24 for a negative i. O(pages + slots of one page).
    Slot* elementAt(int i, Page** page = nullptr, unsigned* indexInPage = nullptr) const;

    // Returns the i-th value. Raises KvErrorStatus 24 if there is no i-th value. Same cost as elementAt().
    T& at(int i) const;

    // Returns an iterator on the i-th element. A negative i gives the end. An i beyond the last element gives
    // an iterator without page and slot. Such an iterator differs from end() if the store has pages. Same
    // cost as elementAt().
    iterator iteratorAt(int i) const;

    // Returns the iterator that is one past the last page's block. O(1).
    iterator end() const;

    // Returns whether the iterator has the store, page, slot and position of end(). Reads neither its page
    // nor its slot. O(1).
    bool isEnd(const iterator& it) const {
        // Compares the slot first: no iterator on an element has the slot of end().
        return it.slot == blockEnd(tail) && it.trucker == this && it.page == tail &&
               it.position == (tail ? tail->liveCount : 0);
    }

    // Frees the iterator's slot. Does nothing for the end, a free slot, an iterator whose page was freed, and
    // an iterator of another store. The iterator stays on the freed slot if the page has another occupied
    // slot. Otherwise the page is freed, and the iterator moves to the previous element, or to before the
    // first. O(1), or O(pages) when a page is freed, or was freed since the iterator's last use.
    void removeAt(iterator& it);

    // Returns the position of the element whose slot has this address. Returns kNoPosition for null, for an
    // address that is no slot of this store, and for a free slot. O(pages + slots of one page).
    std::uint32_t positionOf(const void* slot) const;

    // Frees a slot of the page. Also frees the page if it has no other occupied slot and `freeEmptyPage` is
    // true. If `freeEmptyPage` is false, an emptied tail page is kept, and its slots are used again. Any
    // other emptied page is kept with its slots free. O(1), or O(pages) when a page is freed.
    void removeSlot(Slot* slot, Page* page, bool freeEmptyPage);

    // Frees all pages, so that the store is empty. O(pages).
    void freeAllPages();

    // Returns the sum of `liveCount` of all pages. O(log pages), or O(pages) if the page index is out of date
    // or a page was freed.
    std::uint32_t occupiedSlots() const noexcept;

    // Returns the number of slots before `fillEnd` in all pages. O(pages).
    std::size_t usedSlots() const noexcept {
        std::size_t used = 0;
        for (const Page* page = head; page; page = page->next)
            used += static_cast<std::size_t>(page->fillEnd - page->slots);
        return used;
    }

    // Rebuilds the page index and drops the bitmaps. Call this after changing pages, slots or their chain.
    // O(pages).
    void forgetHints() noexcept;

    // Returns the address one past the page's block. Returns null for a null page, and for a page without a
    // block.
    static Slot* blockEnd(const Page* page) noexcept {
        return page && page->slots ? page->slots + kSlotsPerPage : nullptr;
    }

    // Returns the first occupied slot in [from, last), or null.
    static Slot* firstOccupied(Slot* from, const Slot* last) noexcept {
        for (; from < last; ++from) {
            if (!from->free)
                return from;
        }
        return nullptr;
    }

    // Returns the page that has a slot at this address, before `fillEnd`. Returns null if there is no such
    // page. O(1), or O(pages) if the page index does not find the page.
    Page* pageOf(const void* slot) const noexcept {
        Page* const indexed = isIndexed() ? mIndex.find(slot) : nullptr;
        if (indexed && isWithin(slot, indexed->slots, indexed->fillEnd))
            return indexed;
        Page* page = head;
        while (page && !isWithin(slot, page->slots, page->fillEnd))
            page = page->next;
        return page;
    }

    // Returns the page before `page`, or null for the head. `page` is null or a page of this store. O(pages).
    Page* pageBefore(const Page* page) const noexcept {
        if (page == head)
            return nullptr;
        for (Page* p = head; p; p = p->next) {
            if (p->next == page)
                return p;
        }
        return nullptr;
    }

    // Returns the first occupied slot of the page's block at `from` or after it, or null. O(1) if the slot at
    // `from` is occupied, O(slots skipped / 64) if the page has holes.
    static Slot* firstOccupiedOf(const Page* page, Slot* from) noexcept;

    // Returns the last occupied slot of the page before the slot with the number `below`, or null. O(1) if
    // the page has no holes.
    static Slot* lastOccupiedBefore(const Page* page, std::ptrdiff_t below) noexcept;

    // Returns the number of occupied slots of the page before `slot`. O(1) if the page has no holes.
    static std::uint32_t occupiedBefore(const Page* page, const Slot* slot) noexcept;

    Page* head = nullptr;
    Page* tail = nullptr;

private:
    // Returns whether every used slot is occupied, so that the n-th occupied slot is slot n. Always returns
    // false if kHasOccupancyBitmap is false.
    static bool hasNoHoles(const Page* page) noexcept {
        return kvdetail::kHasOccupancyBitmap && page->fillEnd - page->slots == page->liveCount;
    }

    // Returns whether the page has a bitmap whose count() equals the page's `liveCount`.
    static bool hasBits(const Page* page) noexcept {
        return kvdetail::kHasOccupancyBitmap && page->occupied.isKept() &&
               page->occupied.count() == page->liveCount;
    }

    static std::uint32_t numberOf(const Page* page, const Slot* slot) noexcept {
        return static_cast<std::uint32_t>(slot - page->slots);
    }

    // Returns the n-th occupied slot of the page by arithmetic or by the bitmap. Returns null if neither
    // gives an occupied slot.
    static Slot* nthByShortcut(const Page* page, std::uint32_t n) noexcept;

    // Adds `change`, 1 or -1, to the page's `liveCount`, and updates the page index.
    void changeCount(Page* page, int change) noexcept {
        page->liveCount += static_cast<std::uint32_t>(change);
        if (mIndex.isInUse())
            mIndex.noteCount(page, change);
    }
    void vacate(Page* page, Slot* slot) noexcept;
    static void startBits(Page* page) noexcept;

    // Returns whether the page index can be used: its first and last page are those of the chain, and none of
    // its pages has been freed.
    bool isIndexed() const noexcept {
        return mIndex.isInUse() && mIndex.pages().front() == head && mIndex.pages().back() == tail &&
               mIndex.verify(head, mEpoch.current());
    }

    // Returns whether positions are taken from the page index. A chain of at most kCheckedLinks pages is
    // walked instead: checking the index would visit as many pages.
    bool isCounted() const noexcept { return mIndex.pages().size() > mIndex.kCheckedLinks && isIndexed(); }

    // The page of an element, and the number of the element among those of the page. `page` is null for a
    // position beyond the last element.
    struct InPage {
        Page* page;
        std::uint32_t number;
    };
    InPage inPage(std::uint32_t i) const noexcept;
    // Is not inlined. Otherwise inPage() would save registers even if the page index is not in use.
    [[gnu::noinline]] InPage inIndexedPage(std::uint32_t i) const noexcept;
    std::uint32_t liveBefore(const Page* page) const noexcept;

    // Returns whether the address is that of a slot in [first, last). Compares addresses as integers, since
    // the address may be that of any object.
    static bool isWithin(const void* address, const Slot* first, const Slot* last) noexcept {
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        const auto begin = reinterpret_cast<std::uintptr_t>(first);
        return at >= begin && at < reinterpret_cast<std::uintptr_t>(last) && (at - begin) % sizeof(Slot) == 0;
    }

    static std::uint32_t countOccupied(const Slot* from, const Slot* last) noexcept {
        std::uint32_t count = 0;
        for (; from < last; ++from)
            count += from->free ? 0 : 1;
        return count;
    }

    Page* pageForAppending();
    Page* makePage();
    static void clearSlots(Slot* slots) noexcept;
    void freePage(Page* page) noexcept;
    void unlinkAndFree(Page* page) noexcept;
    bool contains(const Page* page) const noexcept;

    kvdetail::PageIndex<Page, PageBytes> mIndex;
    kvdetail::StoreEpoch mEpoch;
    std::uint32_t mMade = 0; // number of pages that the store made
    // Bitmaps are made only if this is true. A store with one page reads its slots instead.
    bool mHasHadSeveralPages = false;
};

namespace kvdetail {

// Moves an iterator to the previous occupied slot in `store`, across pages, or to before the first element.
// Does not move an iterator that is before the first element, or that has no page or no slot. Moves an
// iterator of another store, or whose page was freed, to before the first element. O(slots skipped), or
// O(pages) to change page.
template <class Store>
void stepBack(const Store* store, typename Store::iterator& it) {
    using Slot = typename Store::Slot;
    if (it.position == Store::kNoPosition || !it.page || !it.slot)
        return;

    bool onPage = it.trucker == store && it.isOnPage();
    while (onPage) {
        // Counts slots from the start of the block, so that no address before the block is formed.
        const std::ptrdiff_t below = it.position == 0 ? 0 : it.slot - it.page->slots;
        if (Slot* const previous = Store::lastOccupiedBefore(it.page, below)) {
            it.slot = previous;
            --it.position;
            return;
        }
        it.page = store->pageBefore(it.page);
        onPage = it.page != nullptr;
        if (onPage) {
            it.slot = it.page->fillEnd;
            it.position = it.page->liveCount;
            it.pageEnd = Store::blockEnd(it.page);
        }
    }
    it.toBeforeFirst();
}

// Calls visit(slot) for occupied slots, in store order, until a call returns true. Returns whether a call
// returned true. visit() may free the slot that is passed to it, but no page. O(slots).
template <class Store, class Visit>
bool anyOccupied(const Store& store, Visit visit) {
    for (const typename Store::Page* page = store.head; page; page = page->next) {
        for (typename Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (!slot->free && visit(slot))
                return true;
        }
    }
    return false;
}

// Calls visit(slot) for every occupied slot, in store order. visit() may free the slot that is passed to it,
// but no page. O(slots).
template <class Store, class Visit>
void forEachOccupied(const Store& store, Visit visit) {
    anyOccupied(store, [&visit](typename Store::Slot* slot) {
        visit(slot);
        return false;
    });
}

} // namespace kvdetail

template <class T, unsigned PageBytes, class Allocator>
T& KvTrucker<T, PageBytes, Allocator>::iterator::operator*() const {
    const bool readable = page && slot && isOnPage() && slot < blockEnd(page) && !slot->free;
    if (!readable)
        kvdetail::raiseMessage(kvdetail::kStoreAccessMessage);
    return slot->value;
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::iterator::nextElsewhere() {
    Slot* from = nullptr;
    if (position == kNoPosition) {
        if (!trucker || !trucker->head)
            return;
        page = trucker->head;
        pageEnd = blockEnd(page);
        slot = page->slots;
        position = 0;
        epoch = trucker->mEpoch.current();
        // `position` stays 0 here. An iterator from iteratorAt(0) has the position 1.
        if (slot && !slot->free)
            return;
        from = slot;
    } else {
        if (!page || !slot || !pageEnd)
            return;
        if (!isOnPage()) {
            *this = trucker->end();
            return;
        }
        from = slot < blockEnd(page) ? slot + 1 : slot;
    }

    if (position < page->liveCount) {
        if (Slot* const found = firstOccupiedOf(page, from)) {
            slot = found;
            ++position;
            return;
        }
    }
    toNextPage();
}

// Moves to the first occupied slot of the pages behind this page. If there is none, moves to the end of the
// last page, even if that page has no occupied slot.
template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::iterator::toNextPage() {
    while (page->next) {
        page = page->next;
        pageEnd = blockEnd(page);
        if (page->liveCount == 0)
            continue;
        if (Slot* const found = firstOccupiedOf(page, page->slots)) {
            slot = found;
            position = 1;
            return;
        }
    }
    pageEnd = blockEnd(page);
    slot = pageEnd;
    position = page->liveCount;
}

template <class T, unsigned PageBytes, class Allocator>
bool KvTrucker<T, PageBytes, Allocator>::iterator::isOnFoundPage() const noexcept {
    using kvdetail::StoreEpoch;
    const std::uint32_t now = trucker->mEpoch.current();
    // An epoch of another group comes from an earlier store at the same address.
    if (!StoreEpoch::isSameGroup(epoch, now) || !trucker->contains(page))
        return false;
    // A page that was made later may lie at the address of the iterator's page.
    if (StoreEpoch::isSameGroup(epoch, page->birth) && StoreEpoch::isLater(page->birth, epoch))
        return false;
    if (slot != blockEnd(page) && !isWithin(slot, page->slots, blockEnd(page)))
        return false;
    epoch = now;
    return true;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::append() -> Slot* {
    Page* const page = pageForAppending();
    Slot* const slot = page->fillEnd;
    slot->free = 0;
    if (page->occupied.isKept())
        page->occupied.set(numberOf(page, slot));
    ++page->fillEnd;
    changeCount(page, 1);
    return slot;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::append(const T& value) -> Slot* {
    Slot* const slot = append();
    slot->value = value;
    return slot;
}

template <class T, unsigned PageBytes, class Allocator>
T KvTrucker<T, PageBytes, Allocator>::undoAppend() {
    Page* const page = tail;
    Slot* const slot = --page->fillEnd;
    const T value = slot->value;
    if (page->occupied.isKept())
        page->occupied.clear(numberOf(page, slot));
    slot->free = 1;
    changeCount(page, -1);
    if (page->fillEnd == page->slots)
        unlinkAndFree(page);
    return value;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::elementAt(int i, Page** page, unsigned* indexInPage) const -> Slot* {
    if (page)
        *page = nullptr;
    if (indexInPage)
        *indexInPage = kNoPosition;
    if (i < 0)
        kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);

    auto [p, remaining] = inPage(static_cast<std::uint32_t>(i));
    if (!p)
        return nullptr;

    if (indexInPage)
        *indexInPage = remaining;
    Slot* found = nthByShortcut(p, remaining);
    if (!found) {
        found = firstOccupied(p->slots, p->fillEnd);
        for (; found && remaining > 0; --remaining)
            found = firstOccupied(found + 1, p->fillEnd);
    }
    if (!found) {
        // The page's `liveCount` exceeds the number of its occupied slots. Only a caller that changed the
        // page's fields can cause this.
        if (remaining != 0)
            return nullptr;
        if (!(p->fillEnd < blockEnd(p)) || p->fillEnd->free)
            kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);
        found = p->fillEnd;
    }
    if (page)
        *page = p;
    return found;
}

template <class T, unsigned PageBytes, class Allocator>
T& KvTrucker<T, PageBytes, Allocator>::at(int i) const {
    Slot* const slot = elementAt(i);
    if (!slot || slot->free)
        kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);
    return slot->value;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::iteratorAt(int i) const -> iterator {
    if (i < 0)
        return end();
    Page* page = nullptr;
    unsigned index = kNoPosition;
    Slot* const slot = elementAt(i, &page, &index);
    return {this, page, blockEnd(page), slot, index + 1, mEpoch.current()};
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::end() const -> iterator {
    Slot* const last = blockEnd(tail);
    return {this, tail, last, last, tail ? tail->liveCount : 0, mEpoch.current()};
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::removeAt(iterator& it) {
    if (it.trucker != this || isEnd(it) || !it.page || !it.isOnPage() ||
        !isWithin(it.slot, it.page->slots, blockEnd(it.page)) || it.slot->free)
        return;
    Page* const page = it.page;
    vacate(page, it.slot);
    if (page->liveCount > 0)
        changeCount(page, -1);
    if (page->liveCount > 0)
        return;

    kvdetail::stepBack(this, it);
    if (it.page == page)
        it.toBeforeFirst(); // the iterator's position or the page's count was wrong
    unlinkAndFree(page);
    it.epoch = mEpoch.current();
}

template <class T, unsigned PageBytes, class Allocator>
std::uint32_t KvTrucker<T, PageBytes, Allocator>::positionOf(const void* slot) const {
    const Page* const page = pageOf(slot);
    const auto* const found = static_cast<const Slot*>(slot);
    if (!page || found->free)
        return kNoPosition;
    const std::uint32_t before = liveBefore(page);
    return before == kNoPosition ? kNoPosition : before + occupiedBefore(page, found);
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::removeSlot(Slot* slot, Page* page, bool freeEmptyPage) {
    if (!page)
        return;
    if (isWithin(slot, page->slots, blockEnd(page)))
        vacate(page, slot);
    if (page->liveCount > 0)
        changeCount(page, -1);
    if (page->liveCount > 0)
        return;

    if (freeEmptyPage) {
        unlinkAndFree(page);
    } else if (page == tail) {
        page->fillEnd = page->slots;
        page->occupied.drop();
    }
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::freeAllPages() {
    Page* page = head;
    head = nullptr;
    tail = nullptr;
    mIndex.clear();
    mHasHadSeveralPages = false;
    while (page) {
        Page* const next = page->next;
        freePage(page);
        page = next;
    }
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::forgetHints() noexcept {
    for (Page* page = head; page; page = page->next)
        page->occupied.drop();
    mHasHadSeveralPages = head != tail;
    if (kvdetail::kHasPageIndex)
        mIndex.rebuild(head);
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::pageForAppending() -> Page* {
    if (tail && tail->fillEnd < blockEnd(tail))
        return tail;
    Page* const page = makePage();
    Page* const before = tail;
    if (before) {
        before->next = page;
        mHasHadSeveralPages = true;
    } else {
        head = page;
    }
    tail = page;
    if (kvdetail::kHasPageIndex)
        mIndex.append(page, before, head);
    return page;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::makePage() -> Page* {
    void* const pageMemory = Allocator::allocate(sizeof(Page));
    void* const blockMemory = pageMemory ? Allocator::allocate(PageBytes) : nullptr;
    if (!blockMemory) {
        if (pageMemory)
            Allocator::deallocate(pageMemory, sizeof(Page));
        kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
    }
    auto* const slots = static_cast<Slot*>(blockMemory);
    clearSlots(slots);
    return new (pageMemory) Page{nullptr, 0, slots, slots, 0, mEpoch.serial(), mEpoch.current(), ++mMade, {}};
}

// Makes all slots free. In a small set, clearing the slots takes longer than all work on the items. So a
// block of cleared slots is copied, which takes half as long as clearing one slot after the other.
template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::clearSlots(Slot* slots) noexcept {
    if constexpr (std::is_trivially_copyable_v<T>) {
        std::uint32_t cleared = std::min<std::uint32_t>(kSlotsPerPage, 64);
        std::uninitialized_fill_n(slots, cleared, Slot{T(), 1});
        while (cleared < kSlotsPerPage) {
            const std::uint32_t count = std::min(cleared, kSlotsPerPage - cleared);
            std::memcpy(slots + cleared, slots, count * sizeof(Slot));
            cleared += count;
        }
    } else {
        std::uninitialized_fill_n(slots, kSlotsPerPage, Slot{T(), 1});
    }
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::freePage(Page* page) noexcept {
    const bool isOwn = page->maker == mEpoch.serial();
    if (page->slots) {
        std::destroy_n(page->slots, kSlotsPerPage);
        Allocator::deallocate(page->slots, PageBytes);
    }
    Allocator::deallocate(page, sizeof(Page));
    // Iterators of other stores may be on a page that a caller has moved into this store.
    if (isOwn)
        mEpoch.raise();
    else
        kvdetail::StoreEpoch::raiseAll();
}

// Takes the page out of the chain and frees the page. Does nothing for a page that a caller has taken out.
template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::unlinkAndFree(Page* page) noexcept {
    if (!contains(page))
        return;
    Page* const before = pageBefore(page);
    if (before)
        before->next = page->next;
    if (head == page)
        head = page->next;
    if (tail == page)
        tail = before;
    if (kvdetail::kHasPageIndex)
        mIndex.remove(page, head);
    freePage(page);
}

template <class T, unsigned PageBytes, class Allocator>
bool KvTrucker<T, PageBytes, Allocator>::contains(const Page* page) const noexcept {
    const Page* p = head;
    while (p && p != page)
        p = p->next;
    return p != nullptr;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::firstOccupiedOf(const Page* page, Slot* from) noexcept -> Slot* {
    Slot* const last = blockEnd(page);
    if (from >= last || !from->free)
        return from < last ? from : nullptr;
    if (hasBits(page)) {
        const std::uint32_t first = page->occupied.firstFrom(numberOf(page, from));
        if (first == kSlotsPerPage)
            return nullptr;
        if (!page->slots[first].free)
            return page->slots + first;
    }
    return firstOccupied(from, last);
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::lastOccupiedBefore(const Page* page, std::ptrdiff_t below) noexcept
    -> Slot* {
    if (below > 0 && hasBits(page)) {
        const std::uint32_t last = page->occupied.lastBefore(static_cast<std::uint32_t>(below));
        if (last == kSlotsPerPage)
            return nullptr;
        if (!page->slots[last].free)
            return page->slots + last;
    }
    for (std::ptrdiff_t i = below - 1; i >= 0; --i) {
        if (!page->slots[i].free)
            return page->slots + i;
    }
    return nullptr;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::nthByShortcut(const Page* page, std::uint32_t n) noexcept -> Slot* {
    std::uint32_t number = kSlotsPerPage;
    if (hasNoHoles(page))
        number = n;
    else if (hasBits(page))
        number = page->occupied.select(n);
    Slot* const slot = page->slots + number;
    return slot < page->fillEnd && !slot->free ? slot : nullptr;
}

template <class T, unsigned PageBytes, class Allocator>
std::uint32_t KvTrucker<T, PageBytes, Allocator>::occupiedBefore(const Page* page,
                                                                 const Slot* slot) noexcept {
    if (hasNoHoles(page))
        return numberOf(page, slot);
    return hasBits(page) ? page->occupied.rank(numberOf(page, slot)) : countOccupied(page->slots, slot);
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::vacate(Page* page, Slot* slot) noexcept {
    if (kvdetail::kHasOccupancyBitmap && mHasHadSeveralPages && !page->occupied.isKept())
        startBits(page);
    if (page->occupied.isKept())
        page->occupied.clear(numberOf(page, slot));
    slot->free = 1;
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::startBits(Page* page) noexcept {
    if (hasNoHoles(page)) {
        page->occupied.start(page->liveCount);
        return;
    }
    page->occupied.start(0);
    for (Slot* slot = firstOccupied(page->slots, page->fillEnd); slot;
         slot = firstOccupied(slot + 1, page->fillEnd))
        page->occupied.set(numberOf(page, slot));
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::inPage(std::uint32_t i) const noexcept -> InPage {
    if (mIndex.pages().size() > mIndex.kCheckedLinks) {
        const InPage indexed = inIndexedPage(i);
        if (indexed.page)
            return indexed;
    }
    Page* page = head;
    for (; page && i >= page->liveCount; page = page->next)
        i -= page->liveCount;
    return {page, i};
}

// Returns a null page for a position beyond the last element. Also returns a null page if the page index is
// not used, or if its count of the page is out of date.
template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::inIndexedPage(std::uint32_t i) const noexcept -> InPage {
    if (!isCounted())
        return {nullptr, i};
    const auto [page, number] = mIndex.pageWith(i);
    return {page, number};
}

// Returns the number of occupied slots in the pages before `page`. Returns kNoPosition if `page` is not in
// the chain.
template <class T, unsigned PageBytes, class Allocator>
std::uint32_t KvTrucker<T, PageBytes, Allocator>::liveBefore(const Page* page) const noexcept {
    if (isCounted() && mIndex.isCounted(page))
        return mIndex.countBefore(page->number);
    std::uint32_t before = 0;
    const Page* p = head;
    for (; p && p != page; p = p->next)
        before += p->liveCount;
    return p ? before : kNoPosition;
}

template <class T, unsigned PageBytes, class Allocator>
std::uint32_t KvTrucker<T, PageBytes, Allocator>::occupiedSlots() const noexcept {
    if (isCounted() && mIndex.isCounted(tail))
        return mIndex.countBefore(mIndex.pages().size());
    std::uint32_t total = 0;
    for (const Page* page = head; page; page = page->next)
        total += page->liveCount;
    return total;
}
