// HashTable: maps addresses and hash values to values.
#pragma once

#include "base/detail/FibonacciHash.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace kvdetail {

// A hash table by extendible hashing: a directory of pages, indexed by bits of the hash. A page has up to
// 1024 buckets. In a page, the table uses open addressing, linear probing, backward-shift deletion, and a
// load factor of at most three fifths. A full page is split in two, so that no insert() moves more than 614
// keys. A flat table of a million keys would move all of them at once, which takes 25 ms. Keys are unsigned
// numbers other than 0.
//
// Invariants:
//  1. The directory has 2^n entries. The n lowest bits of pageBits() of a key's hash are the number of the
//     entry that leads to the key's page.
//  2. The hashes of all keys in a page of depth d agree in the d lowest bits of pageBits(). Every 2^d-th
//     directory entry leads to the page.
//  3. All pages have the same number of buckets, a power of two. It is 1024 if there are several pages.
//  4. Each page has at least one empty bucket.
//  5. The mShift lowest bits of all keys are mLowBits. For example, the addresses of all stubs have common
//     low bits. The hash leaves out the common bits.
//
// Thread safety: only one thread may change the table. Any number of threads may find keys at once.
template <class Key, class Value>
class HashTable {
public:
    // Throws std::bad_alloc if there is no memory.
    HashTable() : mDirectory(2), mPages(1) {
        std::fill(mDirectory.begin(), mDirectory.end(), newPage(kFewestBuckets, 0).release());
    }
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;
    ~HashTable() {
        for (std::size_t i = mDirectory.size(); i-- != 0;) {
            if (isFirstEntry(i))
                ::operator delete(mDirectory[i]);
        }
    }

    std::size_t size() const noexcept { return mUsed; }

    // Return the key's value, or null if the table does not have the key. O(1).
    const Value* find(Key key) const noexcept {
        const Bucket* const bucket = bucketOf(key);
        return bucket->key != 0 ? &bucket->value : nullptr;
    }
    Value* find(Key key) noexcept {
        Bucket* const bucket = bucketOf(key);
        return bucket->key != 0 ? &bucket->value : nullptr;
    }

    // Loads the key's bucket into the caches, for a find() that follows soon.
    void prefetch(Key key) const noexcept {
        const Hash hash = hashOf(key);
        __builtin_prefetch(pageOf(hash)->buckets() + homeOf(key, hash));
    }

    // Adds the key with this value, unless the table has the key. Returns the value that the table now has
    // for the key, and whether the key was added. Throws std::bad_alloc if there is no memory, or if so many
    // keys have similar hashes that the directory would be much larger than the pages. Then adds nothing.
    // Amortised O(1). Doubling the directory copies a pointer for every 80 keys or so. O(n) for a key that
    // differs from all other keys in a lower bit than these do from each other.
    std::pair<Value*, bool> insert(Key key, const Value& value) {
        Bucket& held = *bucketOf(key);
        if (held.key != 0)
            return {&held.value, false};
        adaptTo(key);
        return {&add(key, value), true};
    }

    // Returns whether the table has more than four pages, and more than eight buckets per key.
    bool isSparse() const noexcept {
        constexpr std::size_t kManyPages = 4;
        return mPages > kManyPages && mUsed * 8 < mPages * kMostBuckets;
    }

    // Removes a key. The table must have the key. O(1).
    void erase(Key key) noexcept {
        Page& page = *pageOf(hashOf(key));
        emptyBucket(page.buckets(), static_cast<std::size_t>(bucketOf(key) - page.buckets()));
        --page.used;
        --mUsed;
    }

private:
    using Hash = std::uintptr_t;
    static constexpr std::size_t kFewestBuckets = 16; // of the only page
    static constexpr std::size_t kMostBuckets = 1024; // of a page

    struct Bucket {
        Key key = 0; // 0: an empty bucket
        Value value{};
    };
    static_assert(std::is_trivially_copyable_v<Bucket> && std::is_trivially_destructible_v<Bucket>);

