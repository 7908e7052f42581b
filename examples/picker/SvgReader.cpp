#include "examples/picker/SvgReader.h"

#include "examples/picker/SvgDependence.h"
#include "examples/picker/SvgDocument.h"
#include "examples/picker/SvgValues.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace picker {
namespace {

using pugi::xml_node;

struct Size {
    double width = 0;
    double height = 0;

    double diagonal() const { return std::hypot(width, height) / std::sqrt(2.0); }
};

// What an element takes from the elements around it. The target of a `use` takes it from the `use`.
struct Inherited {
    Size viewport; // what percentages refer to
    bool isVisible = true;
};

struct Context {
    Inherited inherited;
    Affine transform; // to the coordinates of the block that is read
};

struct PendingElement {
    xml_node node;
    Context context;
};

// ---- attributes

// Reads the lengths of one element. If a length is missing or malformed, x(), y() and radius() return 0, and
// optionalX() and optionalY() return nothing. After a malformed length, areSound() returns false.
class Lengths {
public:
    Lengths(const Properties& properties, Size viewport) : mProperties(properties), mViewport(viewport) {}

    double x(const char* name) { return get(name, mViewport.width).value_or(0); }
    double y(const char* name) { return get(name, mViewport.height).value_or(0); }
    double radius(const char* name) { return get(name, mViewport.diagonal()).value_or(0); }
    std::optional<double> optionalX(const char* name) { return get(name, mViewport.width); }
    std::optional<double> optionalY(const char* name) { return get(name, mViewport.height); }

    bool areSound() const { return mAreSound; }

private:
    std::optional<double> get(const char* name, double whole) {
        const std::string_view text = mProperties.value(name);
        if (text == "auto" || (text.empty() && !mProperties.has(name)))
            return std::nullopt;
        const std::optional<double> value = parseLength(text, whole);
        mAreSound = mAreSound && value.has_value();
        return value;
    }

