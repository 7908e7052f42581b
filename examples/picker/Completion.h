// Completes what a user types: commands, files, sets, ids and the words that a command knows.
#pragma once

#include "examples/picker/Session.h"

#include <cstddef>
#include <string>
#include <vector>

namespace picker {

// What the last word of a line may become. It begins at `begin`, before its quote if it has one. Words with
// blanks are quoted; the quote of a directory is open, because its name goes on.
struct Completion {
    std::size_t begin = 0;
    std::vector<std::string> words; // sorted
};

Completion completionOf(const Session& session, const std::string& line);

} // namespace picker