    // The buckets follow the page in memory.
    struct alignas(std::uint64_t) Page {
        std::uint32_t depth;
        std::uint32_t used;
        Bucket* buckets() noexcept { return reinterpret_cast<Bucket*>(this + 1); }
    };
    static_assert(alignof(Bucket) <= alignof(Page));

    struct PageFreer {
        void operator()(Page* page) const noexcept { ::operator delete(page); }
    };
    using OwnedPage = std::unique_ptr<Page, PageFreer>;

    static OwnedPage newPage(std::size_t buckets, std::uint32_t depth) {
        void* const memory = ::operator new(sizeof(Page) + buckets * sizeof(Bucket));
        OwnedPage page(new (memory) Page{depth, 0});
        std::uninitialized_fill_n(page->buckets(), buckets, Bucket{});
        return page;
    }

    // A group of 64 consecutive numbers has one hash, which chooses the page and the bucket of the group's
    // first number. The other numbers follow in steps that spread the group over the page. So looking up
    // addresses in ascending order stays in one page 64 times, and two groups that begin at the same bucket
    // interleave instead of forming one long cluster. Fibonacci hashing scatters the groups.
    static constexpr unsigned kGroup = 64;
    Key numberOf(Key key) const noexcept { return key >> mShift; }
    Hash hashOf(Key key) const noexcept { return fibonacciHash(numberOf(key) / kGroup); }
    Key lowBits(Key key) const noexcept { return key & ((Key{1} << mShift) - 1); }

