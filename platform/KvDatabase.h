// libKvDatabase: object ids, sub-entity paths, and objects that are opened, used and closed.
//
// The application defines everything that this header only declares.
// A function may throw any exception unless its comment says otherwise. The library then releases its own
// temporary data and passes the exception on.
// The library opens and closes an object on the thread that called the library.
#pragma once

#include "base/GxArray.h"
#include "platform/KvRx.h"
#include "platform/KvSeamExport.h"

#include <cstdint>

// The database's record of one object. An id points to a stub. Only the database knows the members of a stub.
// A stub lives at least as long as its database.
class GxDbStub;

// Returns whether two ids name the same object. This equality is an equivalence relation. Null equals null.
// Never throws. Any thread may call this function.
KV_SEAM_API bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept;

// Returns whether `a` comes before `b` in a strict weak order. Two ids are equal by c5ObjIdIsEqualTo()
// exactly when neither comes before the other. The order of two ids does not change while their stubs live.
// Never throws. Any thread may call this function.
//
// Sets keep ids in a std::multimap of this order. So the behaviour is undefined if answers during one call of
// the library contradict each other. GxapSelectSet.h says what a change between two calls does.
KV_SEAM_API bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept;

// Names an object of a database. Copying an id does not touch the object.
//
// The members have KV_SEAM_API, but the class does not. If the class had KV_SEAM_API, each library would also
// export the standard templates that it instantiates for ids.
//
// Invariants:
//  1. An id is a plain value and never owns its object.
//  2. A default-constructed id is the null id.
//
// Thread safety: several threads may read one id while no thread writes it.
class GxDbObjectId {
public:
    constexpr GxDbObjectId() noexcept = default; // the null id

    // Makes the id of a stub. Null gives the null id.
    explicit constexpr GxDbObjectId(GxDbStub* stub) noexcept : mStub(stub) {}

    // Returns the stub, which the database owns. Returns null for the null id.
    constexpr GxDbStub* stub() const noexcept { return mStub; }

    // Returns whether this id equals kNull. Never throws.
    KV_SEAM_API bool isNull() const;

    // Returns whether a database knows an object by this id. The object may be erased.
    KV_SEAM_API bool isValid() const;

    // The null id. Constant-initialised. Its definition is `const`, not `constexpr`: that would make it
    // inline, and the loader never unloads a library with an inline variable.
    KV_SEAM_API static const GxDbObjectId kNull;

private:
    GxDbStub* mStub = nullptr;
};

// Returns whether both ids name the same object, by c5ObjIdIsEqualTo().
inline bool operator==(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsEqualTo(a.stub(), b.stub());
}

// Returns the opposite of ==.
inline bool operator!=(const GxDbObjectId& a, const GxDbObjectId& b) {
    return !(a == b);
}

// Returns whether the stub of `a` comes before that of `b`, by c5ObjIdIsLessThan().
inline bool operator<(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsLessThan(a.stub(), b.stub());
}

// Names a part of an entity, such as a face, an edge or a segment.
struct GxDbSubentId {
    std::int32_t type = 0;  // 0: the null sub-entity type
    std::int64_t index = 0; // which part of that type; the library stores markers here
    void* extra = nullptr;  // belongs to the application; the pointer is copied and compared
};

// The path from the outermost object to a part of an entity.
//
// Invariants:
//  1. The ids begin with the outermost object and end with the entity. The part belongs to that entity.
//  2. A copy has its own array of ids.
//
// Thread safety: several threads may read one path while no thread writes it.
class GxDbFullSubentPath {
public:
    KV_SEAM_API GxDbFullSubentPath(); // no ids, the null part

    // Copy the ids and the part.
    KV_SEAM_API GxDbFullSubentPath(const GxDbFullSubentPath& other);
    KV_SEAM_API GxDbFullSubentPath& operator=(const GxDbFullSubentPath& other);

    // Frees the array of ids.
    KV_SEAM_API ~GxDbFullSubentPath();

    // Returns whether both paths have equal ids in the same order, and the same part.
    KV_SEAM_API bool operator==(const GxDbFullSubentPath& other) const;

