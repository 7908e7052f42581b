// Highlights sets, items and paths through the entities of the database.

#include "selectcontext/GxapSelectHighlight.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/SharedPaths.h"

namespace {

// Shares a list of paths, and is one more owner of each path. So the paths stay alive if opening or
// highlighting an entity clears the original list.
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
    // Closes the entity here: the destructor of `entity` could not pass an exception on to the caller.
    entity.closeInternal();
}

// Draws the iterator's record, even if the iterator belongs to another set.
void GxapSelectSet::draw(ConstIterator& it, bool entityFlag, bool highlight) const {
    if (const KvVector<GxDbFullSubentPath*>* const segments = it.highlightSegmentArray())
        gxutEntityGxDbFullPathHighlight(it.mainEntId(), segments, entityFlag, highlight);
}

void GxapSelectSet::draw(bool entityFlag, bool highlight) const {
    for (ConstIterator it = begin(); !it.isDone(); it.step(true))
        draw(it, entityFlag, highlight);
}
