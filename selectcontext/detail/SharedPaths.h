// SharedPaths: lists of sub-entity paths, and the owners of paths that several records refer to.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

namespace kvdetail {

// A clone's records share the path objects of the records that they copy. Each sharer may later change its
// list or die, on its own thread. The count of a list does not show when a path is free, as a list may be
// made private while its paths stay shared. A count in the path itself is impossible, as callers put paths of
// their own into lists. So the owners beyond the first are counted in a table beside the paths.
//
// Invariants:
//  1. A path without an entry has one owner.
//  2. A path with an entry of n has n + 1 owners.
//
// Thread safety: every function may be called from any thread. A lock guards the table and nothing else. It
// is not taken to give paths up while no path is shared.

// Makes the caller one more owner of every path of the list; null elements are skipped. All or, with
// std::bad_alloc, none. O(paths log shared paths).
void addPathOwners(const KvVector<GxDbFullSubentPath*>& paths);

// Gives one ownership of the path up; the last owner's call deletes it. Null: nothing. O(log shared paths).
void dropPathOwner(GxDbFullSubentPath* path) noexcept;

// Gives one ownership of every path of the list up.
void dropPathOwners(const KvVector<GxDbFullSubentPath*>& paths) noexcept;

// Appends a copy of the path to a list, and returns it. KvErrorStatus 6, std::bad_alloc or what copying the
// path throws leave the list as it was. O(1) where there is room, else O(length).
GxDbFullSubentPath* appendPathCopy(KvVector<GxDbFullSubentPath*>& paths, const GxDbFullSubentPath& path);

} // namespace kvdetail
