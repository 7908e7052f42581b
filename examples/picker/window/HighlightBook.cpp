#include "examples/picker/window/HighlightBook.h"

#include <functional>

namespace picker {
namespace {

HighlightBook::Part partOf(const GxDbFullSubentPath& path) {
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    HighlightBook::Part part{{}, path.subentId().type, path.subentId().index};
    part.ids.reserve(static_cast<std::size_t>(ids.logicalLength()));
    for (int i = 0; i < ids.logicalLength(); ++i)
        part.ids.push_back(ids.at(i));
    return part;
}

void paint(Strokes& strokes, const Drawing& drawing, const HighlightBook::Part& part,
           const Affine& toPixels) {
    const std::optional<PlacedContent> placed = placedAt(drawing, part.ids);
    const Curve* const curve = placed ? placed->content->curve : nullptr;
    if (!curve || part.type != kEdgePart) {
        paintPlaced(strokes, drawing, part.ids, toPixels);
        return;
    }
    const auto segment = static_cast<std::uint64_t>(part.index) - 1;
    if (segment < curve->outline().segments().size())
        strokes.add(curve->outline(), curve->outline().segments()[segment], toPixels * placed->placement);
}

} // namespace

std::optional<PlacedContent> placedAt(const Drawing& drawing, const std::vector<GxDbObjectId>& ids) {
    const BlockDefinition* block = &drawing.model();
    PlacedContent found{nullptr, Affine()};
    for (const GxDbObjectId id : ids) {
        if (found.content)
            found.placement = found.placement * found.content->reference->placement();
        found.content = block ? block->find(id) : nullptr;
        if (!found.content)
            return std::nullopt;
        block = found.content->reference ? &found.content->reference->block() : nullptr;
    }
    return found.content ? std::optional(found) : std::nullopt;
}

void paintPlaced(Strokes& strokes, const Drawing& drawing, const std::vector<GxDbObjectId>& ids,
                 const Affine& toPixels) {
    static const std::atomic<bool> kNeverStale{false};
    const std::optional<PlacedContent> placed = placedAt(drawing, ids);
    if (!placed)
        return;
    const Affine placement = toPixels * placed->placement;
    if (const BlockReference* reference = placed->content->reference)
        strokes.add(reference->block(), placement * reference->placement(), kNeverStale);
    else
        strokes.add(placed->content->curve->outline(), placement);
}

HighlightBook::HighlightBook() {
    kvinmemory::onHighlight(
        [this](const kvinmemory::HighlightCall& call) { note(partOf(call.path), call.on); });
}

HighlightBook::~HighlightBook() {
    kvinmemory::onHighlight({});
}

void HighlightBook::clear() {
    mCounts.clear();
    mNew.clear();
    mHasEnded = true;
}

void HighlightBook::paintAll(Strokes& strokes, const Drawing& drawing, const Affine& toPixels) {
    for (const auto& [part, count] : mCounts)
        paint(strokes, drawing, part, toPixels);
    mNew.clear();
    mHasEnded = false;
}

void HighlightBook::paintNew(Strokes& strokes, const Drawing& drawing, const Affine& toPixels) {
    for (const Part& part : mNew) {
        if (has(part))
            paint(strokes, drawing, part, toPixels);
    }
    mNew.clear();
}

void HighlightBook::note(const Part& part, bool on) {
    if (on) {
        if (++mCounts[part] == 1)
            mNew.push_back(part);
        return;
    }
    const auto found = mCounts.find(part);
    if (found == mCounts.end() || --found->second > 0)
        return;
    mCounts.erase(found);
    mHasEnded = true;
}

std::size_t HighlightBook::Hash::operator()(const Part& part) const {
    constexpr std::size_t kFactor = 0x9e3779b97f4a7c15; // 2^64 divided by the golden ratio
    std::size_t hash = std::hash<std::int64_t>()(part.index) + static_cast<std::size_t>(part.type);
    for (const GxDbObjectId id : part.ids)
        hash = (hash ^ std::hash<const void*>()(id.stub())) * kFactor;
    return hash;
}

} // namespace picker
