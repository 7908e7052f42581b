// Makes drawings for tests from the elements between <svg> and </svg>.
#pragma once

#include "examples/picker/SvgReader.h"

#include <string>

namespace kvtest {

inline picker::Scene sceneOf(const std::string& elements,
                             const std::string& attributes = "viewBox='0 0 100 100'") {
    return picker::parseSvg(
        "<svg xmlns='http://www.w3.org/2000/svg' " + attributes + ">" + elements + "</svg>", "test.svg");
}

} // namespace kvtest
