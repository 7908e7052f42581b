#include "examples/picker/SvgValues.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace picker {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

struct Unit {
    std::string_view name;
    double userUnits; // at 96 user units per inch
};
constexpr Unit kUnits[] = {{"", 1},           {"px", 1},  {"in", 96}, {"mm", 96 / 25.4}, {"cm", 96 / 2.54},
                           {"pt", 96 / 72.0}, {"pc", 16}, {"em", 16}, {"ex", 8},         {"Q", 96 / 101.6}};

std::optional<Affine> transformFunction(std::string_view name, const std::vector<double>& v) {
    const std::size_t count = v.size();
    if (name == "matrix" && count == 6)
        return Affine{v[0], v[1], v[2], v[3], v[4], v[5]};
    if (name == "translate" && (count == 1 || count == 2))
        return Affine::translation(v[0], count == 2 ? v[1] : 0);
    if (name == "scale" && (count == 1 || count == 2))
        return Affine::scaling(v[0], count == 2 ? v[1] : v[0]);
    if (name == "rotate" && count == 1)
        return Affine::rotation(v[0]);
    if (name == "rotate" && count == 3)
        return Affine::translation(v[1], v[2]) * Affine::rotation(v[0]) * Affine::translation(-v[1], -v[2]);
    if (name == "skewX" && count == 1)
        return Affine::skewX(v[0]);
    if (name == "skewY" && count == 1)
        return Affine::skewY(v[0]);
    return std::nullopt;
}

// The functions of CSS that SVG does not have, or has with other arguments.
std::optional<Affine> styleTransformFunction(std::string_view name, const std::vector<double>& v) {
    const std::size_t count = v.size();
    if (name == "translateX" && count == 1)
        return Affine::translation(v[0], 0);
    if (name == "translateY" && count == 1)
        return Affine::translation(0, v[0]);
    if (name == "scaleX" && count == 1)
        return Affine::scaling(v[0], 1);
    if (name == "scaleY" && count == 1)
        return Affine::scaling(1, v[0]);
    if (name == "skew" && (count == 1 || count == 2)) {
        const double y = count == 2 ? Affine::skewY(v[1]).b : 0;
        return Affine{1, y, Affine::skewX(v[0]).c, 1, 0, 0};
    }
    if (name == "rotate" && count != 1)
        return std::nullopt;
    return transformFunction(name, v);
}

// Returns an argument of a CSS transform function: a number, a length in user units or an angle in degrees.
std::optional<double> styleArgument(ValueScanner& scanner) {
    constexpr Unit kAngles[] = {
        {"deg", 1}, {"rad", 180 / 3.14159265358979323846}, {"grad", 0.9}, {"turn", 360}};
    const std::optional<double> number = scanner.number();
    if (!number)
        return std::nullopt;
    const std::string_view rest = scanner.rest();
    if (rest.empty() || !isLetter(rest.front()))
        return number;
    const std::string_view name = scanner.word();
    for (const Unit& unit : kAngles) {
        if (unit.name == name)
            return *number * unit.userUnits;
    }
    for (const Unit& unit : kUnits) {
        if (unit.name == name)
            return *number * unit.userUnits;
    }
    return std::nullopt;
}

// Returns the compound map of a sequence of functions. argument(scanner) reads one argument, and
// function(name, arguments) returns its map.
template <class Argument, class Function>
std::optional<Affine> compoundOf(std::string_view text, Argument argument, Function function) {
    Affine compound;
    ValueScanner scanner(text);
    while (!scanner.atEnd()) {
        const std::string_view name = scanner.word();
        if (!scanner.accept('('))
            return std::nullopt;
        std::vector<double> values;
        while (const std::optional<double> value = argument(scanner))
            values.push_back(*value);
        if (!scanner.accept(')'))
            return std::nullopt;
        const std::optional<Affine> next = function(name, values);
        if (!next)
            return std::nullopt;
        compound = compound * *next;
    }
    return compound;
}

// Draws path data. A command letter may have several sets of arguments, and each set draws one segment.
class PathDrawer {
public:
    PathDrawer(std::string_view text, Outline& outline) : mScanner(text), mOutline(outline) {}

