#include "examples/picker/SvgReader.h"

#include "examples/picker/SvgValues.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace picker {
namespace {

using pugi::xml_node;

constexpr std::string_view kSvgNamespace = "http://www.w3.org/2000/svg";

struct Size {
    double width = 0;
    double height = 0;

    double diagonal() const { return std::hypot(width, height) / std::sqrt(2.0); }
};

// What an element inherits from the elements around it.
struct Context {
    Affine transform; // to the coordinates of the block that is read
    Size viewport;    // what percentages refer to
    bool isVisible = true;
};

struct PendingElement {
    xml_node node;
    Context context;
};

// ---- attributes

// Reads the lengths in the attributes of one element. If a length is missing or malformed, x(), y() and
// radius() return 0, and optionalX() and optionalY() return nothing. After a malformed length, areSound()
// returns false.
class Lengths {
public:
    Lengths(xml_node node, Size viewport) : mNode(node), mViewport(viewport) {}

    double x(const char* name) { return get(name, mViewport.width).value_or(0); }
    double y(const char* name) { return get(name, mViewport.height).value_or(0); }
    double radius(const char* name) { return get(name, mViewport.diagonal()).value_or(0); }
    std::optional<double> optionalX(const char* name) { return get(name, mViewport.width); }
    std::optional<double> optionalY(const char* name) { return get(name, mViewport.height); }

    bool areSound() const { return mAreSound; }

private:
    std::optional<double> get(const char* name, double whole) {
        const pugi::xml_attribute attribute = mNode.attribute(name);
        if (!attribute || std::string_view(attribute.value()) == "auto")
            return std::nullopt;
        const std::optional<double> value = parseLength(attribute.value(), whole);
        mAreSound = mAreSound && value.has_value();
        return value;
    }

    xml_node mNode;
    Size mViewport;
    bool mAreSound = true;
};

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Returns the property `name` of the style attribute. If the style attribute does not have that property,
// returns the value of the attribute `name`.
std::string_view property(xml_node node, const char* name) {
    std::string_view style = node.attribute("style").value();
    std::string_view value = node.attribute(name).value();
    while (!style.empty()) {
        const std::string_view declaration = style.substr(0, style.find(';'));
        const std::size_t colon = declaration.find(':');
        if (colon != std::string_view::npos && trimmed(declaration.substr(0, colon)) == name)
            value = declaration.substr(colon + 1);
        style.remove_prefix(std::min(style.size(), declaration.size() + 1));
    }
    return trimmed(value.substr(0, value.find('!')));
}

// Replaces control characters, so that a name from the file can be printed to a terminal.
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }, '?');
    return text;
}

std::string_view linkOf(xml_node node) {
    const pugi::xml_attribute plain = node.attribute("href");
    return trimmed(plain ? plain.value() : node.attribute("xlink:href").value());
}

// ---- shapes: each function draws one kind of element and returns whether its data was sound

using DrawShape = bool (*)(xml_node, Size viewport, Outline&);

bool drawLine(xml_node node, Size viewport, Outline& outline) {
    Lengths lengths(node, viewport);
    outline.moveTo({lengths.x("x1"), lengths.y("y1")});
    outline.lineTo({lengths.x("x2"), lengths.y("y2")});
    return lengths.areSound();
}

bool drawPolyline(xml_node node, Size, Outline& outline) {
    return drawPoints(node.attribute("points").value(), outline);
}

bool drawPolygon(xml_node node, Size, Outline& outline) {
    const bool isSound = drawPoints(node.attribute("points").value(), outline);
    outline.close();
    return isSound;
}

bool drawRectangle(xml_node node, Size viewport, Outline& outline) {
    Lengths lengths(node, viewport);
    const Point corner{lengths.x("x"), lengths.y("y")};
    const Point size{lengths.x("width"), lengths.y("height")};
    const std::optional<double> rx = lengths.optionalX("rx");
    const std::optional<double> ry = lengths.optionalY("ry");
    if (size.x > 0 && size.y > 0)
        outline = rectangleOutline(Box::between(corner, corner + size), rx.value_or(ry.value_or(0)),
                                   ry.value_or(rx.value_or(0)));
    return lengths.areSound() && size.x >= 0 && size.y >= 0;
}

