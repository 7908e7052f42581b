// The groups of commands, each with its functions in a source of its own.
#pragma once

#include "examples/picker/Commands.h"

namespace picker {

// The only command whose name is between its arguments.
constexpr const char* kAssign = "=";

CommandGroup drawingCommands();
CommandGroup pickCommands();
CommandGroup itemCommands();
CommandGroup editCommands();
CommandGroup highlightCommands();
CommandGroup setCommands();

} // namespace picker
