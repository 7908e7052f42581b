#include "examples/picker/Interrupt.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

using namespace picker;

TEST(Interrupt, LetsWorkGoOnUntilItIsRequested) {
    Interrupt interrupt;
    interrupt.check();
    interrupt.request();
    EXPECT_THROW(interrupt.check(), Cancelled);
}

TEST(Interrupt, ForgetsEarlierRequests) {
    Interrupt interrupt;
    interrupt.request();
    interrupt.reset();
    EXPECT_NO_THROW(interrupt.check());
}

TEST(Interrupt, ReportsTheStepsNowAndThen) {
    Interrupt interrupt;
    std::size_t last = 0;
    int reports = 0;
    interrupt.setProgress([&](std::size_t steps) {
        last = steps;
        ++reports;
    });
    for (int i = 0; i < 10'000; ++i)
        interrupt.check();
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(last, 8192u);
}

TEST(Interrupt, CanBeRequestedByAReport) {
    Interrupt interrupt;
    interrupt.setProgress([&](std::size_t) { interrupt.request(); });
    EXPECT_THROW(for (int i = 0; i < 10'000; ++i) interrupt.check(), Cancelled);
}

TEST(Interrupt, EndsTheReadingOfADrawing) {
    Interrupt interrupt;
    interrupt.request();
    EXPECT_THROW(parseSvg("<svg><line x2='1'/></svg>", "x", &interrupt), Cancelled);
}
