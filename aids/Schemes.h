// Selection schemes: what a pick does to the set that the user already has.
#pragma once

#include "aids/AidsExport.h"
#include "aids/Reclaim.h"

#include <vector>

namespace kv {

enum class Scheme {
    kReplace, // the set has the picked items only
    kAdd,     // the set also has the picked items
    kRemove,  // the set has none of the picked items any more
    kToggle   // picked items that the set had go, the others come
};

// What a scheme changed.
struct Applied {
    // The records of the items that came, in the order of the set. The set owns them. They are valid until
    // they are removed, or the set gets other data.
    std::vector<const selected_entity*> came;
    // The records of the items that went, in the order of the set. They belong to the receiver.
    Records went;

    bool isEmpty() const noexcept { return came.empty() && went.empty(); }
};

// Changes the set by the picked items, and returns what changed. An item is the same as a picked one if
// findInMap() says so of its five keys. Items that stay keep their records and their order. Items that come
// are added at the end by append(), without highlights and sub-selections.
//
// `picked` may be the set itself, or share its data. If nothing changes, shared data stays shared. In a set
// whose `unique` is false, kAdd adds every picked item, and the others remove every item that is the same as
// a picked one; kReplace keeps as many as were picked.
//
// Throws std::bad_alloc or KvErrorStatus 6 if there is no memory. The set is then whole, but some of the
// items may have gone or come; the records of those that went are destroyed. O(p * (log n + items of a main
// id)) for p picked items, and O(n) more for kReplace and for shared data. Thread safety: that of both sets.
KV_AIDS_API Applied apply(GxapSelectSet& set, Scheme scheme, const GxapSelectSet& picked);

} // namespace kv
