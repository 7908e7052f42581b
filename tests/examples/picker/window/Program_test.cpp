// The program `picker --window`, as a user starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

using testing::HasSubstr;

namespace {

struct Outcome {
    int status;
    std::string errors;
};

// Runs a program with these arguments in a shell.
Outcome run(const std::string& program, const std::string& arguments) {
    const std::string errors = testing::TempDir() + "picker_errors" + std::to_string(getpid());
    const int status = std::system(("\"" + program + "\" " + arguments + " 2>" + errors).c_str());
    std::ostringstream text;
    text << std::ifstream(errors).rdbuf();
    std::filesystem::remove(errors);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text.str()};
}

} // namespace

TEST(Program, OpensAWindowAndRunsTheCommands) {
    const std::string drawing = PICKER_DEMO_DIRECTORY "/office.svg";
    const std::string picture = testing::TempDir() + "picker_window_show" + std::to_string(getpid()) + ".svg";
    const Outcome outcome =
        run(PICKER_PROGRAM, "--window " + drawing + " -c 'pick 898 120' -c 'show " + picture + "' -c quit");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    std::ostringstream text;
    text << std::ifstream(picture).rdbuf();
    EXPECT_THAT(text.str(), HasSubstr("id=\"highlight\"")) << "what is picked in the window is highlighted";
    std::filesystem::remove(picture);
    std::filesystem::remove(std::filesystem::path(picture).replace_extension(".png"));
}

TEST(Program, SaysInOneLineThatItHasNoWindow) {
    const std::filesystem::path alone = testing::TempDir() + "picker_alone" + std::to_string(getpid());
    std::filesystem::create_directories(alone);
    std::filesystem::copy_file(PICKER_PROGRAM, alone / "picker");
    const Outcome outcome = run((alone / "picker").string(), "--window");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, HasSubstr("the window is built where Qt 6 is installed"));
    EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1);
    std::filesystem::remove_all(alone);
}
