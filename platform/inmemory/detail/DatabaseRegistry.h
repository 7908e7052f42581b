// DatabaseRegistry: the list of the in-memory databases.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <shared_mutex>

class GxDbStub;

namespace kvinmemory::detail {

class ObjectTable;

// Finds the object table of a stub.
//
// Invariant: the registry lists each existing object table once.
//
// Thread safety: every function may be called on any thread. While one thread looks a table up, no other
// thread may destroy that table.
class DatabaseRegistry {
public:
    void add(ObjectTable* table);
    void remove(ObjectTable* table);

    // Returns the table that has this stub. Returns null for any other pointer. O(databases).
    const ObjectTable* ownerOf(const GxDbStub* stub) const;

    // Returns whether a table has this stub and the stub is not invalid. Any pointer is allowed.
    bool isValid(const GxDbStub* stub) const;

    // Ends the forced statuses of every table.
    void clearForcedStatuses() const;

private:
    mutable std::shared_mutex mMutex;
    MallocVector<ObjectTable*> mTables;
};

// Returns the registry of the process.
DatabaseRegistry& databaseRegistry() noexcept;

} // namespace kvinmemory::detail
