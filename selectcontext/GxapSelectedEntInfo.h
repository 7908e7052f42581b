// GxapSelectedEntInfo: the optional extras of a selected item.
#pragma once

#include "base/KvVector.h"
#include "platform/KvGeometry.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstdint>

struct GxDbElasticData;

// The earliest fence crossing and the compound block transform of an item. Most items have neither, so the
// two are kept in a block that holds only what is present. A set takes over infos that were made in place in
// memory from _kvMalloc; it runs the destructor and frees them with _kvFree.
//
// Invariants:
//  1. Bit 0 of `presenceBits` is set exactly when the block holds a fence info, bit 1 when it holds a
//     matrix; the other bits are 0.
//  2. The block holds the present fields without gaps, in the order of their bits, 8 bytes each.
//  3. The info owns the fence info, the matrix (both made with new) and the block (made with _kvMalloc).
//
// The block's payload begins behind its first four bytes, so the addresses that the ...Ptr() getters return
// may be misaligned: read and write through them with memcpy. Running out of memory is KvErrorStatus 6 for
// the block, std::bad_alloc for a fence info or a matrix; the info then keeps its bits and fields as they
// were (an assignment leaves each field old or new). Every operation is O(1).
//
// Thread safety: none; an info belongs to one thread at a time.
class KVSELECTCONTEXT_API GxapSelectedEntInfo {
public:
    // Where a fence first crosses an entity.
    struct SelFenceIntersectInfo {
        std::int32_t index;    // segment of the fence's result; negative: no result
        std::int32_t reserved; // upper half of the first word, copied as it is
        double param;          // orders crossings of equal index
    };

    // All words 0, `halfWord` -1, no points, no optional field. Allocates nothing.
    GxapSelectedEntInfo();

    // A deep copy but for the points, whose block is shared. A fence info of negative index is not copied.
    GxapSelectedEntInfo(const GxapSelectedEntInfo& other);

    // As copying, but keeps this info's own fence result if that is the earlier one. A fence info or matrix
    // that the other lacks is deleted.
    GxapSelectedEntInfo& operator=(const GxapSelectedEntInfo& other);

    // Allocates nothing, never throws.
    ~GxapSelectedEntInfo();

    // Where the field's pointer is stored: the static default when the field is absent, null when the block
    // does not hold what the bits promise.
    SelFenceIntersectInfo** getFenceIntersectInfoPtr();
    SelFenceIntersectInfo** getFenceIntersectInfoPtr() const;
    GxGeMatrix3d** getCompoundTransformBTROffsetPtr();
    GxGeMatrix3d** getCompoundTransformBTROffsetPtr() const;

    // The fence info or matrix held, or null. It stays the info's.
    SelFenceIntersectInfo* getFenceInfoPtr() const;
    GxGeMatrix3d* getBTRMatPtr() const;

    // Stores the pointer, which the info then owns; the one held before is not deleted. Null removes the
    // field.
    void setFenceIntersectInfoPtr(SelFenceIntersectInfo* const& info);
    void setCompoundTransformBTROffsetPtr(GxGeMatrix3d* const& matrix);

    // Copies the fence result out; false, and `out` as it was, when there is none.
    bool getSelFenceResultInfo(SelFenceIntersectInfo& out) const;

    // Keeps the earlier of the held result and `info`: the lower index, then the lower parameter. A negative
    // index is ignored; a NaN keeps the held result.
    void setSelFenceResultInfo(const SelFenceIntersectInfo& info);

    // As setSelFenceResultInfo; null deletes the fence info.
    void setFenceInfoPtr(const SelFenceIntersectInfo* info);
    void ReleaseFenceInfoPtr();

    // Copies the matrix out; false, and `out` the identity, when there is none.
    bool getCompoundTransformWithBTROffset(GxGeMatrix3d& out) const;

    // Copies the matrix in, whatever its value.
    void setCompoundTransformWithBTROffset(const GxGeMatrix3d& matrix);

    // As setCompoundTransformWithBTROffset; null deletes the matrix. The argument stays the caller's.
    void setBTRMatPtr(const GxGeMatrix3d* matrix);
    void ReleaseBTRMatPtr();

    // Offset in the payload of a field, by the presence bits of the fields before it; the last two entries
    // are those of a third field that does not exist.
    static const std::uint16_t smEDataOffsetTable[4];
    static const std::uint16_t smEDataTypeSizeTable[2];

    // What a getter points at while the field is absent, and what removes the field when stored: null.
    static SelFenceIntersectInfo* FenceIntersectInfoPtrDefVal;
    static GxGeMatrix3d* CompoundTransformBTROffsetPtrDefVal;

    std::uint32_t word0;
    std::uint32_t word1;
    std::int16_t halfWord;
    KvVector<GxGePoint3d> pointArray;
    std::uint64_t presenceBits;
    GxDbElasticData* elasticData; // null until an optional field is first stored
};

using SelFenceIntersectInfo = GxapSelectedEntInfo::SelFenceIntersectInfo;

static_assert(sizeof(SelFenceIntersectInfo) == 16 && sizeof(GxapSelectedEntInfo) == 40,
              "callers are compiled against this layout");
