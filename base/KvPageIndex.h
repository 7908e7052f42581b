// KvPageIndex: finds the pages of a store without walking their chain.
#pragma once

#include "base/KvSpread.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

// Pages by number, in the order of the chain, and by address. A page's block need not be aligned: it touches
// two regions of its size at the most, and the index has an entry for each region that it touches.
//
// Invariants while isInUse():
//  1. pages() are the pages that the store has linked and not unlinked, in the order of the chain; each
//     page's `number` is its place there.
//  2. Every region that a page's block touches leads to the page.
//
// A chain of a few pages is walked as fast, so it is not indexed. A caller may have changed the chain behind
// the store: whoever asks compares the ends of pages() with the chain's, and believes in a page of pages()
// once the page before it, or the head, is seen to lead there. A page that a caller takes out of the chain
// may be read here all the same: it has to stay alive until the store next frees a page, or dies. An index
// that finds no memory, or a chain that is not its own, gives up until it is emptied.
//
// Thread safety: changed by the store's writer alone; reading changes nothing.
template <class Page, unsigned PageBytes>
class KvPageIndex {
public:
    bool isInUse() const noexcept { return !mPages.empty(); }
    const std::vector<Page*>& pages() const noexcept { return mPages; }

    // The page was linked behind `tail`, the last of the chain that begins at `head`; null: it is the first.
    // Amortised O(1).
    void append(Page* page, const Page* tail, Page* head) noexcept {
        if (!tail)
            clear();
        ++mLinked;
        if (isInUse() && mPages.back() != tail)
            giveUp();
        if (mGaveUp || (!isInUse() && mLinked < kFewestPages))
            return;
        try {
            const bool isFirst = !isInUse();
            if (isFirst) {
                for (Page* p = head; p; p = p->next)
                    mPages.push_back(p);
                renumber(0);
            } else {
                page->number = static_cast<std::uint32_t>(mPages.size());
                mPages.push_back(page);
            }
            if (!isFirst && mEntries.size() >= kEntriesPerPage * mPages.size())
                enter(page);
            else if (isChain(head))
                rebuild();
            else
                giveUp();
        } catch (const std::bad_alloc&) {
            giveUp();
        }
    }

    // The page was unlinked from the chain that begins at `head` now. O(pages).
    void remove(const Page* page, const Page* head) noexcept {
        --mLinked;
        if (!isInUse())
            return;
        const std::uint32_t number = page->number;
        const bool isIndexed = number < mPages.size() && mPages[number] == page;
        if (isIndexed)
            mPages.erase(mPages.begin() + static_cast<std::ptrdiff_t>(number));
        if (!isIndexed || !isChain(head)) {
            giveUp();
            return;
        }
        renumber(number);
        refill();
    }

    // Every page was freed. The memory goes, too.
    void clear() noexcept {
        giveUp();
        mGaveUp = false;
        mLinked = 0;
    }

    // The page whose block the address may lie in, seen to be linked where it was; else null. O(1).
    Page* find(const void* address) const noexcept {
        if (mEntries.empty())
            return nullptr;
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        for (std::size_t i = placeOf(at / PageBytes); mEntries[i].block != 0; i = next(i)) {
            if (at - mEntries[i].block < PageBytes)
                return linkedPage(mEntries[i].number);
        }
        return nullptr;
    }

private:
    struct Entry {
        std::uintptr_t block = 0; // where it begins; 0: a free entry
        std::size_t number = 0;   // the page's
    };

    // The first page is for the caller to compare with the head.
    Page* linkedPage(std::size_t number) const noexcept {
        Page* const page = mPages[number];
        return number == 0 || mPages[number - 1]->next == page ? page : nullptr;
    }

    // The pages are the chain's. Reads no page that the chain does not lead to.
    bool isChain(const Page* head) const noexcept {
        std::size_t i = 0;
        for (const Page* page = head; page; page = page->next, ++i) {
            if (i == mPages.size() || mPages[i] != page)
                return false;
        }
        return i == mPages.size();
    }

    static constexpr std::size_t kFewestPages = 4;

    // Two regions a page, in a table that is at most half full.
    static constexpr std::size_t kEntriesPerPage = 4;

    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (mEntries.size() - 1); }

    std::size_t placeOf(std::uintptr_t region) const noexcept {
        return (kvdetail::spread(region) >> 32) & (mEntries.size() - 1);
    }

    void enterRegion(std::uintptr_t region, std::uintptr_t block, std::size_t number) noexcept {
        std::size_t i = placeOf(region);
        while (mEntries[i].block != 0)
            i = next(i);
        mEntries[i] = {block, number};
    }

    void enter(const Page* page) noexcept {
        const auto block = reinterpret_cast<std::uintptr_t>(page->slots);
        const std::uintptr_t firstRegion = block / PageBytes;
        const std::uintptr_t lastRegion = (block + PageBytes - 1) / PageBytes;
        enterRegion(firstRegion, block, page->number);
        if (lastRegion != firstRegion)
            enterRegion(lastRegion, block, page->number);
    }

    void refill() noexcept {
        for (Entry& entry : mEntries)
            entry = Entry();
        for (const Page* page : mPages)
            enter(page);
    }

    void rebuild() {
        std::size_t size = 8;
        while (size < 2 * kEntriesPerPage * mPages.size())
            size *= 2;
        std::vector<Entry>(size).swap(mEntries);
        refill();
    }

    void renumber(std::size_t from) noexcept {
        for (std::size_t i = from; i < mPages.size(); ++i)
            mPages[i]->number = static_cast<std::uint32_t>(i);
    }

    void giveUp() noexcept {
        std::vector<Page*>().swap(mPages);
        std::vector<Entry>().swap(mEntries);
        mGaveUp = true;
    }

    std::vector<Page*> mPages;
    std::vector<Entry> mEntries; // a power of two
    std::size_t mLinked = 0;     // pages of the chain
    bool mGaveUp = false;
};
