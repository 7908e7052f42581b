// libKvDatabase: object ids, sub-entity paths, and objects that are opened, used and closed.
//
// An application that uses the selection-set library provides everything that is declared here, but for what
// is defined inline. Where nothing else is said a function may throw what it likes; the library passes it on
// and still releases what it holds. The library opens an object on the thread of its caller and closes it
// there.
#pragma once

#include "base/GxArray.h"
#include "platform/KvRx.h"
#include "platform/KvSeamExport.h"

#include <cstdint>

// What an id refers to. Belongs to the database, which alone knows what is inside; lives at least as long as
// the database.
class GxDbStub;

// Whether two ids name the same object. An equivalence relation; null equals null. Never throws; may be
// called on any thread.
KV_SEAM_API bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept;

// A strict weak order of ids that goes with the equality: neither of two ids is less exactly if they are
// equal. Stays as it is for as long as the ids live. Never throws; may be called on any thread.
KV_SEAM_API bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept;

// Names an object of a database. A plain value: copying one does not touch the object. The macro stands on
// its members alone, so that templates of the standard library over ids stay inside the library that makes
// them.
class GxDbObjectId {
public:
    constexpr GxDbObjectId() noexcept = default; // the null id
    explicit constexpr GxDbObjectId(GxDbStub* stub) noexcept : mStub(stub) {}

    constexpr GxDbStub* stub() const noexcept { return mStub; }

    // Whether this is the id of no object: whether it equals kNull.
    KV_SEAM_API bool isNull() const;

    // Whether a database knows an object by this id, be the object erased or not.
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
    void* extra = nullptr; // the application's own; copied and compared as it is
};

// Leads from the outermost object to a part of an entity: the ids on the way and the part in the last of
// them. A value: copies share nothing.
class GxDbFullSubentPath {
public:
    KV_SEAM_API GxDbFullSubentPath(); // no ids, the null part
    KV_SEAM_API GxDbFullSubentPath(const GxDbFullSubentPath& other);
    KV_SEAM_API GxDbFullSubentPath& operator=(const GxDbFullSubentPath& other);
    KV_SEAM_API ~GxDbFullSubentPath();

    // Same ids in the same order, same part.
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

// Any other value is a failure that the application gives a meaning to.
enum GxErrorStatus : int { eOk = 0, eNotOpen = 15 };

// An object that a database can hold. One that is resident in a database belongs to it: it is opened, used
// and closed, never deleted by its users. One that is not resident belongs to whoever opened it and is
// deleted.
class KV_SEAM_API GxDbObject : public GxRxObject {
public:
    GxDbObject(const GxDbObject&) = delete;
    GxDbObject& operator=(const GxDbObject&) = delete;
    ~GxDbObject() override;

    // Ends one opening of a resident object.
    GxErrorStatus close();

    // The id under which the database knows the object; null when it is not resident.
    GxDbObjectId objectId() const;

protected:
    GxDbObject();

    GxDbStub* mStub = nullptr; // set by the database that takes the object in
};

// An object that is drawn. The entity is open for reading during both calls; the path stays the caller's.
// entityFlag is handed through by the library, its meaning is the application's.
class KV_SEAM_API GxDbEntity : public GxDbObject {
public:
    ~GxDbEntity() override;

    virtual GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const;
    virtual GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const;
};

// Opens the object that id names, if it is an entity. eOk: entity is the opened object. Any other status: the
// object could not be opened as asked; entity is null or, where the application cares to answer one
// nevertheless, an object that is to be released like an opened one. openErased: whether an erased object may
// be opened.
KV_SEAM_API GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode,
                                         bool openErased);

// Holds one opened object and releases it at the end of its life, also when an exception passes.
template <class T>
class GxDbObjectPointerBase {
public:
    GxDbObjectPointerBase() = default;
    GxDbObjectPointerBase(const GxDbObjectPointerBase&) = delete;
    GxDbObjectPointerBase& operator=(const GxDbObjectPointerBase&) = delete;
    ~GxDbObjectPointerBase() { closeInternal(); }

    // Releases what is held and opens another object. An object that comes with a bad status is held all the
    // same, for it has to be released.
    GxErrorStatus open(GxDbObjectId id, GxDb::OpenMode mode, bool openErased = false) {
        closeInternal();
        mStatus = gxdbOpenObject(mObject, id, mode, openErased);
        return mStatus;
    }

    // A resident object is closed, any other belongs to its opener and is deleted.
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

// Completes the two-word name of a set: reads word 0, the set's address, as it likes and fills in word 1.
KV_SEAM_API void gxdbInitGdsNameKey(long* name);
