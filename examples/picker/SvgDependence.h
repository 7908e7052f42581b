// What the parts of an SVG file take from the elements around them, also through `use`.
#pragma once

#include "examples/picker/SvgDocument.h"

#include <unordered_map>

namespace picker {

// The target of a `use` is drawn within the viewport and the visibility of each `use`. Most targets look the
// same in all of them, and one block is enough. This class tells which do not.
//
// The answers may be "yes" where "no" would do, which only costs a block. O(elements) to make.
class SvgDependence {
public:
    explicit SvgDependence(const SvgDocument& document);

    // Returns whether a percentage or a missing size in the element, or in what it uses, refers to the
    // viewport around it.
    bool onViewport(pugi::xml_node node) const { return has(node, kViewport); }
    // Returns whether something in the element, or in what it uses, is visible in a hidden element, too.
    bool isSeenInHidden(pugi::xml_node node) const { return has(node, kVisible); }

private:
    using Traits = unsigned;
    static constexpr Traits kViewport = 1;
    static constexpr Traits kVisible = 2;

    bool has(pugi::xml_node node, Traits trait) const;

    std::unordered_map<const void*, Traits> mTraits; // of the elements that have any
};

} // namespace picker