bool drawEllipse(Outline& outline, Point centre, double rx, double ry) {
    if (rx > 0 && ry > 0)
        outline.ellipse(centre, rx, ry);
    return rx >= 0 && ry >= 0;
}

bool drawCircle(xml_node node, Size viewport, Outline& outline) {
    Lengths lengths(node, viewport);
    const Point centre{lengths.x("cx"), lengths.y("cy")};
    const double radius = lengths.radius("r");
    return drawEllipse(outline, centre, radius, radius) && lengths.areSound();
}

bool drawEllipse(xml_node node, Size viewport, Outline& outline) {
    Lengths lengths(node, viewport);
    const Point centre{lengths.x("cx"), lengths.y("cy")};
    const std::optional<double> rx = lengths.optionalX("rx");
    const std::optional<double> ry = lengths.optionalY("ry");
    return drawEllipse(outline, centre, rx.value_or(ry.value_or(0)), ry.value_or(rx.value_or(0))) &&
           lengths.areSound();
}

bool drawPath(xml_node node, Size, Outline& outline) {
    return drawPathData(node.attribute("d").value(), outline);
}

const std::unordered_map<std::string_view, DrawShape> kShapes{
    {"line", drawLine},     {"polyline", drawPolyline}, {"polygon", drawPolygon}, {"rect", drawRectangle},
    {"circle", drawCircle}, {"ellipse", drawEllipse},   {"path", drawPath}};

// Elements that draw nothing where they stand in the file.
const std::unordered_set<std::string_view> kSilent{
    "defs",          "symbol",  "title",          "desc",           "metadata",
    "style",         "script",  "view",           "clipPath",       "mask",
    "marker",        "filter",  "pattern",        "cursor",         "font",
    "font-face",     "set",     "linearGradient", "radialGradient", "solidColor",
    "color-profile", "animate", "animateMotion",  "animateColor",   "animateTransform",
    "meshgradient",  "hatch"};

// Properties that change how an element looks. None of them is supported.
constexpr const char* kEffects[] = {"clip-path",  "mask",       "marker-start",
                                    "marker-mid", "marker-end", "marker"};

// ---- viewports

struct ViewBox {
    Point origin;
    Size size;
};

std::optional<ViewBox> viewBoxOf(xml_node node) {
    const std::optional<std::vector<double>> numbers = parseNumbers(node.attribute("viewBox").value());
    if (!numbers || numbers->size() != 4)
        return std::nullopt;
    return ViewBox{{(*numbers)[0], (*numbers)[1]}, {(*numbers)[2], (*numbers)[3]}};
}

// Returns which share of the spare room is before the content: 0, 0.5 or 1. The three letters after `axis` in
// `align` decide: Min, Mid or Max.
double alignment(std::string_view align, char axis) {
    const std::size_t place = align.find(axis);
    const std::string_view which = place == std::string_view::npos ? "Mid" : align.substr(place + 1, 3);
    return which == "Min" ? 0 : which == "Max" ? 1 : 0.5;
}

// Returns the map from the view box of an element to `room`. With "slice", the view box covers `room`.
// Otherwise, the view box fits into `room`.
Affine fitted(const ViewBox& viewBox, Size room, std::string_view preserveAspectRatio) {
    double sx = room.width / viewBox.size.width;
    double sy = room.height / viewBox.size.height;
    const Affine toOrigin = Affine::translation(-viewBox.origin.x, -viewBox.origin.y);
    if (preserveAspectRatio.find("none") != std::string_view::npos)
        return Affine::scaling(sx, sy) * toOrigin;
    const bool slice = preserveAspectRatio.find("slice") != std::string_view::npos;
    sx = sy = slice ? std::max(sx, sy) : std::min(sx, sy);
    const double spareX = room.width - sx * viewBox.size.width;
    const double spareY = room.height - sy * viewBox.size.height;
    return Affine::translation(spareX * alignment(preserveAspectRatio, 'x'),
                               spareY * alignment(preserveAspectRatio, 'Y')) *
           Affine::scaling(sx, sy) * toOrigin;
}

