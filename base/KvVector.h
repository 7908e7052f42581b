// KvVector: a copy-on-write vector whose data block is shared between copies.
//
// Three layers, each with one task:
//  - the policies: where element storage comes from, how reference counts change, how capacity grows;
//  - the block: KvVectorBlock, and KvVectorDataPtr, the counted handle that makes and frees blocks;
//  - the vector: KvVector, the value type that callers use.
#pragma once

#include "base/detail/Raise.h"
#include "base/detail/Same.h"
#include "platform/KvOsBase.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

class GxDbObjectId;

// The data block. Its layout is the same for every element type. So all empty vectors can share one block.
// _kvMalloc allocates a block, and _kvFree frees it.
struct KvVectorBlock {
    std::atomic<std::uint32_t> refCount; // number of vectors that share the block
    std::int32_t logicalLength;          // number of elements in use
    std::int32_t physicalLength;         // capacity in elements
    std::int32_t growLength;             // growth step in elements
    void* array;                         // element storage; null exactly when the capacity is 0
};
static_assert(sizeof(KvVectorBlock) == 24, "the application's libraries share this layout");

// Counts the vectors that share a block. All operations are atomic (sequentially consistent): vectors on
// different threads may share a block.
class KvRefCounter {
public:
    // Counts one vector more.
    static void add(std::atomic<std::uint32_t>& count) noexcept { count.fetch_add(1); }

    // Returns whether this was the last reference. Must not read the count again: right after the decrement,
    // another thread may free the count.
    static bool drop(std::atomic<std::uint32_t>& count) noexcept { return count.fetch_sub(1) == 1; }

    // Returns whether several vectors share the block.
    static bool isShared(const std::atomic<std::uint32_t>& count) noexcept { return count.load() >= 2; }
};

// Decides how capacity grows.
class KvVectorDefaultGrowPolicy {
public:
    static constexpr std::int32_t kInitialGrowLength = 8;       // growth step of a new block
    static constexpr std::int32_t kInitialPrivateCapacity = 16; // of a copy of a block without storage

    // Returns the capacity for `wanted` elements: logical length plus growth step, or `wanted` if that is
    // more. The sum has 64 bits, so it cannot overflow.
    static std::int64_t grown(std::int32_t logicalLength, std::int32_t growLength,
                              std::int32_t wanted) noexcept {
        return std::max<std::int64_t>(std::int64_t{logicalLength} + growLength, wanted);
    }

    // Returns the capacity of a private copy of a block.
    static std::int32_t privateCapacity(std::int32_t physicalLength) noexcept {
        return physicalLength == 0 ? kInitialPrivateCapacity : physicalLength;
    }
};

// Takes element storage from array new. Every element is value-initialised. alloc() raises KvErrorStatus 6 if
// there is no memory.
template <class T>
class KvDefaultMemAllocator {
public:
    // Returns an array of n elements.
    static T* alloc(std::int32_t n) {
        T* array = nullptr;
        try {
            array = new T[static_cast<std::size_t>(n)]();
        } catch (const std::bad_alloc&) {
            kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
        }
        return array;
    }

    // Returns null if there is no memory. Constructing an element must not throw.
    static T* tryAlloc(std::int32_t n) noexcept {
        static_assert(std::is_nothrow_default_constructible_v<T>, "null is the only failure");
        return new (std::nothrow) T[static_cast<std::size_t>(n)]();
    }

    // Frees an array. Does nothing for null.
    static void free(T* array, std::int32_t /*physicalLength*/) noexcept { delete[] array; }
};

// Takes element storage from _kvMalloc. Every element is value-initialised.
template <class T>
class KvDelegateMemAllocator {
public:
    // Returns null if n < 1. Raises KvErrorStatus 6 if there is no memory.
    static T* alloc(std::int32_t n) {
        if (n < 1)
            return nullptr;
        const auto count = static_cast<std::size_t>(n);
        void* const memory = count <= kMostElements ? _kvMalloc(count * sizeof(T)) : nullptr;
        if (!memory)
            kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
        T* const array = static_cast<T*>(memory);
        std::uninitialized_value_construct_n(array, n);
        return array;
    }

    // Destroys the elements and frees the array. Does nothing for null.
    static void free(T* array, std::int32_t physicalLength) noexcept {
        if (physicalLength <= 0 || !array)
            return;
        std::destroy_n(array, physicalLength);
        _kvFree(array);
    }

private:
    static constexpr std::size_t kMostElements = PTRDIFF_MAX / sizeof(T);
};

// The allocator of KvVector<T> if none is given. The storage of object ids comes from _kvMalloc.
template <class T>
struct KvVectorDefaultAllocator {
    using type = KvDefaultMemAllocator<T>; // the allocator
};

