// The selected item: its optional extras and its record.

#include "selectcontext/GxDbElasticData.h"
#include "selectcontext/GxapSelectedEntInfo.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/RecordPool.h"
#include "selectcontext/SharedPaths.h"
#include "selectcontext/selected_entity.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint64_t kFenceBit = 1;
constexpr std::uint64_t kMatrixBit = 2;
constexpr unsigned kFenceOffset = 0;

unsigned matrixOffset(const GxapSelectedEntInfo& info) {
    return GxapSelectedEntInfo::smEDataOffsetTable[info.presenceBits & kFenceBit];
}

// Where the block holds the field, or null when it does not hold one there.
template <class T>
T** fieldAt(GxDbElasticData* block, unsigned offset) {
    if (!kvdetail::elasticHolds(block, offset))
        return nullptr;
    return reinterpret_cast<T**>(kvdetail::elasticPayload(block) + offset);
}

// The pointer stored at a place that need not be aligned; null for no place.
template <class T>
T* load(T* const* place) {
    T* value = nullptr;
    if (place)
        std::memcpy(&value, static_cast<const void*>(place), sizeof value);
    return value;
}

// Stores, replaces or, for the default value, removes a field; false when the block does not hold what the
// bits promise. The bit follows the block, so that a block that cannot change leaves bits and fields as they
// were.
template <class T>
bool storeField(GxapSelectedEntInfo& info, std::uint64_t bit, unsigned offset, T* value, T* defaultValue) {
    const bool present = (info.presenceBits & bit) != 0;
    if (value == defaultValue) {
        if (present)
            kvdetail::elasticErase(info.elasticData, offset, true);
        info.presenceBits &= ~bit;
        return true;
    }
    if (present)
        return kvdetail::elasticSetAtOffset(info.elasticData, offset, value);
    if (!kvdetail::elasticInsert(info.elasticData, offset, value))
        return false;
    info.presenceBits |= bit;
    return true;
}

bool storeFence(GxapSelectedEntInfo& info, SelFenceIntersectInfo* fence) {
    return storeField(info, kFenceBit, kFenceOffset, fence, GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal);
}

bool storeMatrix(GxapSelectedEntInfo& info, GxGeMatrix3d* matrix) {
    return storeField(info, kMatrixBit, matrixOffset(info), matrix,
                      GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal);
}

} // namespace

const std::uint16_t GxapSelectedEntInfo::smEDataOffsetTable[4] = {0, 8, 8, 16};
const std::uint16_t GxapSelectedEntInfo::smEDataTypeSizeTable[2] = {8, 8};
SelFenceIntersectInfo* GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal = nullptr;
GxGeMatrix3d* GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal = nullptr;

GxapSelectedEntInfo::GxapSelectedEntInfo()
    : word0(0), word1(0), halfWord(-1), presenceBits(0), elasticData(nullptr) {}

// Delegating, so that the destructor runs when a step of the body throws.
GxapSelectedEntInfo::GxapSelectedEntInfo(const GxapSelectedEntInfo& other) : GxapSelectedEntInfo() {
    *this = other;
}

GxapSelectedEntInfo& GxapSelectedEntInfo::operator=(const GxapSelectedEntInfo& other) {
    word0 = other.word0;
    word1 = other.word1;
    pointArray = other.pointArray;
    halfWord = other.halfWord;
    setFenceInfoPtr(other.getFenceInfoPtr());
    setBTRMatPtr(other.getBTRMatPtr());
    return *this;
}

// Not by way of the Release...() members: those compact the block, which needs memory.
GxapSelectedEntInfo::~GxapSelectedEntInfo() {
    delete getFenceInfoPtr();
    delete getBTRMatPtr();
    _kvFree(elasticData);
}

SelFenceIntersectInfo** GxapSelectedEntInfo::getFenceIntersectInfoPtr() const {
    if (!(presenceBits & kFenceBit))
        return &FenceIntersectInfoPtrDefVal;
    return fieldAt<SelFenceIntersectInfo>(elasticData, kFenceOffset);
}

SelFenceIntersectInfo** GxapSelectedEntInfo::getFenceIntersectInfoPtr() {
    return std::as_const(*this).getFenceIntersectInfoPtr();
}

GxGeMatrix3d** GxapSelectedEntInfo::getCompoundTransformBTROffsetPtr() const {
    if (!(presenceBits & kMatrixBit))
        return &CompoundTransformBTROffsetPtrDefVal;
    return fieldAt<GxGeMatrix3d>(elasticData, matrixOffset(*this));
}

