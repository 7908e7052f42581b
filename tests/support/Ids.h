// Ids that no database has issued, vectors of ids, and the block that empty vectors share.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

#include <cstdint>
#include <initializer_list>

namespace kvtest {

// Returns id number n. 0 is the null id. A greater n gives a greater id. The ids are only for comparisons and
// storage, and must not be opened.
inline GxDbObjectId id(unsigned long n) {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>(16 * n));
}

// An id, or its number.
struct AnyId {
    AnyId(unsigned long n) : value(id(n)) {}
    AnyId(const GxDbObjectId& other) : value(other) {}

    GxDbObjectId value;
};

// Makes a vector of ids: idVector({1, 2, 3}) or idVector({id(1), drawn}).
KvVector<GxDbObjectId> idVector(std::initializer_list<AnyId> ids = {});

// Makes a sub-entity path of these ids, with a part of this type and index.
GxDbFullSubentPath subentPath(std::initializer_list<AnyId> ids, std::int32_t type = 0,
                              std::int64_t index = 0);

// Returns the reference count of the empty block, including the platform's own reference. Returns 0 if there
// is no empty block.
std::uint32_t emptyBlockCount();

// Removes the empty block, so that new vectors have no block. The destructor restores gpEmptyVectorData.
//
// Invariant: gpEmptyVectorData is null while the object lives.
//
// Thread safety: none. No other thread may use a vector while the object lives.
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
