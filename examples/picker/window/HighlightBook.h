// What the entities of the drawing highlight at this moment, ready to be painted.
//
// The library tells an entity which of its parts to highlight. The book hears of it at once, so the window
// need not ask every entity.
#pragma once

#include "examples/picker/Drawing.h"
#include "examples/picker/window/Strokes.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace picker {

// A curve or a reference, at one of the places where the drawing shows it.
struct PlacedContent {
    const BlockDefinition::Content* content;
    Affine placement; // of the block that contains it
};

// Returns what the ids lead to, outermost first. Returns nothing if they lead nowhere.
std::optional<PlacedContent> placedAt(const Drawing& drawing, const std::vector<GxDbObjectId>& ids);

// Paints what the ids lead to. `toPixels` maps the drawing's coordinates.
void paintPlaced(Strokes& strokes, const Drawing& drawing, const std::vector<GxDbObjectId>& ids,
                 const Affine& toPixels);

// There can be one book at a time. It listens to the entities of all drawings.
//
// Thread safety: belongs to the thread that works on the sets. Another thread may use it between two edits.
class HighlightBook {
public:
    // A part of an entity, as GxDbFullSubentPath names it.
    struct Part {
        std::vector<GxDbObjectId> ids;
        std::int32_t type;
        std::int64_t index;

        friend bool operator==(const Part& a, const Part& b) {
            return a.type == b.type && a.index == b.index && a.ids == b.ids;
        }
    };

    struct Hash {
        std::size_t operator()(const Part& part) const;
    };

    HighlightBook();
    HighlightBook(const HighlightBook&) = delete;
    HighlightBook& operator=(const HighlightBook&) = delete;
    ~HighlightBook();

    // Forgets all highlights: their entities are gone with their drawing.
    void clear();
    std::size_t size() const { return mCounts.size(); }
    bool has(const Part& part) const { return mCounts.count(part) > 0; }

    // Paints everything, or what came since the last call of one of the two functions.
    void paintAll(Strokes& strokes, const Drawing& drawing, const Affine& toPixels);
    void paintNew(Strokes& strokes, const Drawing& drawing, const Affine& toPixels);
    // Returns whether highlights came or ended since something was painted.
    bool hasNew() const { return !mNew.empty(); }
    bool hasEnded() const { return mHasEnded; }

private:
    void note(const Part& part, bool on);

    // An entity may be told the same several times, and counts.
    std::unordered_map<Part, int, Hash> mCounts;
    std::vector<Part> mNew;
    bool mHasEnded = false;
};

} // namespace picker
