#include "examples/picker/SvgStyle.h"

#include <gmock/gmock.h>

using namespace picker;
using testing::ElementsAre;

TEST(StyleDeclarations, FindValuesByTheirNames) {
    const StyleDeclarations style(" fill : red;x:3px ");
    EXPECT_EQ(style.find("fill"), "red");
    EXPECT_EQ(style.find("x"), "3px");
    EXPECT_EQ(style.find("y"), std::nullopt);
}

TEST(StyleDeclarations, TakeNamesInAnyCase) {
    EXPECT_EQ(StyleDeclarations("DISPLAY:none").find("display"), "none");
}

TEST(StyleDeclarations, LetTheLastOneCount) {
    EXPECT_EQ(StyleDeclarations("x:1;x:2").find("x"), "2");
}

TEST(StyleDeclarations, LetImportantOnesCountMore) {
    EXPECT_EQ(StyleDeclarations("x:1 ! Important;x:2").find("x"), "1");
    EXPECT_EQ(StyleDeclarations("x:1!important;x:2!important;x:3").find("x"), "2");
}

TEST(StyleDeclarations, SkipComments) {
    const StyleDeclarations style("/* a; */x:1;/*y:2;*/z:/**/3/* open");
    EXPECT_EQ(style.find("x"), "1");
    EXPECT_EQ(style.find("y"), std::nullopt);
    EXPECT_EQ(style.find("z"), "3");
}

TEST(StyleDeclarations, KeepSemicolonsInQuotesAndBrackets) {
    const StyleDeclarations style("a:'x;/*y';b:url(data:;c);d:4");
    EXPECT_EQ(style.find("a"), "'x;/*y'");
    EXPECT_EQ(style.find("b"), "url(data:;c)");
    EXPECT_EQ(style.find("d"), "4");
}

TEST(StyleDeclarations, TakeBrokenText) {
    for (const char* text : {"", ";", ":", "x", "'", "x:'\\", "x:(", "/*", ")x:1"})
        EXPECT_EQ(StyleDeclarations(text).find("y"), std::nullopt) << text;
}

TEST(StyleSheet, TellsThePropertiesOfItsRules) {
    EXPECT_THAT(propertiesSetBy("g:hover, a { FILL : red; x:1 } /* { y:2 } */ b{x:3;content:'{z:1}'}"),
                ElementsAre("fill", "x", "content"));
}

TEST(StyleSheet, TellsThePropertiesOfRulesInsideOthers) {
    EXPECT_THAT(propertiesSetBy("@media print { g { display:none } }"), ElementsAre("display"));
}

TEST(StyleSheet, TellsOfImports) {
    EXPECT_THAT(propertiesSetBy("@import url(a.css);"), ElementsAre("@import"));
}
