#include "examples/picker/Shell.h"

#include "examples/picker/Completion.h"
#include "examples/picker/DrawingError.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <new>
#include <utility>

#ifdef PICKER_HAS_LIBEDIT
#include <editline/readline.h>

#include <cstring>
#endif

namespace picker {
namespace {

constexpr const char* kPrompt = "picker> ";

constexpr const char* kUsage =
    "usage: picker [DRAWING.svg] [-f|--script SCRIPT | -c|--command COMMAND]... [--] [DRAWING.svg]\n"
    "       picker --help | --version\n"
    "Without scripts and commands, lines are taken from standard input; the command help explains them.\n"
    "Exit status: 0, 1 where a command failed, 2 where a drawing could not be read.\n";

// ---- Ctrl-C

// Lets SIGINT request the end of work, as long as the object lives.
class InterruptBySignal {
public:
    explicit InterruptBySignal(Interrupt& interrupt) : mOuter(sTarget.exchange(&interrupt)) {
        struct sigaction action {};
        action.sa_handler = [](int) {
            if (Interrupt* target = sTarget)
                target->request();
        };
        sigemptyset(&action.sa_mask);
        // Without SA_RESTART, so that the prompt gives up reading.
        sigaction(SIGINT, &action, &mBefore);
    }
    InterruptBySignal(const InterruptBySignal&) = delete;
    InterruptBySignal& operator=(const InterruptBySignal&) = delete;
    ~InterruptBySignal() {
        sigaction(SIGINT, &mBefore, nullptr);
        sTarget = mOuter;
    }

private:
    static inline std::atomic<Interrupt*> sTarget{nullptr};

    struct sigaction mBefore {};
    Interrupt* mOuter;
};

// ---- lines

class StreamLines : public Lines {
public:
    StreamLines(std::istream& in, std::string name) : mIn(in), mName(std::move(name)) {}

    std::optional<std::string> next() override {
        ++mNumber;
        std::string line;
        bool isThere = false;
        for (int c = mIn.get(); c != std::char_traits<char>::eof(); c = mIn.get()) {
            isThere = true;
            if (c == '\n')
                break;
            line += static_cast<char>(c);
            if (line.size() > kLongestLine)
                throw CommandError("a line has more than " + std::to_string(kLongestLine) + " characters");
        }
        return isThere ? std::optional(std::move(line)) : std::nullopt;
    }
    std::string place() const override { return mName + ":" + std::to_string(mNumber) + ": "; }

private:
    static constexpr std::size_t kLongestLine = 1'000'000;

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

constexpr int kMostHistory = 1000; // lines

// What the callbacks of the readline library complete, since they take no argument of ours.
struct Completing {
    const Session* session = nullptr;
    std::vector<std::string> words;
    std::size_t next = 0;
};
Completing gCompleting;

// Returns the next completion, or null. The readline library frees the text.
char* nextCompletion(const char*, int isContinued) {
    if (!isContinued)
        gCompleting.next = 0;
    if (gCompleting.next == gCompleting.words.size())
        return nullptr;
    return strdup(gCompleting.words[gCompleting.next++].c_str());
}

// `begin` and `end` are those of the text that the readline library replaces. It begins behind the last
// blank, which may be in the middle of a quoted word.
char** completions(const char* text, int begin, int end) {
    rl_attempted_completion_over = 1; // no file names where none are meant
    Completion completion =
        completionOf(*gCompleting.session, std::string(rl_line_buffer, static_cast<std::size_t>(end)));
    const std::size_t kept = static_cast<std::size_t>(begin) - completion.begin;
    for (std::string& word : completion.words)
        word.erase(0, kept);
    const bool isOpen = completion.words.size() == 1 && completion.words[0].back() == '/';
    rl_completion_append_character = isOpen ? '\0' : ' ';
    gCompleting.words = std::move(completion.words);
    return rl_completion_matches(text, nextCompletion);
}

class TerminalLines : public Lines {
public:
    explicit TerminalLines(Session& session) : mSession(session), mHistory(historyFile()) {
        static char blanks[] = " \t";
        rl_readline_name = "picker";
        rl_basic_word_break_characters = blanks;
        rl_completer_word_break_characters = blanks;
        rl_attempted_completion_function = completions;
        gCompleting.session = &session;
        using_history();
        stifle_history(kMostHistory);
        if (!mHistory.empty())
            read_history(mHistory.c_str());
    }
    TerminalLines(const TerminalLines&) = delete;
    TerminalLines& operator=(const TerminalLines&) = delete;
    // A history that cannot be kept is no reason to bother the user.
    ~TerminalLines() override {
        if (mHistory.empty())
            return;
        std::error_code failure;
        std::filesystem::create_directories(mHistory.parent_path(), failure);
        write_history(mHistory.c_str());
    }

    std::optional<std::string> next() override {
        mSession.interrupt().reset();
        const InterruptBySignal bySignal(mSession.interrupt());
        const std::unique_ptr<char, decltype(&std::free)> typed(readline(kPrompt), std::free);
        if (mSession.interrupt().isRequested()) {
            std::cout << std::endl;
            return "";
        }
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

private:
    Session& mSession;
    std::filesystem::path mHistory;
};

#else

class TerminalLines : public Lines {
public:
    explicit TerminalLines(Session&) {}

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

// Calls work(). Returns the failure, if there is one.
template <class Work>
std::optional<Failure> attempt(Work work) {
    try {
        work();
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

// Runs a command, which Ctrl-C ends.
std::optional<Failure> tryCommand(Console& console, const std::function<std::vector<std::string>()>& words) {
    Interrupt& interrupt = console.session.interrupt();
    interrupt.reset();
    const InterruptBySignal bySignal(interrupt);
    return attempt([&] { runCommand(console, words()); });
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
    bool areOptions = true; // until -- ends them
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (areOptions && arguments[i] == "--") {
            areOptions = false;
            continue;
        }
        const std::optional<Job::Kind> kind = areOptions ? optionKind(arguments[i]) : std::nullopt;
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

std::unique_ptr<Lines> terminalLines(Session& session) {
    return std::make_unique<TerminalLines>(session);
}

std::filesystem::path historyFile() {
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state && *state)
        return std::filesystem::path(state) / "picker" / "history";
    const char* const home = std::getenv("HOME");
    return home && *home ? std::filesystem::path(home) / ".local/state/picker/history" : "";
}

ExitStatus runLines(Session& session, Lines& lines, const ShellOutput& output) {
    Console console{session, output.out, output.width};
    while (!console.isFinished) {
        std::optional<std::string> line;
        std::optional<Failure> failure = attempt([&] { line = lines.next(); });
        if (!failure && !line)
            break;
        if (line && output.showsCommands && isShown(*line))
            output.out << kPrompt << *line << '\n';
        if (line)
            failure = tryCommand(console, [&] { return wordsOf(*line); });
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
    if (arguments.size() == 1 && arguments[0] == "--version") {
        output.out << "picker " PICKER_VERSION "\n";
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
    const std::unique_ptr<Lines> lines =
        isTerminal ? terminalLines(session) : streamLines(in, "standard input");
    return runLines(session, *lines, output);
}

} // namespace picker
