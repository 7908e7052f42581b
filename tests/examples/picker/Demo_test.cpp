// Runs the demo from beginning to end. The file demo_output.txt has the expected output.
#include "examples/picker/Shell.h"
#include "examples/picker/SvgReader.h"
#include "examples/picker/Table.h"

#include "tests/examples/picker/Pictures.h"

#include <gmock/gmock.h>

#include <sstream>

using namespace picker;

namespace {

const std::string kDemoDirectory = PICKER_DEMO_DIRECTORY;

// Replaces the two words that identify a saved set in the text, an address and a number. The words may differ
// from run to run.
std::string withoutWords(std::string text) {
    const std::string known = "known as ";
    const std::size_t begin = text.find(known + "0x");
    if (begin == std::string::npos)
        return text;
    const std::size_t words = begin + known.size();
    return text.replace(words, text.find(':', words) - words, "ADDRESS NUMBER");
}

class Demo : public testing::Test {
protected:
    static std::string output() {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream errors;
        const int status = runProgram({kDemoDirectory + "/office.svg", "-f", kDemoDirectory + "/demo.txt"},
                                      in, {out, errors, 100}, false);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(errors.str(), "");
        return out.str();
    }

    const kvtest::WorkingDirectory directory{"picker_demo"};
    const kvtest::StandInConverter converter;
};

} // namespace

TEST_F(Demo, PrintsWhatItIsMeantTo) {
    EXPECT_EQ(withoutWords(output()),
              kvtest::textOf(std::string(PICKER_TEST_DIRECTORY) + "/demo_output.txt"));
}

TEST_F(Demo, FitsOnAScreen) {
    std::istringstream lines(output());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_LE(displayWidth(line), 100u) << line;
    EXPECT_LE(count, 50);
}

TEST_F(Demo, LeavesThePicturesWhereItSays) {
    const std::string said = output();
    for (const std::string name : {"before.svg", "before.png", "after.svg", "after.png"}) {
        const std::string file = "build/demo/" + name;
        EXPECT_NE(said.find(file), std::string::npos) << file;
        EXPECT_NE(kvtest::textOf(file), "") << file;
    }
}

TEST_F(Demo, PicturesAreTheDrawingAndTheDrawingWithTheSelection) {
    output();
    const std::string before = kvtest::textOf("build/demo/before.svg");
    EXPECT_EQ(before, kvtest::textOf(kDemoDirectory + "/office.svg"));
    EXPECT_THAT(kvtest::highlightsIn(kvtest::textOf("build/demo/after.svg")),
                testing::UnorderedElementsAre("15 15 1", "40 40/86/130/143/145 1", "43 43/86/131/134 -1",
                                              "43 43/86/131/135 -1", "43 43/86/131/136 -1", "48 48/101 5",
                                              "48 48/104/133 1", "48 48/104/134 1"));
}

TEST_F(Demo, DrawingPlacesAtLeastThreeHundredEntities) {
    const Drawing drawing(readSvg(kDemoDirectory + "/office.svg"));
    EXPECT_GE(drawing.model().curveCount(), 300u);
}
