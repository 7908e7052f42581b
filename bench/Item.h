// The items of the benchmark, and the record that a peer keeps for an item. A peer is a contender other than
// the library.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "platform/KvGeometry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

namespace kvbench {

// An item to select. It has no path and no transform, like most items that a user picks.
struct Pick {
    GxDbObjectId mainId;
    GxDbObjectId subId;
    long gsMarker = -1;
};
using Picks = std::vector<Pick>;

// An item inside nested blocks. The path is not a member of Pick, so that a Pick is small.
struct NestedPick : Pick {
    KvVector<GxDbObjectId> path;
};
using NestedPicks = std::vector<NestedPick>;

// Returns the id with this index. A greater index gives a greater id.
inline GxDbObjectId idAt(std::size_t index) {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>((index + 1) * 64));
}

struct IdHash {
    std::size_t operator()(const GxDbObjectId& id) const noexcept {
        return std::hash<const void*>()(id.stub());
    }
};

struct IdEqual {
    bool operator()(const GxDbObjectId& a, const GxDbObjectId& b) const noexcept { return a == b; }
};

// Holds a value on the heap, or no value. Copying an Owned copies the value.
template <class T>
class Owned {
public:
    Owned() = default;
    Owned(const Owned& other) : mValue(other.mValue ? std::make_unique<T>(*other.mValue) : nullptr) {}
    Owned(Owned&&) noexcept = default;
    Owned& operator=(const Owned& other) {
        mValue = other.mValue ? std::make_unique<T>(*other.mValue) : nullptr;
        return *this;
    }
    Owned& operator=(Owned&&) noexcept = default;

    const T* get() const { return mValue.get(); }
    T* get() { return mValue.get(); }
    T& make() { return mValue ? *mValue : *(mValue = std::make_unique<T>()); }

private:
    std::unique_ptr<T> mValue;
};

// The record of a peer. It has the fields of selected_entity, in containers that an application would use.
struct PeerItem {
    PeerItem() = default;
    explicit PeerItem(const Pick& pick) : mainId(pick.mainId), subId(pick.subId), gsMarker(pick.gsMarker) {}
    explicit PeerItem(const NestedPick& pick) : PeerItem(static_cast<const Pick&>(pick)) {
        path.reserve(static_cast<std::size_t>(pick.path.logicalLength()));
        for (int i = 0; i < pick.path.logicalLength(); ++i)
            path.push_back(pick.path.at(i));
    }

    // Returns whether this is a gap, which replaces a removed item. Only a gap has no main id.
    bool isGap() const { return !mainId.stub(); }

    GxDbObjectId mainId;
    GxDbObjectId subId;
    long gsMarker = -1;
    std::vector<int> viewports;
    Owned<std::vector<GxDbFullSubentPath>> segments;
    Owned<std::vector<GxDbFullSubentPath>> subselection;
    std::vector<GxDbObjectId> path;
    Owned<GxGeMatrix3d> transform;
};
static_assert(std::is_nothrow_move_constructible_v<PeerItem> && std::is_nothrow_move_assignable_v<PeerItem>,
              "a growing vector moves its items");

inline bool isNoMarker(long marker) {
    return marker == 0 || marker == -1;
}

inline bool isSameTransform(const GxGeMatrix3d* a, const GxGeMatrix3d* b) {
    return a && b ? a->isEqualTo(*b) : a == b;
}

inline bool isSameMarker(long a, long b) {
    return isNoMarker(a) ? isNoMarker(b) : a == b;
}

inline bool isSamePath(const std::vector<GxDbObjectId>& a, const KvVector<GxDbObjectId>& b) {
    if (a.size() != static_cast<std::size_t>(b.logicalLength()))
        return false;
    int i = 0;
    return std::all_of(a.begin(), a.end(), [&](const GxDbObjectId& id) { return id == b.at(i++); });
}

// Return whether the item has the same five keys as `pick`: main id, sub id, marker, path and transform. The
// markers 0 and -1 are equal. A Pick has an empty path, and no pick has a transform.
inline bool isSame(const PeerItem& item, const Pick& pick) {
    return item.mainId == pick.mainId && item.subId == pick.subId &&
           isSameMarker(item.gsMarker, pick.gsMarker) && item.path.empty() &&
           isSameTransform(item.transform.get(), nullptr);
}

inline bool isSame(const PeerItem& item, const NestedPick& pick) {
    return item.mainId == pick.mainId && item.subId == pick.subId &&
           isSameMarker(item.gsMarker, pick.gsMarker) && isSamePath(item.path, pick.path) &&
           isSameTransform(item.transform.get(), nullptr);
}

// Returns whether two items have the same main id, sub id, marker and path. contains() compares items by
// these four keys, without the transform.
inline bool hasSameKeys(const PeerItem& a, const PeerItem& b) {
    return a.mainId == b.mainId && a.subId == b.subId && isSameMarker(a.gsMarker, b.gsMarker) &&
           a.path == b.path;
}

inline bool isSame(const PeerItem& a, const PeerItem& b) {
    return hasSameKeys(a, b) && isSameTransform(a.transform.get(), b.transform.get());
}

// Returns whether the item has the main id, sub id and marker of `pick`. Items are removed by these three
// keys. Here, the markers 0 and -1 are different.
inline bool hasKeys(const PeerItem& item, const Pick& pick) {
    return item.mainId == pick.mainId && item.subId == pick.subId && item.gsMarker == pick.gsMarker;
}

inline Pick keysOf(const PeerItem& item) {
    return {item.mainId, item.subId, item.gsMarker};
}

} // namespace kvbench
