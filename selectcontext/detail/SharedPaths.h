// SharedPaths: lists of sub-entity paths, and the owners of paths that several records share.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"

namespace kvdetail {

// The records of a clone share the path objects of the original records. Each record may later change its
// list, or be destroyed, on its own thread. The reference count of a list does not show when to delete a
// path: a list may be made private while its paths stay shared. Callers put paths of their own into lists, so
// a path cannot have a count itself. That is why a separate table counts the owners of a path, except the
// first one.
//
// Invariants:
//  1. A path without an entry has one owner.
//  2. A path with an entry of n has n + 1 owners.
//
// Thread safety: any thread may call every function. A lock guards only the table. Releasing a path does not
// take the lock while no path is shared.

// Makes the caller one more owner of every path of the list. Skips null elements. If it throws
// std::bad_alloc, it has added no owner. O(paths log shared paths).
void addPathOwners(const KvVector<GxDbFullSubentPath*>& paths);

// Releases one ownership of the path. The call of the last owner deletes the path. Does nothing for null.
// O(log shared paths).
void dropPathOwner(GxDbFullSubentPath* path) noexcept;

// Releases one ownership of every path of the list.
void dropPathOwners(const KvVector<GxDbFullSubentPath*>& paths) noexcept;

// Appends a copy of the path to a list and returns the copy. Throws KvErrorStatus 6, std::bad_alloc, or what
// copying the path throws. Then it leaves the list as it was. O(1) if there is room, otherwise O(length).
GxDbFullSubentPath* appendPathCopy(KvVector<GxDbFullSubentPath*>& paths, const GxDbFullSubentPath& path);

} // namespace kvdetail
