// The commands of the application: a table with one function for each command, by groups.
#pragma once

#include "examples/picker/Session.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace picker {

// The words after a command's name. Functions that require something of the words throw CommandError if the
// words do not fit.
class Arguments {
public:
    Arguments(std::vector<std::string> words, std::string usage)
        : mWords(std::move(words)), mUsage(std::move(usage)) {}

    std::size_t count() const { return mWords.size(); }
    const std::vector<std::string>& words() const { return mWords; }
    const std::string& usage() const { return mUsage; }
    // word() requires exactly one word. optionalWord() requires at most one word, and returns "" if there is
    // none. expectNone() requires that there are no words.
    const std::string& word() const;
    std::string optionalWord() const;
    void expectNone() const;
    // Parses all words as numbers, which commas or blanks separate. Requires `fewest` to `most` numbers.
    std::vector<double> numbers(std::size_t fewest, std::size_t most) const;
    // Does what numbers() does, and requires whole numbers that are not negative.
    std::vector<int> positions(std::size_t fewest, std::size_t most) const;
    // Returns the words, separated by single blanks.
    std::string joined() const;

    [[noreturn]] void fail(const std::string& what) const;

private:
    std::vector<std::string> mWords;
    std::string mUsage;
};

// What a command works on, and where it prints.
struct Console {
    Session& session;
    std::ostream& out;
    std::size_t width;       // of a line, in characters
    bool isFinished = false; // set by the command that ends the session
};

struct Command {
    const char* name;
    const char* arguments;
    const char* help;
    void (*run)(Console&, const Arguments&);
};

struct CommandGroup {
    const char* title;
    std::vector<Command> commands;
};

// Returns all groups, in the order in which help shows them.
const std::vector<CommandGroup>& commandGroups();
// Returns the commands of all groups.
const std::vector<Command>& commands();
// Returns how a command is written: its name, and its arguments if it has any.
std::string usageOf(const Command& command);

// Splits a line into words at blanks. Double quotes keep blanks in a word. A word that begins with # and the
// rest of the line are a comment. Throws CommandError if the last quote is missing.
std::vector<std::string> wordsOf(const std::string& line);

// Runs the command that the words name. Does nothing if there are no words. Throws what the library throws,
// and CommandError, DrawingError or PickError with a text for the user.
void runCommand(Console& console, std::vector<std::string> words);

} // namespace picker
