// GxapSelectedEntInfo: optional data of a selected item.
#pragma once

#include "base/KvVector.h"
#include "platform/KvGeometry.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

#include <cstdint>

// The block of the optional fields. Only the library knows its members.
struct GxDbElasticData;

// Optional data of an item: above all, its earliest fence crossing (the fence info) and its compound block
// transform (the matrix). Most items have neither. So these two fields are stored in a block of their own,
// which has only the fields that are present.
//
// An info that is passed to a set belongs to the set. The caller must construct such an info in memory from
// _kvMalloc. The set calls the destructor of the info, and frees its memory with _kvFree.
//
// Invariants:
//  1. Bit 0 of `presenceBits` is set exactly when the block has a fence info, and bit 1 exactly when it has a
//     matrix. The other bits are 0.
//  2. The block has the present fields without gaps, in the order of their bits, 8 bytes each.
//  3. The info owns the fence info, the matrix and the block. The fence info and the matrix are made with
//     new, the block with _kvMalloc.
//
// The fields begin after the first four bytes of the block. So the addresses that the ...Ptr() getters return
// may be misaligned. Use memcpy to read and write through them.
//
// If there is no memory for the block, functions raise KvErrorStatus 6. If there is none for a fence info or
// a matrix, they throw std::bad_alloc. The bits and the fields are then unchanged. Only a failed assignment
// may have replaced some of the fields, each as a whole. Every operation is O(1).
//
// Thread safety: none. An info belongs to one thread at a time.
class KVSELECTCONTEXT_CLASS GxapSelectedEntInfo {
public:
    // The place where a fence first crosses an entity.
    struct SelFenceIntersectInfo {
        std::int32_t index;    // segment of the crossing; negative: no result
        std::int32_t reserved; // upper half of the first word; copied unchanged
        double param;          // orders crossings with the same index
    };

    // Makes an info with all words 0, `halfWord` -1, no points and no optional field. Allocates nothing.
    GxapSelectedEntInfo();

    // Makes a deep copy, except that the points share their block. Does not copy a fence info with a negative
    // index.
    GxapSelectedEntInfo(const GxapSelectedEntInfo& other);

    // Copies as the copy constructor does, with two differences. Replaces a fence result of this info only by
    // an earlier one (see setSelFenceResultInfo()). Deletes a fence info or a matrix that `other` lacks.
    GxapSelectedEntInfo& operator=(const GxapSelectedEntInfo& other);

    // Allocates nothing and never throws.
    ~GxapSelectedEntInfo();

    // Return the address of the pointer in the field. If the field is absent, they return the address of the
    // static default. They return null if `presenceBits` has the bit of a field that the block lacks. An
    // address in the block is valid until a field is added or removed.
    SelFenceIntersectInfo** getFenceIntersectInfoPtr();
    SelFenceIntersectInfo** getFenceIntersectInfoPtr() const;
    GxGeMatrix3d** getCompoundTransformBTROffsetPtr();
    GxGeMatrix3d** getCompoundTransformBTROffsetPtr() const;

    // Return the fence info or the matrix, which the info owns, or null.
    SelFenceIntersectInfo* getFenceInfoPtr() const;
    GxGeMatrix3d* getBTRMatPtr() const;

    // Store the pointer. The info then owns the object. They do not delete the object of the old pointer. A
    // null pointer removes the field.
    void setFenceIntersectInfoPtr(SelFenceIntersectInfo* const& info);
    void setCompoundTransformBTROffsetPtr(GxGeMatrix3d* const& matrix);

    // Copies the fence result to `out`. If there is no result, returns false and leaves `out` unchanged.
    bool getSelFenceResultInfo(SelFenceIntersectInfo& out) const;

    // Stores a copy of `info` as fence result, if there is no result yet or if `info` is earlier. A result is
    // earlier if its index is lower, or if its index is equal and its `param` is lower. If the indices are
    // equal and a `param` is NaN, the present result stays. Does nothing if the index of `info` is negative.
    void setSelFenceResultInfo(const SelFenceIntersectInfo& info);

    // setFenceInfoPtr() calls setSelFenceResultInfo(*info), or ReleaseFenceInfoPtr() if `info` is null. The
    // caller keeps the argument. ReleaseFenceInfoPtr() deletes the fence info.
    void setFenceInfoPtr(const SelFenceIntersectInfo* info);
    void ReleaseFenceInfoPtr();

    // Copies the matrix to `out`. If there is no matrix, returns false and makes `out` the identity.
    bool getCompoundTransformWithBTROffset(GxGeMatrix3d& out) const;

    // Stores a copy of the matrix in the info, even if the matrix is the identity.
    void setCompoundTransformWithBTROffset(const GxGeMatrix3d& matrix);

    // setBTRMatPtr() calls setCompoundTransformWithBTROffset(*matrix), or ReleaseBTRMatPtr() if `matrix` is
    // null. The caller keeps the argument. ReleaseBTRMatPtr() deletes the matrix of the info.
    void setBTRMatPtr(const GxGeMatrix3d* matrix);
    void ReleaseBTRMatPtr();

    // smEDataOffsetTable gives the offset of the matrix field, in bytes from the first field. Its index is 1
    // if the fence info is present, otherwise 0. Entries 2 and 3 are not used. smEDataTypeSizeTable gives the
    // sizes of the fence field and the matrix field.
    static const std::uint16_t smEDataOffsetTable[4];
    static const std::uint16_t smEDataTypeSizeTable[2];

    // The pointers that stand for absent fields. Both are null. Getters return their addresses while the
    // field is absent. Storing one of them removes the field.
    static SelFenceIntersectInfo* FenceIntersectInfoPtrDefVal;
    static GxGeMatrix3d* CompoundTransformBTROffsetPtrDefVal;

    std::uint32_t word0;              // belongs to callers; appendSubentPathSubsel() stores 6
    std::uint32_t word1;              // belongs to callers
    std::int16_t halfWord;            // belongs to callers
    KvVector<GxGePoint3d> pointArray; // belongs to callers
    std::uint64_t presenceBits;       // which optional fields are present: see invariant 1
    GxDbElasticData* elasticData;     // null before the first optional field is stored
};

// The short name of the structure.
using SelFenceIntersectInfo = GxapSelectedEntInfo::SelFenceIntersectInfo;

static_assert(sizeof(SelFenceIntersectInfo) == 16 && sizeof(GxapSelectedEntInfo) == 40,
              "callers are compiled against this layout");

namespace kvdetail {

KV_LAYOUT_TAG(builtWithLayoutOfGxapSelectedEntInfo, sizeof(GxapSelectedEntInfo),
              offsetof(GxapSelectedEntInfo, word0), offsetof(GxapSelectedEntInfo, word1),
              offsetof(GxapSelectedEntInfo, halfWord), offsetof(GxapSelectedEntInfo, pointArray),
              offsetof(GxapSelectedEntInfo, presenceBits), offsetof(GxapSelectedEntInfo, elasticData));

} // namespace kvdetail
