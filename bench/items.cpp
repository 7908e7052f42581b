// Times walking a set by kv::items() and by the library's own iterator, one after the other in many rounds,
// and prints the medians and their ratio.
//
// --sizes=1000,1000000 selects the sizes. The default is 1000,100000,1000000.

#include "aids/Items.h"
#include "bench/Arguments.h"
#include "bench/Measure.h"
#include "bench/Operations.h"
#include "bench/peers/SelectContext.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace kvbench {
namespace {

constexpr std::size_t kRounds = 51;
constexpr std::size_t kItemsPerRound = 1000000; // a small set is walked several times in a round

std::uintptr_t sumOf(const selected_entity& item) {
    return reinterpret_cast<std::uintptr_t>(item.mainEntId.stub()) +
           static_cast<std::uintptr_t>(item.gsMarker);
}

std::uintptr_t walkByIterator(const GxapSelectSet& set) {
    std::uintptr_t sum = 0;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step())
        sum += sumOf(*it.get());
    return sum;
}

std::uintptr_t walkByItems(const GxapSelectSet& set) {
    std::uintptr_t sum = 0;
    for (const selected_entity& item : kv::items(set))
        sum += sumOf(item);
    return sum;
}

using Walk = std::uintptr_t (*)(const GxapSelectSet& set);

// Returns the time for one item, in nanoseconds.
double timeOf(Walk walk, const GxapSelectSet& set, std::size_t size) {
    const std::size_t walks = std::max<std::size_t>(kItemsPerRound / size, 1);
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < walks; ++i)
        keep(walk(set));
    return secondsSince(start) * 1e9 / static_cast<double>(walks * size);
}

double medianOf(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void compare(std::size_t size) {
    GxapSelectSet set;
    for (const Pick& pick : picks(size, Order::kAscending))
        static_cast<GxapSSetWriteAccessor&>(set).append(pick.mainId, pick.subId);
    require(walkByIterator(set) == walkByItems(set));
    std::vector<double> byIterator;
    std::vector<double> byItems;
    for (std::size_t round = 0; round < kRounds; ++round) {
        byIterator.push_back(timeOf(walkByIterator, set, size));
        byItems.push_back(timeOf(walkByItems, set, size));
    }
    const double iterator = medianOf(byIterator);
    const double items = medianOf(byItems);
    std::printf("%9zu items: iterator %6.2f ns, items() %6.2f ns per item, ratio %.2f\n", size, iterator,
                items, items / iterator);
}

int run(int argc, char** argv) {
    Sizes sizes{1000, 100000, 1000000};
    for (int i = 1; i < argc; ++i) {
        const char* const list = valueOf(argv[i], "--sizes=");
        sizes = list ? sizesOf(list) : Sizes();
    }
    if (sizes.empty()) {
        std::fputs("usage: kv_items [--sizes=N,N...]\n", stderr);
        return 2;
    }
    for (const std::size_t size : sizes)
        compare(size);
    return 0;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    return kvbench::runProgram("kv_items", kvbench::run, argc, argv);
}
