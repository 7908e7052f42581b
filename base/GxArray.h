// GxArray: the application's growable array.
#pragma once

#include "base/detail/Raise.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

// Copies the elements of an array byte by byte.
template <class T>
class GxArrayMemCopyReallocator {
public:
    // Copies `count` elements. Both arrays must have room for them. Does nothing if `count` is below 1.
    static void copy(T* to, const T* from, std::int32_t count) noexcept {
        static_assert(std::is_trivially_copyable_v<T>, "elements are moved byte by byte");
        if (count > 0)
            std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(T));
    }
};

// A growable array. Every array has its own storage: copies share nothing.
//
// Invariants:
//  1. 0 <= mLogicalLength <= mPhysicalLength.
//  2. `mArray` is null exactly when mPhysicalLength is 0.
//
// If there is no memory, or if the capacity does not fit into an int, functions raise KvErrorStatus 6 and do
// not change the array. If elements were removed and are added again, they may still have their old values.
// All other new elements are value-initialised.
//
// Thread safety: none. An array belongs to one thread at a time.
template <class T, class Reallocator = GxArrayMemCopyReallocator<T>>
class GxArray {
public:
    // Makes an empty array with grow length 8. Allocates nothing.
    GxArray() : mArray(nullptr), mPhysicalLength(0), mLogicalLength(0), mGrowLength(kInitialGrowLength) {}

    // Copies the elements and the grow length of `other`. The new storage has room for exactly these
    // elements. O(length).
    GxArray(const GxArray& other) : GxArray() {
        mGrowLength = other.mGrowLength;
        assign(other);
    }

    // Copies the elements and the grow length of `other`. Keeps the present storage if the elements fit into
    // it. O(length).
    GxArray& operator=(const GxArray& other) {
        if (this == &other)
            return *this;
        assign(other);
        mGrowLength = other.mGrowLength;
        return *this;
    }

    // Frees the storage.
    ~GxArray() { setPhysicalLength(0); }

    // Return the number of elements, the capacity, and the least number of elements by which the storage
    // grows. O(1).
    int logicalLength() const noexcept { return mLogicalLength; }
    int physicalLength() const noexcept { return mPhysicalLength; }
    int growLength() const noexcept { return mGrowLength; }

    // Sets the number of elements. A negative number counts as 0. The storage never shrinks. Storage that is
    // too small grows: below 64 KB it doubles, above that it grows by 64 KB. It always grows by at least
    // growLength() elements. O(1) if there is room, otherwise O(length).
    void setLogicalLength(int n) {
        n = std::max(n, 0);
        if (n > mPhysicalLength)
            reallocate(grown(n));
        mLogicalLength = n;
    }

    // Sets the capacity to `n`. A negative `n` counts as 0, and 0 frees the storage. A capacity below the
    // length shortens the array. O(length).
    void setPhysicalLength(int n) {
        n = std::max(n, 0);
        if (n == mPhysicalLength)
            return;
        reallocate(n);
        mLogicalLength = std::min(mLogicalLength, mPhysicalLength);
    }

    // Returns the element at `i`. Raises KvErrorStatus 24 unless 0 <= i < logicalLength(). O(1).
    T& at(int i) {
        checkIndex(i);
        return mArray[i];
    }
    const T& at(int i) const {
        checkIndex(i);
        return mArray[i];
    }

    // Returns the element without a check. The caller must ensure 0 <= i < logicalLength(). O(1).
    T& operator[](int i) { return mArray[i]; }
    const T& operator[](int i) const { return mArray[i]; }

    T* mArray;                    // the storage, from operator new
    std::int32_t mPhysicalLength; // capacity in elements
    std::int32_t mLogicalLength;  // number of elements in use
    std::int32_t mGrowLength;     // least growth in elements

private:
    static constexpr std::int32_t kInitialGrowLength = 8;
    static constexpr std::size_t kMostElements = PTRDIFF_MAX / sizeof(T);
    // Storage of less than this size doubles when it grows. Larger storage grows by this size.
    static constexpr std::int64_t kDoublingLimitBytes = 65536;

    std::int64_t grown(std::int32_t wanted) const noexcept {
        constexpr auto size = static_cast<std::int64_t>(sizeof(T));
        const std::int64_t old = mPhysicalLength;
        const std::int64_t extra = old * size < kDoublingLimitBytes ? old : kDoublingLimitBytes / size;
        return std::max<std::int64_t>(old + std::max<std::int64_t>(mGrowLength, extra), wanted);
    }

    void reallocate(std::int64_t capacity) {
        T* const fresh = allocate(capacity);
        Reallocator::copy(fresh, mArray,
                          static_cast<std::int32_t>(std::min<std::int64_t>(mLogicalLength, capacity)));
        ::operator delete(mArray);
        mArray = fresh;
        mPhysicalLength = static_cast<std::int32_t>(capacity);
    }

    static T* allocate(std::int64_t capacity) {
        if (capacity == 0)
            return nullptr;
        const auto count = static_cast<std::size_t>(capacity);
        const bool isTooMany = capacity > std::numeric_limits<std::int32_t>::max() || count > kMostElements;
        void* const memory = isTooMany ? nullptr : ::operator new(count * sizeof(T), std::nothrow);
        if (!memory)
            kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
        std::uninitialized_value_construct_n(static_cast<T*>(memory), capacity);
        return static_cast<T*>(memory);
    }

    void assign(const GxArray& other) {
        if (other.mLogicalLength > mPhysicalLength)
            reallocate(other.mLogicalLength);
        Reallocator::copy(mArray, other.mArray, other.mLogicalLength);
        mLogicalLength = other.mLogicalLength;
    }

    void checkIndex(int i) const {
        if (i < 0 || i >= mLogicalLength)
            kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);
    }
};
