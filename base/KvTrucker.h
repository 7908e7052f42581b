// KvTrucker: a paged store whose slots never move, so that a slot's address can serve as a stable key.
#pragma once

#include "base/KvBaseExport.h"
#include "base/KvRaise.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

namespace kvdetail {

// Raised whenever a page or a store is freed, anywhere in the process. A store iterator that carries the
// current value stands on a page that is still there; one that carries an older value has to look before it
// reads. Relaxed: a thread only needs to see the frees of its own stores, and those it has made or
// synchronised with.
KV_BASE_API extern std::atomic<std::uint32_t> gStoreEpoch;

constexpr const wchar_t* kStoreAccessMessage = L"Error access KvTrucker";

} // namespace kvdetail

// Where a store takes its pages and slot blocks from. Null means that there is no memory.
template <class T>
class KvTkDefaultAllocator {
public:
    static void* allocate(std::size_t bytes) noexcept { return ::operator new(bytes, std::nothrow); }
    static void deallocate(void* memory, std::size_t /*bytes*/) noexcept { ::operator delete(memory); }
};

// A store of T in pages of PageBytes bytes of slots. Appending fills slots in order and never reuses a freed
// one; removing frees a slot in place.
//
// Invariants:
//  1. `head` and `tail` are both null or the ends of one chain linked by `next`.
//  2. A page's slots before `fillEnd` have been used, those from there on are free.
//  3. `liveCount` is the number of occupied slots of the page.
//  4. A page that a removal empties is unlinked and freed, unless removeSlot() was told to keep it.
//
// The fields are public and callers may change them; every operation stays within the pages' blocks whatever
// the counts say. Positions are 0-based counts of occupied slots in store order.
//
// Thread safety: none; a store belongs to one thread at a time.
template <class T, unsigned PageBytes, class Allocator = KvTkDefaultAllocator<T>>
class KvTrucker {
public:
    struct Slot {
        T value;
        unsigned char free; // 1 empty, 0 occupied
    };
    struct Page {
        Page* next;
        std::uint32_t liveCount; // occupied slots
        Slot* slots;             // the block of kSlotsPerPage slots
        Slot* fillEnd;           // the first slot that was never used
    };

    static constexpr std::uint32_t kSlotsPerPage = PageBytes / sizeof(Slot);
    static_assert(kSlotsPerPage > 0 && PageBytes % sizeof(Slot) == 0, "a page holds a whole number of slots");
    static_assert(std::is_nothrow_default_constructible_v<T> && std::is_nothrow_copy_assignable_v<T>,
                  "filling a page and storing a value cannot throw");

    // The state before the first element, and the answer of positionOf() where there is none.
    static constexpr std::uint32_t kNoPosition = 0xFFFFFFFFu;

    // A cursor. It is not adjusted when slots are removed, but it never reads a page that was freed: before
    // it dereferences one whose freeing it may have missed, it looks for the page in its store's chain. Used
    // after its store was destroyed, it is the caller's error.
    struct iterator {
        const KvTrucker* trucker;
        Page* page;
        Slot* pageEnd; // one past the page's block
        Slot* slot;
        std::uint32_t position; // 1-based among the occupied slots of the page; kNoPosition: before the first
        mutable std::uint32_t epoch; // the epoch at which the page was last known to be there

        // The value of an occupied slot; KvExceptionWithMsg "Error access KvTrucker" for anything else. O(1),
        // or O(pages) after a page was freed somewhere.
        T& operator*() const;

        // To the next occupied slot, across pages, or to the end. From before the first element it goes to
        // the first slot, with position 0 where that slot is occupied. An iterator without page or slot does
        // not move; one whose page is gone goes to the end. O(slots skipped).
        void next();

        // The page is in the store's chain and the slot in its block, or one past it.
        bool isOnPage() const noexcept;
    };

    KvTrucker() = default;
    KvTrucker(const KvTrucker&) = delete;
    KvTrucker& operator=(const KvTrucker&) = delete;

    // Frees the pages; what the slots point at is not touched.
    ~KvTrucker() {
        freeAllPages();
        raiseEpoch();
    }

    // Occupies the next slot. KvErrorStatus 6 when no page can be obtained. O(1); a page per kSlotsPerPage
    // calls.
    Slot* append();
    Slot* append(const T& value);

    // The i-th occupied slot, with its page and its ordinal within the page; null beyond the last, and then
    // the page is null and the ordinal kNoPosition (or, in a page whose count promises too much, what was
    // left of i when the page was reached). KvErrorStatus 24 for a negative i. O(pages + slots of one page).
    Slot* elementAt(int i, Page** page = nullptr, unsigned* indexInPage = nullptr) const;

    // The i-th value; KvErrorStatus 24 when there is none. Cost of elementAt().
    T& at(int i) const;

    // An iterator on the i-th element; a negative i gives the end, an i beyond the last an iterator without
    // page and slot, which is not the end where the store has pages. Cost of elementAt().
    iterator iteratorAt(int i) const;

