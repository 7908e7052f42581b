// Runs command lines from a script, from the program's arguments, or from a user at a terminal.
#pragma once

#include "examples/picker/Commands.h"

#include <cstddef>
#include <filesystem>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace picker {

class Lines {
public:
    virtual ~Lines() = default;
    // Returns nothing at the end. Throws CommandError for a line that is too long for a command.
    virtual std::optional<std::string> next() = 0;
    // Returns how an error message about the last line begins, such as "demo.txt:12: ".
    virtual std::string place() const = 0;
    virtual bool isInteractive() const { return false; }
};

// Reads lines from a file or another stream. Error messages call the stream `name`.
std::unique_ptr<Lines> streamLines(std::istream& in, const std::string& name);
std::unique_ptr<Lines> argumentLines(std::vector<std::string> lines);
// Reads lines with a prompt. Ctrl-C drops the line that is typed. In a program that was built with line
// editing, the prompt completes words and has a history, which historyFile() keeps. The session must outlive
// the lines.
std::unique_ptr<Lines> terminalLines(Session& session);

// Returns the file that keeps the lines that users have typed: picker/history in XDG_STATE_HOME, or in
// ~/.local/state. Returns "" if neither variable is set.
std::filesystem::path historyFile();

enum ExitStatus : int { kDone = 0, kCommandFailed = 1, kDrawingBroken = 2 };

struct ShellOutput {
    std::ostream& out;
    std::ostream& errors;
    std::size_t width;          // characters of a line
    bool showsCommands = false; // prints each command as if it had been typed
};

// Runs all lines. While a command runs, Ctrl-C (SIGINT) ends the command with an error. Stops at the first
// error, unless a user types the lines. Returns kDone, or the status of that error.
ExitStatus runLines(Session& session, Lines& lines, const ShellOutput& output);

// Runs the whole program and returns its exit status. `arguments` does not include the name of the program.
int runProgram(const std::vector<std::string>& arguments, std::istream& in, const ShellOutput& output,
               bool isTerminal);

} // namespace picker