    // The bits of a hash that choose the page. homeOf() uses the ten highest bits, which no directory
    // reaches.
    static Hash pageBits(Hash hash) noexcept { return hash >> 26; }
    Page* pageOf(Hash hash) const noexcept { return mDirectory[pageBits(hash) & (mDirectory.size() - 1)]; }
    std::size_t mostKeys() const noexcept { return (mMask + 1) * 3 / 5; }
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & mMask; }

    // Returns the number of buckets from one number of a group to the next.
    static std::size_t stepOf(std::size_t buckets) noexcept {
        return std::max<std::size_t>(buckets / kGroup, 1);
    }

    // Returns the bucket at which the search for a key begins.
    std::size_t homeOf(Key key, Hash hash) const noexcept {
        return ((hash >> 54) + numberOf(key) % kGroup * mStep) & mMask;
    }

    // Returns the bucket of the key, or the empty bucket at which the search for the key ends.
    Bucket* bucketOf(Key key) const noexcept {
        const Hash hash = hashOf(key);
        return bucketIn(*pageOf(hash), key, hash);
    }
    Bucket* bucketIn(Page& page, Key key, Hash hash) const noexcept {
        Bucket* const buckets = page.buckets();
        std::size_t i = homeOf(key, hash);
        while (buckets[i].key != 0 && buckets[i].key != key)
            i = next(i);
        return buckets + i;
    }

    // Copies a bucket into a page, which must have room.
    void copyTo(Page& page, const Bucket& bucket) noexcept {
        *bucketIn(page, bucket.key, hashOf(bucket.key)) = bucket;
        ++page.used;
    }

    // Empties the bucket `gap`, and fills the gap with the next key whose home is not behind the gap. The
    // bucket that this key had is the next gap. Repeats this up to the next empty bucket. So no search ends
    // at a gap too early.
    void emptyBucket(Bucket* buckets, std::size_t gap) noexcept {
        for (std::size_t i = next(gap); buckets[i].key != 0; i = next(i)) {
            const std::size_t home = homeOf(buckets[i].key, hashOf(buckets[i].key));
            if (((i - home) & mMask) < ((i - gap) & mMask))
                continue;
            buckets[gap] = buckets[i];
            gap = i;
        }
        buckets[gap].key = 0;
    }

    // Makes the hash use all bits in which `key` differs from the other keys. Keys that differ only in bits
    // that the hash leaves out would share one bucket.
    void adaptTo(Key key) {
        if (mUsed == 0) {
            mShift = std::numeric_limits<Key>::digits - 1;
            mLowBits = lowBits(key);
        }
        if (const Key differences = lowBits(key) ^ mLowBits)
            rehash(static_cast<unsigned>(__builtin_ctzll(differences)));
    }

    // Adds a key that the table does not have.
    Value& add(Key key, const Value& value) {
        while (pageOf(hashOf(key))->used == mostKeys()) {
            if (mMask + 1 < kMostBuckets)
                enlargePage();
            else
                splitPage(hashOf(key));
        }
        Bucket& bucket = *bucketOf(key);
        bucket = {key, value};
        ++pageOf(hashOf(key))->used;
        ++mUsed;
        return bucket.value;
    }

    // Makes the hash leave out `shift` bits, and moves all keys to the buckets of their new hashes. O(n). It
    // is called at most once for each bit of a key.
    void rehash(unsigned shift) {
        HashTable other;
        other.mShift = shift;
        other.mLowBits = other.lowBits(mLowBits);
        for (std::size_t i = 0; i < mDirectory.size(); ++i) {
            if (isFirstEntry(i))
                other.addAll(*mDirectory[i], mMask + 1);
        }
        mDirectory.swap(other.mDirectory);
        mPages = other.mPages;
        mMask = other.mMask;
        mStep = other.mStep;
        mShift = other.mShift;
        mLowBits = other.mLowBits;
    }

    void addAll(Page& page, std::size_t buckets) {
        for (std::size_t i = 0; i < buckets; ++i) {
            const Bucket& bucket = page.buckets()[i];
            if (bucket.key != 0)
                add(bucket.key, bucket.value);
        }
    }

    // Doubles the buckets of the only page.
    void enlargePage() {
        const std::size_t buckets = mMask + 1;
        OwnedPage larger = newPage(2 * buckets, 0);
        const OwnedPage old(mDirectory.front());
        mMask = 2 * buckets - 1;
        mStep = stepOf(mMask + 1);
        for (std::size_t i = 0; i < buckets; ++i) {
            if (old->buckets()[i].key != 0)
                copyTo(*larger, old->buckets()[i]);
        }
        std::fill(mDirectory.begin(), mDirectory.end(), larger.release());
    }

    // Splits the page of a hash in two, by the first bit of the hash that the page's keys do not have in
    // common.
    void splitPage(Hash hash) {
        if (std::size_t{1} << pageOf(hash)->depth == mDirectory.size())
            doubleDirectory();
        const std::uint32_t depth = pageOf(hash)->depth;
        OwnedPage halves[2] = {newPage(kMostBuckets, depth + 1), newPage(kMostBuckets, depth + 1)};
        const OwnedPage page(pageOf(hash));
        for (std::size_t i = 0; i < kMostBuckets; ++i) {
            const Bucket& bucket = page->buckets()[i];
            if (bucket.key != 0)
                copyTo(*halves[pageBits(hashOf(bucket.key)) >> depth & 1], bucket);
        }
        const std::size_t step = std::size_t{1} << depth;
        for (std::size_t i = pageBits(hash) & (step - 1); i < mDirectory.size(); i += step)
            mDirectory[i] = halves[i >> depth & 1].get();
        halves[0].release();
        halves[1].release();
        ++mPages;
    }

    // Returns whether no entry before entry `i` leads to the same page.
    bool isFirstEntry(std::size_t i) const noexcept { return i >> mDirectory[i]->depth == 0; }

    // If the keys are random groups of 64 consecutive numbers, there are about eight entries per page.
    void doubleDirectory() {
        constexpr std::size_t kMostEntriesPerPage = 64;
        if (mDirectory.size() > kMostEntriesPerPage * mPages)
            throw std::bad_alloc();
        std::vector<Page*> doubled;
        doubled.reserve(2 * mDirectory.size());
        doubled.insert(doubled.end(), mDirectory.begin(), mDirectory.end());
        doubled.insert(doubled.end(), mDirectory.begin(), mDirectory.end());
        mDirectory.swap(doubled);
    }

    std::vector<Page*> mDirectory;
    std::size_t mUsed = 0;
    std::size_t mPages;
    std::size_t mMask = kFewestBuckets - 1; // number of buckets of each page, minus 1
    std::size_t mStep = 1;                  // of homeOf()
    Key mLowBits = 0;
    unsigned mShift = 0;
};

} // namespace kvdetail
