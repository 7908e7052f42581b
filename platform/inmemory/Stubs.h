// What the ids of one database refer to.
#pragma once

#include "platform/KvDatabase.h"

#include <atomic>
#include <cstddef>

// One object of a database. Everything but the count of openings changes on the database owner's thread
// alone.
class GxDbStub {
public:
    GxDbObject* object = nullptr; // resident; null for an id that opens otherwise or not at all
    GxDbEntity* entity = nullptr; // the same object, if it is an entity
    std::atomic<int> opened{0};   // readers, or kWriter
    bool erased = false;
    bool invalid = false;
    bool hasFactory = false;
    bool hasForcedStatus = false;

    static constexpr int kWriter = -1;
};

namespace kvinmemory {

// Stubs at ascending addresses, so that the order of addresses is the order of issue. They never move.
class Stubs {
public:
    // Reserves address space and takes no memory yet. std::bad_alloc without address space.
    explicit Stubs(std::size_t capacity);
    Stubs(const Stubs&) = delete;
    Stubs& operator=(const Stubs&) = delete;
    ~Stubs();

    // std::length_error beyond the capacity, std::bad_alloc without memory.
    GxDbStub& issue();

    std::size_t size() const noexcept { return mSize.load(std::memory_order_acquire); }
    GxDbStub& operator[](std::size_t i) const noexcept { return mFirst[i]; }

    // Whether this is the address of an issued stub; any pointer may be asked about. May be called on any
    // thread.
    bool contains(const GxDbStub* stub) const noexcept;

    // The number of an issued stub, from 0.
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

} // namespace kvinmemory
