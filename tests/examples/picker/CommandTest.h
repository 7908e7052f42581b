// The fixture of tests that run commands in a session.
#pragma once

#include "examples/picker/Commands.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace kvtest {

class CommandTest : public testing::Test {
protected:
    // Loads a drawing of these elements into the session.
    explicit CommandTest(const std::string& elements) { session.load(sceneOf(elements)); }

    std::string run(const std::string& line) {
        std::ostringstream out;
        picker::Console console{session, out, 100};
        picker::runCommand(console, picker::wordsOf(line));
        isFinished = console.isFinished;
        return out.str();
    }

    std::string errorOf(const std::string& line) {
        try {
            run(line);
        } catch (const picker::CommandError& error) {
            return error.what();
        }
        return "no error";
    }

    picker::Session session;
    bool isFinished = false; // set by the last command
};

} // namespace kvtest
