// OccupancyBitmap: one bit for each slot of a page, which tells whether the slot is occupied.
#pragma once

#include <cstdint>

namespace kvdetail {

// A bitmap of `Count` slots with rank and select, for a page that has holes. The bits are in blocks of 512.
// For each block, the bitmap keeps the number of set bits. So rank() and select() look at the bits of only
// one block.
//
// Invariants while isKept():
//  1. Bit i is set exactly when the store has occupied slot i and has not freed it since.
//  2. mBlocks[b] is the number of bits set in block b, and count() is their sum.
//  3. The words before mFirst are 0.
//
// A caller may have changed a slot directly. So users must compare count() with the page's `liveCount`, and
// check the slot that they find.
//
// Thread safety: only the thread that writes to the store may change the bitmap. Any number of threads may
// read it.
template <unsigned Count>
class OccupancyBitmap {
public:
    bool isKept() const noexcept { return mIsKept; }
    std::uint32_t count() const noexcept { return mCount; }

    // Sets the bits of the first `used` slots, clears the others, and makes isKept() true. O(Count / 64).
    void start(std::uint32_t used) noexcept {
        for (std::uint32_t block = 0; block < kBlocks; ++block)
            mBlocks[block] = static_cast<std::uint16_t>(usedWithin(used, block * kBlockBits, kBlockBits));
        for (std::uint32_t word = 0; word < kWords; ++word) {
            const std::uint32_t here = usedWithin(used, word * kWordBits, kWordBits);
            mWords[word] = here == kWordBits ? ~std::uint64_t{0} : below(here);
        }
        mCount = used;
        mFirst = 0;
        mIsKept = true;
    }

    void drop() noexcept { mIsKept = false; }

    // O(1).
    void set(std::uint32_t i) noexcept {
        if (isSet(i))
            return;
        mWords[i / kWordBits] |= bit(i);
        ++mBlocks[i / kBlockBits];
        ++mCount;
        if (i / kWordBits < mFirst)
            mFirst = i / kWordBits;
    }

    // Amortised O(1) in a store: a store sets bits in ascending order, and frees a page that becomes empty.
    // So mFirst passes each word once. Otherwise O(Count / 64).
    void clear(std::uint32_t i) noexcept {
        if (!isSet(i))
            return;
        mWords[i / kWordBits] &= ~bit(i);
        --mBlocks[i / kBlockBits];
        --mCount;
        while (mFirst < kWords && mWords[mFirst] == 0)
            ++mFirst;
    }

    // Rank: returns the number of set bits before bit i. O(Count / 512).
    std::uint32_t rank(std::uint32_t i) const noexcept {
        std::uint32_t before = 0;
        for (std::uint32_t block = 0; block < i / kBlockBits; ++block)
            before += mBlocks[block];
        for (std::uint32_t word = i / kBlockBits * kWordsPerBlock; word < i / kWordBits; ++word)
            before += countOf(mWords[word]);
        return i % kWordBits == 0 ? before : before + countOf(mWords[i / kWordBits] & below(i % kWordBits));
    }

    // Select: returns the n-th set bit, counted from 0, or Count if fewer bits are set. O(Count / 512), or
    // O(1) for the first.
    std::uint32_t select(std::uint32_t n) const noexcept {
        if (n >= mCount)
            return Count;
        std::uint32_t word = mFirst;
        if (n > 0) {
            std::uint32_t block = 0;
            for (; n >= mBlocks[block]; ++block)
                n -= mBlocks[block];
            word = block * kWordsPerBlock;
        }
        for (; countOf(mWords[word]) <= n; ++word)
            n -= countOf(mWords[word]);
        return word * kWordBits + nthOf(mWords[word], n);
    }

    // Returns the first set bit at i or after it, or Count if there is none. i must be below Count.
    // O(Count / 64).
    std::uint32_t firstFrom(std::uint32_t i) const noexcept {
        std::uint32_t at = i / kWordBits;
        std::uint64_t word = mWords[at] & ~below(i % kWordBits);
        while (word == 0 && ++at < kWords)
            word = mWords[at];
        return word == 0 ? Count : at * kWordBits + trailingZeros(word);
    }

    // Returns the last set bit before bit i, or Count if there is none. O(Count / 64).
    std::uint32_t lastBefore(std::uint32_t i) const noexcept {
        std::uint32_t at = i / kWordBits;
        std::uint64_t word = i % kWordBits == 0 ? 0 : mWords[at] & below(i % kWordBits);
        while (word == 0 && at > mFirst)
            word = mWords[--at];
        return word == 0 ? Count : at * kWordBits + kWordBits - 1 - leadingZeros(word);
    }

private:
    static constexpr std::uint32_t kWordBits = 64;
    static constexpr std::uint32_t kBlockBits = 512;
    static constexpr std::uint32_t kWordsPerBlock = kBlockBits / kWordBits;
    static constexpr std::uint32_t kWords = (Count + kWordBits - 1) / kWordBits;
    static constexpr std::uint32_t kBlocks = (Count + kBlockBits - 1) / kBlockBits;

    // Returns how many of the first `used` slots are among the `length` slots that begin at `first`.
    static std::uint32_t usedWithin(std::uint32_t used, std::uint32_t first, std::uint32_t length) noexcept {
        if (used <= first)
            return 0;
        return used - first < length ? used - first : length;
    }

    static std::uint64_t bit(std::uint32_t i) noexcept { return std::uint64_t{1} << (i % kWordBits); }
    // Returns a mask of the bits below bit n. n must be below 64.
    static std::uint64_t below(std::uint32_t n) noexcept { return (std::uint64_t{1} << n) - 1; }
    static std::uint32_t countOf(std::uint64_t word) noexcept {
        return static_cast<std::uint32_t>(__builtin_popcountll(word));
    }
    static std::uint32_t leadingZeros(std::uint64_t word) noexcept {
        return static_cast<std::uint32_t>(__builtin_clzll(word));
    }
    static std::uint32_t trailingZeros(std::uint64_t word) noexcept {
        return static_cast<std::uint32_t>(__builtin_ctzll(word));
    }
    static std::uint32_t nthOf(std::uint64_t word, std::uint32_t n) noexcept {
        for (; n > 0; --n)
            word &= word - 1;
        return trailingZeros(word);
    }

    bool isSet(std::uint32_t i) const noexcept { return (mWords[i / kWordBits] & bit(i)) != 0; }

    std::uint32_t mCount = 0;
    std::uint32_t mFirst = 0;
    bool mIsKept = false;
    std::uint16_t mBlocks[kBlocks] = {};
    std::uint64_t mWords[kWords] = {};
};

} // namespace kvdetail
