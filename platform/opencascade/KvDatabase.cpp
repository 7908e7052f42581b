// The libKvDatabase of the kernel's platform: defines what KvDatabase.h declares.
#include "platform/KvDatabase.h"

#include "platform/opencascade/OpenCascadeDatabase.h"
#include "platform/opencascade/detail/GxDbStub.h"

#include <XCAFDoc_ShapeTool.hxx>
#include <algorithm>
#include <atomic>

// ---- Ids

const GxDbObjectId GxDbObjectId::kNull;

namespace {

// Ranks begin at 1, so null comes before every label.
std::uint64_t rankOf(const GxDbStub* stub) noexcept {
    return stub == nullptr ? 0 : stub->record.rank;
}

} // namespace

bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    return rankOf(a) == rankOf(b);
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    return rankOf(a) < rankOf(b);
}

bool GxDbObjectId::isNull() const {
    return mStub == nullptr;
}

bool GxDbObjectId::isValid() const {
    return mStub != nullptr && mStub->record.label.HasAttribute();
}

// ---- Sub-entity paths

GxDbFullSubentPath::GxDbFullSubentPath() = default;
GxDbFullSubentPath::GxDbFullSubentPath(const GxDbFullSubentPath& other) = default;
GxDbFullSubentPath& GxDbFullSubentPath::operator=(const GxDbFullSubentPath& other) = default;
GxDbFullSubentPath::~GxDbFullSubentPath() = default;

bool GxDbFullSubentPath::operator==(const GxDbFullSubentPath& other) const {
    const int length = mObjectIds.logicalLength();
    if (length != other.mObjectIds.logicalLength() || mSubentId.type != other.mSubentId.type ||
        mSubentId.index != other.mSubentId.index || mSubentId.extra != other.mSubentId.extra)
        return false;
    return std::equal(mObjectIds.mArray, mObjectIds.mArray + length, other.mObjectIds.mArray);
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

// ---- Objects

GxDbObject::GxDbObject() = default;
GxDbObject::~GxDbObject() = default;

GxErrorStatus GxDbObject::close() {
    return mStub != nullptr && mStub->record.close() ? eOk : eNotOpen;
}

GxDbObjectId GxDbObject::objectId() const {
    return GxDbObjectId(mStub);
}

GxDbEntity::~GxDbEntity() = default;

GxErrorStatus GxDbEntity::highlight(const GxDbFullSubentPath&, bool) const {
    return kvopencascade::kNoSuchInstance;
}

GxErrorStatus GxDbEntity::unhighlight(const GxDbFullSubentPath&, bool) const {
    return kvopencascade::kNotHighlighted;
}

GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode, bool openErased) {
    using namespace kvopencascade;
    entity = nullptr;
    if (id.stub() == nullptr)
        return kUnknownId;
    const TDF_Label& label = id.stub()->record.label;
    if (!label.HasAttribute())
        return kForgottenLabel;
    if (!openErased && Database::isErased(id))
        return kErasedLabel;
    if (!XCAFDoc_ShapeTool::IsShape(label))
        return kNotAShape;
    if (!id.stub()->record.open(mode))
        return kOpenOtherwise;
    entity = &id.stub()->entity;
    return eOk;
}

// ---- Names of sets

namespace {

std::atomic<long> gLastNameKey{0};

} // namespace

void gxdbInitGdsNameKey(long* name) {
    name[1] = ++gLastNameKey;
}