// The allocator of vectors of object ids.
template <>
struct KvVectorDefaultAllocator<GxDbObjectId> {
    using type = KvDelegateMemAllocator<GxDbObjectId>; // the allocator
};

// A pointer to a block. Copying or destroying the pointer does not change the block's refCount. The functions
// of this class do.
template <class T, class Allocator, class RefCounter, class GrowPolicy>
class KvVectorDataPtr {
public:
    // Gives up the reference to `block`. If that was the last reference, frees the storage and the block, and
    // sets `block` to null. Otherwise `block` stays as it is. Does nothing if `block` is null.
    void _release() {
        if (!block || !RefCounter::drop(block->refCount))
            return;
        destroy(block);
        block = nullptr;
    }

    // Gives up `block` and shares `other` instead, which may be null. Never throws.
    void share(KvVectorBlock* other) noexcept {
        if (other == block)
            return;
        if (other)
            RefCounter::add(other->refCount);
        _release();
        block = other;
    }

    // Replaces the block by a new, private block with room for `capacity` elements. Copies the first `kept`
    // elements. If there is no memory, raises KvErrorStatus 6 and leaves the block as it was.
    void replace(std::int64_t capacity, std::int32_t kept) {
        KvVectorBlock* const fresh = copy(block, capacity, kept);
        _release();
        block = fresh;
    }

    // Does what replace() does and returns true. If there is no memory, changes nothing and returns false.
    // `block` must not be null.
    bool tryReplace(std::int32_t capacity, std::int32_t kept) noexcept {
        void* const memory = _kvMalloc(sizeof(KvVectorBlock));
        T* const array = memory ? Allocator::tryAlloc(capacity) : nullptr;
        if (!array) {
            _kvFree(memory);
            return false;
        }
        std::copy_n(static_cast<const T*>(block->array), kept, array);
        auto* const fresh = new (memory) KvVectorBlock{{1}, kept, capacity, block->growLength, array};
        _release();
        block = fresh;
        return true;
    }

    KvVectorBlock* block = nullptr; // null: no block

private:
    static void destroy(KvVectorBlock* doomed) noexcept {
        Allocator::free(static_cast<T*>(doomed->array), doomed->physicalLength);
        doomed->~KvVectorBlock();
        _kvFree(doomed);
    }

    struct Destroyer {
        void operator()(KvVectorBlock* doomed) const noexcept { destroy(doomed); }
    };

    // Returns a new block with refCount 1, room for `capacity` elements, and the first `kept` elements of
    // `source`. If `source` is null, `kept` must be 0.
    static KvVectorBlock* copy(const KvVectorBlock* source, std::int64_t capacity, std::int32_t kept) {
        if (capacity > std::numeric_limits<std::int32_t>::max())
            kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
        void* const memory = _kvMalloc(sizeof(KvVectorBlock));
        if (!memory)
            kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
        const std::int32_t growLength = source ? source->growLength : GrowPolicy::kInitialGrowLength;
        std::unique_ptr<KvVectorBlock, Destroyer> fresh(new (memory)
                                                            KvVectorBlock{{1}, 0, 0, growLength, nullptr});

        T* const array = Allocator::alloc(static_cast<std::int32_t>(capacity));
        fresh->array = array;
        fresh->physicalLength = static_cast<std::int32_t>(capacity);
        if (kept > 0)
            std::copy_n(static_cast<const T*>(source->array), kept, array);
        fresh->logicalLength = kept;
        return fresh.release();
    }
};

namespace kvdetail {

// Tag: makes a vector without a block.
struct NoBlock {};

} // namespace kvdetail

// A copy-on-write vector. Copies share one block; the first write to a shared block copies the elements.
//
// Invariants:
//  1. A vector without elements may have a null `data.block`. The platform may provide no empty block
//     (gpEmptyVectorData is null), or a caller may have set `data.block` to null.
//  2. 0 <= logicalLength <= physicalLength. The storage is null exactly when the capacity is 0.
//  3. The block's refCount is the number of vectors that share the block. The refCount of the platform's
//     empty block is one higher, since the platform has a reference, too.
//  4. A block with a refCount of 2 or more does not change, except for refCount itself.
//
// Functions raise KvErrorStatus 6 if there is no memory, and KvErrorStatus 24 for an index outside the
// vector. The vector is then unchanged. If elements were removed and are added again, they may still have
// their old values. All other new elements are value-initialised.
//
// Thread safety: vectors that share a block may be copied, read and released on different threads. One vector
// belongs to one thread at a time.
template <class T, class Allocator = typename KvVectorDefaultAllocator<T>::type,
          class RefCounter = KvRefCounter, class GrowPolicy = KvVectorDefaultGrowPolicy>
