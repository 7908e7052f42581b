// The XML of an SVG file: its elements by name and id, links between them, and places in the file.
//
// Entities that the file itself declares are replaced in attributes. Namespaces decide which elements are
// SVG; elements without any namespace count as SVG.
#pragma once

#include "examples/picker/DrawingError.h"
#include "examples/picker/SvgStyle.h"

#include <pugixml.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace picker {

// Replaces control characters, so that a name from the file can be printed to a terminal.
std::string printable(std::string text);

// The attributes of one element, over which its style attribute has precedence.
class Properties {
public:
    explicit Properties(pugi::xml_node node)
        : mNode(node), mStyle(std::string_view(node.attribute("style").value())) {}

    pugi::xml_node node() const { return mNode; }
    // Returns the value in the style attribute, or that of the attribute, or "". Without blanks around it.
    std::string_view value(const char* name) const;
    bool has(const char* name) const { return mStyle.find(name) || mNode.attribute(name); }
    std::optional<std::string_view> styleValue(const char* name) const { return mStyle.find(name); }

private:
    pugi::xml_node mNode;
    StyleDeclarations mStyle;
};

class SvgDocument {
public:
    // Parses the text. Error messages call it `name`. Keeps references to both. Throws DrawingError.
    SvgDocument(const std::string& text, const std::string& name);

    pugi::xml_node root() const { return mRoot; }
    // Returns the name of an SVG element without its prefix. Returns "" for text, comments and elements of
    // other namespaces.
    std::string_view typeOf(pugi::xml_node node) const;
    // Returns the element to which a use links. Returns the null node if it is not in this file.
    pugi::xml_node targetOf(pugi::xml_node use) const;
    // Returns all elements with the type `use`.
    const std::vector<pugi::xml_node>& uses() const { return mUses; }
    // Returns all style elements, and the instructions that name other sheets.
    const std::vector<pugi::xml_node>& sheets() const { return mSheets; }
    // Returns all elements, in the order of the file.
    const std::vector<pugi::xml_node>& elements() const { return mElements; }

    // Returns the line of a node, counted from 1.
    std::size_t lineOf(pugi::xml_node node) const { return lineAt(node.offset_debug()); }

private:
    class Scopes;
    class Visitor;

    void parse();
    void findLines();
    void findEntities();
    void visit(pugi::xml_node node, const Scopes& scopes);
    void replaceEntities(pugi::xml_node node);
    void expand(std::string_view text, int depth, std::string& result);
    std::size_t lineAt(std::ptrdiff_t offset) const;
    DrawingError error(std::ptrdiff_t offset, const std::string& message) const;

    const std::string& mText;
    const std::string& mName;
    std::vector<std::ptrdiff_t> mLineBegins;
    pugi::xml_document mDocument;
    pugi::xml_node mRoot;
    std::unordered_map<std::string, std::string> mEntities;
    std::size_t mExpandedBytes = 0;
    std::vector<pugi::xml_node> mElements;
    std::vector<pugi::xml_node> mUses;
    std::vector<pugi::xml_node> mSheets;
    std::unordered_set<const void*> mForeign; // elements of other namespaces
    std::unordered_map<std::string_view, pugi::xml_node> mById;
    std::unordered_map<const void*, std::string_view> mLinks; // by the use
};

} // namespace picker
