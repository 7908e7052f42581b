// ItemOrder: orders items by their keys, and compares the rest of items.
#pragma once

#include "selectcontext/GxapSelectSet.h"

namespace kv::detail {

// The functions below return a negative number, 0 or a positive number if `a` is before, equal to or behind
// `b`. The order is that of the application's ids. O(1), or O(path) for equal ids and markers.

inline int compareIds(const GxDbObjectId& a, const GxDbObjectId& b) {
    if (a.stub() == b.stub())
        return 0;
    if (a < b)
        return -1;
    return b < a ? 1 : 0;
}

inline int comparePaths(const KvVector<GxDbObjectId>& a, const KvVector<GxDbObjectId>& b) {
    if (a.data.block == b.data.block)
        return 0;
    if (a.logicalLength() != b.logicalLength())
        return a.logicalLength() < b.logicalLength() ? -1 : 1;
    for (int i = 0; i < a.logicalLength(); ++i) {
        if (const int order = compareIds(a.at(i), b.at(i)))
            return order;
    }
    return 0;
}

// Returns one number for the two markers that both mean "no marker".
inline long markerKey(long gsMarker) noexcept {
    return gsMarker == 0 ? -1 : gsMarker;
}

// Compares main id, sub id, marker and nested path. `A` and `B` are selected_entity or ItemKeys.
template <class A, class B>
int compareItems(const A& a, const B& b) {
    if (const int order = compareIds(a.mainEntId, b.mainEntId))
        return order;
    if (const int order = compareIds(a.subEntId, b.subEntId))
        return order;
    const long left = markerKey(a.gsMarker);
    const long right = markerKey(b.gsMarker);
    if (left != right)
        return left < right ? -1 : 1;
    return comparePaths(a.nestedEntFullPath, b.nestedEntFullPath);
}

inline const GxGeMatrix3d* transformOf(const selected_entity& item) {
    return item.selectedEntityInfo ? item.selectedEntityInfo->getBTRMatPtr() : nullptr;
}

// Returns whether both items have equal block transforms, or both have none.
inline bool isSameTransform(const selected_entity& a, const selected_entity& b) {
    const GxGeMatrix3d* const left = transformOf(a);
    const GxGeMatrix3d* const right = transformOf(b);
    if (!left || !right)
        return left == right;
    return left->isEqualTo(*right, GxGeContext::gTol);
}

} // namespace kv::detail