// ---- the reader

class Reader {
public:
    Reader(const std::string& text, const std::string& name) : mText(text), mName(name) {}

    Scene read() {
        parse();
        collectTargets();
        mScene.name = std::filesystem::path(mName).filename().string();
        mScene.source = mText;
        mScene.page = page();
        blockOf(mRoot);
        // Reading a block may find more blocks.
        for (std::size_t block = 0; block < mTargets.size(); ++block)
            readBlock(block);
        mScene.untangle();
        return std::move(mScene);
    }

private:
    // ---- the document

    void parse() {
        findLines();
        if (mText.compare(0, 2, "\x1f\x8b") == 0)
            throw DrawingError(mName + ":1:1: the file is compressed; unpack it first");
        const pugi::xml_parse_result result = mDocument.load_buffer(mText.data(), mText.size());
        if (!result)
            throw error(result.offset, result.description());
        mRoot = mDocument.document_element();
        for (const pugi::xml_attribute attribute : mRoot.attributes()) {
            const std::string_view name = attribute.name();
            if (name.substr(0, 6) == "xmlns:" && attribute.value() == kSvgNamespace)
                mPrefixes.insert(name.substr(6));
        }
        if (typeOf(mRoot) != "svg")
            throw error(mRoot.offset_debug() - 1,
                        "the drawing starts with <" + printable(mRoot.name()) + ">, not with <svg>");
    }

    void findLines() {
        mLineBegins.push_back(0);
        for (std::size_t i = 0; i < mText.size(); ++i) {
            if (mText[i] == '\n')
                mLineBegins.push_back(static_cast<std::ptrdiff_t>(i) + 1);
        }
    }

    // Returns the line, counted from 1. A negative offset stands for an unknown place, and gives line 1.
    std::size_t lineAt(std::ptrdiff_t offset) const {
        const auto next = std::upper_bound(mLineBegins.begin() + 1, mLineBegins.end(), offset);
        return static_cast<std::size_t>(next - mLineBegins.begin());
    }

    std::size_t lineOf(xml_node node) const { return lineAt(node.offset_debug()); }

    DrawingError error(std::ptrdiff_t offset, const std::string& message) const {
        const std::ptrdiff_t place = std::max<std::ptrdiff_t>(offset, 0);
        const std::size_t line = lineAt(place);
        const std::ptrdiff_t column = place - mLineBegins[line - 1] + 1;
        return DrawingError(mName + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                            message);
    }

    // Returns the name of an SVG element without its prefix. An element without a prefix counts as an SVG
    // element. Returns an empty name for text, comments and elements with another prefix.
    std::string_view typeOf(xml_node node) const {
        const std::string_view name = node.name();
        const std::size_t colon = name.find(':');
        if (colon == std::string_view::npos)
            return name;
        return mPrefixes.count(name.substr(0, colon)) ? name.substr(colon + 1) : std::string_view();
    }

    void collectTargets() {
        struct Collector : pugi::xml_tree_walker {
            bool for_each(xml_node& node) override {
                if (const pugi::xml_attribute id = node.attribute("id"))
                    byId.emplace(id.value(), node);
                return true;
            }
            std::unordered_map<std::string_view, xml_node> byId;
        } collector;
        mDocument.traverse(collector);
        mById = std::move(collector.byId);
    }

    Box page() const {
        const Size size = pageSize();
        const std::optional<ViewBox> viewBox = viewBoxOf(mRoot);
        const Point origin = viewBox ? viewBox->origin : Point{};
        return Box::between(origin, origin + Point{size.width, size.height});
    }

    Size pageSize() const {
        const std::optional<ViewBox> viewBox = viewBoxOf(mRoot);
        if (viewBox && viewBox->size.width > 0 && viewBox->size.height > 0)
            return viewBox->size;
        constexpr Size kDefault{300, 150};
        Lengths lengths(mRoot, kDefault);
        return {lengths.optionalX("width").value_or(kDefault.width),
                lengths.optionalY("height").value_or(kDefault.height)};
    }

