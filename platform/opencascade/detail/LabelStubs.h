// LabelStubs: the inside of a Database.
#pragma once

#include "platform/opencascade/OpenCascadeDatabase.h"
#include "platform/opencascade/detail/GxDbStub.h"
#include "platform/opencascade/detail/LabelTable.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace kvopencascade::detail {

// The stubs of one database, and the highlights that it shows.
//
// Invariants:
//  1. A record has at most one stub here.
//  2. mHighlights has each path that is highlighted, with the number of its highlights, which is above 0.
//  3. If there is a highlighter, each of them is shown there exactly once.
//
// Thread safety: as Database.
class LabelStubs {
public:
    explicit LabelStubs(const Handle(TDocStd_Document) & document);
    LabelStubs(const LabelStubs&) = delete;
    LabelStubs& operator=(const LabelStubs&) = delete;
    ~LabelStubs();

    const Handle(TDocStd_Document) & document() const noexcept { return mDocument; }

    // Returns the stub of a label of this document.
    GxDbStub& stubOf(const TDF_Label& label);

    GxErrorStatus highlight(const GxDbFullSubentPath& path);
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path);

    void setHighlighter(Highlighter* highlighter);
    std::size_t highlights() const noexcept { return mHighlights.size(); }

private:
    // A path by the ranks of its labels, so that equal paths have equal keys also when labels are forgotten.
    using Key = std::tuple<std::vector<std::uint64_t>, std::int32_t, std::int64_t>;
    struct Highlight {
        Place place;
        int count = 0;
        Handle(Standard_Transient) shown;
    };

    static Key keyOf(const GxDbFullSubentPath& path);
    void show(Highlight& highlight);
    void hide(Highlight& highlight);

    Handle(TDocStd_Document) mDocument;
    std::shared_ptr<LabelTable> mTable;
    std::deque<GxDbStub> mStubs;
    std::unordered_map<const LabelRecord*, GxDbStub*> mStubOfRecord;
    std::map<Key, Highlight> mHighlights;
    Highlighter* mHighlighter = nullptr;
};

} // namespace kvopencascade::detail
