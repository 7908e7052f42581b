// The error of a file that is no drawing.
#pragma once

#include <stdexcept>

namespace picker {

// Thrown if a file cannot be read or is no drawing. The text names the file and, if known, line and column.
class DrawingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace picker
