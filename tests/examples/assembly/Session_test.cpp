#include "examples/assembly/Session.h"

#include "examples/assembly/Commands.h"
#include "examples/assembly/Hall.h"
#include "examples/assembly/StepFile.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace assembly;
using kvopencascade::Database;
using kvopencascade::IdPath;

Handle(TDocStd_Document) hall(const HallSize& size) {
    const Handle(TDocStd_Document) document = newDocument();
    buildHall(document, size);
    return document;
}

struct Pixel {
    int x, y;
};

class AssemblySession : public testing::Test {
protected:
    // The leak sanitizer names the driver's leaks by its library, which has to be loaded still.
    static void SetUpTestSuite() {
        for (const char* library : {"libGLX_mesa.so.0", KV_SOFTWARE_RENDERER})
            dlopen(library, RTLD_LAZY | RTLD_NODELETE);
    }

    std::string said(const std::string& line) {
        std::ostringstream out;
        Console console{mSession, out};
        runLine(console, line);
        return out.str();
    }

    std::vector<Pixel> differences(const Image_PixMap& a, const Image_PixMap& b) {
        std::vector<Pixel> pixels;
        for (int y = 0; y < mSession.view().size().height; ++y) {
            for (int x = 0; x < mSession.view().size().width; ++x) {
                if (a.PixelColor(x, y).GetRGB().Distance(b.PixelColor(x, y).GetRGB()) > 0)
                    pixels.push_back({x, y});
            }
        }
        return pixels;
    }

    // Returns whether one of the instances is under the pixel or beside it.
    bool isNear(const Pixel& pixel, const std::set<std::size_t>& instances) {
        for (int x : {pixel.x - 1, pixel.x, pixel.x + 1}) {
            for (int y : {pixel.y - 1, pixel.y, pixel.y + 1}) {
                const std::optional<Hit> hit = mSession.view().at(x, y);
                if (hit && instances.count(hit->instance) != 0)
                    return true;
            }
        }
        return false;
    }

    // Returns a pixel that shows something.
    Pixel somewhere() {
        for (int y = 100; y < 200; y += 3) {
            for (int x = 100; x < 300; x += 3) {
                if (mSession.view().at(x, y))
                    return {x, y};
            }
        }
        ADD_FAILURE() << "the view is empty";
        return {0, 0};
    }

    void expectNothingOpen() {
        for (const IdPath& path : mSession.instances()) {
            for (const GxDbObjectId& id : path)
                ASSERT_EQ(Database::openCount(id), 0);
        }
    }

    Session mSession{hall({1, 1, 2}), ViewSize{400, 300}, false};
};

TEST_F(AssemblySession, APickIsTakenOnce) {
    const Pixel pixel = somewhere();
    EXPECT_EQ(mSession.pick(pixel.x, pixel.y), 1);
    EXPECT_EQ(mSession.pick(pixel.x, pixel.y), 0);
    EXPECT_EQ(mSession.pick(0, 0), 0);
}

TEST_F(AssemblySession, AFaceAndItsPartAreTwoItems) {
    const Pixel pixel = somewhere();
    mSession.pick(pixel.x, pixel.y);
    said("mode face");
    EXPECT_EQ(mSession.pick(pixel.x, pixel.y), 1);
    EXPECT_THAT(said("list"), testing::AllOf(testing::HasSubstr("whole"), testing::HasSubstr("face ")));
}

TEST_F(AssemblySession, ABoxAroundEverythingFindsAllInstances) {
    EXPECT_EQ(mSession.pickBox(0, 0, 400, 300, false), static_cast<int>(mSession.instances().size()));
}

TEST_F(AssemblySession, ACrossingBoxFindsMoreThanAnInsideOne) {
    const int inside = mSession.pickBox(150, 100, 250, 200, false);
    mSession.clear();
    const int crossing = mSession.pickBox(150, 100, 250, 200, true);
    EXPECT_GT(crossing, inside);
    EXPECT_LT(crossing, static_cast<int>(mSession.instances().size()));
}

