#include "examples/picker/Shell.h"

#include "examples/picker/SvgReader.h"

#include <exception>
#include <fstream>
#include <iostream>
#include <new>
#include <utility>

#ifdef PICKER_HAS_LIBEDIT
#include <editline/readline.h>

#include <cstdlib>
#include <cstring>
#endif

namespace picker {
namespace {

constexpr const char* kPrompt = "picker> ";

constexpr const char* kUsage =
    "usage: picker [DRAWING.svg] [-f|--script SCRIPT | -c|--command COMMAND]...\n"
    "Without scripts and commands, lines are taken from standard input; the command help explains them.\n"
    "Exit status: 0, 1 where a command failed, 2 where a drawing could not be read.\n";

class StreamLines : public Lines {
public:
    StreamLines(std::istream& in, std::string name) : mIn(in), mName(std::move(name)) {}

    std::optional<std::string> next() override {
        std::string line;
        if (!std::getline(mIn, line))
            return std::nullopt;
        ++mNumber;
        return line;
    }
    std::string place() const override { return mName + ":" + std::to_string(mNumber) + ": "; }

private:
    std::istream& mIn;
    std::string mName;
    std::size_t mNumber = 0;
};

class ArgumentLines : public Lines {
public:
    explicit ArgumentLines(std::vector<std::string> lines) : mLines(std::move(lines)) {}

    std::optional<std::string> next() override {
        if (mNext == mLines.size())
            return std::nullopt;
        return mLines[mNext++];
    }
    std::string place() const override { return ""; }

private:
    std::vector<std::string> mLines;
    std::size_t mNext = 0;
};

#ifdef PICKER_HAS_LIBEDIT

// Returns the next command name that begins with `prefix`, or null. The readline library frees the name.
char* nextCompletion(const char* prefix, int isContinued) {
    static std::size_t next = 0;
    if (!isContinued)
        next = 0;
    while (next < commands().size()) {
        const char* name = commands()[next++].name;
        if (std::strncmp(name, prefix, std::strlen(prefix)) == 0)
            return strdup(name);
    }
    return nullptr;
}

char** completions(const char* prefix, int begin, int) {
    // Only the first word is a command. For other words, null makes the readline library complete file names.
    return begin == 0 ? rl_completion_matches(prefix, nextCompletion) : nullptr;
}

class TerminalLines : public Lines {
public:
    TerminalLines() {
        rl_readline_name = "picker";
        rl_attempted_completion_function = completions;
        using_history();
    }

    std::optional<std::string> next() override {
        const std::unique_ptr<char, decltype(&std::free)> typed(readline(kPrompt), std::free);
        if (!typed) {
            std::cout << std::endl; // ends the line of the prompt
            return std::nullopt;
        }
        if (*typed)
            add_history(typed.get());
        return std::string(typed.get());
    }
    std::string place() const override { return ""; }
    bool isInteractive() const override { return true; }
};

#else

class TerminalLines : public Lines {
public:
    std::optional<std::string> next() override {
        std::cout << kPrompt << std::flush;
        std::string line;
        if (!std::getline(std::cin, line))
            return std::nullopt;
        return line;
    }
    std::string place() const override { return ""; }
    bool isInteractive() const override { return true; }
};

#endif

// An error message, and the program's exit status after it.
struct Failure {
    ExitStatus status;
    std::string message;
};

// Describes an exception of the library. The library throws a pointer, and the catcher owns the exception.
Failure platformFailure(std::unique_ptr<KvException> exception) {
    const auto* status = dynamic_cast<const KvErrorStatus*>(exception.get());
    const std::string text = status ? "the library reports status " + std::to_string(status->status())
                                    : "the library reports an error";
    return {kCommandFailed, text};
}

// Runs the command with the words that words() returns. Returns the failure, if there is one.
template <class Words>
std::optional<Failure> tryCommand(Console& console, Words words) {
    try {
        runCommand(console, words());
        return std::nullopt;
    } catch (KvException* exception) {
        return platformFailure(std::unique_ptr<KvException>(exception));
    } catch (const DrawingError& error) {
        return Failure{kDrawingBroken, error.what()};
    } catch (const std::bad_alloc&) {
        return Failure{kCommandFailed, "out of memory"};
    } catch (const std::exception& error) {
        return Failure{kCommandFailed, error.what()};
    }
}

// Prints the place of the command and the message. Leaves the place out for a broken drawing: the message
// then begins with a place in the drawing.
void report(const Failure& failure, const std::string& place, const ShellOutput& output) {
    output.out << std::flush;
    output.errors << "picker: " << (failure.status == kDrawingBroken ? "" : place) << failure.message
                  << std::endl;
}

// ---- the program

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Returns whether a line of a script is shown. A comment is only for the reader of the script. An echo
// command is not shown, because its output is shown anyway.
bool isShown(const std::string& line) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    return begin != std::string::npos && line[begin] != '#' && line.compare(begin, 5, "echo ") != 0 &&
           line.compare(begin, std::string::npos, "echo") != 0;
}

// A job from the command line. Jobs are done in their order on the command line.
struct Job {
    enum class Kind { drawing, script, command };
    Kind kind;
    std::string text;
};

std::optional<Job::Kind> optionKind(const std::string& word) {
    if (word == "-f" || word == "--script")
        return Job::Kind::script;
    if (word == "-c" || word == "--command")
        return Job::Kind::command;
    if (word.size() > 1 && word.front() == '-')
        throw UsageError("unknown option " + word);
    return std::nullopt;
}

std::vector<Job> jobsOf(const std::vector<std::string>& arguments) {
    std::vector<Job> jobs;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::optional<Job::Kind> kind = optionKind(arguments[i]);
        if (kind && ++i == arguments.size())
            throw UsageError(arguments.back() + " needs something behind it");
        jobs.push_back({kind.value_or(Job::Kind::drawing), arguments[i]});
    }
    return jobs;
}

