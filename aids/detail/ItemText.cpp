#include "aids/detail/ItemText.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

namespace kv::detail {
namespace {

using PathList = KvVector<GxDbFullSubentPath*>;

// Does not depend on the locale. Gives the shortest text that reads back as the same number.
std::string textOfNumber(double number) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, number).ptr);
}

template <class Ids>
std::string textOfIds(const Ids& ids, const IdText& idText) {
    std::string text;
    for (int i = 0; i < ids.logicalLength(); ++i)
        text += (i == 0 ? "" : "/") + textOfId(ids.at(i), idText);
    return text.empty() ? "none" : text;
}

std::string textOfPath(const GxDbFullSubentPath* path, const IdText& idText) {
    if (!path)
        return "null";
    return textOfIds(path->objectIds(), idText) + ":" + std::to_string(path->subentId().type) + ":" +
           std::to_string(path->subentId().index);
}

std::string textOfPaths(const PathList* paths, const IdText& idText) {
    std::string text;
    for (int i = 0; paths && i < paths->logicalLength(); ++i)
        text += (i == 0 ? "" : " ") + textOfPath(std::as_const(*paths).at(i), idText);
    return text.empty() ? "none" : text;
}

std::string textOfViewports(const KvVector<int>& viewports) {
    std::string text;
    for (int i = 0; i < viewports.logicalLength(); ++i)
        text += (i == 0 ? "" : " ") + std::to_string(viewports.at(i));
    return text.empty() ? "none" : text;
}

std::string textOfPoints(const KvVector<GxGePoint3d>& points) {
    std::string text;
    for (int i = 0; i < points.logicalLength(); ++i) {
        const GxGePoint3d& point = points.at(i);
        text += (i == 0 ? "(" : " (") + textOfNumber(point.x) + " " + textOfNumber(point.y) + " " +
                textOfNumber(point.z) + ")";
    }
    return text.empty() ? "none" : text;
}

// The texts of an info's fields. A missing info has the same texts as an info without optional data.

std::string textOfWord0(const GxapSelectedEntInfo* info) {
    return std::to_string(info ? info->word0 : 0);
}

std::string textOfWord1(const GxapSelectedEntInfo* info) {
    return std::to_string(info ? info->word1 : 0);
}

std::string textOfHalfWord(const GxapSelectedEntInfo* info) {
    return std::to_string(info ? info->halfWord : -1);
}

std::string textOfInfoPoints(const GxapSelectedEntInfo* info) {
    return info ? textOfPoints(info->pointArray) : "none";
}

// A fence result with a negative index is none.
std::string textOfFence(const GxapSelectedEntInfo* info) {
    SelFenceIntersectInfo fence{};
    if (!info || !info->getSelFenceResultInfo(fence) || fence.index < 0)
        return "none";
    return std::to_string(fence.index) + " at " + textOfNumber(fence.param);
}

std::string textOfTransform(const GxapSelectedEntInfo* info) {
    const GxGeMatrix3d* const matrix = info ? info->getBTRMatPtr() : nullptr;
    if (!matrix)
        return "none";
    std::string text;
    for (const auto& row : matrix->entry) {
        for (const double entry : row)
            text += (text.empty() ? "" : " ") + textOfNumber(entry);
    }
    return text;
}

// Returns the list if the record says that it has one.
const PathList* subselectionOf(const selected_entity& item) {
    return item.hasSubselPaths ? item.subselPathArray : nullptr;
}

// A field that is no key: its name, its text, and whether two items have it alike. Texts of ids may be
// ambiguous, so the fields with ids are compared as they are, and the others by their texts.
struct Field {
    const char* name;
    std::string (*text)(const selected_entity& item, const IdText& idText);
    bool (*isSame)(const selected_entity& a, const selected_entity& b);
    const char* usual; // the text that a plain item has
};

bool isSamePath(const GxDbFullSubentPath* a, const GxDbFullSubentPath* b) {
    return a == b || (a && b && *a == *b);
}

