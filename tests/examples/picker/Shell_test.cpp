#include "examples/picker/Shell.h"

#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

using namespace picker;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// A file that the destructor deletes.
class ScratchFile {
public:
    ScratchFile(const std::string& name, const std::string& contents) : mPath(testing::TempDir() + name) {
        std::ofstream(mPath) << contents;
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() { std::remove(mPath.c_str()); }
    const std::string& path() const { return mPath; }

private:
    std::string mPath;
};

struct Outcome {
    int status;
    std::string out;
    std::string errors;
};

Outcome runProgramWith(const std::vector<std::string>& arguments, const std::string& input = "") {
    std::istringstream in(input);
    std::ostringstream out, errors;
    const int status = runProgram(arguments, in, {out, errors, 100}, false);
    return {status, out.str(), errors.str()};
}

constexpr const char* kDrawing =
    "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 9 9'><line x2='5'/></svg>";

class ShellRun : public testing::Test {
protected:
    const ScratchFile drawing{"picker shell test.svg", kDrawing};
    const ScratchFile broken{"picker_shell_broken.svg", "<svg>\n<g></svg>"};
};

// Sets a variable of the environment. The destructor restores it.
class Variable {
public:
    Variable(const char* name, const char* value) : mName(name) {
        if (const char* before = std::getenv(name))
            mBefore = before;
        setenv(name, value, 1);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() {
        if (mBefore)
            setenv(mName, mBefore->c_str(), 1);
        else
            unsetenv(mName);
    }

private:
    const char* mName;
    std::optional<std::string> mBefore;
};

// Lines that count as typed by a user.
class TypedLines : public Lines {
public:
    explicit TypedLines(std::vector<std::string> lines) : mLines(std::move(lines)) {}
    std::optional<std::string> next() override {
        if (mNext == mLines.size())
            return std::nullopt;
        return mLines[mNext++];
    }
    std::string place() const override { return ""; }
    bool isInteractive() const override { return true; }

private:
    std::vector<std::string> mLines;
    std::size_t mNext = 0;
};

// A crowd of entities that lasts for more than one report of a pick.
std::string crowd() {
    std::string text = "<symbol id='s'>";
    for (int i = 0; i < 100; ++i)
        text += "<line x2='1'/>";
    text += "</symbol>";
    for (int i = 0; i < 100; ++i)
        text += "<use href='#s'/>";
    return text;
}

} // namespace

TEST_F(ShellRun, LoadsTheDrawingAndRunsCommandsInTheirOrder) {
    const Outcome outcome = runProgramWith({drawing.path(), "-c", "pick 2 0", "--command", "count"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "picker shell test.svg, 9 x 9: 1 entity placed\n"
                           "1 found: 1 added, 0 already in the set; set A has 1 item\n"
                           "set A: 1 item under 1 main id\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(ShellRun, TakesLinesFromStandardInput) {
    const Outcome outcome = runProgramWith({drawing.path()}, "all\n\n# a comment\ncount\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("set A: 1 item"));
}

TEST_F(ShellRun, ScriptsShowTheirCommandsButNotEchoes) {
    const ScratchFile script("picker_shell_script.txt", "# comment\necho Hello\n\ncount\n");
    const Outcome outcome = runProgramWith({drawing.path(), "-f", script.path()});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "picker shell test.svg, 9 x 9: 1 entity placed\n"
                           "Hello\n"
                           "picker> count\n"
                           "set A: 0 items under 0 main ids\n");
}

TEST_F(ShellRun, AScriptStopsAtItsFirstError) {
    const ScratchFile script("picker_shell_wrong.txt", "count\npick 1\ncount\n");
    const Outcome outcome = runProgramWith({drawing.path(), "--script", script.path(), "-c", "all"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors,
              "picker: " + script.path() + ":2: a number is missing; usage: pick X Y [APERTURE]\n");
    EXPECT_THAT(outcome.out, testing::EndsWith("picker> pick 1\n"));
}

TEST_F(ShellRun, APersonGoesOnAfterAnError) {
    Session session;
    std::ostringstream out, errors;
    TypedLines lines({"jump", "load \"" + drawing.path() + "\"", "load " + broken.path(), "all"});
    EXPECT_EQ(runLines(session, lines, {out, errors, 100}), 0);
    EXPECT_THAT(errors.str(), StartsWith("picker: unknown command 'jump'"));
    EXPECT_THAT(errors.str(), HasSubstr("Start-end tags mismatch"));
    EXPECT_THAT(out.str(), HasSubstr("1 added"));
}

TEST_F(ShellRun, ABrokenDrawingIsOneLineAndStatusTwo) {
    const Outcome outcome = runProgramWith({broken.path(), "-c", "count"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.errors, "picker: " + broken.path() + ":2:6: Start-end tags mismatch\n");
}

TEST_F(ShellRun, ABrokenDrawingInAScriptIsStatusTwoToo) {
    const Outcome outcome = runProgramWith({}, "load " + broken.path() + "\ncount\n");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, StartsWith("picker: " + broken.path() + ":2:6: "));
}

TEST_F(ShellRun, AMissingDrawingIsStatusTwo) {
    const Outcome outcome = runProgramWith({"/no/such/plan.svg"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, StartsWith("picker: /no/such/plan.svg: cannot be read"));
}

TEST(Shell, AMissingScriptIsAnError) {
    const Outcome outcome = runProgramWith({"-f", "/no/such/script"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "picker: /no/such/script: cannot be read\n");
}

TEST(Shell, UnknownOptionsAreExplained) {
    const Outcome outcome = runProgramWith({"--colour"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, StartsWith("picker: unknown option --colour\nusage: picker"));
    EXPECT_THAT(runProgramWith({"-c"}).errors, StartsWith("picker: -c needs something behind it\n"));
}

TEST(Shell, HelpIsNoError) {
    const Outcome outcome = runProgramWith({"--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("usage: picker"));
}

TEST(Shell, VersionIsPrinted) {
    const Outcome outcome = runProgramWith({"--version"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, testing::MatchesRegex("picker [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Shell, NothingBehindTwoDashesIsAnOption) {
    EXPECT_THAT(runProgramWith({"--", "-f"}).errors, StartsWith("picker: -f: cannot be read"));
    EXPECT_THAT(runProgramWith({"--", "--"}).errors, StartsWith("picker: --: cannot be read"));
    EXPECT_EQ(runProgramWith({"-c", "echo one", "--"}).out, "one\n");
}

TEST(Shell, ALineWithoutAnEndIsAnError) {
    const Outcome outcome = runProgramWith({}, "echo one\n" + std::string(2'000'000, 'x'));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "picker: standard input:2: a line has more than 1000000 characters\n");
}

TEST(Shell, TheLastLineNeedsNoEnd) {
    EXPECT_EQ(runProgramWith({}, "echo one\necho two").out, "one\ntwo\n");
}

TEST(Shell, CtrlCEndsTheRunningCommandOnly) {
    Session session;
    session.load(kvtest::sceneOf(crowd()));
    session.interrupt().setProgress([](std::size_t) { (void)std::raise(SIGINT); });
    std::ostringstream out, errors;
    TypedLines lines({"all", "count"});
    EXPECT_EQ(runLines(session, lines, {out, errors, 100}), 0);
    EXPECT_EQ(errors.str(), "picker: cancelled\n");
    EXPECT_EQ(out.str(), "set A: 0 items under 0 main ids\n");
}

TEST(Shell, CtrlCEndsAScript) {
    Session session;
    session.load(kvtest::sceneOf(crowd()));
    session.interrupt().setProgress([](std::size_t) { (void)std::raise(SIGINT); });
    std::ostringstream out, errors;
    const std::unique_ptr<Lines> lines = argumentLines({"all", "count"});
    EXPECT_EQ(runLines(session, *lines, {out, errors, 100}), 1);
    EXPECT_EQ(out.str(), "");
}

TEST(Shell, CtrlCBetweenCommandsIsNotForThem) {
    struct sigaction before {};
    sigaction(SIGINT, nullptr, &before);
    runProgramWith({"-c", "echo one"});
    struct sigaction after {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
}

TEST(Shell, HistoryIsInTheDirectoryForStates) {
    const Variable state("XDG_STATE_HOME", "/states");
    EXPECT_EQ(historyFile(), "/states/picker/history");
}

TEST(Shell, HistoryIsOtherwiseInTheHomeDirectory) {
    const Variable state("XDG_STATE_HOME", "");
    const Variable home("HOME", "/home/me");
    EXPECT_EQ(historyFile(), "/home/me/.local/state/picker/history");
}

TEST(Shell, QuitEndsTheInput) {
    const Outcome outcome = runProgramWith({}, "echo one\nquit\necho two\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "one\n");
}

TEST(Shell, ErrorsOfStandardInputNameTheLine) {
    EXPECT_EQ(runProgramWith({}, "\n\nall\n").errors,
              "picker: standard input:3: there is no drawing yet: load FILE\n");
}

TEST_F(ShellRun, OutOfMemoryInTheLibraryIsAnErrorLikeAnyOther) {
    Session session;
    session.load(drawing.path());
    std::ostringstream out, errors;
    kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
    const std::unique_ptr<Lines> failing = argumentLines({"fence 1 -1 1 1"});
    EXPECT_EQ(runLines(session, *failing, {out, errors, 100}), 1);
    kvinmemory::resetAll();
    EXPECT_EQ(errors.str(), "picker: out of memory\n");
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(ShellRun, ExceptionsThatTheLibraryThrowsAreReported) {
    Session session;
    // A nested pick needs memory for its path. The library's containers take this memory from _kvMalloc,
    // which fails from the third call on.
    session.load(kvtest::sceneOf("<g id='g'><line x2='5'/></g><use href='#g' y='5'/>"));
    std::ostringstream out, errors;
    kvinmemory::failMalloc(3, kvinmemory::FailureMode::FromThenOn);
    const std::unique_ptr<Lines> failing = argumentLines({"pick 2 5"});
    EXPECT_EQ(runLines(session, *failing, {out, errors, 100}), 1);
    kvinmemory::resetAll();
    EXPECT_EQ(errors.str(), "picker: the library reports status 6\n");
    EXPECT_EQ(itemCount(session.set()), 0u);
}
