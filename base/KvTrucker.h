// KvTrucker: a paged store whose slots never move, so the address of a slot can be a stable key.
#pragma once

// First, since it refuses targets that have no standard library.
#include "platform/KvOsBase.h"

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
    // Allocate and free memory. Freeing null does nothing.
    static void* allocate(std::size_t bytes) noexcept { return ::operator new(bytes, std::nothrow); }
    static void deallocate(void* memory, std::size_t /*bytes*/) noexcept { ::operator delete(memory); }
};

// A store of values of type T. The values are in slots, and the slots are in pages of PageBytes bytes each.
// Appending uses the next new slot. Removing frees a slot and moves no value. A freed slot is not used again,
// with one exception: a tail page that removeSlot() has emptied and kept is filled again.
//
// Invariants:
//  1. `head` and `tail` are the first and the last page of one chain, which is linked by `next`. Both are
//     null if the store has no page.
//  2. In a page, the slots before `fillEnd` have been used. The slots from `fillEnd` on are free.
//  3. `liveCount` is the number of occupied slots of the page.
//  4. A page that a removal empties is unlinked and freed, unless the caller of removeSlot() asks to keep it.
//
// The fields are public, and callers may change them. No operation reads or writes outside the slots of a
// page, even if a caller has made the counts wrong. The store does not free a page that a caller takes out of
// the chain. The caller must keep such a page until the store frees another page or is destroyed.
//
// A store makes an index of its pages when it gets a fourth page. Once it has had a second page, it makes a
// bitmap of the occupied slots of each page in which it frees a slot. If a caller changes pages, slots or
// their chain, index and bitmaps may be out of date. forgetHints() then rebuilds the index and drops the
// bitmaps.
//
// An element is an occupied slot with its value. The position of an element is the number of elements before
// it.
//
// Thread safety: none. A store belongs to one thread at a time.
template <class T, unsigned PageBytes, class Allocator = KvTkDefaultAllocator<T>>
class KvTrucker {
public:
    // A place for one value.
    struct Slot {
        T value;            // means nothing while the slot is free
        unsigned char free; // 1: free, 0: occupied
    };

    // The number of slots of every page.
    static constexpr std::uint32_t kSlotsPerPage = PageBytes / sizeof(Slot);

    // A page and the counts of its slots. The store owns its pages and their slots.
    struct Page {
        Page* next;              // null in the tail
        std::uint32_t liveCount; // occupied slots
        Slot* slots;             // the block of kSlotsPerPage slots
        Slot* fillEnd;           // the first slot that was never used

        // For the store only.
        std::uint32_t number = 0;  // index of the page in PageIndex::pages()
        std::uint32_t maker = 0;   // serial number of the store that made the page
        std::uint32_t birth = 0;   // epoch at which the page was made
        std::uint32_t ordinal = 0; // this is the n-th page that its store made, counted from 1
        kvdetail::OccupancyBitmap<kSlotsPerPage> occupied;
    };

    static_assert(kSlotsPerPage > 0 && PageBytes % sizeof(Slot) == 0, "a page holds a whole number of slots");
    static_assert(std::is_nothrow_default_constructible_v<T> && std::is_nothrow_copy_assignable_v<T>,
                  "filling a page and storing a value cannot throw");

    // The `position` of an iterator that is before the first element. positionOf() returns kNoPosition if
    // there is no element.
    static constexpr std::uint32_t kNoPosition = 0xFFFFFFFFu;

    // A cursor. removeAt() adjusts the iterator that is passed to it. No other function that frees slots
    // adjusts an iterator. An iterator never reads a freed page: if the store has freed any page since the
    // iterator was last used, the iterator first looks for its page in the chain. The caller must not use an
    // iterator after its store was destroyed.
    struct iterator {
        const KvTrucker* trucker; // the store; not null if `slot` is not null
        Page* page;               // null: before the first element, or in no page
        Slot* pageEnd;            // one past the page's last slot
        Slot* slot;               // null like `page`; one past the last slot: the end
        std::uint32_t position; // 1-based among the occupied slots of the page; kNoPosition: before the first
        mutable std::uint32_t epoch; // the epoch at which the page was last known to exist

