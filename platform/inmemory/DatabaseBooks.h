// What one database knows, and which databases there are.
#pragma once

#include "platform/inmemory/BookMap.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "platform/inmemory/Stubs.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

namespace kvinmemory {

class Database::Books {
public:
    explicit Books(std::size_t capacity);
    Books(const Books&) = delete;
    Books& operator=(const Books&) = delete;
    ~Books();

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;

    GxDbObjectId add(std::unique_ptr<GxDbObject> object, std::string_view name);
    GxDbObjectId addNonResident(Factory factory, std::string_view name);
    GxDbObjectId addInvalid();

    const Stubs& stubs() const noexcept { return mStubs; }

    // The stub of an id of this database; any other is std::invalid_argument.
    GxDbStub& stubOf(GxDbObjectId id) const;

    std::string_view nameOf(GxDbObjectId id) const;
    GxDbObjectId findByName(std::string_view name) const;

    void forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject);
    void allowOpen(GxDbObjectId id);
    void allowAll();

    // Opens one of this database's ids. May be called on any thread.
    GxErrorStatus open(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode, bool openErased) const;

private:
    struct ForcedStatus {
        GxErrorStatus status;
        bool yieldsObject;
    };
    struct NameHash {
        std::size_t operator()(const BookString& name) const { return std::hash<std::string_view>()(name); }
    };

    GxDbObjectId issued(GxDbStub& stub, std::string_view name);
    GxErrorStatus openForced(GxDbEntity*& entity, GxDbStub& stub) const;
    GxErrorStatus openObject(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode) const;

    Stubs mStubs;
    BookMap<const GxDbStub*, Factory> mFactories;
    BookMap<GxDbStub*, ForcedStatus> mForcedStatuses;
    BookMap<const GxDbStub*, BookString> mNames;
    BookMap<BookString, GxDbObjectId, NameHash> mIdsByName;
};

bool isSamePart(const GxDbSubentId& a, const GxDbSubentId& b) noexcept;

// The database that has issued this stub; null for any other pointer. May be called on any thread.
const Database::Books* ownerOf(const GxDbStub* stub);

// Whether some database has issued this stub and stands by it. May be called on any thread.
bool isValidStub(const GxDbStub* stub);

// Ends one opening of a resident object.
GxErrorStatus closeStub(GxDbStub& stub) noexcept;

// Takes every forced status of every database back.
void allowAllOpens();

} // namespace kvinmemory
