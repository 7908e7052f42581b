// PageIndex: finds the pages of a store without walking their chain.
#pragma once

#include "base/detail/FibonacciHash.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

namespace kvdetail {

// Keeps three structures for the pages of one store:
//  - an array of the pages, in the order of the chain;
//  - a Fenwick tree of the numbers of occupied slots of the pages;
//  - a hash table from addresses to pages (open addressing with linear probing).
//
// The hash table divides all memory into regions of PageBytes bytes. The slots of a page (its block) take
// PageBytes bytes, too, but may begin anywhere in a region. So a block touches one or two regions. The hash
// table has one bucket for each of them.
//
// Invariants while isInUse():
//  1. pages() has the pages that the store has linked and not unlinked since, in the order of the chain. The
//     `number` of each page is its index in pages().
//  2. For every region that a page's block touches, the hash table has a bucket with that page.
//  3. If verify() returns true, no page in pages() has been freed.
//  4. For each page, the tree has the `liveCount` that it last read from the page, plus the changes that the
//     store has reported by noteCount() since then.
//
// A caller may have changed the chain by hand. So users must compare the first and the last of pages() with
// the ends of the chain, and call verify(). find() and isCounted() also check that the page before the found
// page still links to the found page. A page that a caller has taken out of the chain may be read until the
// store frees a page or is destroyed.
//
// The index is disabled if it runs out of memory, or if it finds that the chain has other pages than pages().
// It stays disabled until clear() or rebuild() is called.
//
// Thread safety: only the store's writer may change the index. Any number of threads may read it at once.
template <class Page, unsigned PageBytes>
class PageIndex {
public:
    // Fewer pages are not indexed: walking their chain is as fast as using the index.
    static constexpr std::size_t kFewestPages = 4;
    // isCounted() checks at most this many links before a page.
    static constexpr std::size_t kCheckedLinks = 16;

    bool isInUse() const noexcept { return !mPages.empty(); }
    const std::vector<Page*>& pages() const noexcept { return mPages; }

    // Updates the tree when a slot of the page was occupied (`change` is 1) or freed (`change` is -1). Does
    // nothing for a page that is not indexed. O(log pages), or O(1) for the last page.
    void noteCount(const Page* page, int change) noexcept {
        if (page->number >= mPages.size() || mPages[page->number] != page)
            return;
        for (std::size_t node = page->number + 1; node <= mPages.size(); node += lowestBit(node))
            mCounts[node] += static_cast<std::uint32_t>(change);
    }

    // Returns the number of occupied slots in the first `pages` pages. O(log pages).
    std::uint32_t countBefore(std::size_t pages) const noexcept {
        std::uint32_t count = 0;
        for (std::size_t node = pages; node > 0; node -= lowestBit(node))
            count += mCounts[node];
        return count;
    }

    // Returns the page of the i-th occupied slot, and the number of that slot among the occupied slots of the
    // page. The page is null if there are at most i occupied slots, or if isCounted() is false for the page.
    // O(log pages).
    std::pair<Page*, std::uint32_t> pageWith(std::uint32_t i) const noexcept {
        std::size_t number = 0;
        for (std::size_t step = highestBit(mPages.size()); step > 0; step /= 2) {
            if (number + step <= mPages.size() && mCounts[number + step] <= i) {
                number += step;
                i -= mCounts[number];
            }
        }
        Page* const page = number < mPages.size() ? mPages[number] : nullptr;
        return {page && isCounted(page) ? page : nullptr, i};
    }

    // Returns whether the tree can be trusted for this page. Compares the page's `liveCount` with the tree.
    // Also checks the links of up to kCheckedLinks pages before the page: these links show whether a caller
    // has taken the page, or some neighbours, out of the chain. O(log pages).
    //
    // Passes a copy of the constant, not a reference: see NodePool::addChunk().
    bool isCounted(const Page* page) const noexcept {
        const std::size_t number = page->number;
        if (number >= mPages.size() || mPages[number] != page)
            return false;
        bool isLinked = true;
        for (std::size_t i = number - std::min(number, std::size_t{kCheckedLinks}); i < number; ++i)
            isLinked &= mPages[i]->next == mPages[i + 1];
        return isLinked && countBefore(number + 1) - countBefore(number) == page->liveCount;
    }

    // Updates the index for a page that the store has linked behind `tail`. `tail` must be the former last
    // page, or null if the page is the first one. `head` is the first page of the chain. Amortised O(1).
    void append(Page* page, const Page* tail, Page* head) noexcept {
        if (!tail)
            clear();
        ++mLinked;
        if (isInUse() && mPages.back() != tail)
            disable();
        if (isInUse())
            add(page, head);
        else if (!mIsDisabled && mLinked >= kFewestPages)
            rebuild(head);
    }

    // Updates the index for a page that the store has unlinked. `head` is the first page of the remaining
    // chain. O(pages).
    void remove(const Page* page, const Page* head) noexcept {
        --mLinked;
        if (!isInUse())
            return;
        const std::uint32_t number = page->number;
        const bool isIndexed = number < mPages.size() && mPages[number] == page;
        if (isIndexed)
            mPages.erase(mPages.begin() + static_cast<std::ptrdiff_t>(number));
        if (!isIndexed || !isChain(head)) {
            disable();
            return;
        }
        renumber(number);
        refill();
        recount();
    }