TEST_F(AssemblySession, ANameFindsAllInstancesOfAPart) {
    EXPECT_EQ(mSession.pickByName("memory module"), 16);
    EXPECT_THROW(mSession.pickByName("no such part"), CommandError);
}

TEST_F(AssemblySession, SamePartsAreThoseOfTheSet) {
    mSession.pickByName("sign");
    mSession.pickByName("lid");
    EXPECT_EQ(mSession.count(), 3);
    EXPECT_EQ(mSession.pickSameParts(), 0);
    mSession.remove(2);
    EXPECT_EQ(mSession.pickSameParts(), 1);
}

TEST_F(AssemblySession, SetsAreCombined) {
    mSession.pickByName("lid");
    said("save lids");
    mSession.pickByName("front");
    said("minus lids");
    EXPECT_EQ(mSession.count(), 2);
    said("union lids");
    EXPECT_EQ(mSession.count(), 4);
    said("common lids");
    EXPECT_EQ(mSession.count(), 2);
    EXPECT_THAT(said("sets"), testing::HasSubstr("lids"));
    EXPECT_THROW(said("minus none"), CommandError);
}

TEST_F(AssemblySession, AHighlightChangesThePixelsOfItsInstanceOnly) {
    const auto before = mSession.view().picture();
    const Pixel pixel = somewhere();
    const std::optional<Hit> hit = mSession.view().at(pixel.x, pixel.y);
    ASSERT_TRUE(hit);
    mSession.pick(pixel.x, pixel.y);
    mSession.highlight();
    const std::vector<Pixel> changed = differences(*before, *mSession.view().picture());
    EXPECT_GT(changed.size(), 10u);
    for (const Pixel& each : changed)
        EXPECT_TRUE(isNear(each, {hit->instance})) << each.x << ", " << each.y;
    mSession.unhighlight();
    EXPECT_TRUE(differences(*before, *mSession.view().picture()).empty());
}

TEST_F(AssemblySession, AHighlightThatTwoSetsHaveStaysUntilBothEnd) {
    const auto before = mSession.view().picture();
    mSession.pickByName("lid");
    mSession.highlight();
    const auto highlighted = mSession.view().picture();
    mSession.save("lids");
    mSession.clear();
    EXPECT_TRUE(differences(*highlighted, *mSession.view().picture()).empty());
    mSession.save("lids");
    EXPECT_TRUE(differences(*before, *mSession.view().picture()).empty());
}

TEST_F(AssemblySession, AFaceJoinsTheSubselectionOfItsPart) {
    const Pixel pixel = somewhere();
    mSession.subselectFace(pixel.x, pixel.y);
    EXPECT_EQ(mSession.count(), 1);
    EXPECT_THAT(said("list"), testing::HasSubstr("face "));
    EXPECT_THROW(mSession.subselectFace(0, 0), CommandError);
}

TEST_F(AssemblySession, BadWordsChangeNothing) {
    for (const char* line : {"nonsense", "pick 1", "pick a b", "remove 0", "remove -1", "mode solid",
                             "load none", "inside 1 2 3", "list many"})
        EXPECT_THROW(said(line), CommandError) << line;
    EXPECT_EQ(mSession.count(), 0);
}

TEST_F(AssemblySession, ManyCommandsLeaveNothingOpenOrHighlighted) {
    std::mt19937 random(7);
    const std::vector<std::string> lines{
        "named lid", "named front", "named sign", "same",      "highlight", "unhighlight", "save a",
        "save b",    "load a",      "load b",     "union a",   "minus b",   "common a",    "remove 0",
        "clear",     "count",       "list 3",     "mode face", "mode part", "pick 200 150"};
    said("save a");
    said("save b");
    for (int i = 0; i < 10000; ++i) {
        try {
            said(lines[random() % lines.size()]);
        } catch (const CommandError&) { // an item that is not there
        }
    }
    for (const char* line : {"clear", "save a", "save b"})
        said(line);
    EXPECT_EQ(mSession.database().highlights(), 0u);
    expectNothingOpen();
}

} // namespace
