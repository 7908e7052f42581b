#include "examples/picker/Filter.h"

namespace picker {

Filter curvesOfType(const std::string& type) {
    return [type](const BlockDefinition::Content& content) {
        return content.curve && content.curve->type() == type;
    };
}

Filter referencesTo(const std::string& block) {
    return [block](const BlockDefinition::Content& content) {
        return content.reference && content.reference->block().name() == block;
    };
}

Filter inside(const Box& box) {
    return [box](const BlockDefinition::Content& content) {
        const Box own = content.box();
        return !own.isEmpty() && box.contains(own.low) && box.contains(own.high);
    };
}

} // namespace picker
