#include "examples/picker/Picture.h"

#include "examples/picker/Picker.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <vector>

namespace picker {
namespace {

struct Highlighted {
    GxDbObjectId main; // the entity that highlights the part
    kvinmemory::PathContents path;
};

// Returns every highlighted part once. An entity may list the same part several times, because it counts
// highlights.
std::vector<Highlighted> highlightedParts(const Drawing& drawing) {
    using Key = std::tuple<GxDbObjectId, std::vector<GxDbObjectId>, std::int32_t, std::int64_t>;
    std::set<Key> known;
    std::vector<Highlighted> parts;
    const kvinmemory::Database& database = drawing.database();
    for (std::size_t i = 0; i < database.size(); ++i) {
        const GxDbObjectId id = database.idAt(i);
        const kvinmemory::Entity* entity = dynamic_cast<const kvinmemory::Entity*>(database.entity(id));
        if (!entity)
            continue;
        for (const kvinmemory::Entity::Highlight& highlight : entity->highlights()) {
            const kvinmemory::PathContents& path = highlight.path;
            const Key key(id, {path.ids.begin(), path.ids.end()}, path.part.type, path.part.index);
            if (known.insert(key).second)
                parts.push_back({id, path});
        }
    }
    return parts;
}

// ---- path data

// Writes outlines as path data. Joins a segment to the previous one if they share a point.
class PathData {
public:
    void add(const Outline& outline, const Affine& placement) {
        for (const Outline::Segment& segment : outline.segments())
            add(outline, segment, placement);
        mPenAt.reset();
    }

    void add(const Outline& outline, const Outline::Segment& segment, const Affine& placement) {
        if (mPenAt != segment.first)
            addPoint('M', placement(outline.points()[segment.first]));
        for (std::uint32_t i = segment.first + 1; i <= segment.last; ++i)
            addPoint('L', placement(outline.points()[i]));
        mPenAt = segment.last;
    }

    const std::string& text() const { return mText; }

private:
    void addPoint(char command, Point p) {
        char text[64];
        (void)std::snprintf(text, sizeof text, "%c%.9g %.9g", command, p.x, p.y);
        mText += text;
    }

    std::string mText;
    std::optional<std::uint32_t> mPenAt; // index of the point at the pen
};

// The entity at the end of a path of ids, and its placement.
struct Placed {
    const BlockDefinition::Content* content;
    Affine placement;
};

std::optional<Placed> placed(const Drawing& drawing, const kvinmemory::BookVector<GxDbObjectId>& ids) {
    const BlockDefinition* block = &drawing.model();
    Placed found{nullptr, Affine()};
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

std::string pathDataOf(const Drawing& drawing, const kvinmemory::PathContents& path) {
    const std::optional<Placed> place = placed(drawing, path.ids);
    PathData data;
    if (!place)
        return "";
    if (const BlockReference* reference = place->content->reference) {
        Picker(drawing).allIn(*reference, place->placement, [&](const Pick& pick) {
            data.add(drawing.curve(pick.path.back())->outline(), pick.placement);
        });
        return data.text();
    }
    const Outline& outline = place->content->curve->outline();
    const auto segment = static_cast<std::uint64_t>(path.part.index) - 1;
    if (path.part.type != kEdgePart)
        data.add(outline, place->placement);
    else if (segment < outline.segments().size())
        data.add(outline, outline.segments()[segment], place->placement);
    return data.text();
}

// ---- elements

std::string pathText(const Drawing& drawing, const kvinmemory::BookVector<GxDbObjectId>& ids) {
    std::string text;
    for (const GxDbObjectId id : ids)
        text += (text.empty() ? "" : "/") + std::to_string(drawing.database().handleOf(id));
    return text;
}

// How the group begins.
constexpr const char* kGroup = "<g xmlns=\"http://www.w3.org/2000/svg\" id=\"highlight\"";

// What the group and its elements set, so that nothing of the file's own styles hides them: neither what they
// would inherit nor a style sheet, whose rules are weaker than an important declaration.
constexpr const char* kSeen[] = {"display:inline", "visibility:visible", "opacity:1", "mix-blend-mode:normal",
                                 "filter:none",    "clip-path:none",     "mask:none", "transform:none"};
constexpr const char* kLine[] = {"fill:none",
                                 "stroke:#ff1f8f",
                                 "stroke-opacity:1",
                                 "stroke-dasharray:none",
                                 "stroke-linecap:round",
                                 "stroke-linejoin:round",
                                 "vector-effect:none",
                                 "marker:none"};

template <std::size_t N>
std::string important(const char* const (&declarations)[N]) {
    std::string text;
    for (const char* declaration : declarations)
        text += std::string(declaration) + "!important;";
    return text;
}

// Returns the value of the style attribute of the group's elements.
std::string styleFor(const Box& page) {
    const double size = std::max(page.high.x - page.low.x, page.high.y - page.low.y);
    char width[64];
    (void)std::snprintf(width, sizeof width, "stroke-width:%.4gpx!important", size / 250);
    return important(kSeen) + important(kLine) + width;
}

std::string elementOf(const Drawing& drawing, const Highlighted& part, const std::string& style) {
    return "<path data-main=\"" + std::to_string(drawing.database().handleOf(part.main)) + "\" data-path=\"" +
           pathText(drawing, part.path.ids) + "\" data-marker=\"" + std::to_string(part.path.part.index) +
           "\" style=\"" + style + "\" d=\"" + pathDataOf(drawing, part.path) + "\"/>\n";
}

// Returns the position of the end tag of the outermost element. Only comments and processing instructions may
// follow the tag.
std::size_t endTagOf(std::string_view text) {
    for (;;) {
        text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
        const bool isComment = text.size() > 3 && text.substr(text.size() - 3) == "-->";
        const bool isInstruction = text.size() > 2 && text.substr(text.size() - 2) == "?>";
        if (!isComment && !isInstruction)
            return text.rfind("</");
        text = text.substr(0, std::min(text.size() - 1, text.rfind(isComment ? "<!--" : "<?")));
    }
}

} // namespace

std::size_t highlightCount(const Drawing& drawing) {
    return highlightedParts(drawing).size();
}

std::string pictureOf(const Drawing& drawing) {
    const std::vector<Highlighted> parts = highlightedParts(drawing);
    if (parts.empty())
        return drawing.source();
    const std::size_t end = endTagOf(drawing.source());
    if (end == std::string::npos)
        throw std::runtime_error("highlights cannot be added to a file in this encoding");
    const std::string style = styleFor(drawing.page());
    std::string group = std::string(kGroup) + " style=\"" + important(kSeen) + "\">\n";
    for (const Highlighted& part : parts)
        group += elementOf(drawing, part, style);
    std::string picture = drawing.source();
    return picture.insert(end, group + "</g>\n");
}

bool isPicture(const std::string& text) {
    return text.find(kGroup) != std::string::npos;
}

Conversion convertToPng(const std::string& svgFile, const std::string& pngFile) {
    constexpr const char* kSize = "1400"; // the longer side, in pixels
    std::vector<std::string> words{
        "rsvg-convert", "--keep-aspect-ratio", "--width", kSize, "--height", kSize, "--output", pngFile, "--",
        svgFile};
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
        return Conversion::noProgram;
    int status = 0;
    pid_t ended = 0;
    do
        ended = waitpid(child, &status, 0);
    while (ended < 0 && errno == EINTR);
    const bool isDone = ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return isDone ? Conversion::done : Conversion::failed;
}

} // namespace picker