    // One past the last page's block. O(1).
    iterator end() const;

    // Compares store, page, slot and position with the end. Reads nothing through the iterator. O(1).
    bool isEnd(const iterator& it) const;

    // Frees the iterator's slot; nothing for the end, a free slot, an iterator whose page is gone or one of
    // another store. The iterator stays on the freed slot, unless its page became empty: then it moves back
    // to the element before it, or to before the first, and the page is freed. O(1), or O(pages) when a page
    // is freed or was freed somewhere.
    void removeAt(iterator& it);

    // The position of the element in the slot at this address; kNoPosition for an address that is null, not
    // that of a used slot of this store, or of a free one. O(pages + slots of one page).
    std::uint32_t positionOf(const void* slot) const;

    // Frees a slot of the page. An emptied page is freed when that is asked; otherwise the tail page starts
    // again at its first slot and any other page stays as it is. O(1), or O(pages) when a page is freed.
    void removeSlot(Slot* slot, Page* page, bool freeEmptyPage);

    // Back to a store without pages. O(pages).
    void freeAllPages();

    // One past the page's block; null for no page or a page without a block.
    static Slot* blockEnd(const Page* page) noexcept {
        return page && page->slots ? page->slots + kSlotsPerPage : nullptr;
    }

    // The first occupied slot in [from, last), or null.
    static Slot* firstOccupied(Slot* from, const Slot* last) noexcept {
        for (; from < last; ++from) {
            if (!from->free)
                return from;
        }
        return nullptr;
    }

    // The page whose used slots this address is one of, or null. O(pages).
    Page* pageOf(const void* slot) const noexcept {
        Page* page = head;
        while (page && !isWithin(slot, page->slots, page->fillEnd))
            page = page->next;
        return page;
    }

    // The page before `page`, or null for the head and for a page that is not in the chain. O(pages).
    Page* pageBefore(const Page* page) const noexcept {
        for (Page* p = head; p; p = p->next) {
            if (p->next == page)
                return p;
        }
        return nullptr;
    }

    Page* head = nullptr;
    Page* tail = nullptr;

private:
    static std::uint32_t currentEpoch() noexcept {
        return kvdetail::gStoreEpoch.load(std::memory_order_relaxed);
    }
    static void raiseEpoch() noexcept { kvdetail::gStoreEpoch.fetch_add(1, std::memory_order_relaxed); }

    // Addresses are compared as integers: they may come from anywhere.
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
    static Page* makePage();
    static void freePage(Page* page) noexcept;
    void unlink(Page* page) noexcept;
    bool contains(const Page* page) const noexcept;
};

