// Ids that no database has issued, vectors of ids, and the empty block of vectors.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

#include <cstdint>
#include <initializer_list>

namespace kvtest {

// Id number n. 0 is the null id. The ids ascend with n. They are for comparisons and storage, and must not
// be opened.
inline GxDbObjectId id(unsigned long n) {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>(16 * n));
}

// An id, or the number of one.
struct AnyId {
    AnyId(unsigned long n) : value(id(n)) {}
    AnyId(const GxDbObjectId& other) : value(other) {}

    GxDbObjectId value;
};

// idVector({1, 2, 3}) or idVector({id(1), drawn}).
KvVector<GxDbObjectId> idVector(std::initializer_list<AnyId> ids = {});

// A sub-entity path of these ids, with a part of this type and index.
GxDbFullSubentPath subentPath(std::initializer_list<AnyId> ids, std::int32_t type = 0,
                              std::int64_t index = 0);

// The reference count of the empty block, including the platform's own reference. 0 without an empty block.
std::uint32_t emptyBlockCount();

// Removes the empty block for a scope.
//
// Invariant: gpEmptyVectorData is null while the object lives, and restored at its end.
//
// Thread safety: none; no other thread uses a vector meanwhile.
class WithoutEmptyBlock {
public:
    WithoutEmptyBlock();
    WithoutEmptyBlock(const WithoutEmptyBlock&) = delete;
    WithoutEmptyBlock& operator=(const WithoutEmptyBlock&) = delete;
    ~WithoutEmptyBlock();

private:
    KvVectorBlock* mBlock;
};

} // namespace kvtest
