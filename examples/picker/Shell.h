// Takes command lines from somewhere until they end: a script, the program's arguments, a person at a
// terminal.
#pragma once

#include "examples/picker/Commands.h"

#include <cstddef>
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
    virtual std::optional<std::string> next() = 0;
    // What errors say before their text, such as "demo.txt:12: ".
    virtual std::string place() const = 0;
    virtual bool isInteractive() const { return false; }
};

// From a file or another stream; `name` is what errors call it.
std::unique_ptr<Lines> streamLines(std::istream& in, const std::string& name);
std::unique_ptr<Lines> argumentLines(std::vector<std::string> lines);
// Asks with a prompt; with line editing, history and completion of command names where they were built in.
std::unique_ptr<Lines> terminalLines();

enum ExitStatus : int { kDone = 0, kCommandFailed = 1, kDrawingBroken = 2 };

struct ShellOutput {
    std::ostream& out;
    std::ostream& errors;
    std::size_t width;          // of a line
    bool showsCommands = false; // as if they had been typed
};

// A person goes on after an error, anything else ends there.
ExitStatus runLines(Session& session, Lines& lines, const ShellOutput& output);

// The whole program: `arguments` without its name.
int runProgram(const std::vector<std::string>& arguments, std::istream& in, const ShellOutput& output,
               bool isTerminal);

} // namespace picker
