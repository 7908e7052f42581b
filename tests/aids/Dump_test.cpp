#include "aids/Inspect.h"

#include "tests/aids/AidsTest.h"

#include <gtest/gtest.h>

#include <clocale>
#include <iomanip>
#include <ios>
#include <sstream>
#include <stdexcept>

namespace {

using kvtest::edit;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::record;
using kvtest::SetOf;
using kvtest::textOfNumber;
using kvtest::Unique;

class Dump : public kvtest::SetTest {
protected:
    static std::string textOf(const GxapSelectSet& set) {
        std::ostringstream out;
        kv::dump(set, out, textOfNumber);
        return out.str();
    }
};

TEST_F(Dump, HasALineForTheSetAndOneForEachItem) {
    const SetOf s{{1}, {2, 3, 4, {2, 3}}};
    EXPECT_EQ(textOf(s.set), "2 items, unique\n"
                             "0: #1\n"
                             "1: #2, sub #3, marker 4, path #2/#3\n");
}

TEST_F(Dump, NamesTheFlags) {
    SetOf s(kvtest::Items{{1}}, Unique::kOff);
    edit(s.set).setSelectByNestedMode(true);
    EXPECT_EQ(textOf(s.set), "1 item, not unique, nested mode\n0: #1\n");
}

TEST_F(Dump, OfASetWithoutDataIsThatOfAnEmptyOne) {
    GxapSelectSet set;
    const std::string empty = textOf(set);
    EXPECT_EQ(empty, "0 items, unique\n");
    set.releaseData();
    EXPECT_EQ(textOf(set), empty);
}

TEST_F(Dump, HasEveryFieldThatIsNotAsUsual) {
    SetOf s{{1}};
    selected_entity& item = *record(s.set, 0);
    kvtest::append(item.hlVpArray, 2);
    kvtest::append(item.hlVpArray, 5);
    giveSegments(item, 2);
    item.subselPathArray = new kvtest::SegmentArray;
    item.hasSubselPaths = true;
    kv::InfoFields fields;
    fields.word0 = 6;
    fields.points = {{1, 2.5, -3}};
    fields.fence = kvtest::fence(1, 0.25);
    fields.transform = kvtest::matrixMovedBy(7);
    item.selectedEntityInfo = kv::makeInfo(fields).release();
    EXPECT_EQ(textOf(s.set),
              "1 item, unique\n"
              "0: #1, viewports 2 5, highlight segments #1:0:0 #2:0:0, sub-selection of none, word0 6, "
              "points (1 2.5 -3), fence 1 at 0.25, block transform 1 0 0 7 0 1 0 0 0 0 1 0 0 0 0 1\n");
}

TEST_F(Dump, IsTheSameForACopyOfTheData) {
    SetOf s{{1, 2, 3, {4, 5}, 6.5}, {7}};
    giveSegments(*record(s.set, 1), 1);
    record(s.set, 0)->subselPathArray = new kvtest::SegmentArray;
    record(s.set, 0)->hasSubselPaths = true;
    EXPECT_EQ(textOf(*kvtest::cloneOf(s.set)), textOf(s.set));
}

TEST_F(Dump, IsTheSameWithAnInfoThatHasNothing) {
    const SetOf s{{1}};
    const std::string text = textOf(s.set);
    record(s.set, 0)->selectedEntityInfo = kv::makeInfo().release();
    EXPECT_EQ(textOf(s.set), text);
}

TEST_F(Dump, IsTheSameForASetThatWasFilledInAnotherWay) {
    SetOf few{{1}, {2}, {3}};
    SetOf more{{1}, {9}, {2}, {3}};
    kvtest::takeOutIds(more.set, 9, 1);
    EXPECT_EQ(textOf(more.set), textOf(few.set));
}

TEST_F(Dump, TellsMarkersApartThatRemovalsTellApart) {
    const SetOf zero{{1, 0, 0}};
    const SetOf none{{1, 0, -1}};
    EXPECT_NE(textOf(zero.set), textOf(none.set));
}

TEST_F(Dump, DoesNotDependOnTheStreamAndTheLocale) {
    const SetOf s{{1, 0, -1, {}, 0.5}};
    const std::string text = textOf(s.set);
    std::ostringstream out;
    out << std::hex << std::setw(99) << std::setfill('*');
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    kv::dump(s.set, out, textOfNumber);
    EXPECT_EQ(out.str(), text);
    EXPECT_NE(text.find("0.5"), std::string::npos);
}

TEST_F(Dump, PassesOnWhatTheTextOfAnIdThrows) {
    const SetOf s{{1}};
    std::ostringstream out;
    const kv::IdText refuses = [](const GxDbObjectId&) -> std::string {
        throw std::runtime_error("no name");
    };
    EXPECT_THROW(kv::dump(s.set, out, refuses), std::runtime_error);
}

} // namespace
