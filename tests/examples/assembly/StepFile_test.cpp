#include "examples/assembly/StepFile.h"

#include "examples/assembly/Hall.h"
#include "platform/opencascade/OpenCascadeDatabase.h"

#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace {

using kvopencascade::Database;
using kvopencascade::IdPath;

void ignore(const std::string&, int) {}

// Returns why the file is refused, or nothing.
std::string refusalOf(const std::string& file, std::uintmax_t largest = assembly::kLargestFile) {
    try {
        assembly::closeDocument(assembly::loadStep(file, ignore, largest));
    } catch (const assembly::StepError& error) {
        return error.what();
    }
    return "";
}

std::string textOf(const std::string& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class StepFile : public testing::Test {
protected:
    void SetUp() override {
        const Handle(TDocStd_Document) document = assembly::newDocument();
        assembly::buildHall(document, {1, 2, 1});
        assembly::saveStep(document, mFile);
        assembly::closeDocument(document);
    }
    void TearDown() override { std::remove(mFile.c_str()); }

    void write(const std::string& text) { std::ofstream(mFile) << text; }

    const std::string mFile = testing::TempDir() + "hall-" + std::to_string(::getpid()) + ".step";
};

TEST_F(StepFile, KeepsTheStructureAndTheNames) {
    const Handle(TDocStd_Document) document = assembly::loadStep(mFile, ignore);
    {
        Database database(document);
        const std::vector<IdPath> instances = database.instances();
        EXPECT_EQ(instances.size(), 2 * (15u + 34u) + 4u + 4u);
        std::vector<std::string> parts;
        for (const IdPath& path : instances)
            parts.push_back(Database::nameOf(path.back()));
        EXPECT_THAT(parts, testing::IsSupersetOf({"chip", "heat sink", "memory module", "sign"}));
    }
    assembly::closeDocument(document);
}

TEST_F(StepFile, ShowsItsProgress) {
    std::vector<int> percents;
    assembly::closeDocument(
        assembly::loadStep(mFile, [&](const std::string&, int percent) { percents.push_back(percent); }));
    EXPECT_GE(percents.size(), 3u);
}

TEST_F(StepFile, RefusesAFileThatIsNotThere) {
    EXPECT_THAT(refusalOf("no such file.step"), testing::HasSubstr("there is no such file"));
    EXPECT_THAT(refusalOf(testing::TempDir()), testing::HasSubstr("there is no such file"));
}

TEST_F(StepFile, RefusesAnEmptyFile) {
    write("");
    EXPECT_THAT(refusalOf(mFile), testing::HasSubstr("the file is empty"));
}

TEST_F(StepFile, RefusesALargeFile) {
    EXPECT_THAT(refusalOf(mFile, 1000), testing::HasSubstr("more than 1000"));
}

TEST_F(StepFile, RefusesAFileOfAnotherKind) {
    write("solid cube\nendsolid cube\n");
    EXPECT_THAT(refusalOf(mFile), testing::HasSubstr("this is no STEP file"));
}

TEST_F(StepFile, RefusesAFileThatBreaksOff) {
    const std::string text = textOf(mFile);
    write(text.substr(0, text.size() / 2));
    EXPECT_THAT(refusalOf(mFile), testing::HasSubstr("breaks off"));
}

TEST_F(StepFile, RefusesAFileWithoutShapes) {
    const std::string text = textOf(mFile);
    write(text.substr(0, text.find("DATA;") + 5) + "\nENDSEC;\nEND-ISO-10303-21;\n");
    EXPECT_NE(refusalOf(mFile), "");
}

TEST_F(StepFile, SurvivesAFileWithHolesInIt) {
    const std::string text = textOf(mFile);
    for (std::size_t at = text.size() / 10; at < text.size(); at += text.size() / 10) {
        std::string broken = text;
        broken.replace(at, std::min<std::size_t>(300, text.size() - at - 40), "");
        write(broken);
        refusalOf(mFile); // it may also be read in part
    }
    EXPECT_THAT(refusalOf(mFile), testing::Not(testing::HasSubstr("\n")));
}

} // namespace
