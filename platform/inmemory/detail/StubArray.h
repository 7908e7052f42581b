// StubArray: the storage of one database's stubs.
#pragma once

#include "platform/inmemory/detail/GxDbStub.h"

#include <atomic>
#include <cstddef>

namespace kvinmemory::detail {

// An array in reserved address space that grows without moving its elements.
//
// Invariants:
//  1. A stub never moves. It lives until the array is destroyed.
//  2. The addresses ascend in the order of the append() calls. The order of ids depends on these addresses.
//  3. The first mCommittedBytes of the reservation are readable and writable. All stubs are in these bytes.
//
// Thread safety: only the thread that uses the database may call append(). Any thread may call the other
// functions.
class StubArray {
public:
    // Reserves address space and takes no memory. Throws std::bad_alloc if there is no address space.
    explicit StubArray(std::size_t capacity);
    StubArray(const StubArray&) = delete;
    StubArray& operator=(const StubArray&) = delete;
    ~StubArray();

    // Appends a new stub and returns that stub. Throws std::length_error if the array is full, and
    // std::bad_alloc if there is no memory. O(1).
    GxDbStub& append();

    std::size_t size() const noexcept { return mSize.load(std::memory_order_acquire); }
    GxDbStub& operator[](std::size_t i) const noexcept { return mFirst[i]; }

    // Returns whether the pointer is the address of a stub of this array. Any pointer is allowed.
    bool contains(const GxDbStub* stub) const noexcept;

    // Returns the position of a stub of this array.
    std::size_t indexOf(const GxDbStub* stub) const noexcept {
        return static_cast<std::size_t>(stub - mFirst);
    }

private:
    void commit(std::size_t bytes);

    GxDbStub* mFirst = nullptr;
    std::size_t mCapacity;
    std::size_t mReservedBytes;
    std::size_t mCommittedBytes = 0;
    std::atomic<std::size_t> mSize{0};
};

} // namespace kvinmemory::detail
