// DatabaseRegistry: the list of the in-memory databases.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <shared_mutex>

class GxDbStub;

namespace kvinmemory::detail {

class ObjectTable;

// Finds the object table of a stub.
//
// Invariant: the registry lists each object table that exists once.
//
// Thread safety: every function may be called on any thread. A table that one thread looks up is not
// destroyed on another thread meanwhile.
class DatabaseRegistry {
public:
    void add(ObjectTable* table);
    void remove(ObjectTable* table);

    // The table that has this stub. Null for any other pointer. O(databases).
    const ObjectTable* ownerOf(const GxDbStub* stub) const;

    // Whether a table has this stub and the stub is not invalid. Any pointer is allowed.
    bool isValid(const GxDbStub* stub) const;

    // Ends the forced statuses of every table.
    void clearForcedStatuses() const;

private:
    mutable std::shared_mutex mMutex;
    MallocVector<ObjectTable*> mTables;
};

// The one registry of the process.
DatabaseRegistry& databaseRegistry() noexcept;

} // namespace kvinmemory::detail
