#include "platform/opencascade/detail/LabelStubs.h"

#include <stdexcept>
#include <utility>

namespace kvopencascade::detail {

LabelStubs::LabelStubs(const Handle(TDocStd_Document) & document) : mDocument(document) {
    if (document.IsNull())
        throw std::invalid_argument("there is no document");
    mTable = LabelTable::of(document->GetData());
}

LabelStubs::~LabelStubs() {
    setHighlighter(nullptr);
}

GxDbStub& LabelStubs::stubOf(const TDF_Label& label) {
    if (label.Data() != mTable->data())
        throw std::invalid_argument("the label is one of another document");
    LabelRecord& record = mTable->recordOf(label);
    GxDbStub*& stub = mStubOfRecord[&record];
    if (stub == nullptr)
        stub = &mStubs.emplace_back(record, *this);
    return *stub;
}

// ---- Highlights

GxErrorStatus LabelStubs::highlight(const GxDbFullSubentPath& path) {
    Key key = keyOf(path);
    const auto known = mHighlights.find(key);
    if (known != mHighlights.end()) {
        ++known->second.count;
        return eOk;
    }
    Highlight highlight;
    if (!Database::locate(path, highlight.place))
        return kNoSuchInstance;
    highlight.count = 1;
    const auto added = mHighlights.emplace(std::move(key), highlight).first;
    show(added->second);
    return eOk;
}

GxErrorStatus LabelStubs::unhighlight(const GxDbFullSubentPath& path) {
    const auto known = mHighlights.find(keyOf(path));
    if (known == mHighlights.end())
        return kNotHighlighted;
    if (--known->second.count > 0)
        return eOk;
    hide(known->second);
    mHighlights.erase(known);
    return eOk;
}

void LabelStubs::setHighlighter(Highlighter* highlighter) {
    if (highlighter == mHighlighter)
        return;
    for (auto& [key, highlight] : mHighlights)
        hide(highlight);
    mHighlighter = highlighter;
    for (auto& [key, highlight] : mHighlights)
        show(highlight);
}

LabelStubs::Key LabelStubs::keyOf(const GxDbFullSubentPath& path) {
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    std::vector<std::uint64_t> ranks;
    for (int i = 0; i < ids.logicalLength(); ++i)
        ranks.push_back(ids[i].stub() == nullptr ? 0 : ids[i].stub()->record.rank);
    return {std::move(ranks), path.subentId().type, path.subentId().index};
}

void LabelStubs::show(Highlight& highlight) {
    if (mHighlighter != nullptr)
        highlight.shown = mHighlighter->show(highlight.place);
}

void LabelStubs::hide(Highlight& highlight) {
    if (mHighlighter != nullptr)
        mHighlighter->hide(highlight.shown);
    highlight.shown.Nullify();
}

GxErrorStatus LabelEntity::highlight(const GxDbFullSubentPath& path, bool) const {
    return mStubs.highlight(path);
}

GxErrorStatus LabelEntity::unhighlight(const GxDbFullSubentPath& path, bool) const {
    return mStubs.unhighlight(path);
}

} // namespace kvopencascade::detail