        // Returns the value of the iterator's slot. Throws KvExceptionWithMsg "Error access KvTrucker" if
        // there is no slot, if the slot is free, or if its page was freed. O(1), or O(pages) after a page was
        // freed.
        T& operator*() const;

        // Moves to the next element, which may be on another page, or to the end. An iterator before the
        // first element moves to the first element: its `position` is then 0 if that element is in the first
        // slot, and 1 otherwise. Any other iterator without page or slot does not move. An iterator whose
        // page was freed moves to the end. O(slots skipped), or O(pages) after a page was freed.
        void next() {
            if (!nextNeighbour())
                nextElsewhere();
        }

        // Returns true if the iterator is on a slot, and not on the end of a page. Reads neither page nor
        // slot.
        bool isOnSlot() const noexcept { return slot && slot < pageEnd; }

        // The quick case of next(). If the next slot of the page is occupied and the page is known to exist,
        // moves to that slot and returns true. Otherwise changes nothing and returns false.
        bool nextNeighbour() noexcept {
            // An iterator before the first element needs no test of its own: kNoPosition is the largest
            // number.
            if (!isOnSlot() || !page || !isCurrent() || position >= page->liveCount)
                return false;
            Slot* const neighbour = slot + 1;
            if (neighbour == pageEnd || neighbour->free)
                return false;
            slot = neighbour;
            ++position;
            return true;
        }

        // If the iterator's slot is occupied and the page is known to exist, returns the address of the
        // value. Otherwise returns null.
        T* valueHere() const noexcept {
            return isOnSlot() && isCurrent() && !slot->free ? &slot->value : nullptr;
        }

        // Returns whether `page` still exists. If the store has freed any page since the iterator was last
        // used, also checks that `slot` is a slot of `page` or one past the last one. `page` must not be
        // null.
        bool isOnPage() const noexcept { return trucker && (isCurrent() || isOnFoundPage()); }

        // Moves to before the first element. O(1).
        void toBeforeFirst() noexcept {
            page = nullptr;
            pageEnd = nullptr;
            slot = nullptr;
            position = kNoPosition;
        }

    private:
        // Returns true only if the store has freed no page since the iterator's page was last known to exist.
        bool isCurrent() const noexcept { return epoch == trucker->mEpoch.current(); }
        void nextElsewhere();
        void toNextPage();
        bool isOnFoundPage() const noexcept;
    };

    // Makes an empty store. Allocates nothing.
    KvTrucker() = default;
    KvTrucker(const KvTrucker&) = delete;
    KvTrucker& operator=(const KvTrucker&) = delete;

    // Frees the pages. Does not delete what the values point to.
    ~KvTrucker() { freeAllPages(); }

    // Occupies the next new slot and returns the slot. The form with `value` stores the value there. Raises
    // KvErrorStatus 6 if there is no memory for a page. O(1), plus a new page every kSlotsPerPage calls.
    Slot* append();
    Slot* append(const T& value);

    // Undoes the last append() and returns the value of its slot. The slot then counts as never used. Frees
    // the page if the page has no other used slot. Nothing may have been removed since that append(). O(1),
    // or O(pages) when a page is freed.
    T undoAppend();

    // The end of the store at the time of mark(). Appending and removing leave a mark valid, with one
    // exception: a removeSlot() that empties the tail page and keeps it.
    struct Mark {
        std::uint32_t ordinal; // of the tail page, or the number of pages made so far
        const Slot* fillEnd;   // of the tail page, or null
    };

    // Returns the present end. O(1).
    Mark mark() const noexcept { return tail ? Mark{tail->ordinal, tail->fillEnd} : Mark{mMade, nullptr}; }

    // Returns whether the iterator is on an element that was appended after mark() returned `mark`. The
    // iterator must not be the end. O(1), or O(pages) after a page was freed.
    bool isBehind(const iterator& it, const Mark& mark) const noexcept {
        if (!it.page || !it.isOnPage())
            return false;
        return it.page->ordinal > mark.ordinal ||
               (it.page->ordinal == mark.ordinal && !(it.slot < mark.fillEnd));
    }

