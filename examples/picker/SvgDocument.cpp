#include "examples/picker/SvgDocument.h"

#include <algorithm>

namespace picker {
namespace {

using pugi::xml_node;

constexpr std::string_view kSvgNamespace = "http://www.w3.org/2000/svg";
constexpr std::string_view kLinkNamespace = "http://www.w3.org/1999/xlink";

// A name is "prefix:local", or "local" with an empty prefix.
struct Name {
    std::string_view prefix;
    std::string_view local;
};

Name parted(std::string_view name) {
    const std::size_t colon = name.find(':');
    if (colon == std::string_view::npos)
        return {{}, name};
    return {name.substr(0, colon), name.substr(colon + 1)};
}

// Returns the prefix that an attribute declares: "" for xmlns, "a" for xmlns:a. Returns nothing for others.
std::optional<std::string_view> declaredPrefix(std::string_view attribute) {
    if (attribute == "xmlns")
        return std::string_view();
    const Name name = parted(attribute);
    return name.prefix == "xmlns" ? std::optional(name.local) : std::nullopt;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

} // namespace

// The namespaces of the prefixes at the element that is visited.
class SvgDocument::Scopes {
public:
    // Ends the declarations of all elements that do not contain the elements of this depth.
    void leaveTo(int depth) {
        while (!mDeclared.empty() && mDeclared.back().depth >= depth) {
            mSpaces[mDeclared.back().prefix].pop_back();
            mDeclared.pop_back();
        }
    }

    void declare(std::string_view prefix, std::string_view space, int depth) {
        mSpaces[prefix].push_back(space);
        mDeclared.push_back({depth, prefix});
    }

    // Returns nothing if the prefix is not declared.
    std::optional<std::string_view> spaceOf(std::string_view prefix) const {
        const auto found = mSpaces.find(prefix);
        const bool isDeclared = found != mSpaces.end() && !found->second.empty();
        return isDeclared ? std::optional(found->second.back()) : std::nullopt;
    }

    bool isSvg(std::string_view prefix) const {
        const std::optional<std::string_view> space = spaceOf(prefix);
        return space ? *space == kSvgNamespace : prefix.empty();
    }

    bool isLink(std::string_view prefix) const {
        const std::optional<std::string_view> space = spaceOf(prefix);
        return space ? *space == kLinkNamespace : prefix == "xlink";
    }

private:
    struct Declared {
        int depth;
        std::string_view prefix;
    };

    std::unordered_map<std::string_view, std::vector<std::string_view>> mSpaces; // the innermost one last
    std::vector<Declared> mDeclared;
};

// Visits every node of the document, in the order of the file.
class SvgDocument::Visitor : public pugi::xml_tree_walker {
public:
    explicit Visitor(SvgDocument& document) : mDocument(document) {}

    bool for_each(xml_node& node) override {
        mScopes.leaveTo(depth());
        mDocument.replaceEntities(node);
        for (const pugi::xml_attribute attribute : node.attributes()) {
            if (const std::optional<std::string_view> prefix = declaredPrefix(attribute.name()))
                mScopes.declare(*prefix, attribute.value(), depth());
        }
        mDocument.visit(node, mScopes);
        return true;
    }

private:
    SvgDocument& mDocument;
    Scopes mScopes;
};

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }, '?');
    return text;
}

std::string_view Properties::value(const char* name) const {
    const std::optional<std::string_view> styled = mStyle.find(name);
    return styled ? *styled : trimmed(mNode.attribute(name).value());
}

SvgDocument::SvgDocument(const std::string& text, const std::string& name) : mText(text), mName(name) {
    findLines();
    parse();
    findEntities();

    Visitor visitor(*this);
    mDocument.traverse(visitor);
    if (typeOf(mRoot) != "svg")
        throw error(mRoot.offset_debug() - 1,
                    "the drawing starts with <" + printable(mRoot.name()) + ">, not with <svg>");
}

void SvgDocument::parse() {
    if (mText.compare(0, 2, "\x1f\x8b") == 0)
        throw DrawingError(mName + ":1:1: the file is compressed; unpack it first");
    const unsigned options = pugi::parse_default | pugi::parse_doctype | pugi::parse_pi;
    const pugi::xml_parse_result result = mDocument.load_buffer(mText.data(), mText.size(), options);
    if (!result)
        throw error(result.offset, result.description());
    mRoot = mDocument.document_element();
}

void SvgDocument::visit(xml_node node, const Scopes& scopes) {
    if (node.type() == pugi::node_pi && std::string_view(node.name()) == "xml-stylesheet")
        mSheets.push_back(node);
    if (node.type() != pugi::node_element)
        return;
    mElements.push_back(node);
    if (!scopes.isSvg(parted(node.name()).prefix))
        mForeign.insert(node.internal_object());
    if (const pugi::xml_attribute id = node.attribute("id"))
        mById.emplace(id.value(), node);
    const std::string_view type = typeOf(node);
    if (type == "style")
        mSheets.push_back(node);
    if (type != "use")
        return;
    mUses.push_back(node);
    for (const pugi::xml_attribute attribute : node.attributes()) {
        const Name name = parted(attribute.name());
        if (name.local != "href")
            continue;
        if (name.prefix.empty())
            mLinks[node.internal_object()] = trimmed(attribute.value()); // stronger than a prefixed one
        else if (scopes.isLink(name.prefix))
            mLinks.emplace(node.internal_object(), trimmed(attribute.value()));
    }
}

