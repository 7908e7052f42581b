// items() with the ranges of C++20.
#include "aids/Items.h"
#include "tests/selectcontext/support/SetTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ranges>
#include <vector>

namespace {

using kvtest::Filled;
using kvtest::id;
using kvtest::numberOf;

using ItemRanges = kvtest::SetTest;

static_assert(std::forward_iterator<kv::ItemRange::iterator>);
static_assert(std::ranges::forward_range<kv::ItemRange> && std::ranges::common_range<kv::ItemRange>);
static_assert(std::ranges::view<kv::ItemRange> && std::ranges::viewable_range<kv::ItemRange>);

TEST_F(ItemRanges, AreTakenByAlgorithms) {
    const Filled filled(3);
    EXPECT_EQ(std::ranges::count_if(kv::items(filled.set),
                                    [](const auto& item) { return item.mainEntId == id(2); }),
              1);
}

// clang before 16 does not compile the views of this standard library.
#if !defined(__clang__) || __clang_major__ >= 16
TEST_F(ItemRanges, AreTakenByViews) {
    const Filled filled(4);
    std::vector<unsigned long> numbers;
    for (const unsigned long n :
         kv::items(filled.set) | std::views::transform([](const auto& item) {
             return numberOf(item.mainEntId);
         }) | std::views::filter([](unsigned long number) { return number % 2 == 0; }))
        numbers.push_back(n);
    EXPECT_EQ(numbers, (std::vector<unsigned long>{2, 4}));
}
#endif

} // namespace
