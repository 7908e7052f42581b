// Reads CSS, as far as a drawing without a style engine needs it: the declarations of a style attribute, and
// which properties a style sheet sets.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace picker {

// Returns the text without the blanks around it.
std::string_view trimmed(std::string_view text);

// The declarations of one style attribute. Comments are skipped. Names of properties count in any case.
class StyleDeclarations {
public:
    StyleDeclarations() = default;
    explicit StyleDeclarations(std::string_view style);

    // Returns the value that counts, without "!important": that of the last important declaration, or that of
    // the last one. Returns nothing if no declaration has the name, which must be in small letters.
    std::optional<std::string_view> find(std::string_view name) const;

private:
    struct Declaration {
        std::string name;
        std::string value;
        bool isImportant;
    };

    void add(std::string_view declaration);

    std::vector<Declaration> mDeclarations;
};

// Returns the names of the properties that the rules of a style sheet set, each once and in small letters.
// Returns "@import" as well if the sheet imports others.
std::vector<std::string> propertiesSetBy(std::string_view sheet);

} // namespace picker
