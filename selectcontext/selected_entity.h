// selected_entity: one selected item.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/GxapSelectedEntInfo.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstddef>
#include <new>

// The record of one selected item: which entity was picked, through which nested path, at which marker, and
// what of it is highlighted or sub-selected. A record belongs to the set whose store holds it. Removing an
// item frees its slot only: the record stays allocated, and its holder may delete it at any time, on any
// thread. `delete record` is right wherever its memory comes from; `::delete record` is not supported.
//
// Invariants while a set holds the record:
//  1. `mainEntId` is not null and does not change: the set's index is keyed by it.
//  2. The record owns its info, both arrays, and one share of every path of `highlightSegmentArray`.
//  3. The paths of `subselPathArray` have no owner: they outlive the record, on purpose.
//
// Thread safety: that of the set that holds it.
struct KVSELECTCONTEXT_API selected_entity {
    GxDbObjectId mainEntId;
    GxDbObjectId subEntId;   // null: the pick was not nested
    long gsMarker = -1;      // -1: no marker
    KvVector<int> hlVpArray; // viewports in which the item is highlighted
    KvVector<GxDbFullSubentPath*>* highlightSegmentArray = nullptr; // null: no segments
    KvVector<GxDbFullSubentPath*>* subselPathArray = nullptr;
    bool hasSubselPaths = false;              // the destructor releases subselPathArray only when this is set
    KvVector<GxDbObjectId> nestedEntFullPath; // outermost container first or last, as the picker has it
    GxapSelectedEntInfo* selectedEntityInfo = nullptr; // made in memory from _kvMalloc; null: none

    selected_entity() = default;

    // Both vectors without a block. For callers that give them theirs at once.
    explicit selected_entity(kvdetail::NoBlock none) noexcept : hlVpArray(none), nestedEntFullPath(none) {}
    selected_entity(const selected_entity&) = delete;
    selected_entity& operator=(const selected_entity&) = delete;

    // Gives up what the record owns. A list of highlight segments that is shared is made private first, which
    // takes a block of memory; without memory it is read in place. Never throws. O(highlight segments).
    ~selected_entity();

    // Any thread.
    static void* operator new(std::size_t bytes);
    static void* operator new(std::size_t bytes, const std::nothrow_t& tag) noexcept;
    static void* operator new(std::size_t /*bytes*/, void* place) noexcept { return place; }
    static void operator delete(void* record) noexcept;
    static void operator delete(void* record, const std::nothrow_t& tag) noexcept;
    static void operator delete(void* /*record*/, void* /*place*/) noexcept {}
};

static_assert(sizeof(selected_entity) == 72, "callers are compiled against this layout");