    // Returns the slot of the element at position i. Stores the slot's page in `page`, and the slot's index
    // among the occupied slots of that page in `indexInPage`. `page` and `indexInPage` may be null. If i is
    // beyond the last element, returns null and stores null and kNoPosition. Raises KvErrorStatus 24 for a
    // negative i. If a caller has made the `liveCount` of a page too large, the function may also return
    // null, store another index, or raise KvErrorStatus 24. O(pages + slots of one page).
    Slot* elementAt(int i, Page** page = nullptr, unsigned* indexInPage = nullptr) const;

    // Returns the value of the element at position i. Raises KvErrorStatus 24 if there is no such element.
    // Same cost as elementAt().
    T& at(int i) const;

    // Returns an iterator on the element at position i. A negative i gives the end. An i beyond the last
    // element gives an iterator without page and slot, which differs from end() if the store has pages. Same
    // cost as elementAt().
    iterator iteratorAt(int i) const;

    // Returns the end: an iterator one past the last slot of the last page. O(1).
    iterator end() const;

    // Returns whether the iterator has the store, page, slot and position of end(). Does not read the
    // iterator's slot, and reads the iterator's page only if that is the tail page. O(1).
    bool isEnd(const iterator& it) const {
        // Compares the slot first: for an iterator on an element, that comparison already decides.
        return it.slot == blockEnd(tail) && it.trucker == this && it.page == tail &&
               it.position == (tail ? tail->liveCount : 0);
    }

    // Frees the iterator's slot. Does nothing for the end, for a free slot, for an iterator whose page was
    // freed, and for an iterator of another store. If the page has another occupied slot, the iterator stays
    // on the freed slot. Otherwise the page is freed, and the iterator moves to the previous element, or to
    // before the first element. O(1), or O(pages) if a page is freed, or was freed since the iterator was
    // last used.
    void removeAt(iterator& it);

    // Returns the position of the element whose slot has this address. Returns kNoPosition for null, for a
    // free slot, and for an address that is no slot of this store. O(pages + slots of one page).
    std::uint32_t positionOf(const void* slot) const;

    // Frees a slot of the page. If the page has no other occupied slot, `freeEmptyPage` decides what happens
    // to the page. If it is true, the page is freed. Otherwise the page is kept, and if it is the tail page,
    // its slots are used again. Does nothing if `page` is null. O(1), or O(pages) when a page is freed.
    void removeSlot(Slot* slot, Page* page, bool freeEmptyPage);

    // Frees all pages. The store is empty afterwards. O(pages).
    void freeAllPages();

    // Returns the sum of `liveCount` of all pages. O(log pages) with an up-to-date page index, otherwise
    // O(pages).
    std::uint32_t occupiedSlots() const noexcept;

    // Returns the number of slots that have been used: those before `fillEnd`, in all pages. O(pages).
    std::size_t usedSlots() const noexcept {
        std::size_t used = 0;
        for (const Page* page = head; page; page = page->next)
            used += static_cast<std::size_t>(page->fillEnd - page->slots);
        return used;
    }

    // Rebuilds the page index and drops the bitmaps. Call this after changing pages, slots or their chain.
    // O(pages).
    void forgetHints() noexcept;

    // Returns the address one past the page's last slot. Returns null for a null page, and for a page without
    // slots.
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

    // Returns the page that has a used slot at this address. Returns null if there is no such page. O(1), or
    // O(pages) if the page index does not find the page.
    Page* pageOf(const void* slot) const noexcept {
        Page* const indexed = isIndexed() ? mIndex.find(slot) : nullptr;
        if (indexed && isWithin(slot, indexed->slots, indexed->fillEnd))
            return indexed;
        Page* page = head;
        while (page && !isWithin(slot, page->slots, page->fillEnd))
            page = page->next;
        return page;
    }

    // Returns the page before `page`. Returns null for the head, and for a page that is not in the chain.
    // O(pages).
    Page* pageBefore(const Page* page) const noexcept {
        if (page == head)
            return nullptr;
        for (Page* p = head; p; p = p->next) {
            if (p->next == page)
                return p;
        }
        return nullptr;
    }

    // Returns the first occupied slot of the page at `from` or after it, or null. O(1) if the slot at `from`
    // is occupied. Otherwise O(slots skipped / 64) with a bitmap, and O(slots skipped) without.
    static Slot* firstOccupiedOf(const Page* page, Slot* from) noexcept;

