#include "examples/picker/SvgStyle.h"

#include <algorithm>
#include <unordered_set>

namespace picker {
namespace {

bool isNamePart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

std::string inSmallLetters(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

// Returns the offset behind the quoted text that begins at `begin`.
std::size_t endOfQuote(std::string_view css, std::size_t begin) {
    std::size_t at = begin + 1;
    while (at < css.size() && css[at] != css[begin])
        at += css[at] == '\\' ? 2u : 1u;
    return std::min(css.size(), at + 1);
}

bool beginsQuote(char c) {
    return c == '"' || c == '\'';
}

// Puts a blank in place of each comment. A comment in a quoted text is none.
std::string withoutComments(std::string_view css) {
    std::string result;
    for (std::size_t at = 0; at < css.size();) {
        if (css.substr(at, 2) == "/*") {
            const std::size_t end = css.find("*/", at + 2);
            at = end == std::string_view::npos ? css.size() : end + 2;
            result += ' ';
            continue;
        }
        const std::size_t end = beginsQuote(css[at]) ? endOfQuote(css, at) : at + 1;
        result += css.substr(at, end - at);
        at = end;
    }
    return result;
}

// Returns the offset of the next semicolon outside quotes and brackets, or the size of the text.
std::size_t endOfDeclaration(std::string_view css) {
    int depth = 0;
    for (std::size_t at = 0; at < css.size();) {
        if (beginsQuote(css[at])) {
            at = endOfQuote(css, at);
            continue;
        }
        if (css[at] == ';' && depth <= 0)
            return at;
        depth += css[at] == '(' ? 1 : css[at] == ')' ? -1 : 0;
        ++at;
    }
    return css.size();
}

} // namespace

std::string_view trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r\n\f";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

StyleDeclarations::StyleDeclarations(std::string_view style) {
    const std::string text = withoutComments(style);
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = endOfDeclaration(rest);
        add(rest.substr(0, end));
        rest.remove_prefix(std::min(rest.size(), end + 1));
    }
}

void StyleDeclarations::add(std::string_view declaration) {
    const std::size_t colon = declaration.find(':');
    if (colon == std::string_view::npos)
        return;
    const std::string_view value = declaration.substr(colon + 1);
    const std::size_t mark = value.rfind('!');
    const bool isImportant =
        mark != std::string_view::npos && inSmallLetters(trimmed(value.substr(mark + 1))) == "important";
    mDeclarations.push_back({inSmallLetters(trimmed(declaration.substr(0, colon))),
                             std::string(trimmed(isImportant ? value.substr(0, mark) : value)), isImportant});
}

std::optional<std::string_view> StyleDeclarations::find(std::string_view name) const {
    const Declaration* found = nullptr;
    for (const Declaration& each : mDeclarations) {
        if (each.name == name && (!found || each.isImportant || !found->isImportant))
            found = &each;
    }
    return found ? std::optional<std::string_view>(found->value) : std::nullopt;
}

std::vector<std::string> propertiesSetBy(std::string_view sheet) {
    const std::string css = withoutComments(sheet);
    std::vector<std::string> names;
    std::unordered_set<std::string> known;
    const auto add = [&](const std::string& name) {
        if (!name.empty() && known.insert(name).second)
            names.push_back(name);
    };
    if (css.find("@import") != std::string::npos)
        add("@import");
    // A name is what stands between a brace or semicolon and a colon, inside a rule.
    bool isExpected = false;
    std::string name;
    for (std::size_t at = 0; at < css.size(); ++at) {
        const char c = css[at];
        if (beginsQuote(c)) {
            at = endOfQuote(css, at) - 1;
        } else if (c == '{' || c == ';') {
            isExpected = true;
            name.clear();
        } else if (isExpected && c == ':') {
            add(inSmallLetters(name));
            isExpected = false;
        } else if (c == '}') {
            isExpected = false;
        } else if (isNamePart(c)) {
            name += c;
        }
    }
    return names;
}

} // namespace picker
