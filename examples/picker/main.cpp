#include "examples/picker/Shell.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>

namespace {

// Returns the width of the terminal. If there is no terminal, returns a width that suits most readers.
std::size_t lineWidth() {
    constexpr std::size_t kDefault = 100;
    winsize size{};
    const bool isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return isTerminal && size.ws_col > 0 ? size.ws_col : kDefault;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const picker::ShellOutput output{std::cout, std::cerr, lineWidth()};
    return picker::runProgram(arguments, std::cin, output, isatty(STDIN_FILENO) != 0);
}
