// The commands of the application: a table with one function for each.
#pragma once

#include "examples/assembly/Session.h"

#include <ostream>
#include <string>
#include <vector>

namespace assembly {

// What a command works on, and where it prints.
struct Console {
    Session& session;
    std::ostream& out;
    std::size_t width = 100; // of a line, in characters
    bool isFinished = false; // set by the command that ends the session
};

struct Command {
    const char* name;
    const char* arguments;
    const char* help;
    void (*run)(Console&, const std::vector<std::string>& words);
};

const std::vector<Command>& commands();

// Runs a line: a command and its words. Does nothing for an empty line, and for one that begins with #.
// Throws CommandError for what cannot be done; nothing is changed then.
void runLine(Console& console, const std::string& line);

} // namespace assembly
