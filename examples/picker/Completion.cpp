#include "examples/picker/Completion.h"

#include "examples/picker/CommandGroups.h"
#include "examples/picker/SvgReader.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>

namespace picker {
namespace {

// A line that may end in the middle of a word. The last word is the one that is typed, and may be empty.
struct TypedLine {
    std::vector<std::string> words;
    std::size_t begin = 0; // of the last word
    bool isQuoted = false; // the last word began with a quote
};

TypedLine typed(const std::string& line) {
    TypedLine result;
    result.words.emplace_back();
    bool isInQuotes = false;
    bool isInWord = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (!isInQuotes && std::isspace(static_cast<unsigned char>(c)) != 0) {
            if (isInWord)
                result.words.emplace_back();
            isInWord = false;
            continue;
        }
        if (!isInWord) {
            result.begin = at;
            result.isQuoted = c == '"';
        }
        isInWord = true;
        if (c == '"')
            isInQuotes = !isInQuotes;
        else
            result.words.back() += c;
    }
    if (!isInWord)
        result.begin = line.size();
    return result;
}

bool beginsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

using Words = std::vector<std::string>;

template <class Map>
void addKeys(const Map& map, Words& words) {
    std::transform(map.begin(), map.end(), std::back_inserter(words),
                   [](const auto& entry) { return entry.first; });
}

// Adds the files of the directory of `prefix`. A directory ends with a slash.
void addFiles(const std::string& prefix, Words& words) {
    const std::size_t nameBegin = prefix.rfind('/') + 1; // 0 if there is no slash
    const std::string directory = prefix.substr(0, nameBegin);
    std::error_code failure;
    std::filesystem::directory_iterator file(directory.empty() ? "." : directory, failure);
    for (; !failure && file != std::filesystem::directory_iterator(); file.increment(failure)) {
        const std::string name = file->path().filename().string();
        const bool isHidden = name.front() == '.' && prefix.size() == nameBegin;
        std::error_code unknown;
        if (!isHidden)
            words.push_back(directory + name + (file->is_directory(unknown) ? "/" : ""));
    }
}

// Adds the ids of the block to which the part of `prefix` before its last slash leads. An entity without a
// name is known by its handle.
void addIds(const Session& session, const std::string& prefix, Words& words) {
    if (!session.hasDrawing())
        return;
    const Drawing& drawing = session.drawing();
    const BlockDefinition* block = &drawing.model();
    std::size_t begin = 0;
    for (std::size_t end = prefix.find('/'); end != std::string::npos; end = prefix.find('/', begin)) {
        const BlockReference* reference = drawing.reference(drawing.find(prefix.substr(begin, end - begin)));
        if (!reference)
            return;
        block = &reference->block();
        begin = end + 1;
    }
    for (const BlockDefinition::Content& content : block->contents()) {
        const std::string name(drawing.database().nameOf(content.id));
        const std::string handle = std::to_string(drawing.database().handleOf(content.id));
        words.push_back(prefix.substr(0, begin) + (name.empty() ? handle : name));
    }
}

void addBlocks(const Session& session, Words& words) {
    if (!session.hasDrawing())
        return;
    const auto& blocks = session.drawing().blocks();
    std::transform(blocks.begin() + 1, blocks.end(), std::back_inserter(words),
                   [](const BlockDefinition* block) { return block->name(); });
}

void addTypes(Words& words) {
    for (const char* type : {"line", "polyline", "polygon", "rect", "circle", "ellipse", "path"})
        words.emplace_back(type);
}

void addCommands(Words& words) {
    for (const Command& command : commands())
        words.emplace_back(command.name);
}

// Adds what may follow `before`, the words of a command that takes a filter and a set.
void addFilterOrSet(const Session& session, const Words& before, Words& words) {
    const std::string filter = before.size() > 1 ? before[1] : "";
    const bool isTyped = before.size() == 2;
    if (before.size() == 1)
        words.insert(words.end(), {"type", "block", "box"});
    if (filter == "type" && isTyped)
        addTypes(words);
    else if (filter == "block" && isTyped)
        addBlocks(session, words);
    else
        addKeys(session.sets(), words);
}

// Returns the words of the usage of a command, without the brackets of optional ones.
std::string argumentKind(const Command& command, std::size_t index) {
    std::vector<std::string> kinds{""};
    for (const char* at = command.arguments; *at != '\0'; ++at) {
        if (*at == ' ')
            kinds.emplace_back();
        else
            kinds.back() += *at;
    }
    const bool repeats = kinds.back().find("...") != std::string::npos;
    if (index < kinds.size())
        return kinds[index];
    return repeats ? kinds.back() : "";
}

void addArguments(const Session& session, const Words& before, const std::string& prefix, Words& words) {
    const auto command = std::find_if(commands().begin(), commands().end(),
                                      [&](const Command& each) { return before.front() == each.name; });
    if (command == commands().end())
        return;
    const std::string arguments = command->arguments;
    if (arguments.find("FILTER") != std::string::npos) {
        addFilterOrSet(session, before, words);
        return;
    }
    const std::string kind = argumentKind(*command, before.size() - 1);
    const auto takes = [&](const char* word) { return kind.find(word) != std::string::npos; };
    if (takes("FILE"))
        addFiles(prefix, words);
    if (takes("NAME"))
        addKeys(session.savedSets(), words);
    if (takes("SET"))
        addKeys(session.sets(), words);
    if (takes("ID"))
        addIds(session, prefix, words);
    if (takes("COMMAND"))
        addCommands(words);
    if (takes("on|off"))
        words.insert(words.end(), {"on", "off"});
}

Words candidates(const Session& session, const TypedLine& line) {
    const Words before(line.words.begin(), line.words.end() - 1);
    Words words;
    if (before.empty())
        addCommands(words);
    else if (before.size() > 1 && before[1] == kAssign)
        addKeys(session.sets(), words);
    else
        addArguments(session, before, line.words.back(), words);
    return words;
}

// Returns the word as a user would type it.
std::string asTyped(const std::string& word, bool isQuoted) {
    const bool needsQuotes = isQuoted || word.find_first_of(" \t#") != std::string::npos;
    if (!needsQuotes)
        return word;
    return '"' + word + (word.back() == '/' ? "" : "\"");
}

} // namespace

Completion completionOf(const Session& session, const std::string& line) {
    const TypedLine current = typed(line);
    const std::string& prefix = current.words.back();
    Completion completion;
    completion.begin = current.begin;
    for (const std::string& word : candidates(session, current)) {
        // No quotes can keep a quote in a word.
        const bool fits = !word.empty() && beginsWith(word, prefix) && word.find('"') == std::string::npos;
        if (fits)
            completion.words.push_back(asTyped(word, current.isQuoted));
    }
    std::sort(completion.words.begin(), completion.words.end());
    completion.words.erase(std::unique(completion.words.begin(), completion.words.end()),
                           completion.words.end());
    return completion;
}

} // namespace picker
