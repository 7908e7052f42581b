// The demo from end to end: what the program prints for it is what a newcomer is meant to read.
#include "examples/picker/Shell.h"
#include "examples/picker/SvgReader.h"
#include "examples/picker/Table.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace picker;

namespace {

const std::string kDemoDirectory = PICKER_DEMO_DIRECTORY;

std::string demoOutput() {
    std::istringstream in;
    std::ostringstream out, errors;
    const int status = runProgram({kDemoDirectory + "/office.svg", "-f", kDemoDirectory + "/demo.txt"}, in,
                                  {out, errors, 100}, false);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(errors.str(), "");
    return out.str();
}

} // namespace

TEST(Demo, PrintsWhatItIsMeantTo) {
    std::ifstream golden(std::string(PICKER_TEST_DIRECTORY) + "/demo_output.txt");
    ASSERT_TRUE(golden);
    std::ostringstream expected;
    expected << golden.rdbuf();
    EXPECT_EQ(demoOutput(), expected.str());
}

TEST(Demo, FitsOnAScreen) {
    std::istringstream lines(demoOutput());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_LE(displayWidth(line), 100u) << line;
    EXPECT_LE(count, 45);
}

TEST(Demo, DrawingPlacesAtLeastThreeHundredEntities) {
    const Drawing drawing(readSvg(kDemoDirectory + "/office.svg"));
    EXPECT_GE(drawing.model().curveCount(), 300u);
}