GxGeMatrix3d** GxapSelectedEntInfo::getCompoundTransformBTROffsetPtr() {
    return std::as_const(*this).getCompoundTransformBTROffsetPtr();
}

SelFenceIntersectInfo* GxapSelectedEntInfo::getFenceInfoPtr() const {
    return load(getFenceIntersectInfoPtr());
}

GxGeMatrix3d* GxapSelectedEntInfo::getBTRMatPtr() const {
    return load(getCompoundTransformBTROffsetPtr());
}

void GxapSelectedEntInfo::setFenceIntersectInfoPtr(SelFenceIntersectInfo* const& info) {
    storeFence(*this, info);
}

void GxapSelectedEntInfo::setCompoundTransformBTROffsetPtr(GxGeMatrix3d* const& matrix) {
    storeMatrix(*this, matrix);
}

bool GxapSelectedEntInfo::getSelFenceResultInfo(SelFenceIntersectInfo& out) const {
    const SelFenceIntersectInfo* const held = getFenceInfoPtr();
    if (!held)
        return false;
    out = *held;
    return true;
}

void GxapSelectedEntInfo::setSelFenceResultInfo(const SelFenceIntersectInfo& info) {
    if (info.index < 0)
        return;
    SelFenceIntersectInfo* const held = getFenceInfoPtr();
    if (!held) {
        auto fresh = std::make_unique<SelFenceIntersectInfo>(info);
        if (storeFence(*this, fresh.get()))
            fresh.release();
        return;
    }
    const bool heldIsUnset = held->index == -1;
    const bool heldIsLater =
        held->index > info.index || (held->index == info.index && held->param > info.param);
    if (heldIsUnset || heldIsLater)
        *held = info;
}

void GxapSelectedEntInfo::setFenceInfoPtr(const SelFenceIntersectInfo* info) {
    if (info)
        setSelFenceResultInfo(*info);
    else
        ReleaseFenceInfoPtr();
}

void GxapSelectedEntInfo::ReleaseFenceInfoPtr() {
    SelFenceIntersectInfo* const held = getFenceInfoPtr();
    if (!held)
        return;
    setFenceIntersectInfoPtr(FenceIntersectInfoPtrDefVal);
    delete held;
}

bool GxapSelectedEntInfo::getCompoundTransformWithBTROffset(GxGeMatrix3d& out) const {
    out.setToIdentity();
    const GxGeMatrix3d* const held = getBTRMatPtr();
    if (!held)
        return false;
    out = *held;
    return true;
}

void GxapSelectedEntInfo::setCompoundTransformWithBTROffset(const GxGeMatrix3d& matrix) {
    if (GxGeMatrix3d* const held = getBTRMatPtr()) {
        *held = matrix;
        return;
    }
    auto fresh = std::make_unique<GxGeMatrix3d>();
    *fresh = matrix;
    if (storeMatrix(*this, fresh.get()))
        fresh.release();
}

void GxapSelectedEntInfo::setBTRMatPtr(const GxGeMatrix3d* matrix) {
    if (matrix)
        setCompoundTransformWithBTROffset(*matrix);
    else
        ReleaseBTRMatPtr();
}

void GxapSelectedEntInfo::ReleaseBTRMatPtr() {
    GxGeMatrix3d* const held = getBTRMatPtr();
    if (!held)
        return;
    setCompoundTransformBTROffsetPtr(CompoundTransformBTROffsetPtrDefVal);
    delete held;
}

selected_entity::~selected_entity() {
    if (selectedEntityInfo)
        kvdetail::InfoDeleter()(selectedEntityInfo);
    if (highlightSegmentArray) {
        // Read in place, also where the block is shared: this record's share keeps everybody from writing to
        // it, and a private copy would need memory.
        kvdetail::dropPathOwners(*highlightSegmentArray);
        delete highlightSegmentArray;
    }
    if (hasSubselPaths)
        delete subselPathArray;
}

void* selected_entity::operator new(std::size_t bytes) {
    return ::operator new(bytes);
}

void* selected_entity::operator new(std::size_t bytes, const std::nothrow_t& tag) noexcept {
    return ::operator new(bytes, tag);
}

void selected_entity::operator delete(void* record) noexcept {
    kvdetail::RecordPool::deallocate(record);
}

void selected_entity::operator delete(void* record, const std::nothrow_t& /*tag*/) noexcept {
    kvdetail::RecordPool::deallocate(record);
}
