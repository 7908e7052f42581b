#include "selectcontext/GxapSelectedEntInfo.h"
#include "base/detail/Raise.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

// The head of a block of 8-byte fields. The block has only the fields that are present. `capacity` bytes for
// fields begin at byte 4 of the block. So the fields are misaligned, and are read and written by memcpy.
struct GxDbElasticData {
    std::uint16_t capacity; // bytes allocated for fields
    std::uint16_t size;     // bytes used by fields
};
static_assert(sizeof(GxDbElasticData) == 4, "the payload begins at byte 4");

namespace {

constexpr unsigned kFieldBytes = 8;
static_assert(sizeof(void*) == kFieldBytes, "fields are pointers");

unsigned char* payloadOf(GxDbElasticData* block) noexcept {
    return reinterpret_cast<unsigned char*>(block + 1);
}

bool hasField(const GxDbElasticData* block, unsigned offset) noexcept {
    return block && offset + kFieldBytes <= block->size;
}

// Makes a block without fields, with room for `capacity` bytes of fields. Raises KvErrorStatus 6 if there is
// no memory.
GxDbElasticData* makeBlock(unsigned capacity) {
    void* const memory = capacity > std::numeric_limits<std::uint16_t>::max()
                             ? nullptr
                             : _kvMalloc(sizeof(GxDbElasticData) + capacity);
    if (!memory)
        kvdetail::raiseStatus(kvdetail::kStatusOutOfMemory);
    return new (memory) GxDbElasticData{static_cast<std::uint16_t>(capacity), 0};
}

// insertField() and eraseField() may replace the block. So they take a reference to the pointer to the block.

// Inserts a field at `offset`, and moves the fields at and after `offset` up. Returns false, and changes
// nothing, for an offset beyond the size. If there is no memory for a larger block, raises KvErrorStatus 6
// and changes nothing.
bool insertField(GxDbElasticData*& block, unsigned offset, const void* value) {
    const unsigned size = block ? block->size : 0;
    if (offset > size)
        return false;
    if (!block || block->capacity - size < kFieldBytes) {
        GxDbElasticData* const grown = makeBlock(size + kFieldBytes);
        if (block)
            std::memcpy(payloadOf(grown), payloadOf(block), size);
        _kvFree(block);
        block = grown;
    }
    unsigned char* const at = payloadOf(block) + offset;
    std::memmove(at + kFieldBytes, at, size - offset);
    std::memcpy(at, &value, kFieldBytes);
    block->size = static_cast<std::uint16_t>(size + kFieldBytes);
    return true;
}

// Overwrites the field at `offset`. Returns false, and changes nothing, if the block has no field there.
bool setFieldAtOffset(GxDbElasticData* block, unsigned offset, const void* value) noexcept {
    if (!hasField(block, offset))
        return false;
    std::memcpy(payloadOf(block) + offset, &value, kFieldBytes);
    return true;
}

// Removes the field at `offset`, and moves the later fields down. If other fields remain, shrinks the block
// to these fields. Returns false, and changes nothing, if the block has no field at
// `offset`. If there is no memory for the smaller block, raises KvErrorStatus 6 and changes nothing.
bool eraseField(GxDbElasticData*& block, unsigned offset) {
    if (!hasField(block, offset))
        return false;
    const unsigned newSize = block->size - kFieldBytes;
    GxDbElasticData* const target = newSize != 0 && newSize != block->capacity ? makeBlock(newSize) : block;
    std::memmove(payloadOf(target), payloadOf(block), offset);
    std::memmove(payloadOf(target) + offset, payloadOf(block) + offset + kFieldBytes, newSize - offset);
    target->size = static_cast<std::uint16_t>(newSize);
    if (target != block)
        _kvFree(block);
    block = target;
    return true;
}

constexpr std::uint64_t kFenceBit = 1;
constexpr std::uint64_t kMatrixBit = 2;
constexpr unsigned kFenceOffset = 0;

unsigned matrixOffset(const GxapSelectedEntInfo& info) {
    return GxapSelectedEntInfo::smEDataOffsetTable[info.presenceBits & kFenceBit];
}

// Returns the address of the block's field at `offset`. Returns null if the block has no field there.
template <class T>
T** fieldAt(GxDbElasticData* block, unsigned offset) {
    if (!hasField(block, offset))
        return nullptr;
    void* const field = payloadOf(block) + offset;
    return static_cast<T**>(field);
}

// Loads a pointer from an address that may be misaligned. Returns null if the address is null.
template <class T>
T* load(T* const* place) {
    T* value = nullptr;
    if (place)
        std::memcpy(&value, static_cast<const void*>(place), sizeof value);
    return value;
}

// Stores or replaces a field. Removes the field if `value` is `defaultValue`. Returns false if `presenceBits`
// and the fields of the block do not agree. Changes the bit after the block. So if changing the block throws,
// the bits and the fields stay as they were.
template <class T>
bool storeField(GxapSelectedEntInfo& info, std::uint64_t bit, unsigned offset, T* value, T* defaultValue) {
    const bool present = (info.presenceBits & bit) != 0;
    if (value == defaultValue) {
        if (present)
            eraseField(info.elasticData, offset);
        info.presenceBits &= ~bit;
        return true;
    }
    if (present)
        return setFieldAtOffset(info.elasticData, offset, value);
    if (!insertField(info.elasticData, offset, value))
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

// Delegates to the default constructor, so that the destructor runs if the body throws.
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

// Does not call the Release...() members: they compact the block, which needs memory.
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
