// EqualIds: finds the stub that represents all stubs of one object.
#pragma once

#include "base/KvSTLAllocator.h"
#include "base/detail/NodePool.h"
#include "platform/KvDatabase.h"
#include "selectcontext/detail/HashTable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>

namespace kvdetail {

// Several stubs may name one object. Only the application can tell which do. The stub that is added first for
// an object represents the object. find() finds a stub that was added by its address, and searches for any
// other stub in the order of the ids.
//
// Invariants:
//  1. No two ids in mRepresentatives are equal.
//  2. mByStub maps every stub that was added to the stub of the equal id in mRepresentatives.
//
// Thread safety: only one thread may add ids. Any number of threads may find ids at once.
class EqualIds {
public:
    // Throws std::bad_alloc if there is no memory.
    EqualIds();

    // Returns the number of objects.
    std::size_t size() const noexcept { return mRepresentatives.size(); }

    // Returns the stub that represents the id's object. Returns nothing if no equal id was added. O(1) for a
    // stub that was added, otherwise O(log n).
    std::optional<const GxDbStub*> find(const GxDbObjectId& id) const;

    // Adds the id, and returns the stub that represents the id's object. If there is no memory, adds nothing
    // and throws std::bad_alloc. O(1) for a stub that was added, otherwise O(log n).
    const GxDbStub* add(const GxDbObjectId& id);

private:
    using Set = std::set<GxDbObjectId, std::less<>, _KvSTLAllocator<GxDbObjectId>>;

    // Returns the key of the id. The key is not 0, even for the null stub.
    static std::uintptr_t keyOf(const GxDbObjectId& id) noexcept {
        return reinterpret_cast<std::uintptr_t>(id.stub()) + 1;
    }

    Set::const_iterator placeOf(const GxDbObjectId& id) const;

    HashTable<std::uintptr_t, const GxDbStub*> mByStub;
    OwnedNodePool mNodes;
    Set mRepresentatives;
    // The place of the last id for which find() found no equal id. Most often, that id is added next. The
    // place then saves add() a search.
    mutable std::atomic<Set::const_iterator> mLastPlace;
};

} // namespace kvdetail
