#include "examples/picker/Table.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace picker;

namespace {

std::string printed(const Table& table, std::size_t width) {
    std::ostringstream out;
    table.print(out, width);
    return out.str();
}

} // namespace

TEST(Table, AlignsColumnsByTheirWidestCell) {
    Table table({{"n", Table::Align::right}, {"name"}, {"x"}});
    table.add({"1", "a", "!"});
    table.add({"100", "long name", ""});
    EXPECT_EQ(printed(table, 80), "  n  name       x\n  1  a          !\n100  long name\n");
}

TEST(Table, CutsTheWidestColumnWhereLinesWouldBeTooLong) {
    Table table({{"n"}, {"path"}});
    table.add({"1", "abcdefghijklmnopqrstuvwxyz"});
    EXPECT_EQ(printed(table, 13), "n  path\n1  abcd..wxyz\n");
}

TEST(Table, KeepsColumnsReadableInTheNarrowestPlaces) {
    Table table({{"one"}, {"two"}});
    table.add({"abcdefghij", "klmnopqrst"});
    EXPECT_EQ(printed(table, 3), "one     two\nab..ij  kl..st\n");
}

TEST(Table, CountsCharactersNotBytes) {
    Table table({{"a"}, {"b"}});
    table.add({"\xc3\xa4\xc3\xb6", "1"});
    EXPECT_EQ(printed(table, 80), "a   b\n\xc3\xa4\xc3\xb6  1\n");
}

TEST(Shortened, NeverCutsACharacter) {
    const std::string text = "\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6\xc3\xbc";
    EXPECT_EQ(shortened(text, 4), "\xc3\xa4..\xc3\xbc");
    EXPECT_EQ(shortened(text, 6), text);
    EXPECT_EQ(shortened(text, 2), "\xc3\xa4\xc3\xb6");
    EXPECT_EQ(shortened(text, 0), "");
}
