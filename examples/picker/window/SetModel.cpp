#include "examples/picker/window/SetModel.h"

#include <array>
#include <cstdio>

namespace picker {
namespace {

constexpr std::array<const char*, SetModel::kColumns> kTitles{"#",      "main id", "sub id",
                                                              "marker", "path",    "fence crossing"};

std::string crossingText(const GxapSelectedEntInfo* info) {
    SelFenceIntersectInfo crossing{};
    if (!info || !info->getSelFenceResultInfo(crossing))
        return "";
    char text[64];
    (void)std::snprintf(text, sizeof text, "segment %d at %.3f", crossing.index, crossing.param);
    return text;
}

} // namespace

void SetModel::beginEdit() {
    beginResetModel();
    mIsEditing = true;
}

void SetModel::endEdit() {
    mIsEditing = false;
    endResetModel();
}

int SetModel::rowCount(const QModelIndex& parent) const {
    return mIsEditing || parent.isValid() ? 0 : static_cast<int>(itemCount(mSession.set()));
}

int SetModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : kColumns;
}

QVariant SetModel::data(const QModelIndex& index, int role) const {
    const bool isNumber = index.column() == kPosition || index.column() == kMarker;
    if (role == Qt::TextAlignmentRole && isNumber)
        return int{Qt::AlignRight | Qt::AlignVCenter};
    if (role != Qt::DisplayRole || index.row() >= rowCount())
        return {};
    const GxapSelectSet::ConstIterator it = mSession.set().iteratorAt(index.row());
    return it.isDone() ? QVariant() : QVariant(QString::fromStdString(text(it, index.column())));
}

std::string SetModel::text(const GxapSelectSet::ConstIterator& it, int column) const {
    const Drawing& drawing = mSession.drawing();
    switch (column) {
    case kPosition:
        return std::to_string(it.index);
    case kMain:
        return drawing.label(it.mainEntId());
    case kSub:
        return it.subEntId().isNull() ? "" : drawing.label(it.subEntId());
    case kMarker:
        return it.gsMarker() == -1 ? "" : std::to_string(it.gsMarker());
    case kCrossing:
        return crossingText(it.selectedEntityInfo());
    default:
        break;
    }
    std::string path;
    const KvVector<GxDbObjectId>& ids = it.nestedEntFullPath();
    for (int i = 0; i < ids.logicalLength(); ++i)
        path += (i == 0 ? "" : " > ") + drawing.label(ids.at(i));
    return path;
}

QVariant SetModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= kColumns)
        return {};
    return QString(kTitles[static_cast<std::size_t>(section)]);
}

} // namespace picker
