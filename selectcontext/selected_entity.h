// selected_entity: one selected item.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/GxapSelectedEntInfo.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

#include <cstddef>
#include <new>

// The record of one selected item. The record says which entity was picked, through which nested path, at
// which marker, and which parts are highlighted or sub-selected.
//
// A record belongs to the set whose store has the record. Removing an item frees only its slot. The record
// stays allocated, and any code that has a pointer to it may delete it at any time, on any thread. `delete
// record` is right for every record. The same with the global operator, `::`, is not supported.
//
// Invariants while the record is in a set:
//  1. `mainEntId` is not null and does not change, since the set's index uses it as key.
//  2. The record owns its info, and the lists `highlightSegmentArray` and `subselPathArray`. It is one owner
//     of every path of `highlightSegmentArray`.
//  3. The paths of `subselPathArray` have no owner, and outlive the record on purpose.
//
// Thread safety: that of the set that has the record.
struct KVSELECTCONTEXT_CLASS selected_entity {
    GxDbObjectId mainEntId;  // the picked entity, or the outermost block reference
    GxDbObjectId subEntId;   // null: the pick was not nested
    long gsMarker = -1;      // -1: no marker
    KvVector<int> hlVpArray; // viewports in which the item is highlighted
    KvVector<GxDbFullSubentPath*>* highlightSegmentArray = nullptr; // null: no segments
    KvVector<GxDbFullSubentPath*>* subselPathArray = nullptr;       // null: no sub-selection
    bool hasSubselPaths = false;                       // if true, the destructor deletes subselPathArray
    KvVector<GxDbObjectId> nestedEntFullPath;          // outermost id first or last: callers decide
    GxapSelectedEntInfo* selectedEntityInfo = nullptr; // in memory from _kvMalloc; null: no info

    // Makes a record with null ids, and without marker, paths and info. O(1), allocates nothing.
    selected_entity() = default;

    // Makes both vectors without a block. The caller must give them blocks at once.
    explicit selected_entity(kvdetail::NoBlock none) noexcept : hlVpArray(none), nestedEntFullPath(none) {}
    selected_entity(const selected_entity&) = delete;
    selected_entity& operator=(const selected_entity&) = delete;

    // Releases what the record owns. First makes the block of highlightSegmentArray private, which needs
    // memory. If there is no memory, reads the shared block instead. Never throws. O(highlight segments).
    ~selected_entity();

    // Allocate and free a record. The placement forms do neither. Any thread may call these operators.
    static void* operator new(std::size_t bytes);
    static void* operator new(std::size_t bytes, const std::nothrow_t& tag) noexcept;
    static void* operator new(std::size_t /*bytes*/, void* place) noexcept { return place; }
    static void operator delete(void* record) noexcept;
    static void operator delete(void* record, const std::nothrow_t& tag) noexcept;
    static void operator delete(void* /*record*/, void* /*place*/) noexcept {}
};

static_assert(sizeof(selected_entity) == 72, "callers are compiled against this layout");

namespace kvdetail {

KV_LAYOUT_TAG(builtWithLayoutOf_selected_entity, sizeof(selected_entity),
              offsetof(selected_entity, mainEntId), offsetof(selected_entity, subEntId),
              offsetof(selected_entity, gsMarker), offsetof(selected_entity, hlVpArray),
              offsetof(selected_entity, highlightSegmentArray), offsetof(selected_entity, subselPathArray),
              offsetof(selected_entity, hasSubselPaths), offsetof(selected_entity, nestedEntFullPath),
              offsetof(selected_entity, selectedEntityInfo));

} // namespace kvdetail
