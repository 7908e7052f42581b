// The commands of the application: one table, one small function each.
#pragma once

#include "examples/picker/Session.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace picker {

// The words behind a command's name. Every function throws CommandError when the words are not what it wants.
class Arguments {
public:
    Arguments(std::vector<std::string> words, std::string usage)
        : mWords(std::move(words)), mUsage(std::move(usage)) {}

    std::size_t count() const { return mWords.size(); }
    const std::vector<std::string>& words() const { return mWords; }
    const std::string& usage() const { return mUsage; }
    // Exactly one word; at most one, else empty; none.
    const std::string& word() const;
    std::string optionalWord() const;
    void expectNone() const;
    // All words as numbers, which commas may part as well as blanks; between `fewest` and `most` of them.
    std::vector<double> numbers(std::size_t fewest, std::size_t most) const;
    // The same, whole and not negative.
    std::vector<int> positions(std::size_t fewest, std::size_t most) const;
    // As they were typed, with single blanks.
    std::string joined() const;

    [[noreturn]] void fail(const std::string& what) const;

private:
    std::vector<std::string> mWords;
    std::string mUsage;
};

// Where a command works and answers.
struct Console {
    Session& session;
    std::ostream& out;
    std::size_t width;       // of a line
    bool isFinished = false; // set by the command that ends the session
};

struct Command {
    const char* name;
    const char* arguments;
    const char* help;
    void (*run)(Console&, const Arguments&);
};

const std::vector<Command>& commands();

// Words are parted by blanks; double quotes keep blanks in a word. A line that is empty or begins with # has
// none.
std::vector<std::string> wordsOf(const std::string& line);

// Runs a command by its words; none do nothing. Throws CommandError, DrawingError or PickError with a text
// for the user, and what the library throws.
void runCommand(Console& console, std::vector<std::string> words);

} // namespace picker
