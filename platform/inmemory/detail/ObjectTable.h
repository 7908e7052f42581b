// ObjectTable: the contents of one in-memory database.
#pragma once

#include "platform/inmemory/InMemoryDatabase.h"
#include "platform/inmemory/detail/MallocContainers.h"
#include "platform/inmemory/detail/StubArray.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

namespace kvinmemory::detail {

// The objects of a database, with their ids, names, factories and forced statuses.
//
// Invariants:
//  1. The database registry lists the table from its construction to its destruction.
//  2. The table owns the objects of its stubs. Its destructor closes and deletes them.
//  3. mFactories has an entry for a stub exactly if the stub's `hasFactory` is true. mForcedStatuses has an
//     entry for a stub exactly if the stub's `hasForcedStatus` is true.
//  4. mNames has an entry for each named stub. mIdsByName maps each name to the first id with that name.
//
// Thread safety: open() and stubs() may be called on any thread while no other thread edits the table. Only
// the thread that uses the database may call the other functions.
class ObjectTable {
public:
    explicit ObjectTable(std::size_t capacity);
    ObjectTable(const ObjectTable&) = delete;
    ObjectTable& operator=(const ObjectTable&) = delete;
    ~ObjectTable();

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;

    GxDbObjectId add(std::unique_ptr<GxDbObject> object, std::string_view name);
    GxDbObjectId addNonResident(Database::Factory factory, std::string_view name);
    GxDbObjectId addInvalid();

    const StubArray& stubs() const noexcept { return mStubs; }

    // Returns the stub of an id of this database. Throws std::invalid_argument for any other id.
    GxDbStub& stubOf(GxDbObjectId id) const;

    std::string_view nameOf(GxDbObjectId id) const;
    GxDbObjectId findByName(std::string_view name) const;

    void forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject);
    void clearForcedStatus(GxDbObjectId id);
    void clearForcedStatuses();

    // Opens the object of a stub of this table. The arguments are those of gxdbOpenObject.
    GxErrorStatus open(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode, bool openErased) const;

private:
    struct ForcedStatus {
        GxErrorStatus status;
        bool yieldsObject;
    };
    struct NameHash {
        std::size_t operator()(const MallocString& name) const { return std::hash<std::string_view>()(name); }
    };

    GxDbObjectId nameStub(GxDbStub& stub, std::string_view name);
    GxErrorStatus openForced(GxDbEntity*& entity, GxDbStub& stub) const;
    GxErrorStatus openObject(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode) const;

    StubArray mStubs;
    MallocMap<const GxDbStub*, Database::Factory> mFactories;
    MallocMap<GxDbStub*, ForcedStatus> mForcedStatuses;
    MallocMap<const GxDbStub*, MallocString> mNames;
    MallocMap<MallocString, GxDbObjectId, NameHash> mIdsByName;
};

} // namespace kvinmemory::detail
