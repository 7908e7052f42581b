// Ids that no database has issued, vectors of them, and the empty block that such vectors share.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

#include <cstdint>
#include <initializer_list>

namespace kvtest {

// Id number n: the null id for 0, otherwise ascending with n. Good for comparing and storing, not for
// opening.
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

// A sub-entity path of these ids and a part of this type and index.
GxDbFullSubentPath subentPath(std::initializer_list<AnyId> ids, std::int32_t type = 0,
                              std::int64_t index = 0);

// How many vectors share the empty block, the platform's own reference included; 0 when there is no such
// block.
std::uint32_t emptyBlockCount();

// As long as it lives there is no empty block: gpEmptyVectorData is null.
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