    const Properties& mProperties;
    Size mViewport;
    bool mAreSound = true;
};

// ---- shapes: each function draws one kind of element and returns whether its data was sound

using DrawShape = bool (*)(const Properties&, Size viewport, Outline&);

bool drawLine(const Properties& properties, Size viewport, Outline& outline) {
    Lengths lengths(properties, viewport);
    outline.moveTo({lengths.x("x1"), lengths.y("y1")});
    outline.lineTo({lengths.x("x2"), lengths.y("y2")});
    return lengths.areSound();
}

bool drawPolyline(const Properties& properties, Size, Outline& outline) {
    return drawPoints(properties.node().attribute("points").value(), outline);
}

bool drawPolygon(const Properties& properties, Size, Outline& outline) {
    const bool isSound = drawPoints(properties.node().attribute("points").value(), outline);
    outline.close();
    return isSound;
}

bool drawRectangle(const Properties& properties, Size viewport, Outline& outline) {
    Lengths lengths(properties, viewport);
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

bool drawCircle(const Properties& properties, Size viewport, Outline& outline) {
    Lengths lengths(properties, viewport);
    const Point centre{lengths.x("cx"), lengths.y("cy")};
    const double radius = lengths.radius("r");
    return drawEllipse(outline, centre, radius, radius) && lengths.areSound();
}

bool drawEllipse(const Properties& properties, Size viewport, Outline& outline) {
    Lengths lengths(properties, viewport);
    const Point centre{lengths.x("cx"), lengths.y("cy")};
    const std::optional<double> rx = lengths.optionalX("rx");
    const std::optional<double> ry = lengths.optionalY("ry");
    return drawEllipse(outline, centre, rx.value_or(ry.value_or(0)), ry.value_or(rx.value_or(0))) &&
           lengths.areSound();
}

bool drawPath(const Properties& properties, Size, Outline& outline) {
    return drawPathData(properties.node().attribute("d").value(), outline);
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

// Properties that change where or how much of an element is seen. None of them is supported.
constexpr const char* kEffects[] = {"clip-path",  "mask",   "marker-start",    "marker-mid",
                                    "marker-end", "marker", "transform-origin"};

// Properties that count where a style attribute sets them, but not where a style sheet does.
const std::unordered_set<std::string_view> kReadProperties{
    "display", "visibility", "transform", "x", "y", "width", "height", "cx", "cy", "r", "rx", "ry", "d"};

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

// Where a svg or symbol shows its contents, and what their percentages refer to.
struct View {
    Affine transform;
    Size viewport;
};

// Returns the view of a svg or symbol in `room`. Returns nothing if the view box or the room has no area: the
// element then shows nothing.
std::optional<View> viewOf(xml_node node, Size room) {
    const bool hasRoom = room.width > 0 && room.height > 0;
    const std::optional<ViewBox> viewBox = viewBoxOf(node);
    if (!viewBox)
        return hasRoom ? std::optional(View{Affine(), room}) : std::nullopt;
    if (!hasRoom || !(viewBox->size.width > 0) || !(viewBox->size.height > 0))
        return std::nullopt;
    return View{fitted(*viewBox, room, node.attribute("preserveAspectRatio").value()), viewBox->size};
}

// Returns nothing for a malformed transform.
std::optional<Affine> transformOf(const Properties& properties) {
    if (const std::optional<std::string_view> styled = properties.styleValue("transform"))
        return parseStyleTransform(*styled);
    return parseTransform(properties.node().attribute("transform").value());
}

bool isDisplayed(const Properties& properties) {
    return properties.value("display") != "none";
}

// Returns whether a width or height of 0 switches the element off.
bool isSwitchedOff(Lengths& lengths) {
    return lengths.optionalX("width") == 0.0 || lengths.optionalY("height") == 0.0;
}

// ---- the reader

class Reader {
public:
    Reader(const std::string& text, const std::string& name, Interrupt* interrupt, std::size_t mostContents)
        : mName(name), mInterrupt(interrupt), mMostContents(mostContents), mDocument(text, name),
          mDependence(mDocument) {
        mScene.name = std::filesystem::path(mName).filename().string();
        mScene.source = text;
    }

    Scene read() {
        const xml_node root = mDocument.root();
        mPageSize = pageSize();
        mScene.page = page();
        noteSheets();
        noteRoot();
        blockOf({root, {mPageSize, true}, kNoBlock});
        // Reading a block may find more blocks.
        for (std::size_t block = 0; block < mTargets.size(); ++block)
            readBlock(block);
        mScene.untangle();
        return std::move(mScene);
    }

private:
    static constexpr std::size_t kNoBlock = static_cast<std::size_t>(-1);

    // What a block is made of.
    struct Target {
        xml_node node;
        Inherited inherited;
        std::size_t foundIn; // the block whose `use` was the first to need this one
    };

    // ---- the document

    // Counts the style sheets that set what the reader would have to know.
    void noteSheets() {
        for (const xml_node sheet : mDocument.sheets()) {
            if (sheet.type() == pugi::node_pi) {
                omit("style sheet of another file", sheet);
                continue;
            }
            std::string css;
            for (const xml_node text : sheet.children())
                css += text.value();
            for (const std::string& name : propertiesSetBy(css)) {
                if (name == "@import" || kReadProperties.count(name) > 0 ||
                    std::find(std::begin(kEffects), std::end(kEffects), name) != std::end(kEffects))
                    omit("style sheet with " + name, sheet);
            }
        }
    }

    void noteRoot() {
        const Properties properties(mDocument.root());
        if (properties.has("transform"))
            omit("transform of the whole drawing", mDocument.root());
    }

    Box page() const {
        const std::optional<ViewBox> viewBox = viewBoxOf(mDocument.root());
        const Point origin = viewBox ? viewBox->origin : Point{};
        return Box::between(origin, origin + Point{mPageSize.width, mPageSize.height});
    }

    Size pageSize() const {
        const std::optional<ViewBox> viewBox = viewBoxOf(mDocument.root());
        if (viewBox && viewBox->size.width > 0 && viewBox->size.height > 0)
            return viewBox->size;
        constexpr Size kDefault{300, 150};
        const Properties properties(mDocument.root());
        Lengths lengths(properties, kDefault);
        return {lengths.optionalX("width").value_or(kDefault.width),
                lengths.optionalY("height").value_or(kDefault.height)};
    }

    // ---- blocks

    // Returns the block of a target. Blocks that would be equal are one.
    std::size_t blockOf(Target target) {
        if (!mDependence.onViewport(target.node))
            target.inherited.viewport = mPageSize;
        Variants& variants = mBlocks[target.node.internal_object()];
        const Size viewport = target.inherited.viewport;
        const auto [place, isNew] = variants.emplace(
            std::make_tuple(viewport.width, viewport.height, target.inherited.isVisible), mTargets.size());
        if (isNew) {
            mTargets.push_back(target);
            mScene.blocks.emplace_back();
            mScene.blocks.back().name = printable(target.node.attribute("id").value());
        }
        return place->second;
    }

    // Returns whether the block that is read is in a block of this target, or is one. Only targets with
    // several blocks are looked at: the circles of others are cut when all blocks are read.
    bool isInside(xml_node target) const {
        const auto known = mBlocks.find(target.internal_object());
        if (known == mBlocks.end() || !mDependence.onViewport(target))
            return false;
        for (std::size_t block = mBlock; block != kNoBlock; block = mTargets[block].foundIn) {
            if (mTargets[block].node == target)
                return true;
        }
        return false;
    }

    // Reads the elements of a block. Uses a stack instead of recursion, so elements may be nested to any
    // depth.
    void readBlock(std::size_t block) {
        mBlock = block;
        const Target target = mTargets[block];
        const std::string_view type = mDocument.typeOf(target.node);
        const Context context{target.inherited, Affine()};
        if (type == "svg" || type == "symbol")
            readViewport(target.node, context);
        else
            mPending.push_back({target.node, context});
        while (!mPending.empty()) {
            const PendingElement element = mPending.back();
            mPending.pop_back();
            if (mInterrupt)
                mInterrupt->check();
            readElement(element.node, element.context);
        }
    }

    // Reads a block of a svg or symbol. The placement of each insert has its view.
    void readViewport(xml_node node, Context context) {
        const Properties properties(node);
        const bool isSymbol = mDocument.typeOf(node) == "symbol"; // which is displayed when it is used
        if (!isSymbol && !isDisplayed(properties))
            return;
        applyVisibility(properties, context);
        noteEffects(properties);
        if (const std::optional<ViewBox> viewBox = viewBoxOf(node))
            context.inherited.viewport = viewBox->size;
        pushChildren(node, context);
    }

    void pushChildren(xml_node parent, const Context& context) {
        for (xml_node child = parent.last_child(); child; child = child.previous_sibling()) {
            if (child.type() == pugi::node_element)
                mPending.push_back({child, context});
        }
    }

    static void applyVisibility(const Properties& properties, Context& context) {
        const std::string_view visibility = properties.value("visibility");
        if (!visibility.empty() && visibility != "inherit")
            context.inherited.isVisible = visibility == "visible";
    }

    void readElement(xml_node node, Context context) {
        const std::string_view type = mDocument.typeOf(node);
        if (type.empty() || kSilent.count(type) > 0)
            return;
        const Properties properties(node);
        if (!isDisplayed(properties))
            return;
        const std::optional<Affine> transform = transformOf(properties);
        if (!transform) {
            omit(std::string(type) + " with a broken transform", node);
            return;
        }
        context.transform = context.transform * *transform;
        applyVisibility(properties, context);
        noteEffects(properties);

        if (type == "g" || type == "a")
            pushChildren(node, context);
        else if (type == "svg")
            readNestedViewport(properties, context);
        else if (type == "switch")
            readSwitch(node, context);
        else if (type == "use")
            readUse(properties, context);
        else if (const auto shape = kShapes.find(type); shape != kShapes.end())
            readShape(properties, shape->second, context);
        else
            omit(std::string(type), node);
    }

    void noteEffects(const Properties& properties) {
        for (const char* effect : kEffects) {
            const std::string_view value = properties.value(effect);
            if (!value.empty() && value != "none")
                omit(effect, properties.node());
        }
    }

    void readShape(const Properties& properties, DrawShape draw, const Context& context) {
        if (!context.inherited.isVisible)
            return;
        const std::string type(mDocument.typeOf(properties.node()));
        Outline outline;
        bool isSound = draw(properties, context.inherited.viewport, outline);
        outline = outline.transformed(context.transform);
        if (!outline.isFinite()) {
            isSound = false;
            outline = Outline();
        }
        if (!isSound)
            omit("broken " + type, properties.node());
        if (properties.styleValue("d"))
            omit("path in a style", properties.node());
        if (!outline.isEmpty())
            add(Shape{type, nameOf(properties), std::move(outline)});
    }

    void readNestedViewport(const Properties& properties, Context context) {
        Lengths lengths(properties, context.inherited.viewport);
        if (isSwitchedOff(lengths))
            return;
        const Size room{lengths.optionalX("width").value_or(context.inherited.viewport.width),
                        lengths.optionalY("height").value_or(context.inherited.viewport.height)};
        const Affine corner = Affine::translation(lengths.x("x"), lengths.y("y"));
        const std::optional<View> view = viewOf(properties.node(), room);
        if (!view || !lengths.areSound()) {
            omit("svg without a view", properties.node());
            return;
        }
        context.transform = context.transform * corner * view->transform;
        context.inherited.viewport = view->viewport;
        pushChildren(properties.node(), context);
    }

    // Reads only the first child without requirements. The other children of a switch are not shown.
    void readSwitch(xml_node node, const Context& context) {
        for (const xml_node child : node.children()) {
            const bool isPlain = child.attribute("requiredExtensions").empty() &&
                                 child.attribute("requiredFeatures").empty() &&
                                 child.attribute("systemLanguage").empty();
            if (isPlain && !mDocument.typeOf(child).empty()) {
                mPending.push_back({child, context});
                return;
            }
        }
    }

    void readUse(const Properties& properties, const Context& context) {
        const xml_node node = properties.node();
        const xml_node target = mDocument.targetOf(node);
        if (!target) {
            omit("use of a missing element", node);
            return;
        }
        Lengths lengths(properties, context.inherited.viewport);
        if (isSwitchedOff(lengths) || (!context.inherited.isVisible && !mDependence.isSeenInHidden(target)))
            return;
        if (isInside(target)) {
            omit("use inside itself", node);
            return;
        }
        const Affine corner = Affine::translation(lengths.x("x"), lengths.y("y"));
        const std::optional<View> view = insertedView(target, lengths, context.inherited.viewport);
        if (!view || !lengths.areSound()) {
            omit("broken use", node);
            return;
        }
        const Inherited inherited{view->viewport, context.inherited.isVisible};
        const std::size_t block = blockOf({target, inherited, mBlock});
        add(Insert{block, context.transform * corner * view->transform, nameOf(properties),
                   mDocument.lineOf(node)});
    }

    // Returns the view of the target of a use, whose lengths are `lengths`. Returns nothing if the target
    // then shows nothing.
    std::optional<View> insertedView(xml_node target, Lengths& lengths, Size viewport) const {
        const std::string_view type = mDocument.typeOf(target);
        if (type != "svg" && type != "symbol")
            return View{Affine(), viewport};
        const Properties properties(target);
        Lengths own(properties, viewport);
        const std::optional<double> width = lengths.optionalX("width");
        const std::optional<double> height = lengths.optionalY("height");
        const Size room{width ? *width : own.optionalX("width").value_or(viewport.width),
                        height ? *height : own.optionalY("height").value_or(viewport.height)};
        const std::optional<Affine> transform = transformOf(properties);
        std::optional<View> view = viewOf(target, room);
        if (!view || !transform)
            return std::nullopt;
        view->transform = *transform * Affine::translation(own.x("x"), own.y("y")) * view->transform;
        return view;
    }

    // ---- results

    static std::string nameOf(const Properties& properties) {
        return printable(properties.node().attribute("id").value());
    }

    // Reading a block may move all of them, so this is the only place that takes a reference to one.
    void add(std::variant<Shape, Insert> content) {
        if (++mCount > mMostContents)
            throw DrawingError(mName + ": the drawing has more than " + std::to_string(mMostContents) +
                               " entities and references");
        mScene.blocks[mBlock].contents.push_back(std::move(content));
    }

    void omit(const std::string& what, xml_node node) {
        mScene.omit(printable(what), mDocument.lineOf(node));
    }

    using Variants = std::map<std::tuple<double, double, bool>, std::size_t>; // indices in mTargets

    const std::string& mName;
    Interrupt* mInterrupt; // may be null
    std::size_t mMostContents;
    const SvgDocument mDocument;
    const SvgDependence mDependence;
    std::unordered_map<const void*, Variants> mBlocks; // by the target element
    std::vector<Target> mTargets;                      // one for each block
    std::vector<PendingElement> mPending;
    Size mPageSize;
    std::size_t mBlock = 0; // the block that is being read
    std::size_t mCount = 0; // of the contents of all blocks
    Scene mScene;
};

std::string contentsOf(const std::string& file, Interrupt* interrupt, std::size_t mostBytes) {
    std::error_code failure;
    if (std::filesystem::is_directory(file, failure))
        throw DrawingError(file + ": is a directory");
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw DrawingError(file + ": cannot be read: " + std::strerror(errno));
    // The file may be a device or a pipe that never ends, so its size is not asked.
    std::string contents;
    std::vector<char> piece(std::size_t{1} << 16);
    do {
        in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        contents.append(piece.data(), static_cast<std::size_t>(in.gcount()));
        if (contents.size() > mostBytes)
            throw DrawingError(file + ": has more than " + std::to_string(mostBytes) + " bytes");
        if (interrupt)
            interrupt->check();
    } while (in);
    return contents;
}

} // namespace

bool isShapeType(const std::string& name) {
    return kShapes.count(name) > 0;
}

Scene readSvg(const std::string& file, Interrupt* interrupt, const DrawingLimits& limits) {
    return parseSvg(contentsOf(file, interrupt, limits.bytes), file, interrupt, limits);
}

Scene parseSvg(const std::string& text, const std::string& name, Interrupt* interrupt,
               const DrawingLimits& limits) {
    return Reader(text, name, interrupt, limits.contents).read();
}

} // namespace picker