class KvVector {
public:
    // Shares the block of all empty vectors. O(1), allocates nothing.
    KvVector() : KvVector(gpEmptyVectorData) {}

    // Makes a vector without a block. The caller must give the vector a block at once.
    explicit KvVector(kvdetail::NoBlock /*tag*/) noexcept {}

    // Shares the block of `other`. O(1), allocates nothing.
    KvVector(const KvVector& other) : KvVector(other.data.block) {}
    KvVector& operator=(const KvVector& other) {
        data.share(other.data.block);
        return *this;
    }

    // Gives up the block. The last vector frees it.
    ~KvVector() { data._release(); }

    // Return the length, the capacity and the growth step, in elements. A vector with a null block has length
    // 0, capacity 0 and the initial growth step. O(1).
    int logicalLength() const noexcept { return data.block ? data.block->logicalLength : 0; }
    int physicalLength() const noexcept { return data.block ? data.block->physicalLength : 0; }
    int growLength() const noexcept {
        return data.block ? data.block->growLength : GrowPolicy::kInitialGrowLength;
    }

    // Sets the number of elements, at least 0. Elements that a block gains have the values that their places
    // last had. O(1) if the block is private and large enough, otherwise O(capacity).
    void setLogicalLength(int n) {
        n = std::max(n, 0);
        const int length = logicalLength();
        if (n == length)
            return;
        if (n > physicalLength())
            data.replace(GrowPolicy::grown(length, growLength(), n), length);
        else
            copyBeforeWrite(static_cast<unsigned>(std::min(length, n)));
        data.block->logicalLength = n;
    }

    // Makes a shared block private. Keeps the first n elements, or all if n is 0. The number of kept elements
    // is the new length. Does nothing if the block is private or null. O(1), or O(capacity) if the block was
    // shared.
    void copyBeforeWrite(unsigned n) {
        if (!data.block || !RefCounter::isShared(data.block->refCount))
            return;
        const auto length = static_cast<unsigned>(logicalLength());
        const unsigned kept = n == 0 ? length : std::min(n, length);
        data.replace(GrowPolicy::privateCapacity(physicalLength()), static_cast<std::int32_t>(kept));
    }

    // Does what copyBeforeWrite(0) does. If there is no memory, raises nothing and leaves the block shared.
    // Compiles only if the allocator has tryAlloc().
    void tryCopyBeforeWrite() noexcept {
        if (data.block && RefCounter::isShared(data.block->refCount))
            data.tryReplace(GrowPolicy::privateCapacity(physicalLength()), logicalLength());
    }

    // Returns the element for writing. Makes the block private, even if the caller only reads. Raises
    // KvErrorStatus 24 unless 0 <= i < logicalLength(). O(1), or O(capacity) if the block was shared.
    T& at(int i) {
        checkIndex(i);
        copyBeforeWrite(0);
        return elements()[i];
    }

    // Returns the element for reading, and leaves the block shared. Raises KvErrorStatus 24 unless 0 <= i <
    // logicalLength(). O(1).
    const T& at(int i) const {
        checkIndex(i);
        return elements()[i];
    }

    // Removes one element and keeps the order of the others. Raises KvErrorStatus 24 unless 0 <= i <
    // logicalLength(). O(length), or O(capacity) if the block was shared.
    void removeAt(int i) {
        checkIndex(i);
        const int last = logicalLength() - 1;
        if (i == last) {
            setLogicalLength(i);
            return;
        }
        copyBeforeWrite(0);
        T* const array = elements();
        std::move(array + i + 1, array + last + 1, array + i);
        setLogicalLength(last);
    }

    // Returns whether both vectors have the same length, and equal elements in the same order. O(1) for
    // vectors that share a block, otherwise O(length).
    bool operator==(const KvVector& other) const {
        if (data.block == other.data.block)
            return true;
        const int length = logicalLength();
        if (length != other.logicalLength())
            return false;
        for (int i = 0; i < length; ++i) {
            if (!kvdetail::isSame(elements()[i], other.elements()[i]))
                return false;
        }
        return true;
    }

    KvVectorDataPtr<T, Allocator, RefCounter, GrowPolicy> data; // the block; see invariant 1 for null

private:
    explicit KvVector(KvVectorBlock* shared) { data.share(shared); }

    void checkIndex(int i) const {
        if (i < 0 || i >= logicalLength())
            kvdetail::raiseStatus(kvdetail::kStatusInvalidIndex);
    }

    T* elements() const noexcept { return static_cast<T*>(data.block->array); }
};
