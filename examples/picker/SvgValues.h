// The small languages inside SVG attributes: numbers, lengths, transforms, lists of points and path data.
#pragma once

#include "examples/picker/Geometry.h"
#include "examples/picker/Outline.h"

#include <optional>
#include <string_view>
#include <vector>

namespace picker {

// Reads one value after the other from an attribute's text. A call that finds nothing leaves the place as it
// is.
class ValueScanner {
public:
    explicit ValueScanner(std::string_view text) : mRest(text) {}

    bool atEnd();
    // A decimal number, finite; separators (blanks, one comma) in front of it are skipped.
    std::optional<double> number();
    // The digit 0 or 1, which needs no separator behind it.
    std::optional<bool> flag();
    // A run of letters.
    std::string_view word();
    // That very character, behind blanks only.
    bool accept(char wanted);

    std::string_view rest() const { return mRest; }

private:
    void skipBlanks();
    void skipSeparators();

    std::string_view mRest;
};

// "12", "3.5mm", "40%": in user units, a percentage of `whole`. Nothing for any other text.
std::optional<double> parseLength(std::string_view text, double whole);

// "translate(3 4) rotate(30)": the compound map. Nothing when any part is malformed.
std::optional<Affine> parseTransform(std::string_view text);

// Exactly the numbers of a list, or nothing.
std::optional<std::vector<double>> parseNumbers(std::string_view text);

// Append what the text draws. False: it is malformed, and drawn up to there.
bool drawPathData(std::string_view text, Outline& outline);
bool drawPoints(std::string_view text, Outline& outline);

} // namespace picker
