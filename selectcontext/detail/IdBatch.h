// IdBatch: sorts many ids into the order of the id index.
#pragma once

#include "platform/KvDatabase.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvdetail {

// Collects ids, each with a value for the caller, and sorts them by the addresses of their stubs (LSD radix
// sort). Most often, the ids have the same order as their stubs. But only the application knows the order of
// the ids. So sort() compares each id with the id before.
//
// Invariant after sort() has returned true: the items are in the order of their ids. Items of one id have the
// same stub, are neighbours, and are in the order in which they were added.
//
// Thread safety: none. A batch belongs to one operation.
class IdBatch {
public:
    struct Item {
        std::uintptr_t stub;
        std::uintptr_t value;

        GxDbObjectId id() const noexcept { return GxDbObjectId(reinterpret_cast<GxDbStub*>(stub)); }
    };

    // Makes room for this number of ids. O(n). Throws std::bad_alloc if there is no memory.
    void reserve(std::size_t count) { mItems.reserve(count); }
    // Adds an id with a value. Amortised O(1). Throws std::bad_alloc if there is no memory.
    void add(const GxDbObjectId& id, std::uintptr_t value) {
        const auto stub = reinterpret_cast<std::uintptr_t>(id.stub());
        mIsSorted = mIsSorted && (mItems.empty() || mItems.back().stub <= stub);
        mItems.push_back({stub, value});
    }

    // Sorts the ids. Returns false if the order of the stubs is not that of the ids, or if two stubs name one
    // object. O(n). Throws std::bad_alloc if there is no memory.
    bool sort();

    const Item* begin() const noexcept { return mItems.data(); }
    const Item* end() const noexcept { return mItems.data() + mItems.size(); }
    std::size_t size() const noexcept { return mItems.size(); }

    // Returns the end of the items that have the id of `first`. O(items of the id).
    const Item* endOfId(const Item* first) const noexcept {
        const Item* last = first;
        while (last != end() && last->stub == first->stub)
            ++last;
        return last;
    }

private:
    void sortByStub();
    bool isInOrderOfIds() const;

    std::vector<Item> mItems;
    bool mIsSorted = true; // by stub
};

} // namespace kvdetail
