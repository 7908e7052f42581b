// ItemKeys: what identifies an item among those of one main id.
#pragma once

#include "base/detail/Same.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/OwnedInfo.h"

#include <utility>

namespace kvdetail {

// Which markers of a record suit the wanted one.
enum class Markers {
    kEqual, // by isGsMarkEqual(): 0 and -1 are equal
    kExact, // the very number
    kAny
};

// A null path stands for any path, and for any block transform.
struct ItemKeys {
    const GxDbObjectId& mainId;
    const GxDbObjectId& subId;
    long gsMarker;
    const KvVector<GxDbObjectId>* path;
    Markers markers = Markers::kEqual;
};

inline ItemKeys keysOf(const selected_entity& record) noexcept {
    return {record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath};
}

inline const GxGeMatrix3d* matrixOf(const GxapSelectedEntInfo* info) {
    return info ? info->getBTRMatPtr() : nullptr;
}

inline bool isMatrixEqual(const GxGeMatrix3d* wanted, const GxGeMatrix3d* held) {
    if (!wanted || !held)
        return wanted == held;
    return wanted->isEqualTo(*held, GxGeContext::gTol);
}

inline bool isMarkerWanted(long held, const ItemKeys& keys) {
    switch (keys.markers) {
    case Markers::kEqual:
        return isGsMarkEqual(held, keys.gsMarker);
    case Markers::kExact:
        return held == keys.gsMarker;
    case Markers::kAny:
        break;
    }
    return true;
}

// The record has the keys other than the main id.
inline bool hasKeys(const selected_entity& record, const ItemKeys& keys) {
    return isSame(record.subEntId, keys.subId) && isMarkerWanted(record.gsMarker, keys) &&
           (!keys.path || record.nestedEntFullPath == *keys.path);
}

// The same, and where there is a path it has the block transform.
inline bool isItem(const selected_entity& record, const ItemKeys& keys, const GxGeMatrix3d* matrix) {
    return hasKeys(record, keys) &&
           (!keys.path || isMatrixEqual(matrix, matrixOf(record.selectedEntityInfo)));
}

// Gives a fresh record its keys, and the info. Without a path the record's stays empty.
inline void setKeys(selected_entity& record, const ItemKeys& keys, OwnedInfo&& info) {
    record.mainEntId = keys.mainId;
    record.subEntId = keys.subId;
    record.gsMarker = keys.gsMarker;
    if (keys.path)
        record.nestedEntFullPath = *keys.path;
    record.selectedEntityInfo = info.release();
}

} // namespace kvdetail
