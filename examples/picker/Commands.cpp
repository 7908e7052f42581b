#include "examples/picker/Commands.h"

#include "examples/picker/CommandGroups.h"
#include "examples/picker/CommandTools.h"
#include "examples/picker/SvgValues.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <utility>

namespace picker {
namespace {

// ---- the session

void echo(Console& console, const Arguments& arguments) {
    console.out << arguments.joined() << '\n';
}

constexpr const char* kFilterHelp = "FILTER is type TYPE, block BLOCK or box X1 Y1 X2 Y2";

bool takesFilter(const Command& command) {
    return std::string(command.arguments).find("FILTER") != std::string::npos;
}

const Command& commandOf(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command& command) { return name == command.name; });
    if (found == commands().end())
        throw CommandError("unknown command '" + name + "'; help lists them");
    return *found;
}

void sayCommand(Console& console, const Command& command) {
    std::string usage = usageOf(command);
    usage.resize(std::max<std::size_t>(usage.size(), 29), ' ');
    console.out << usage << ' ' << command.help << '\n';
}

void help(Console& console, const Arguments& arguments) {
    const std::string name = arguments.optionalWord();
    if (!name.empty()) {
        sayCommand(console, commandOf(name));
        if (takesFilter(commandOf(name)))
            console.out << kFilterHelp << ", and asks about main ids\n";
        return;
    }
    for (const CommandGroup& group : commandGroups()) {
        console.out << (&group == &commandGroups().front() ? "" : "\n") << group.title << ":\n";
        for (const Command& command : group.commands)
            sayCommand(console, command);
        if (std::any_of(group.commands.begin(), group.commands.end(), takesFilter))
            console.out << kFilterHelp << ", and asks about main ids\n";
    }
}

void quit(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.isFinished = true;
}

CommandGroup sessionCommands() {
    return {"The session",
            {{"echo", "[TEXT]...", "print a text", echo},
             {"help", "[COMMAND]", "explain the commands", help},
             {"?", "[COMMAND]", "the same", help},
             {"quit", "", "end the session", quit},
             {"exit", "", "the same", quit}}};
}

// ---- assignments

// Appends the parts of a word: the names, and =, + and - as words of their own.
void appendParts(const std::string& word, std::vector<std::string>& parts) {
    std::size_t begin = 0;
    while (begin < word.size()) {
        const std::size_t sign = std::min(word.size(), word.find_first_of("=+-", begin));
        if (sign > begin)
            parts.push_back(word.substr(begin, sign - begin));
        if (sign < word.size())
            parts.push_back(word.substr(sign, 1));
        begin = sign + 1;
    }
}

// Returns the words of an assignment such as "A = B+C" with its command's name in front, and other words as
// they are.
std::vector<std::string> assignmentOf(std::vector<std::string> words) {
    const std::string& first = words.front();
    const bool isFirst = first.find('=') != std::string::npos && first != kAssign;
    const bool isText = first == "help" || first == "?" || first == "echo";
    const bool isSecond = words.size() > 1 && words[1].substr(0, 1) == kAssign && !isText;
    if (!isFirst && !isSecond)
        return words;
    std::vector<std::string> parts{kAssign};
    for (const std::string& word : words)
        appendParts(word, parts);
    return parts;
}

} // namespace

const std::string& Arguments::word() const {
    if (mWords.size() != 1)
        fail(mWords.empty() ? "a word is missing" : "'" + mWords[1] + "' is too much");
    return mWords.front();
}

std::string Arguments::optionalWord() const {
    return mWords.empty() ? "" : word();
}

void Arguments::expectNone() const {
    if (!mWords.empty())
        fail("'" + mWords.front() + "' is too much");
}

std::vector<double> Arguments::numbers(std::size_t fewest, std::size_t most) const {
    std::vector<double> values;
    for (const std::string& each : mWords) {
        const std::optional<std::vector<double>> parsed = parseNumbers(each);
        if (!parsed)
            fail("'" + each + "' is not a number");
        values.insert(values.end(), parsed->begin(), parsed->end());
    }
    if (values.size() < fewest)
        fail("a number is missing");
    if (values.size() > most)
        fail("there are too many numbers");
    return values;
}

std::vector<int> Arguments::positions(std::size_t fewest, std::size_t most) const {
    std::vector<int> values;
    for (const double number : numbers(fewest, most)) {
        if (number < 0 || number > std::numeric_limits<int>::max() || number != std::floor(number))
            fail("'" + shortNumber(number) + "' is not a position");
        values.push_back(static_cast<int>(number));
    }
    return values;
}

std::string Arguments::joined() const {
    std::string text;
    for (const std::string& each : mWords)
        text += (text.empty() ? "" : " ") + each;
    return text;
}

void Arguments::fail(const std::string& what) const {
    throw CommandError(what + "; usage: " + mUsage);
}

const std::vector<CommandGroup>& commandGroups() {
    static const std::vector<CommandGroup> groups{drawingCommands(), pickCommands(),      itemCommands(),
                                                  editCommands(),    highlightCommands(), setCommands(),
                                                  sessionCommands()};
    return groups;
}

const std::vector<Command>& commands() {
    static const std::vector<Command> all = [] {
        std::vector<Command> table;
        for (const CommandGroup& group : commandGroups())
            table.insert(table.end(), group.commands.begin(), group.commands.end());
        return table;
    }();
    return all;
}

std::string usageOf(const Command& command) {
    if (command.name == std::string(kAssign))
        return command.arguments;
    return std::string(command.name) + (*command.arguments ? " " : "") + command.arguments;
}

std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    bool isInWord = false;
    bool isQuoted = false;
    for (const char c : line) {
        const bool isBlank = std::isspace(static_cast<unsigned char>(c)) != 0;
        if (isBlank && !isQuoted) {
            isInWord = false;
            continue;
        }
        if (c == '#' && !isInWord)
            break;
        if (!isInWord)
            words.emplace_back();
        isInWord = true;
        if (c == '"')
            isQuoted = !isQuoted;
        else
            words.back() += c;
    }
    if (isQuoted)
        throw CommandError("a quotation mark is missing at the end");
    return words;
}

void runCommand(Console& console, std::vector<std::string> words) {
    if (words.empty())
        return;
    words = assignmentOf(std::move(words));
    const Command& command = commandOf(words.front());
    words.erase(words.begin());
    const std::string filterHelp = takesFilter(command) ? std::string("; ") + kFilterHelp : "";
    command.run(console, Arguments(std::move(words), usageOf(command) + filterHelp));
}

} // namespace picker