ExitStatus runScript(Session& session, const std::string& file, ShellOutput output) {
    std::ifstream in(file);
    if (!in) {
        output.errors << "picker: " << file << ": cannot be read\n";
        return kCommandFailed;
    }
    output.showsCommands = true;
    return runLines(session, *streamLines(in, file), output);
}

ExitStatus loadDrawing(Session& session, const std::string& file, const ShellOutput& output) {
    Console console{session, output.out, output.width};
    const auto words = [&] { return std::vector<std::string>{"load", file}; };
    const std::optional<Failure> failure = tryCommand(console, words);
    if (!failure)
        return kDone;
    report(*failure, "", output);
    return failure->status;
}

ExitStatus run(Session& session, const Job& job, const ShellOutput& output) {
    switch (job.kind) {
    case Job::Kind::drawing:
        return loadDrawing(session, job.text, output);
    case Job::Kind::script:
        return runScript(session, job.text, output);
    case Job::Kind::command:
        break;
    }
    return runLines(session, *argumentLines({job.text}), output);
}

bool hasCommands(const std::vector<Job>& jobs) {
    for (const Job& job : jobs) {
        if (job.kind != Job::Kind::drawing)
            return true;
    }
    return false;
}

} // namespace

std::unique_ptr<Lines> streamLines(std::istream& in, const std::string& name) {
    return std::make_unique<StreamLines>(in, name);
}

std::unique_ptr<Lines> argumentLines(std::vector<std::string> lines) {
    return std::make_unique<ArgumentLines>(std::move(lines));
}

std::unique_ptr<Lines> terminalLines() {
    return std::make_unique<TerminalLines>();
}

ExitStatus runLines(Session& session, Lines& lines, const ShellOutput& output) {
    Console console{session, output.out, output.width};
    while (!console.isFinished) {
        const std::optional<std::string> line = lines.next();
        if (!line)
            break;
        if (output.showsCommands && isShown(*line))
            output.out << kPrompt << *line << '\n';
        const std::optional<Failure> failure = tryCommand(console, [&] { return wordsOf(*line); });
        if (!failure)
            continue;
        report(*failure, lines.place(), output);
        if (!lines.isInteractive())
            return failure->status;
    }
    return kDone;
}

int runProgram(const std::vector<std::string>& arguments, std::istream& in, const ShellOutput& output,
               bool isTerminal) {
    if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
        output.out << kUsage;
        return kDone;
    }
    std::vector<Job> jobs;
    try {
        jobs = jobsOf(arguments);
    } catch (const UsageError& error) {
        output.errors << "picker: " << error.what() << '\n' << kUsage;
        return kCommandFailed;
    }
    Session session;
    for (const Job& job : jobs) {
        if (const ExitStatus status = run(session, job, output))
            return status;
    }
    if (hasCommands(jobs))
        return kDone;
    const std::unique_ptr<Lines> lines = isTerminal ? terminalLines() : streamLines(in, "standard input");
    return runLines(session, *lines, output);
}

} // namespace picker