    // Returns the last occupied slot of the page before slot number `below`, or null. Slot numbers begin at
    // 0. O(1) if the page has no holes.
    static Slot* lastOccupiedBefore(const Page* page, std::ptrdiff_t below) noexcept;

    // Returns the number of occupied slots of the page before `slot`. O(1) if the page has no holes.
    static std::uint32_t occupiedBefore(const Page* page, const Slot* slot) noexcept;

    Page* head = nullptr; // the first page
    Page* tail = nullptr; // the last page

private:
    // Returns whether every used slot is occupied. Then the n-th occupied slot is slot number n. Always
    // returns false if kHasOccupancyBitmap is false.
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

    // Adds `change` to the page's `liveCount`, and updates the page index. `change` is 1 or -1.
    void changeCount(Page* page, int change) noexcept {
        page->liveCount += static_cast<std::uint32_t>(change);
        if (mIndex.isInUse())
            mIndex.noteCount(page, change);
    }
    void vacate(Page* page, Slot* slot) noexcept;
    static void startBits(Page* page) noexcept;

    // Returns whether the page index can be used. It must have the same first and last page as the chain, and
    // none of its pages may have been freed.
    bool isIndexed() const noexcept {
        return mIndex.isInUse() && mIndex.pages().front() == head && mIndex.pages().back() == tail &&
               mIndex.verify(head, mEpoch.current());
    }

    // Returns whether positions are taken from the page index. A chain of at most kCheckedLinks pages is
    // walked instead: checking the index would visit as many pages.
    bool isCounted() const noexcept { return mIndex.pages().size() > mIndex.kCheckedLinks && isIndexed(); }

    // The place of an element: its page, and its number among the elements of that page. `page` is null if
    // there is no such element.
    struct InPage {
        Page* page;
        std::uint32_t number;
    };
    InPage inPage(std::uint32_t i) const noexcept;
    // Not inlined: otherwise inPage() would save registers even if the page index is not in use.
    [[gnu::noinline]] InPage inIndexedPage(std::uint32_t i) const noexcept;
    std::uint32_t liveBefore(const Page* page) const noexcept;

    // Returns whether the address is that of a slot in [first, last). Compares addresses as integers, since
    // C++ does not order pointers to different objects.
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
    // Bitmaps are made only if this is true. In a store with one page, reading the slots is fast enough.
    bool mHasHadSeveralPages = false;
};

namespace kvdetail {

// Moves an iterator of `store` to the previous element, which may be on another page, or to before the first
// element. Does not move an iterator that is before the first element, or that has no page or no slot. An
// iterator of another store, or whose page was freed, moves to before the first element. O(slots skipped),
// plus O(pages) for each change of page.
template <class Store>
void stepBack(const Store* store, typename Store::iterator& it) {
    using Slot = typename Store::Slot;
    if (it.position == Store::kNoPosition || !it.page || !it.slot)
        return;

    bool onPage = it.trucker == store && it.isOnPage();
    while (onPage) {
        // The number of a slot, not its address: an address before the first slot must not be formed.
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
        // If the first slot is occupied, the iterator stops there, and `position` stays 0. iteratorAt(0)
        // gives an iterator on the same slot with a `position` of 1.
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

// Moves to the first element of the pages behind this page. If there is none, moves to one past the last slot
// of the last page.
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
    // An epoch of another group is that of an earlier store at the same address.
    if (!StoreEpoch::isSameGroup(epoch, now) || !trucker->contains(page))
        return false;
    // The page that was found may be a younger page at the address of the iterator's page.
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
        // The page has fewer occupied slots than its `liveCount` says. Only a caller that changed the page's
        // fields can cause this.
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
    if (!slot)
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

// Makes all slots free. In a small set, this takes longer than all work on the items. So a few cleared slots
// are copied over the other slots, which takes half as long as clearing slot by slot.
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
    // A caller may have moved a page of another store into this store. Iterators of any store may be on such
    // a page.
    if (isOwn)
        mEpoch.raise();
    else
        kvdetail::StoreEpoch::raiseAll();
}

// Takes the page out of the chain and frees the page. Does nothing if a caller has already taken the page
// out.
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
