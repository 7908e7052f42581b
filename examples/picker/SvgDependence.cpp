#include "examples/picker/SvgDependence.h"

#include <utility>

namespace picker {
namespace {

using pugi::xml_node;

constexpr const char* kLengths[] = {"x",  "y",  "width", "height", "cx", "cy", "r",
                                    "rx", "ry", "x1",    "y1",     "x2", "y2"};

bool hasPercentage(const Properties& properties) {
    for (const char* name : kLengths) {
        if (properties.value(name).find('%') != std::string_view::npos)
            return true;
    }
    return false;
}

bool hasSize(const Properties& properties) {
    return properties.has("width") && properties.has("height");
}

bool makesViewport(std::string_view type) {
    return type == "svg" || type == "symbol";
}

} // namespace

// A trait of an element is one of its parent and of every use of it. So traits spread from the elements that
// have them by themselves.
SvgDependence::SvgDependence(const SvgDocument& document) {
    std::vector<std::pair<xml_node, Traits>> pending;
    const auto give = [&](xml_node node, Traits traits) {
        Traits& known = mTraits[node.internal_object()];
        const Traits added = traits & ~known;
        known |= traits;
        if (added != 0)
            pending.push_back({node, added});
    };

    std::unordered_map<const void*, std::vector<xml_node>> usesOf;
    for (const xml_node use : document.uses()) {
        const xml_node target = document.targetOf(use);
        usesOf[target.internal_object()].push_back(use);
        if (makesViewport(document.typeOf(target)) && !hasSize(Properties(use)))
            give(use, kViewport);
    }
    for (const xml_node node : document.elements()) {
        const std::string_view type = document.typeOf(node);
        if (type.empty())
            continue;
        const Properties properties(node);
        if (hasPercentage(properties) || (type == "svg" && !hasSize(properties)))
            give(node, kViewport);
        if (properties.value("visibility") == "visible")
            give(node, kVisible);
    }

    while (!pending.empty()) {
        const auto [node, traits] = pending.back();
        pending.pop_back();
        const xml_node parent = node.parent();
        // The contents of a view box refer to it.
        const bool isBorder = makesViewport(document.typeOf(parent)) && parent.attribute("viewBox");
        const Traits passed = isBorder ? traits & ~kViewport : traits;
        if (parent && passed != 0)
            give(parent, passed);
        const auto uses = usesOf.find(node.internal_object());
        if (uses == usesOf.end())
            continue;
        for (const xml_node use : uses->second)
            give(use, traits);
    }
}

bool SvgDependence::has(xml_node node, Traits trait) const {
    const auto found = mTraits.find(node.internal_object());
    return found != mTraits.end() && (found->second & trait) != 0;
}

} // namespace picker
