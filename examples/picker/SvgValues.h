// Parses the values of SVG attributes: numbers, lengths, transforms, lists of points and path data.
#pragma once

#include "examples/picker/Geometry.h"
#include "examples/picker/Outline.h"

#include <optional>
#include <string_view>
#include <vector>

namespace picker {

// Reads one value after the other from an attribute's text. A call that finds no value does not advance the
// scanner.
class ValueScanner {
public:
    explicit ValueScanner(std::string_view text) : mRest(text) {}

    bool atEnd();
    // Reads a finite decimal number. Skips separators before it: blanks and at most one comma.
    std::optional<double> number();
    // Reads the digit 0 or 1. No separator needs to follow the digit.
    std::optional<bool> flag();
    // Reads a sequence of letters.
    std::string_view word();
    // Reads exactly this character. Skips only blanks before it.
    bool accept(char wanted);

    std::string_view rest() const { return mRest; }

private:
    void skipBlanks();
    void skipSeparators();

    std::string_view mRest;
};

// Returns a length such as "12", "3.5mm" or "40%" in user units. A percentage refers to `whole`. Returns
// nothing for any other text.
std::optional<double> parseLength(std::string_view text, double whole);

// Returns the compound map of a text such as "translate(3 4) rotate(30)". Returns nothing if any part of the
// text is malformed.
std::optional<Affine> parseTransform(std::string_view text);

// Returns the numbers of a list. Returns nothing if the text has anything but numbers.
std::optional<std::vector<double>> parseNumbers(std::string_view text);

// Append what the text draws. If the text is malformed, the functions draw it up to the error and return
// false.
bool drawPathData(std::string_view text, Outline& outline);
bool drawPoints(std::string_view text, Outline& outline);

} // namespace picker
