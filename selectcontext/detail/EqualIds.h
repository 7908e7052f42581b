// EqualIds: one stub to stand for all stubs of an object.
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

// Several stubs may name one object, which only the application can tell. The first of them that is added
// represents the object. A stub is looked for once among the ids in their order, and found by its address
// from then on.
//
// Invariants:
//  1. No two ids in mRepresentatives are equal.
//  2. Every stub that was added leads to that of an equal id in mRepresentatives.
//
// Thread safety: one thread adds. Any number of threads may find at once.
class EqualIds {
public:
    // With room for this number of stubs. std::bad_alloc when there is no memory.
    explicit EqualIds(std::size_t stubs = 0);

    // The number of objects.
    std::size_t size() const noexcept { return mRepresentatives.size(); }

    // The stub that represents the id's object, or none if no equal id was added. O(1) for a stub that was
    // added, else O(log n).
    std::optional<const GxDbStub*> find(const GxDbObjectId& id) const;

    // The same, and adds the id if no equal one is there. All or, with std::bad_alloc, nothing that find()
    // shows.
    const GxDbStub* add(const GxDbObjectId& id);

private:
    using Set = std::set<GxDbObjectId, std::less<>, _KvSTLAllocator<GxDbObjectId>>;

    // Keys are not 0, and the null stub has one, too.
    static std::uintptr_t keyOf(const GxDbObjectId& id) noexcept {
        return reinterpret_cast<std::uintptr_t>(id.stub()) + 1;
    }

    Set::const_iterator placeOf(const GxDbObjectId& id) const;

    HashTable<std::uintptr_t, const GxDbStub*> mByStub;
    OwnedNodePool mNodes;
    Set mRepresentatives;
    // Where find() last found no equal id. Most often that id is added next, which saves a second search.
    mutable std::atomic<Set::const_iterator> mLastPlace;
};

} // namespace kvdetail