    bool draw() {
        bool first = true;
        while (!mScanner.atEnd()) {
            const std::optional<char> letter = commandLetter();
            if (!letter || (first && *letter != 'M' && *letter != 'm'))
                return false;
            first = false;
            if (!drawCommand(*letter))
                return false;
        }
        return true;
    }

private:
    static constexpr std::string_view kLetters = "MLHVCSQTAZ";
    static constexpr std::array<int, 10> kArgumentCounts{2, 2, 1, 1, 6, 4, 4, 2, 7, 0};
    using Arguments = std::array<double, 7>;

    std::optional<char> commandLetter() {
        for (const char upper : kLetters) {
            const char lower = static_cast<char>(upper - 'A' + 'a');
            for (const char letter : {upper, lower}) {
                if (mScanner.accept(letter))
                    return letter;
            }
        }
        return std::nullopt;
    }

    bool drawCommand(char letter) {
        mRelative = letter >= 'a';
        char command = mRelative ? static_cast<char>(letter - 'a' + 'A') : letter;
        if (command == 'Z') {
            mOutline.close();
            mLastControl.reset();
            return true;
        }
        Arguments arguments{};
        if (!readArguments(command, arguments))
            return false;
        do {
            drawSegment(command, arguments);
            if (command == 'M')
                command = 'L'; // further points after a moveto draw lines
        } while (readArguments(command, arguments));
        return nextIsCommandOrEnd();
    }

    // Reads a complete set of arguments. If the next set is incomplete, reads nothing and returns false.
    // nextIsCommandOrEnd() then finds the incomplete set and returns false.
    bool readArguments(char command, Arguments& arguments) {
        const ValueScanner before = mScanner;
        const std::size_t count = static_cast<std::size_t>(kArgumentCounts[kLetters.find(command)]);
        for (std::size_t i = 0; i < count; ++i) {
            const std::optional<double> value = readArgument(command, i);
            if (!value) {
                mScanner = before;
                return false;
            }
            arguments[i] = *value;
        }
        return true;
    }

    std::optional<double> readArgument(char command, std::size_t i) {
        if (command != 'A' || (i != 3 && i != 4))
            return mScanner.number();
        const std::optional<bool> flag = mScanner.flag();
        return flag ? std::optional<double>(*flag ? 1 : 0) : std::nullopt;
    }

    bool nextIsCommandOrEnd() {
        ValueScanner ahead = mScanner;
        return ahead.atEnd() || isLetter(ahead.rest().front());
    }

    Point target(double x, double y) const { return mRelative ? mOutline.pen() + Point{x, y} : Point{x, y}; }

    // Returns the first control point of a smooth curve: the last control point mirrored at the pen. If the
    // last segment was not a curve of this kind, returns the pen.
    Point mirroredControl(char kind) const {
        const bool sameKind = mLastControl && mLastKind == kind;
        return sameKind ? 2 * mOutline.pen() - *mLastControl : mOutline.pen();
    }

    void drawSegment(char command, const Arguments& v) {
        std::optional<Point> control;
        char kind = ' ';
        switch (command) {
        case 'M':
            mOutline.moveTo(target(v[0], v[1]));
            break;
        case 'L':
            mOutline.lineTo(target(v[0], v[1]));
            break;
        case 'H':
            mOutline.lineTo({target(v[0], 0).x, mOutline.pen().y});
            break;
        case 'V':
            mOutline.lineTo({mOutline.pen().x, target(0, v[0]).y});
            break;
        case 'C':
        case 'S': {
            const std::size_t smooth = command == 'S' ? 2 : 0;
            const Point first = smooth ? mirroredControl('C') : target(v[0], v[1]);
            control = target(v[2 - smooth], v[3 - smooth]);
            kind = 'C';
            mOutline.cubicTo(first, *control, target(v[4 - smooth], v[5 - smooth]));
            break;
        }
        case 'Q':
        case 'T': {
            const std::size_t smooth = command == 'T' ? 2 : 0;
            control = smooth ? mirroredControl('Q') : target(v[0], v[1]);
            kind = 'Q';
            mOutline.quadraticTo(*control, target(v[2 - smooth], v[3 - smooth]));
            break;
        }
        default:
            mOutline.arcTo({v[0], v[1]}, v[2], v[3] != 0, v[4] != 0, target(v[5], v[6]));
            break;
        }
        mLastControl = control;
        mLastKind = kind;
    }

