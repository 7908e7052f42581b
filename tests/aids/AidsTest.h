// Helpers of the tests of the aids.
#pragma once

#include "tests/selectcontext/support/EditTestSupport.h"

#include <string>
#include <vector>

namespace kvtest {

// The text of id(n) is "#n".
inline std::string textOfNumber(const GxDbObjectId& fabricated) {
    return "#" + std::to_string(numberOf(fabricated));
}

using Sentences = std::vector<std::string>;

} // namespace kvtest
