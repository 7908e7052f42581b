// Highlighting of sets, items and paths through the database's entities.

#include "selectcontext/GxapSelectHighlight.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/SharedPaths.h"

namespace {

// One more owner of a list and of its paths for the time of a drawing: what opening or highlighting an entity
// sets off may clear the segments that are drawn.
class HeldPaths {
public:
    explicit HeldPaths(const KvVector<GxDbFullSubentPath*>* paths) {
        if (!paths)
            return;
        kvdetail::addPathOwners(*paths);
        mPaths = *paths;
    }
    HeldPaths(const HeldPaths&) = delete;
    HeldPaths& operator=(const HeldPaths&) = delete;
    ~HeldPaths() { kvdetail::dropPathOwners(mPaths); }

    const KvVector<GxDbFullSubentPath*>& operator*() const { return mPaths; }

private:
    KvVector<GxDbFullSubentPath*> mPaths;
};

void drawPaths(const GxDbEntity& entity, const KvVector<GxDbFullSubentPath*>& paths, bool entityFlag,
               bool highlight) {
    for (int i = 0; i < paths.logicalLength(); ++i) {
        const GxDbFullSubentPath* const path = paths.at(i);
        if (!path)
            continue;
        if (highlight)
            entity.highlight(*path, entityFlag);
        else
            entity.unhighlight(*path, entityFlag);
    }
}

} // namespace

void gxutEntityGxDbFullPathHighlight(const GxDbObjectId& id, const KvVector<GxDbFullSubentPath*>* paths,
                                     bool entityFlag, bool highlight) {
    const HeldPaths held(paths);
    GxDbObjectPointerBase<GxDbEntity> entity;
    const GxErrorStatus opened = entity.open(id, GxDb::kForRead, false);
    if (opened == eOk && entity.mObject)
        drawPaths(*entity.mObject, *held, entityFlag, highlight);
    // Here, and not in the destructor, so that what closing throws reaches the caller.
    entity.closeInternal();
}

// The iterator's record decides; the set itself is not consulted.
void GxapSelectSet::draw(ConstIterator& it, bool entityFlag, bool highlight) const {
    if (const KvVector<GxDbFullSubentPath*>* const segments = it.highlightSegmentArray())
        gxutEntityGxDbFullPathHighlight(it.mainEntId(), segments, entityFlag, highlight);
}

void GxapSelectSet::draw(bool entityFlag, bool highlight) const {
    for (ConstIterator it = begin(); !it.isDone(); it.step(true))
        draw(it, entityFlag, highlight);
}
