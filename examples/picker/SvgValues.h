// Parses the values of SVG attributes: numbers, lengths, transforms, lists of points and path data.
#pragma once

#include "examples/picker/Geometry.h"
#include "examples/picker/Outline.h"

#include <optional>
#include <string_view>
#include <vector>

namespace picker {

// Reads one value after the other from the text of an attribute. If number() or flag() finds no value, the
// scanner stays where it is.
class ValueScanner {
public:
    explicit ValueScanner(std::string_view text) : mRest(text) {}

    bool atEnd();
    // Reads a finite decimal number. Skips separators before it: blanks and at most one comma.
    std::optional<double> number();
    // Reads the digit 0 or 1. The next value may follow without a separator.
    std::optional<bool> flag();
    // Reads a sequence of letters, which may be empty. Skips separators before it.
    std::string_view word();
    // Reads this character. Returns false if another one follows. Skips only blanks before the character.
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

// Does the same for the CSS property `transform`, such as "translate(3px, 4px) rotate(30deg)" or "none".
// Percentages and the functions of three dimensions count as malformed.
std::optional<Affine> parseStyleTransform(std::string_view text);

// Returns the numbers of a list. Returns nothing if the text has anything but numbers.
std::optional<std::vector<double>> parseNumbers(std::string_view text);

// Append what the text draws. If the text is malformed, the functions draw the part before the error and
// return false.
bool drawPathData(std::string_view text, Outline& outline);
bool drawPoints(std::string_view text, Outline& outline);

} // namespace picker
