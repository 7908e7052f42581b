#include "TinyPlatform.h"
#include "platform/KvDatabase.h"

namespace {

unsigned numberOf(const GxDbStub* stub) noexcept {
    return stub == nullptr ? 0 : stub->number;
}

constexpr GxErrorStatus kNothingToOpen = static_cast<GxErrorStatus>(1);

} // namespace

bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    return numberOf(a) == numberOf(b);
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    return numberOf(a) < numberOf(b);
}

const GxDbObjectId GxDbObjectId::kNull;

bool GxDbObjectId::isNull() const {
    return numberOf(mStub) == 0;
}

bool GxDbObjectId::isValid() const {
    return !isNull();
}

GxDbFullSubentPath::GxDbFullSubentPath() = default;
GxDbFullSubentPath::GxDbFullSubentPath(const GxDbFullSubentPath& other) = default;
GxDbFullSubentPath& GxDbFullSubentPath::operator=(const GxDbFullSubentPath& other) = default;
GxDbFullSubentPath::~GxDbFullSubentPath() = default;

bool GxDbFullSubentPath::operator==(const GxDbFullSubentPath& other) const {
    if (mObjectIds.logicalLength() != other.mObjectIds.logicalLength())
        return false;
    for (int i = 0; i < mObjectIds.logicalLength(); ++i)
        if (mObjectIds[i] != other.mObjectIds[i])
            return false;
    return mSubentId.type == other.mSubentId.type && mSubentId.index == other.mSubentId.index &&
           mSubentId.extra == other.mSubentId.extra;
}

GxArray<GxDbObjectId>& GxDbFullSubentPath::objectIds() {
    return mObjectIds;
}
const GxArray<GxDbObjectId>& GxDbFullSubentPath::objectIds() const {
    return mObjectIds;
}
GxDbSubentId& GxDbFullSubentPath::subentId() {
    return mSubentId;
}
const GxDbSubentId& GxDbFullSubentPath::subentId() const {
    return mSubentId;
}

GxDbObject::GxDbObject() = default;
GxDbObject::~GxDbObject() = default;
GxErrorStatus GxDbObject::close() {
    return eOk;
}
GxDbObjectId GxDbObject::objectId() const {
    return GxDbObjectId(mStub);
}

GxDbEntity::~GxDbEntity() = default;
GxErrorStatus GxDbEntity::highlight(const GxDbFullSubentPath&, bool) const {
    return eOk;
}
GxErrorStatus GxDbEntity::unhighlight(const GxDbFullSubentPath&, bool) const {
    return eOk;
}

GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId, GxDb::OpenMode, bool) {
    entity = nullptr;
    return kNothingToOpen;
}

void gxdbInitGdsNameKey(long* name) {
    name[1] = 1;
}
