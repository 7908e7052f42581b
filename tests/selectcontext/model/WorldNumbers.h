// What arguments of operations may be, without the library.
#pragma once

namespace kvmodel {

struct WorldNumbers {
    static constexpr int kNestedPathCount = 7;
    static constexpr int kPathCountOfRuns = 40; // number of nested paths in Shape::kRuns
    static constexpr int kMainCountOfRuns = 16;
    static constexpr int kFirstSpare = 41; // from here on: spare ids, which may be made equal to others
    static constexpr int kInfoCount = 6;
    static constexpr int kSubentPathCount = 20;

    // Returns a main id of long runs. mainOfRun(0) and mainOfRun(1) are also on nested paths.
    static int mainOfRun(int i) { return i < 2 ? 1 + 3 * i : 8 + i; }
};

} // namespace kvmodel
