// HashTable: maps addresses and hash values to values.
#pragma once

#include "base/detail/FibonacciHash.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace kvdetail {

// A hash table with open addressing, linear probing, backward-shift deletion, and a load factor of at most
// three fifths. Keys are unsigned numbers other than 0.
//
// Invariants:
//  1. The number of buckets is a power of two. At least one bucket is empty.
//  2. The mShift lowest bits of all keys are mLowBits. For example, the addresses of all stubs have common
//     low bits. The choice of a bucket leaves out the common bits.
//
// Thread safety: only one thread may change the table. Any number of threads may find keys at once.
template <class Key, class Value>
class HashTable {
public:
    // Makes room for this number of keys. Throws std::bad_alloc if there is no memory.
    explicit HashTable(std::size_t keys = 0) : mBuckets(bucketsFor(keys)) {}

    std::size_t size() const noexcept { return mUsed; }

    // Return the key's value, or null if the table does not have the key. O(1).
    const Value* find(Key key) const noexcept {
        const Bucket& bucket = mBuckets[bucketOf(key)];
        return bucket.key != 0 ? &bucket.value : nullptr;
    }
    Value* find(Key key) noexcept {
        Bucket& bucket = mBuckets[bucketOf(key)];
        return bucket.key != 0 ? &bucket.value : nullptr;
    }

    // Loads the key's bucket into the caches, for a find() that follows soon.
    void prefetch(Key key) const noexcept { __builtin_prefetch(&mBuckets[homeOf(key)]); }

    // Adds the key with this value, unless the table has the key. Returns the value that the table now has
    // for the key, and whether the key was added. If there is no memory, adds nothing and throws
    // std::bad_alloc. Amortised O(1).
    std::pair<Value*, bool> insert(Key key, const Value& value) {
        Bucket& held = mBuckets[bucketOf(key)];
        if (held.key != 0)
            return {&held.value, false};
        if (hasRoom() && mUsed != 0 && lowBits(key) == mLowBits) {
            held = {key, value};
            ++mUsed;
            return {&held.value, true};
        }
        makeRoomFor(key);
        return {&enter(key, value), true};
    }

    // Returns whether the table has more than 4096 buckets, and more than eight buckets per key.
    bool isSparse() const noexcept {
        constexpr std::size_t kLargeTable = 4096;
        return mBuckets.size() > kLargeTable && mUsed * std::size_t{8} < mBuckets.size();
    }

    // Removes a key. The table must have the key. O(1).
    void erase(Key key) noexcept { removeBucket(bucketOf(key)); }

private:
    struct Bucket {
        Key key = 0; // 0: an empty bucket
        Value value{};
    };

    static constexpr std::size_t kFewestBuckets = 16;

    void makeRoomFor(Key key) {
        if (mUsed == 0) {
            mShift = std::numeric_limits<Key>::digits - 1;
            mLowBits = lowBits(key);
        }
        // The key may differ from the other keys in bits that homeOf() leaves out. Keys that differ only in
        // such bits would share one bucket. Then a rehash makes homeOf() use these bits. There is at most one
        // such rehash per bit.
        if (const Key differences = lowBits(key) ^ mLowBits)
            rehash(mBuckets.size(), static_cast<unsigned>(__builtin_ctzll(differences)));
        if (!hasRoom())
            rehash(2 * mBuckets.size(), mShift);
    }

    static std::size_t bucketsFor(std::size_t keys) noexcept {
        std::size_t buckets = kFewestBuckets;
        while (buckets * 3 < (keys + 1) * 5)
            buckets *= 2;
        return buckets;
    }

    bool hasRoom() const noexcept { return (mUsed + 1) * 5 <= mBuckets.size() * 3; }
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (mBuckets.size() - 1); }
    Key lowBits(Key key) const noexcept { return key & ((Key{1} << mShift) - 1); }

    // Returns the bucket at which the search for a key begins. Four consecutive numbers share a group of
    // neighbouring buckets, so that looking up addresses in ascending order reads neighbouring buckets.
    // Fibonacci hashing scatters the groups.
    std::size_t homeOf(Key key) const noexcept {
        constexpr unsigned kGroup = 4;
        const std::uintptr_t number = key >> mShift;
        const std::uintptr_t group = fibonacciHash(number / kGroup) >> 20;
        return (group * kGroup + number % kGroup) & (mBuckets.size() - 1);
    }

    // Returns the bucket of the key, or the empty bucket at which the search for the key ends.
    std::size_t bucketOf(Key key) const noexcept {
        std::size_t i = homeOf(key);
        while (mBuckets[i].key != 0 && mBuckets[i].key != key)
            i = next(i);
        return i;
    }

    Value& enter(Key key, const Value& value) noexcept {
        Bucket& bucket = mBuckets[bucketOf(key)];
        bucket = {key, value};
        ++mUsed;
        return bucket.value;
    }

    // Empties the bucket `gap`, and fills the gap with the next key whose home is not behind the gap. The
    // bucket that this key had is the next gap. Repeats this up to the next empty bucket. So no search ends
    // at a gap too early.
    void removeBucket(std::size_t gap) noexcept {
        const std::size_t mask = mBuckets.size() - 1;
        for (std::size_t i = next(gap); mBuckets[i].key != 0; i = next(i)) {
            const std::size_t home = homeOf(mBuckets[i].key);
            if (((i - home) & mask) < ((i - gap) & mask))
                continue;
            mBuckets[gap] = mBuckets[i];
            gap = i;
        }
        mBuckets[gap].key = 0;
        --mUsed;
    }

    void rehash(std::size_t buckets, unsigned shift) {
        std::vector<Bucket> old(buckets);
        old.swap(mBuckets);
        mShift = shift;
        mLowBits = lowBits(mLowBits);
        mUsed = 0;
        for (const Bucket& bucket : old) {
            if (bucket.key != 0)
                enter(bucket.key, bucket.value);
        }
    }

    std::vector<Bucket> mBuckets;
    Key mLowBits = 0;
    std::uint32_t mUsed = 0;
    unsigned mShift = 0;
};

} // namespace kvdetail
