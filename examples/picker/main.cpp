#include "examples/picker/Shell.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace {

constexpr const char* kWindowProgram = "picker-window"; // next to this program
constexpr const char* kWindowOption = "--window";

// Returns the width of the terminal. If there is no terminal, returns a width that suits most readers.
std::size_t lineWidth() {
    constexpr std::size_t kDefault = 100;
    winsize size{};
    const bool isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return isTerminal && size.ws_col > 0 ? size.ws_col : kDefault;
}

// Becomes the program with the window. Returns the exit status if that is not possible.
int becomeWindow(char** argv) {
    std::error_code unknown; // the path is then empty, and the program is not found
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", unknown);
    const std::string program = (self.parent_path() / kWindowProgram).string();
    execv(program.c_str(), argv);
    const int failure = errno;
    std::cerr << "picker: " << program << ": " << std::strerror(failure)
              << (failure == ENOENT ? "; the window is built where Qt 6 is installed (package qt6-base-dev)"
                                    : "")
              << '\n';
    return picker::kCommandFailed;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 1 && argv[1] == std::string(kWindowOption))
        return becomeWindow(argv + 1); // its arguments[0] is the option
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const picker::ShellOutput output{std::cout, std::cerr, lineWidth()};
    return picker::runProgram(arguments, std::cin, output, isatty(STDIN_FILENO) != 0);
}