std::string_view SvgDocument::typeOf(xml_node node) const {
    if (node.type() != pugi::node_element || mForeign.count(node.internal_object()) > 0)
        return {};
    return parted(node.name()).local;
}

xml_node SvgDocument::targetOf(xml_node use) const {
    const auto link = mLinks.find(use.internal_object());
    if (link == mLinks.end() || link->second.substr(0, 1) != "#")
        return {};
    const auto target = mById.find(link->second.substr(1));
    return target == mById.end() ? xml_node() : target->second;
}

// ---- entities

// Reads <!ENTITY name "value"> in the document type. The first declaration of a name counts. Parameter
// entities and external ones are skipped.
void SvgDocument::findEntities() {
    std::string_view rest;
    for (const xml_node child : mDocument.children()) {
        if (child.type() == pugi::node_doctype)
            rest = child.value();
    }
    constexpr std::string_view kBegin = "<!ENTITY";
    for (;;) {
        const std::size_t comment = rest.find("<!--");
        const std::size_t begin = rest.find(kBegin);
        if (begin == std::string_view::npos)
            return;
        if (comment < begin) {
            const std::size_t end = rest.find("-->", comment);
            rest.remove_prefix(std::min(rest.size(), end));
            continue;
        }
        rest = trimmed(rest.substr(begin + kBegin.size()));
        const std::size_t nameEnd =
            static_cast<std::size_t>(std::find_if(rest.begin(), rest.end(), isSpace) - rest.begin());
        const std::string_view name = rest.substr(0, nameEnd);
        rest = trimmed(rest.substr(nameEnd));
        if (rest.empty() || (rest.front() != '"' && rest.front() != '\''))
            continue;
        const std::size_t end = rest.find(rest.front(), 1);
        if (end == std::string_view::npos)
            return;
        mEntities.emplace(name, rest.substr(1, end - 1));
        rest.remove_prefix(end + 1);
    }
}

void SvgDocument::replaceEntities(xml_node node) {
    if (mEntities.empty())
        return;
    for (pugi::xml_attribute attribute : node.attributes()) {
        const std::string_view value = attribute.value();
        if (value.find('&') == std::string_view::npos)
            continue;
        std::string expanded;
        expand(value, 0, expanded);
        attribute.set_value(expanded.c_str());
    }
}

// Appends the text with the values of entities in place of their names. Entities may contain others, so the
// depth and the sum of all texts have limits.
void SvgDocument::expand(std::string_view text, int depth, std::string& result) {
    constexpr int kMostDepth = 20;
    constexpr std::size_t kMostBytes = 16 * 1024 * 1024;
    constexpr std::size_t kLongestName = 100;
    mExpandedBytes += text.size();
    if (depth > kMostDepth || mExpandedBytes > kMostBytes)
        throw DrawingError(mName + ": entities stand for too much text, or for themselves");
    while (!text.empty()) {
        const std::size_t begin = std::min(text.size(), text.find('&'));
        result += text.substr(0, begin);
        text.remove_prefix(begin);
        if (text.empty())
            return;
        const std::size_t end = text.substr(0, kLongestName).find(';');
        const bool isName = end != std::string_view::npos;
        const auto entity = isName ? mEntities.find(std::string(text.substr(1, end - 1))) : mEntities.end();
        if (entity == mEntities.end()) {
            result += '&';
            text.remove_prefix(1);
            continue;
        }
        expand(entity->second, depth + 1, result);
        text.remove_prefix(end + 1);
    }
}

// ---- places

void SvgDocument::findLines() {
    mLineBegins.push_back(0);
    for (std::size_t i = 0; i < mText.size(); ++i) {
        if (mText[i] == '\n')
            mLineBegins.push_back(static_cast<std::ptrdiff_t>(i) + 1);
    }
}

// Returns the line, counted from 1. A negative offset stands for an unknown place, and gives line 1.
std::size_t SvgDocument::lineAt(std::ptrdiff_t offset) const {
    const auto next = std::upper_bound(mLineBegins.begin() + 1, mLineBegins.end(), offset);
    return static_cast<std::size_t>(next - mLineBegins.begin());
}

DrawingError SvgDocument::error(std::ptrdiff_t offset, const std::string& message) const {
    const std::ptrdiff_t place = std::max<std::ptrdiff_t>(offset, 0);
    const std::size_t line = lineAt(place);
    const std::ptrdiff_t column = place - mLineBegins[line - 1] + 1;
    return DrawingError(mName + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message);
}

} // namespace picker
