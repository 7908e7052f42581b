// ItemKeys: the keys of an item. Compares records with these keys.
#pragma once

#include "base/detail/Same.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/OwnedInfo.h"

#include <utility>

namespace kvdetail {

// Which markers of records match the wanted marker.
enum class Markers {
    kEqual, // markers that are equal by isGsMarkEqual(), for which 0 equals -1
    kExact, // markers with the same number
    kAny
};

// The keys of a wanted item. A null path matches every path and every block transform.
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

// Returns whether the record has the keys. Does not compare the main id.
inline bool hasKeys(const selected_entity& record, const ItemKeys& keys) {
    return isSame(record.subEntId, keys.subId) && isMarkerWanted(record.gsMarker, keys) &&
           (!keys.path || record.nestedEntFullPath == *keys.path);
}

// Returns whether the record has the keys. If the keys have a path, also compares the block transform of the
// record with `matrix`. Does not compare the main id.
inline bool isItem(const selected_entity& record, const ItemKeys& keys, const GxGeMatrix3d* matrix) {
    return hasKeys(record, keys) &&
           (!keys.path || isMatrixEqual(matrix, matrixOf(record.selectedEntityInfo)));
}

// Gives a new record its keys and its info. A null path leaves the path of the record empty.
inline void setKeys(selected_entity& record, const ItemKeys& keys, OwnedInfo&& info) {
    record.mainEntId = keys.mainId;
    record.subEntId = keys.subId;
    record.gsMarker = keys.gsMarker;
    if (keys.path)
        record.nestedEntFullPath = *keys.path;
    record.selectedEntityInfo = info.release();
}

} // namespace kvdetail