bool isSameList(const PathList* a, const PathList* b) {
    const int length = a ? a->logicalLength() : 0;
    if (length != (b ? b->logicalLength() : 0))
        return false;
    for (int i = 0; i < length; ++i) {
        if (!isSamePath(std::as_const(*a).at(i), std::as_const(*b).at(i)))
            return false;
    }
    return true;
}

using InfoText = std::string (*)(const GxapSelectedEntInfo* info);

template <InfoText text>
constexpr Field infoField(const char* name, const char* usual) {
    return {name, [](const selected_entity& item, const IdText&) { return text(item.selectedEntityInfo); },
            [](const selected_entity& a, const selected_entity& b) {
                return text(a.selectedEntityInfo) == text(b.selectedEntityInfo);
            },
            usual};
}

constexpr Field kFields[] = {
    {"marker", [](const selected_entity& item, const IdText&) { return std::to_string(item.gsMarker); },
     [](const selected_entity& a, const selected_entity& b) { return a.gsMarker == b.gsMarker; }, nullptr},
    {"viewports", [](const selected_entity& item, const IdText&) { return textOfViewports(item.hlVpArray); },
     [](const selected_entity& a, const selected_entity& b) { return a.hlVpArray == b.hlVpArray; }, "none"},
    {"highlight segments",
     [](const selected_entity& item, const IdText& idText) {
         return textOfPaths(item.highlightSegmentArray, idText);
     },
     [](const selected_entity& a, const selected_entity& b) {
         return isSameList(a.highlightSegmentArray, b.highlightSegmentArray);
     },
     "none"},
    {"sub-selection",
     [](const selected_entity& item, const IdText& idText) {
         return item.hasSubselPaths ? "of " + textOfPaths(subselectionOf(item), idText) : std::string("none");
     },
     [](const selected_entity& a, const selected_entity& b) {
         return a.hasSubselPaths == b.hasSubselPaths && isSameList(subselectionOf(a), subselectionOf(b));
     },
     "none"},
    infoField<textOfWord0>("word0", "0"),
    infoField<textOfWord1>("word1", "0"),
    infoField<textOfHalfWord>("halfWord", "-1"),
    infoField<textOfInfoPoints>("points", "none"),
    infoField<textOfFence>("fence", "none"),
    infoField<textOfTransform>("block transform", "none")};

} // namespace

std::string textOfId(const GxDbObjectId& id, const IdText& idText) {
    return id.isNull() ? "null" : idText(id);
}

std::string textOfKeys(const selected_entity& item, const IdText& idText) {
    std::string text = textOfId(item.mainEntId, idText);
    if (!item.subEntId.isNull())
        text += ", sub " + textOfId(item.subEntId, idText);
    if (item.gsMarker != -1)
        text += ", marker " + std::to_string(item.gsMarker);
    if (item.nestedEntFullPath.logicalLength() > 0)
        text += ", path " + textOfIds(item.nestedEntFullPath, idText);
    return text;
}

std::string textOfOtherFields(const selected_entity& item, const IdText& idText) {
    std::string all;
    for (const Field& field : kFields) {
        if (!field.usual)
            continue;
        const std::string text = field.text(item, idText);
        if (text != field.usual)
            all += std::string(", ") + field.name + " " + text;
    }
    return all;
}

std::vector<FieldTexts> changedFields(const selected_entity& a, const selected_entity& b,
                                      const IdText& idText) {
    std::vector<FieldTexts> changed;
    for (const Field& field : kFields) {
        if (!field.isSame(a, b))
            changed.push_back({field.name, field.text(a, idText), field.text(b, idText)});
    }
    return changed;
}

bool hasSameFields(const selected_entity& a, const selected_entity& b) {
    return std::all_of(std::begin(kFields), std::end(kFields),
                       [&](const Field& field) { return field.isSame(a, b); });
}

} // namespace kv::detail