    // ---- blocks

    std::size_t blockOf(xml_node target) {
        const auto [place, isNew] = mBlocks.emplace(target.internal_object(), mTargets.size());
        if (isNew) {
            mTargets.push_back(target);
            mScene.blocks.emplace_back();
            mScene.blocks.back().name = printable(target.attribute("id").value());
        }
        return place->second;
    }

    // Reads the elements of a block. Uses a stack instead of recursion, so elements may be nested to any
    // depth.
    void readBlock(std::size_t block) {
        mBlock = block;
        const xml_node target = mTargets[block];
        Context context;
        context.viewport = pageSize();
        const std::string_view type = typeOf(target);
        if (type == "svg" || type == "symbol") {
            // Only percentages use the view box here. The placement of each insert fits the view box into the
            // room of the insert.
            if (const std::optional<ViewBox> viewBox = viewBoxOf(target))
                context.viewport = viewBox->size;
            pushChildren(target, context);
        } else {
            mPending.push_back({target, context});
        }
        while (!mPending.empty()) {
            const PendingElement element = mPending.back();
            mPending.pop_back();
            readElement(element.node, element.context);
        }
    }

    void pushChildren(xml_node parent, const Context& context) {
        for (xml_node child = parent.last_child(); child; child = child.previous_sibling()) {
            if (child.type() == pugi::node_element)
                mPending.push_back({child, context});
        }
    }

    void readElement(xml_node node, const Context& outer) {
        const std::string_view type = typeOf(node);
        if (type.empty() || kSilent.count(type) || property(node, "display") == "none")
            return;
        const std::optional<Affine> transform = parseTransform(node.attribute("transform").value());
        if (!transform) {
            omit(std::string(type) + " with a broken transform", node);
            return;
        }
        Context context = outer;
        context.transform = outer.transform * *transform;
        const std::string_view visibility = property(node, "visibility");
        if (!visibility.empty() && visibility != "inherit")
            context.isVisible = visibility == "visible";
        noteEffects(node);

        if (type == "g" || type == "a")
            pushChildren(node, context);
        else if (type == "svg")
            readNestedViewport(node, context);
        else if (type == "switch")
            readSwitch(node, context);
        else if (type == "use")
            readUse(node, context);
        else if (const auto shape = kShapes.find(type); shape != kShapes.end())
            readShape(node, shape->second, context);
        else
            omit(std::string(type), node);
    }

    void noteEffects(xml_node node) {
        for (const char* effect : kEffects) {
            const std::string_view value = property(node, effect);
            if (!value.empty() && value != "none")
                omit(effect, node);
        }
    }

    void readShape(xml_node node, DrawShape draw, const Context& context) {
        if (!context.isVisible)
            return;
        const std::string type(typeOf(node));
        Outline outline;
        bool isSound = draw(node, context.viewport, outline);
        outline = outline.transformed(context.transform);
        if (!outline.isFinite()) {
            isSound = false;
            outline = Outline();
        }
        if (!isSound)
            omit("broken " + type, node);
        if (!outline.isEmpty())
            contents().push_back(Shape{type, printable(node.attribute("id").value()), std::move(outline)});
    }

    void readNestedViewport(xml_node node, Context context) {
        Lengths lengths(node, context.viewport);
        const Size room{lengths.optionalX("width").value_or(context.viewport.width),
                        lengths.optionalY("height").value_or(context.viewport.height)};
        const Affine corner = Affine::translation(lengths.x("x"), lengths.y("y"));
        const std::optional<Affine> view = viewTransform(node, room);
        if (!view || !lengths.areSound()) {
            omit("svg without a view", node);
            return;
        }
        context.transform = context.transform * corner * *view;
        const std::optional<ViewBox> viewBox = viewBoxOf(node);
        context.viewport = viewBox ? viewBox->size : room;
        pushChildren(node, context);
    }

