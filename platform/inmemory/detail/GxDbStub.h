// GxDbStub: the state of one id of an in-memory database.
#pragma once

#include "platform/KvDatabase.h"

#include <atomic>

// KvDatabase.h declares this class, so it is in the global namespace.
//
// Invariants:
//  1. `entity` is null or the same object as `object`.
//  2. An object has any number of readers and no writer, or one writer and no reader.
//  3. `hasFactory` tells whether the object table has a factory for this stub. `hasForcedStatus` tells
//     whether the table has a forced status for this stub.
//
// Thread safety: open(), close() and openCount() may be called on any thread. The other members change only
// on the thread that uses the database.
class GxDbStub {
public:
    // Opens the object for a reader or for the writer. Returns false, and does nothing, if invariant 2
    // forbids another opening in this mode.
    bool open(GxDb::OpenMode mode) noexcept;

    // Ends one opening. Returns whether there was an opening to end.
    bool close() noexcept;

    int openCount() const noexcept;

    GxDbObject* object = nullptr; // the resident object; null if the id was issued without one
    GxDbEntity* entity = nullptr; // null if there is no resident object, or if the object is not an entity
    bool erased = false;
    bool invalid = false;
    bool hasFactory = false;
    bool hasForcedStatus = false;

private:
    static constexpr int kWriter = -1;

    std::atomic<int> mOpenings{0}; // the number of readers, or kWriter
};