    ValueScanner mScanner;
    Outline& mOutline;
    bool mRelative = false;
    std::optional<Point> mLastControl;
    char mLastKind = ' ';
};

} // namespace

void ValueScanner::skipBlanks() {
    while (!mRest.empty() && isBlank(mRest.front()))
        mRest.remove_prefix(1);
}

void ValueScanner::skipSeparators() {
    skipBlanks();
    if (!mRest.empty() && mRest.front() == ',') {
        mRest.remove_prefix(1);
        skipBlanks();
    }
}

bool ValueScanner::atEnd() {
    skipBlanks();
    return mRest.empty();
}

std::optional<double> ValueScanner::number() {
    const std::string_view before = mRest;
    skipSeparators();
    std::string_view digits = mRest;
    if (!digits.empty() && digits.front() == '+')
        digits.remove_prefix(1);
    const std::size_t sign =
        !digits.empty() && digits.front() == '-' && digits.data() == mRest.data() ? 1 : 0;
    // Excludes the names of infinity and not-a-number, which from_chars accepts.
    const bool startsLikeANumber = digits.size() > sign && (isDigit(digits[sign]) || digits[sign] == '.');
    double value = 0;
    const std::from_chars_result result =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::general);
    if (!startsLikeANumber || result.ec != std::errc() || !std::isfinite(value)) {
        mRest = before;
        return std::nullopt;
    }
    mRest.remove_prefix(static_cast<std::size_t>(result.ptr - mRest.data()));
    return value;
}

std::optional<bool> ValueScanner::flag() {
    const std::string_view before = mRest;
    skipSeparators();
    if (mRest.empty() || (mRest.front() != '0' && mRest.front() != '1')) {
        mRest = before;
        return std::nullopt;
    }
    const bool set = mRest.front() == '1';
    mRest.remove_prefix(1);
    return set;
}

std::string_view ValueScanner::word() {
    skipSeparators();
    const auto end = std::find_if_not(mRest.begin(), mRest.end(), isLetter);
    const std::string_view found = mRest.substr(0, static_cast<std::size_t>(end - mRest.begin()));
    mRest.remove_prefix(found.size());
    return found;
}

bool ValueScanner::accept(char wanted) {
    skipBlanks();
    if (mRest.empty() || mRest.front() != wanted)
        return false;
    mRest.remove_prefix(1);
    return true;
}

std::optional<double> parseLength(std::string_view text, double whole) {
    ValueScanner scanner(text);
    const std::optional<double> number = scanner.number();
    if (!number)
        return std::nullopt;
    if (scanner.accept('%'))
        return scanner.atEnd() ? std::optional<double>(*number / 100 * whole) : std::nullopt;
    const std::string_view name = scanner.word();
    for (const Unit& unit : kUnits) {
        if (unit.name == name && scanner.atEnd())
            return *number * unit.userUnits;
    }
    return std::nullopt;
}

std::optional<Affine> parseTransform(std::string_view text) {
    return compoundOf(
        text, [](ValueScanner& scanner) { return scanner.number(); }, transformFunction);
}

std::optional<Affine> parseStyleTransform(std::string_view text) {
    return text == "none" ? Affine() : compoundOf(text, styleArgument, styleTransformFunction);
}

std::optional<std::vector<double>> parseNumbers(std::string_view text) {
    std::vector<double> values;
    ValueScanner scanner(text);
    while (const std::optional<double> value = scanner.number())
        values.push_back(*value);
    return scanner.atEnd() ? std::optional(std::move(values)) : std::nullopt;
}

bool drawPathData(std::string_view text, Outline& outline) {
    return PathDrawer(text, outline).draw();
}

bool drawPoints(std::string_view text, Outline& outline) {
    ValueScanner scanner(text);
    bool first = true;
    while (!scanner.atEnd()) {
        const std::optional<double> x = scanner.number();
        const std::optional<double> y = x ? scanner.number() : std::nullopt;
        if (!y)
            return false;
        if (first)
            outline.moveTo({*x, *y});
        else
            outline.lineTo({*x, *y});
        first = false;
    }
    return true;
}

} // namespace picker
