// Watched: tells one listener what edits have changed in a set.
#pragma once

#include "aids/AidsExport.h"
#include "selectcontext/GxapSSetWriteAccessor.h"

#include <functional>
#include <vector>

namespace kv {

// The keys of an item, as values. They stay readable when the item is gone. A copy shares the path's block.
struct ItemKeys {
    GxDbObjectId mainEntId;
    GxDbObjectId subEntId;
    long gsMarker = -1;
    KvVector<GxDbObjectId> nestedEntFullPath;
};

// What came into a set and what went, each in the order of the set. An item whose keys changed has gone and
// come. Items that only got another place, and other fields than the keys, count as unchanged.
struct Change {
    std::vector<ItemKeys> came;
    std::vector<ItemKeys> went;

    bool isEmpty() const noexcept { return came.empty() && went.empty(); }
};

// Watches a set. After each edit() or batch in which items came or went, calls the listener once. Never calls
// it for single items, or without a change.
//
// The difference is taken between the items now and those at the last report. So edits that do not go through
// edit() are reported with the next one. Edits change the set as usual: shared data is copied only if the
// edit copies it, and removed records stay allocated.
//
// The watched set must outlive the object. The listener may call edit(), which makes another call of the
// listener. If the listener throws, the exception passes on, and the change counts as reported.
//
// Costs: a report costs O(n), and O(c log c) for c items that changed or got other records. 48 bytes are kept
// for each item. If there is no memory, functions throw std::bad_alloc, and the next report includes the
// change. Thread safety: that of the set.
class KV_AIDS_API Watched {
public:
    using Listener = std::function<void(const Change&)>;

    // The items that the set has now are not reported. The listener must not be empty.
    Watched(GxapSelectSet& set, Listener listener);
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched();

    // Calls edit(accessor), and reports unless a batch is open. If `edit` throws, reports nothing, and the
    // next report includes what it has changed.
    void edit(const std::function<void(GxapSSetWriteAccessor&)>& edit);

    // Open and close a batch. Batches may be nested: only the end of the outermost one reports. endBatch()
    // without an open batch only reports.
    void beginBatch() noexcept { ++mDepth; }
    void endBatch();

    const GxapSelectSet& set() const noexcept { return mSet; }

private:
    // An item at the last report. The record is only compared, since it may have been deleted.
    struct Seen {
        const void* record;
        ItemKeys keys;
    };

    static std::vector<Seen> itemsOf(const GxapSelectSet& set);
    static Change changeBetween(const std::vector<Seen>& before, const std::vector<Seen>& after);
    void report();

    GxapSelectSet& mSet;
    Listener mListener;
    std::vector<Seen> mReported;
    int mDepth = 0;
};

} // namespace kv