    // Builds the index again from the chain, even if the index was disabled. O(pages).
    void rebuild(Page* head) noexcept try {
        clear();
        for (Page* page = head; page; page = page->next)
            mPages.push_back(page);
        mLinked = mPages.size();
        if (mLinked < kFewestPages) {
            mPages.clear();
            return;
        }
        renumber(0);
        recount();
        rehash();
    } catch (const std::bad_alloc&) {
        disable();
    }

    // Empties the index and frees its memory, for a store without pages. Also enables a disabled index.
    void clear() noexcept {
        disable();
        mIsDisabled = false;
        mLinked = 0;
    }

    // Returns whether pages() equals the chain that begins at `head`. Compares the two only if `epoch` has
    // changed since the last call that returned true. O(1) for an unchanged epoch, otherwise O(pages).
    bool verify(const Page* head, std::uint32_t epoch) const noexcept {
        if (mVerified.load(std::memory_order_relaxed) == epoch)
            return true;
        if (!isChain(head))
            return false;
        mVerified.store(epoch, std::memory_order_relaxed);
        return true;
    }

    // Returns the page whose block has this address. Returns null if there is no such page, or if the page
    // before the found page does not link to it. No page links to the first page, so the caller must compare
    // the first of pages() with the head of the chain. O(1).
    Page* find(const void* address) const noexcept {
        if (mBuckets.empty())
            return nullptr;
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        for (std::size_t i = homeOf(at / PageBytes); mBuckets[i].block != 0; i = next(i)) {
            if (at - mBuckets[i].block < PageBytes)
                return linkedPage(mBuckets[i].number);
        }
        return nullptr;
    }

private:
    struct Bucket {
        std::uintptr_t block = 0; // the address of the page's block; 0: an empty bucket
        std::size_t number = 0;   // the number of that page
    };

    // A page needs at most two buckets, and at most half of all buckets are in use.
    static constexpr std::size_t kBucketsPerPage = 4;

    static std::size_t lowestBit(std::size_t number) noexcept { return number & (~number + 1); }
    static std::size_t highestBit(std::size_t number) noexcept {
        return std::size_t{1} << (63 - __builtin_clzll(number));
    }

    // Adds a node for the last page to the tree. Node n has the sum of the counts of the n-th page and of the
    // lowestBit(n) - 1 pages before it.
    void countLast() {
        const std::size_t node = mPages.size();
        mCounts.resize(node + 1);
        std::uint32_t count = mPages.back()->liveCount;
        for (std::size_t part = node - 1; part > node - lowestBit(node); part -= lowestBit(part))
            count += mCounts[part];
        mCounts[node] = count;
    }

    // Computes the whole tree from the counts of the pages. Allocates only if mCounts has no room for all
    // pages.
    void recount() {
        mCounts.assign(mPages.size() + 1, 0);
        for (std::size_t node = 1; node < mCounts.size(); ++node) {
            mCounts[node] += mPages[node - 1]->liveCount;
            if (node + lowestBit(node) < mCounts.size())
                mCounts[node + lowestBit(node)] += mCounts[node];
        }
    }

    Page* linkedPage(std::size_t number) const noexcept {
        Page* const page = mPages[number];
        return number == 0 || mPages[number - 1]->next == page ? page : nullptr;
    }

    // Returns whether pages() equals the chain. Reads only pages of the chain, since those in pages() may
    // have been freed.
    bool isChain(const Page* head) const noexcept {
        std::size_t i = 0;
        for (const Page* page = head; page; page = page->next, ++i) {
            if (i == mPages.size() || mPages[i] != page)
                return false;
        }
        return i == mPages.size();
    }

    void add(Page* page, const Page* head) noexcept try {
        page->number = static_cast<std::uint32_t>(mPages.size());
        mPages.push_back(page);
        countLast();
        if (mBuckets.size() >= kBucketsPerPage * mPages.size())
            enter(page);
        else if (isChain(head))
            rehash();
        else
            disable();
    } catch (const std::bad_alloc&) {
        disable();
    }

    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (mBuckets.size() - 1); }

    std::size_t homeOf(std::uintptr_t region) const noexcept {
        return (fibonacciHash(region) >> 32) & (mBuckets.size() - 1);
    }

    void enterRegion(std::uintptr_t region, std::uintptr_t block, std::size_t number) noexcept {
        std::size_t i = homeOf(region);
        while (mBuckets[i].block != 0)
            i = next(i);
        mBuckets[i] = {block, number};
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
        for (Bucket& bucket : mBuckets)
            bucket = Bucket();
        for (const Page* page : mPages)
            enter(page);
    }

    void rehash() {
        std::size_t size = 8;
        while (size < 2 * kBucketsPerPage * mPages.size())
            size *= 2;
        std::vector<Bucket>(size).swap(mBuckets);
        refill();
    }

    void renumber(std::size_t from) noexcept {
        for (std::size_t i = from; i < mPages.size(); ++i)
            mPages[i]->number = static_cast<std::uint32_t>(i);
    }

    void disable() noexcept {
        std::vector<Page*>().swap(mPages);
        std::vector<std::uint32_t>().swap(mCounts);
        std::vector<Bucket>().swap(mBuckets);
        mIsDisabled = true;
    }

    std::vector<Page*> mPages;
    std::vector<std::uint32_t> mCounts; // the nodes of the tree; node 0 is unused
    std::vector<Bucket> mBuckets;       // their number is a power of two
    std::size_t mLinked = 0;            // number of pages in the chain
    bool mIsDisabled = false;
    // The epoch at which pages() was last found equal to the chain.
    mutable std::atomic<std::uint32_t> mVerified{0};
};

} // namespace kvdetail