    // Returns the map from the contents of `node`, a svg or symbol, to `room`. Returns the identity if there
    // is no view box. Returns nothing if the view box or the room has no area: the element then shows
    // nothing.
    std::optional<Affine> viewTransform(xml_node node, Size room) const {
        const std::optional<ViewBox> viewBox = viewBoxOf(node);
        if (!viewBox)
            return Affine();
        const bool hasArea =
            viewBox->size.width > 0 && viewBox->size.height > 0 && room.width > 0 && room.height > 0;
        if (!hasArea)
            return std::nullopt;
        return fitted(*viewBox, room, node.attribute("preserveAspectRatio").value());
    }

    // Reads only the first child without requirements. The other children of a switch are not shown.
    void readSwitch(xml_node node, const Context& context) {
        for (const xml_node child : node.children()) {
            const bool isPlain = child.attribute("requiredExtensions").empty() &&
                                 child.attribute("requiredFeatures").empty() &&
                                 child.attribute("systemLanguage").empty();
            if (child.type() == pugi::node_element && isPlain && !typeOf(child).empty()) {
                mPending.push_back({child, context});
                return;
            }
        }
    }

    void readUse(xml_node node, const Context& context) {
        const std::string_view link = linkOf(node);
        const auto found = link.substr(0, 1) == "#" ? mById.find(link.substr(1)) : mById.end();
        if (found == mById.end()) {
            omit("use of a missing element", node);
            return;
        }
        if (!context.isVisible)
            return;
        const xml_node target = found->second;
        Lengths lengths(node, context.viewport);
        const Affine corner = Affine::translation(lengths.x("x"), lengths.y("y"));
        const std::optional<Affine> view = insertedView(target, lengths, context.viewport);
        if (!view || !lengths.areSound()) {
            omit("broken use", node);
            return;
        }
        const std::size_t block = blockOf(target); // may move the blocks, so this comes before contents()
        contents().push_back(Insert{block, context.transform * corner * *view,
                                    printable(node.attribute("id").value()), lineOf(node)});
    }

    // Returns the map that fits the target of a use into the room of the use. Returns nothing if the target
    // then shows nothing.
    std::optional<Affine> insertedView(xml_node target, Lengths& lengths, Size viewport) const {
        const std::string_view type = typeOf(target);
        if (type != "svg" && type != "symbol")
            return Affine();
        Lengths own(target, viewport);
        const std::optional<double> width = lengths.optionalX("width");
        const std::optional<double> height = lengths.optionalY("height");
        const Size room{width ? *width : own.optionalX("width").value_or(viewport.width),
                        height ? *height : own.optionalY("height").value_or(viewport.height)};
        return viewTransform(target, room);
    }

    // ---- results

    std::vector<std::variant<Shape, Insert>>& contents() { return mScene.blocks[mBlock].contents; }
    void omit(const std::string& what, xml_node node) { mScene.omit(printable(what), lineOf(node)); }

    const std::string& mText;
    const std::string& mName;
    std::vector<std::ptrdiff_t> mLineBegins;
    pugi::xml_document mDocument;
    xml_node mRoot;
    std::unordered_set<std::string_view> mPrefixes;
    std::unordered_map<std::string_view, xml_node> mById;
    std::unordered_map<const void*, std::size_t> mBlocks; // index in mTargets, by target element
    std::vector<xml_node> mTargets;                       // one for each block
    std::vector<PendingElement> mPending;
    std::size_t mBlock = 0; // the block that is being read
    Scene mScene;
};

std::string contentsOf(const std::string& file) {
    std::error_code failure;
    if (std::filesystem::is_directory(file, failure))
        throw DrawingError(file + ": is a directory");
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw DrawingError(file + ": cannot be read: " + std::strerror(errno));
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

bool isShapeType(const std::string& name) {
    return kShapes.count(name) > 0;
}

Scene readSvg(const std::string& file) {
    return parseSvg(contentsOf(file), file);
}

Scene parseSvg(const std::string& text, const std::string& name) {
    return Reader(text, name).read();
}

} // namespace picker
