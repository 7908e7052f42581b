// gxutEntityGxDbFullPathHighlight: highlights the sub-entity paths of one entity.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

// Opens the entity of `id` for reading, and calls highlight() of the entity for each path in order. If
// `highlight` is false, calls unhighlight() instead. `entityFlag` is passed on unchanged. The entity is
// released at the end, also when a call throws. At most one entity is open at a time.
//
// Does nothing for an id that does not open as an entity (erased, invalid, no entity). Draws nothing for a
// null or empty list. Skips null elements. The caller keeps the paths. During the call, the function is one
// more owner of every path. So opening or highlighting an entity may clear the list. Paths that are added to
// the list during the call are not drawn. An entity that deletes a path itself is the caller's error.
//
// Throws what the entity throws, and std::bad_alloc. If releasing the entity throws while another exception
// passes, the process ends. O(paths). Thread safety: call it on the thread that uses the database.
KVSELECTCONTEXT_API void gxutEntityGxDbFullPathHighlight(const GxDbObjectId& id,
                                                         const KvVector<GxDbFullSubentPath*>* paths,
                                                         bool entityFlag, bool highlight);
