// libKvDatabase: object ids, sub-entity paths, and objects that are opened, used and closed.
//
// The application provides everything that this header declares and does not define inline.
// A function may throw any exception unless its comment says otherwise. The library passes the exception on
// and releases what it owns.
// The library opens an object on its caller's thread, and closes it on the same thread.
#pragma once

#include "base/GxArray.h"
#include "platform/KvRx.h"
#include "platform/KvSeamExport.h"

#include <cstdint>

// What an id points to: the database's own object. Only the database knows the members of a stub. A stub
// lives at least as long as its database.
class GxDbStub;

// Returns whether two ids name the same object. The relation is an equivalence. Null equals null. Never
// throws. Any thread may call this function.
KV_SEAM_API bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept;

// Compares ids by a strict weak order. Two ids are equal exactly when neither is less than the other. The
// order of two ids does not change while their stubs live. Never throws. Any thread may call this function.
KV_SEAM_API bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept;

// Names an object of a database. Copying an id does not touch the object. The members have KV_SEAM_API, but
// the class has not. So standard templates over ids stay inside the library that instantiates them.
//
// Invariants:
//  1. An id is a plain value and never owns its object.
//  2. A default-constructed id is the null id.
//
// Thread safety: several threads may read one id while no thread writes it.
class GxDbObjectId {
public:
    constexpr GxDbObjectId() noexcept = default; // the null id
    explicit constexpr GxDbObjectId(GxDbStub* stub) noexcept : mStub(stub) {}

    constexpr GxDbStub* stub() const noexcept { return mStub; }

    // Returns whether this id equals kNull.
    KV_SEAM_API bool isNull() const;

    // Returns whether a database knows an object by this id. The object may be erased.
    KV_SEAM_API bool isValid() const;

    KV_SEAM_API static const GxDbObjectId kNull; // constant-initialised

private:
    GxDbStub* mStub = nullptr;
};

inline bool operator==(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsEqualTo(a.stub(), b.stub());
}

inline bool operator!=(const GxDbObjectId& a, const GxDbObjectId& b) {
    return !(a == b);
}

inline bool operator<(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsLessThan(a.stub(), b.stub());
}

// Names a part of an entity: a face, an edge, a segment.
struct GxDbSubentId {
    std::int32_t type = 0; // 0: the null sub-entity type
    std::int64_t index = 0;
    void* extra = nullptr; // belongs to the application; the pointer is copied and compared
};

// The path from the outermost object to a part of an entity.
//
// Invariants:
//  1. The ids go from the outermost object to the entity. The part belongs to the entity, whose id is the
//     last.
//  2. Copies share nothing.
//
// Thread safety: several threads may read one path while no thread writes it.
class GxDbFullSubentPath {
public:
    KV_SEAM_API GxDbFullSubentPath(); // no ids, the null part
    KV_SEAM_API GxDbFullSubentPath(const GxDbFullSubentPath& other);
    KV_SEAM_API GxDbFullSubentPath& operator=(const GxDbFullSubentPath& other);
    KV_SEAM_API ~GxDbFullSubentPath();

    // Returns whether both paths have equal ids in the same order, and the same part.
    KV_SEAM_API bool operator==(const GxDbFullSubentPath& other) const;

    KV_SEAM_API GxArray<GxDbObjectId>& objectIds();
    KV_SEAM_API const GxArray<GxDbObjectId>& objectIds() const;
    KV_SEAM_API GxDbSubentId& subentId();
    KV_SEAM_API const GxDbSubentId& subentId() const;

private:
    GxArray<GxDbObjectId> mObjectIds;
    GxDbSubentId mSubentId;
};

namespace GxDb {
enum OpenMode : int { kForRead = 0, kForWrite = 1 };
}

// Every value except eOk is a failure. The application defines the meanings of the values that are not named
// here.
enum GxErrorStatus : int { eOk = 0, eNotOpen = 15 };

// An object that a database can hold.
//
// Invariants:
//  1. A resident object belongs to its database. Users open, use and close the object. They never delete it.
//  2. A non-resident object belongs to the code that opens the object, and that code deletes it.
//
// Thread safety: an opening belongs to one thread. Several threads may open one object for reading at once.
class KV_SEAM_API GxDbObject : public GxRxObject {
public:
    GxDbObject(const GxDbObject&) = delete;
    GxDbObject& operator=(const GxDbObject&) = delete;
    ~GxDbObject() override;

    // Ends one opening of a resident object.
    GxErrorStatus close();

    // Returns the id under which the database knows the object. Returns the null id if the object is not
    // resident.
    GxDbObjectId objectId() const;

protected:
    GxDbObject();

    GxDbStub* mStub = nullptr; // set by the database that adds the object
};

// An object that is drawn.
//
// Invariants of highlight() and unhighlight():
//  1. The entity is open for reading during the call.
//  2. The caller keeps the path.
//  3. The library passes entityFlag on unchanged. The application defines its meaning.
//
// Thread safety: as GxDbObject.
class KV_SEAM_API GxDbEntity : public GxDbObject {
public:
    ~GxDbEntity() override;

    virtual GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const;
    virtual GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const;
};

// Opens the object that `id` names, if the object is an entity. `openErased` tells whether an erased object
// may be opened. If the status is eOk, `entity` is the opened object. Any other status means that the object
// could not be opened as requested. `entity` is then null, or an object that the caller must release like an
// opened object.
KV_SEAM_API GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode,
                                         bool openErased);

// Owns at most one opening of an object.
//
// Invariants:
//  1. The destructor releases the object, also during stack unwinding.
//  2. mObject is null, or an object that this pointer releases.
//  3. mStatus is the status of the last call of open(). mStatus is eNotOpen before the first call of open()
//     and after closeInternal().
//
// Thread safety: a pointer belongs to the thread that opens its object.
template <class T>
class GxDbObjectPointerBase {
public:
    GxDbObjectPointerBase() = default;
    GxDbObjectPointerBase(const GxDbObjectPointerBase&) = delete;
    GxDbObjectPointerBase& operator=(const GxDbObjectPointerBase&) = delete;
    ~GxDbObjectPointerBase() { closeInternal(); }

    // Releases mObject and opens the object of `id`. Keeps an object that gxdbOpenObject() returns with a bad
    // status, too, since such an object must be released.
    GxErrorStatus open(GxDbObjectId id, GxDb::OpenMode mode, bool openErased = false) {
        closeInternal();
        mStatus = gxdbOpenObject(mObject, id, mode, openErased);
        return mStatus;
    }

    // Releases mObject: closes a resident object, and deletes any other object.
    GxErrorStatus closeInternal() {
        T* object = mObject;
        mObject = nullptr;
        mStatus = eNotOpen;
        release(object);
        return eOk;
    }

    T* mObject = nullptr;
    GxErrorStatus mStatus = eNotOpen;

private:
    static void release(T* object) {
        if (object == nullptr)
            return;
        if (object->objectId().isNull())
            delete object;
        else
            object->close();
    }
};

// Completes the two-word name of a set. Word 0 is the set's address, which the function may read. The
// function sets word 1.
KV_SEAM_API void gxdbInitGdsNameKey(long* name);
