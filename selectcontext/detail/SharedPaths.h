// SharedPaths: lists of sub-entity paths, and the owners of paths that several records share.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

namespace kvdetail {

// The records of a clone share the path objects of the original records. Each record may later change its
// list or be destroyed, also on another thread. So the owners of every path must be counted. The reference
// count of a list is not enough: a list may be made private while its paths stay shared. A path cannot have a
// count itself, since callers put paths of their own into lists. So a table counts the owners of each path
// beyond the first.
//
// Invariants:
//  1. A path without an entry in the table has one owner.
//  2. A path whose entry is n has n + 1 owners.
//
// Thread safety: any thread may call every function. A lock guards only the table. Releasing a path does not
// take the lock while no path is shared.

// Makes the caller one more owner of every path of the list. Skips null elements. If there is no memory, adds
// no owner and throws std::bad_alloc. O(paths log shared paths).
void addPathOwners(const KvVector<GxDbFullSubentPath*>& paths);

// Removes one owner of the path. Deletes the path if that was the last owner. Does nothing for null. O(log
// shared paths).
void dropPathOwner(GxDbFullSubentPath* path) noexcept;

// Removes one owner of every path of the list. Deletes the paths that have no owner left.
void dropPathOwners(const KvVector<GxDbFullSubentPath*>& paths) noexcept;

// Appends a copy of the path to a list and returns the copy. Throws KvErrorStatus 6, std::bad_alloc, or what
// copying the path throws. After an exception, the list is as before the call. O(1) if there is room,
// otherwise O(length).
GxDbFullSubentPath* appendPathCopy(KvVector<GxDbFullSubentPath*>& paths, const GxDbFullSubentPath& path);

} // namespace kvdetail
