// Picks from an assembly: loads a STEP file, and takes commands from arguments, scripts or standard input.
#include "examples/assembly/Commands.h"
#include "examples/assembly/StepFile.h"

#include <fstream>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace assembly;

enum ExitStatus : int { kDone = 0, kCommandFailed = 1, kNothingToShow = 2 };

constexpr const char* kUsage =
    "usage: assembly FILE.step [--window] [--quiet] [-f SCRIPT | -c COMMAND]...\n"
    "Without scripts and commands, lines are taken from standard input; the command help explains them.\n"
    "Exit status: 0, 1 where a command failed, 2 where the file cannot be read or there is no display.\n";

struct Options {
    std::string file;
    bool hasWindow = false;
    bool isQuiet = false;
    std::vector<std::string> lines;
    bool readsInput = true;
};

bool addScript(const std::string& file, std::vector<std::string>& lines) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return in.eof();
}

// Returns false, with a text on standard error, if the arguments do not fit.
bool parse(const std::vector<std::string>& arguments, Options& options) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        const bool takesWord = word == "-f" || word == "-c";
        if (word == "--window") {
            options.hasWindow = true;
        } else if (word == "--quiet") {
            options.isQuiet = true;
        } else if (takesWord && i + 1 < arguments.size()) {
            options.readsInput = false;
            if (word == "-c")
                options.lines.push_back(arguments[++i]);
            else if (!addScript(arguments[++i], options.lines))
                return std::cerr << "assembly: " << arguments[i] << ": the script cannot be read\n", false;
        } else if (!takesWord && options.file.empty() && word.front() != '-') {
            options.file = word;
        } else {
            return std::cerr << kUsage, false;
        }
    }
    if (options.file.empty())
        std::cerr << kUsage;
    return !options.file.empty();
}

// Returns whether the command could be done.
bool run(Console& console, const std::string& line) {
    try {
        runLine(console, line);
        return true;
    } catch (const CommandError& error) {
        std::cerr << "assembly: " << line << ": " << error.what() << '\n';
    } catch (const ViewError& error) {
        std::cerr << "assembly: " << error.what() << '\n';
    }
    return false;
}

int runLines(Console& console, const Options& options) {
    for (const std::string& line : options.lines) {
        if (!run(console, line))
            return kCommandFailed;
        if (console.isFinished)
            return kDone;
    }
    std::string line;
    while (options.readsInput && !console.isFinished && std::getline(std::cin, line)) {
        if (!run(console, line) && isatty(STDIN_FILENO) == 0)
            return kCommandFailed;
    }
    return kDone;
}

Handle(TDocStd_Document) load(const Options& options) {
    return loadStep(options.file, [&](const std::string& step, int percent) {
        if (!options.isQuiet)
            std::cerr << step << ": " << percent << " %\n";
    });
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(std::vector<std::string>(argv + 1, argv + argc), options))
        return kNothingToShow;
    try {
        Session session(load(options), ViewSize(), options.hasWindow);
        Console console{session, std::cout};
        std::cout << options.file << ": " << session.instances().size() << " instances\n";
        return runLines(console, options);
    } catch (const StepError& error) {
        std::cerr << "assembly: " << error.what() << '\n';
    } catch (const ViewError& error) {
        std::cerr << "assembly: " << error.what() << '\n';
    }
    return kNothingToShow;
}
