// Highlighting of one entity's sub-entity paths.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/KvSelectContextExport.h"

// Opens the entity for reading, calls its highlight (or, with `highlight` false, its unhighlight) for each
// path in order, with `entityFlag` passed on unchanged, and releases it again, also when a call throws. At
// most one entity is open at a time.
//
// An id that does not open as an entity (erased, invalid, no entity) is skipped silently. A null or empty
// list draws nothing; a null element is skipped. For the time of the call the drawing is one more owner of
// the list and of its paths, so that opening or highlighting an entity may clear the segments; what is added
// to them meanwhile is not drawn. The paths stay the caller's.
//
// Throws what the entity throws, and std::bad_alloc. O(paths). Belongs to the thread that uses the database.
KVSELECTCONTEXT_API void gxutEntityGxDbFullPathHighlight(const GxDbObjectId& id,
                                                         const KvVector<GxDbFullSubentPath*>* paths,
                                                         bool entityFlag, bool highlight);
