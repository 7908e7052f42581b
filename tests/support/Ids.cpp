#include "tests/support/Ids.h"

namespace kvtest {

KvVector<GxDbObjectId> idVector(std::initializer_list<AnyId> ids) {
    KvVector<GxDbObjectId> vector;
    vector.setLogicalLength(static_cast<int>(ids.size()));
    int i = 0;
    for (const AnyId& any : ids)
        vector.at(i++) = any.value;
    return vector;
}

GxDbFullSubentPath subentPath(std::initializer_list<AnyId> ids, std::int32_t type, std::int64_t index) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(ids.size()));
    int i = 0;
    for (const AnyId& any : ids)
        path.objectIds()[i++] = any.value;
    path.subentId().type = type;
    path.subentId().index = index;
    return path;
}

std::uint32_t emptyBlockCount() {
    return gpEmptyVectorData == nullptr ? 0 : gpEmptyVectorData->refCount.load();
}

WithoutEmptyBlock::WithoutEmptyBlock() : mBlock(gpEmptyVectorData) {
    gpEmptyVectorData = nullptr;
}

WithoutEmptyBlock::~WithoutEmptyBlock() {
    gpEmptyVectorData = mBlock;
}

} // namespace kvtest