    // Return the ids and the part, which the path owns.
    KV_SEAM_API GxArray<GxDbObjectId>& objectIds();
    KV_SEAM_API const GxArray<GxDbObjectId>& objectIds() const;
    KV_SEAM_API GxDbSubentId& subentId();
    KV_SEAM_API const GxDbSubentId& subentId() const;

private:
    GxArray<GxDbObjectId> mObjectIds;
    GxDbSubentId mSubentId;
};

// Names that belong to databases.
namespace GxDb {

// What an object is opened for.
enum OpenMode : int {
    kForRead = 0, // several openings for reading may exist at once
    kForWrite = 1 // the only opening
};

} // namespace GxDb

// Every value except eOk is a failure. The application may use further values, and defines their meanings.
enum GxErrorStatus : int {
    eOk = 0,      // success
    eNotOpen = 15 // nothing is open
};

// An object that a database can hold.
//
// Invariants:
//  1. A resident object belongs to its database. Users open, use and close the object. They never delete it.
//  2. A non-resident object belongs to the code that opens the object, and that code deletes it.
//
// Thread safety: the thread that opens an object also closes it. Several threads may have one object open for
// reading at once.
class KV_SEAM_API GxDbObject : public GxRxObject {
public:
    GxDbObject(const GxDbObject&) = delete;
    GxDbObject& operator=(const GxDbObject&) = delete;
    // Called by the owner of the object.
    ~GxDbObject() override;

    // Ends one opening of a resident object.
    GxErrorStatus close();

    // Returns the id of a resident object. Returns the null id for a non-resident object.
    GxDbObjectId objectId() const;

protected:
    // Makes an object that no database has: objectId() returns the null id.
    GxDbObject();

    GxDbStub* mStub = nullptr; // set by the database that adds the object
};

// An object that can be drawn and highlighted.
//
// Rules for calls of highlight() and unhighlight():
//  1. The entity is open for reading during the call.
//  2. The path belongs to the caller.
//  3. The library passes on the `entityFlag` that its caller gave. The application defines the meaning of the
//     flag.
//
// Thread safety: as GxDbObject.
class KV_SEAM_API GxDbEntity : public GxDbObject {
public:
    // Called by the owner of the entity.
    ~GxDbEntity() override;

    // Highlight the part that `path` leads to, or take the highlight back. The library ignores the returned
    // status.
    virtual GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const;
    virtual GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const;
};

// Opens the entity that `id` names. Fails if `id` names no entity. Fails for an erased entity unless
// `openErased` is true. Returns eOk and sets `entity` on success. After a failure, `entity` is null or an
// object that the caller must release like an opened one.
KV_SEAM_API GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode,
                                         bool openErased);

// Owns at most one opening of an object.
//
// Invariants:
//  1. The destructor releases the object, also during stack unwinding.
//  2. mObject is null, or an object that this pointer must release.
//  3. mStatus is the status of the last call of open(). mStatus is eNotOpen before the first call of open()
//     and after closeInternal().
//
// Thread safety: a pointer belongs to the thread that opens its object.
template <class T>
class GxDbObjectPointerBase {
public:
    // Makes a pointer that has opened nothing.
    GxDbObjectPointerBase() = default;
    GxDbObjectPointerBase(const GxDbObjectPointerBase&) = delete;
    GxDbObjectPointerBase& operator=(const GxDbObjectPointerBase&) = delete;
    // Calls closeInternal().
    ~GxDbObjectPointerBase() { closeInternal(); }

    // Releases mObject, opens the object of `id` and returns the status. gxdbOpenObject() may fail and still
    // give an object. The pointer keeps that object in order to release it later.
    GxErrorStatus open(GxDbObjectId id, GxDb::OpenMode mode, bool openErased = false) {
        closeInternal();
        mStatus = gxdbOpenObject(mObject, id, mode, openErased);
        return mStatus;
    }

    // Releases mObject: closes a resident object, and deletes a non-resident object. Returns eOk.
    GxErrorStatus closeInternal() {
        T* object = mObject;
        mObject = nullptr;
        mStatus = eNotOpen;
        release(object);
        return eOk;
    }

    T* mObject = nullptr;             // the opened object, or null
    GxErrorStatus mStatus = eNotOpen; // of the last opening

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

// Sets name[1], the second word of the two-word name of a set. name[0] is the address of the set. The
// function may read name[0].
KV_SEAM_API void gxdbInitGdsNameKey(long* name);