namespace kvdetail {

// Moves an iterator back to the occupied slot before it in `store`, across pages, or to before the first
// element. One that is there already, or has no page or no slot, does not move; one that stands in another
// store, or whose page is gone, goes to before the first. O(slots skipped), O(pages) to change page.
template <class Store>
void stepBack(const Store* store, typename Store::iterator& it) {
    using Slot = typename Store::Slot;
    if (it.position == Store::kNoPosition || !it.page || !it.slot)
        return;

    bool onPage = it.trucker == store && it.isOnPage();
    while (onPage) {
        // Counted in slots from the block's start, so that no address below the block is ever formed.
        const std::ptrdiff_t below = it.position == 0 ? 0 : it.slot - it.page->slots;
        for (std::ptrdiff_t i = below - 1; i >= 0; --i) {
            Slot* const candidate = it.page->slots + i;
            if (!candidate->free) {
                it.slot = candidate;
                --it.position;
                return;
            }
        }
        it.page = store->pageBefore(it.page);
        onPage = it.page != nullptr;
        if (onPage) {
            it.slot = it.page->fillEnd;
            it.position = it.page->liveCount;
            it.pageEnd = Store::blockEnd(it.page);
        }
    }
    it.page = nullptr;
    it.slot = nullptr;
    it.pageEnd = nullptr;
    it.position = Store::kNoPosition;
}

// Whether visit(slot) is true for an occupied slot, asked in store order up to the first. The visitor may
// free the slot that it is given, but no page. O(slots).
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

// Calls visit(slot) for every occupied slot, in store order, under the same rule.
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
void KvTrucker<T, PageBytes, Allocator>::iterator::next() {
    Slot* from = nullptr;
    if (position == kNoPosition) {
        if (!trucker || !trucker->head)
            return;
        page = trucker->head;
        pageEnd = blockEnd(page);
        slot = page->slots;
        position = 0;
        epoch = currentEpoch();
        // The first element reached this way has position 0, one less than iteratorAt() gives it.
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
        if (Slot* const found = firstOccupied(from, blockEnd(page))) {
            slot = found;
            ++position;
            return;
        }
    }
    // Pages without an occupied slot are passed through, so that the walk ends on the tail even where that is
    // one.
    while (page->next) {
        page = page->next;
        pageEnd = blockEnd(page);
        if (page->liveCount == 0)
            continue;
        if (Slot* const found = firstOccupied(page->slots, pageEnd)) {
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
bool KvTrucker<T, PageBytes, Allocator>::iterator::isOnPage() const noexcept {
    const std::uint32_t now = currentEpoch();
    if (epoch == now)
        return true;
    if (!trucker || !trucker->contains(page))
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
    ++page->liveCount;
    ++page->fillEnd;
    return slot;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::append(const T& value) -> Slot* {
    Slot* const slot = append();
    slot->value = value;
    return slot;
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::elementAt(int i, Page** page, unsigned* indexInPage) const -> Slot* {
    if (page)
        *page = nullptr;
    if (indexInPage)
        *indexInPage = kNoPosition;
    if (i < 0)
        kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);

    auto remaining = static_cast<std::uint32_t>(i);
    Page* p = head;
    for (; p && remaining >= p->liveCount; p = p->next)
        remaining -= p->liveCount;
    if (!p)
        return nullptr;

    if (indexInPage)
        *indexInPage = remaining;
    Slot* found = firstOccupied(p->slots, p->fillEnd);
    for (; found && remaining > 0; --remaining)
        found = firstOccupied(found + 1, p->fillEnd);
    if (!found) {
        // The page's count promises more than its slots hold; only a caller that changed its fields gets
        // here.
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
    return {this, page, blockEnd(page), slot, index + 1, currentEpoch()};
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::end() const -> iterator {
    Slot* const last = blockEnd(tail);
    return {this, tail, last, last, tail ? tail->liveCount : 0, currentEpoch()};
}

template <class T, unsigned PageBytes, class Allocator>
bool KvTrucker<T, PageBytes, Allocator>::isEnd(const iterator& it) const {
    return it.trucker == this && it.page == tail && it.slot == blockEnd(tail) &&
           it.position == (tail ? tail->liveCount : 0);
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::removeAt(iterator& it) {
    if (it.trucker != this || isEnd(it) || !it.page || !it.slot || !it.isOnPage() ||
        it.slot == blockEnd(it.page) || it.slot->free)
        return;
    Page* const page = it.page;
    it.slot->free = 1;
    if (page->liveCount > 0)
        --page->liveCount;
    if (page->liveCount > 0)
        return;

    kvdetail::stepBack(this, it);
    if (it.page == page)
        it = {this,    nullptr,     nullptr,
              nullptr, kNoPosition, 0}; // its position, or the page's count, was not true
    unlink(page);
    freePage(page);
    it.epoch = currentEpoch();
}

template <class T, unsigned PageBytes, class Allocator>
std::uint32_t KvTrucker<T, PageBytes, Allocator>::positionOf(const void* slot) const {
    std::uint32_t before = 0;
    for (const Page* page = head; page; page = page->next) {
        if (isWithin(slot, page->slots, page->fillEnd)) {
            const auto* const found = static_cast<const Slot*>(slot);
            return found->free ? kNoPosition : before + countOccupied(page->slots, found);
        }
        before += page->liveCount;
    }
    return kNoPosition;
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::removeSlot(Slot* slot, Page* page, bool freeEmptyPage) {
    if (!page)
        return;
    if (isWithin(slot, page->slots, blockEnd(page)))
        slot->free = 1;
    if (page->liveCount > 0)
        --page->liveCount;
    if (page->liveCount > 0)
        return;

    if (freeEmptyPage) {
        unlink(page);
        freePage(page);
    } else if (page == tail) {
        page->fillEnd = page->slots;
    }
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::freeAllPages() {
    Page* page = head;
    head = nullptr;
    tail = nullptr;
    while (page) {
        Page* const next = page->next;
        freePage(page);
        page = next;
    }
}

template <class T, unsigned PageBytes, class Allocator>
auto KvTrucker<T, PageBytes, Allocator>::pageForAppending() -> Page* {
    if (tail && tail->fillEnd < blockEnd(tail))
        return tail;
    Page* const page = makePage();
    if (tail)
        tail->next = page;
    else
        head = page;
    tail = page;
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
    for (std::uint32_t i = 0; i < kSlotsPerPage; ++i)
        new (slots + i) Slot{T(), 1};
    return new (pageMemory) Page{nullptr, 0, slots, slots};
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::freePage(Page* page) noexcept {
    if (page->slots) {
        std::destroy_n(page->slots, kSlotsPerPage);
        Allocator::deallocate(page->slots, PageBytes);
    }
    Allocator::deallocate(page, sizeof(Page));
    raiseEpoch();
}

template <class T, unsigned PageBytes, class Allocator>
void KvTrucker<T, PageBytes, Allocator>::unlink(Page* page) noexcept {
    Page* const before = pageBefore(page);
    if (before)
        before->next = page->next;
    if (head == page)
        head = page->next;
    if (tail == page)
        tail = before;
}

template <class T, unsigned PageBytes, class Allocator>
bool KvTrucker<T, PageBytes, Allocator>::contains(const Page* page) const noexcept {
    const Page* p = head;
    while (p && p != page)
        p = p->next;
    return p != nullptr;
}
