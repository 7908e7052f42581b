// Times the operations of the library and of its contenders in one run. All contenders do the same work on
// the same items.
//
// Benchmarks are named operation/order/size/contender. A single figure says little: compare only medians of
// interleaved repetitions. scripts/bench makes and reports such medians.
//
// --sizes=100,10000 selects the sizes of sets. The default is all sizes.
// --one-main-id-sizes=1000 selects the sizes of sets whose items share one main id.

#include "bench/Arguments.h"
#include "bench/Child.h"
#include "bench/Contenders.h"
#include "bench/FullSpeed.h"
#include "bench/Measure.h"
#include "bench/OneMainId.h"
#include "bench/Operations.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <string>

namespace kvbench {
namespace {

template <class Operation>
void measure(benchmark::State& state, std::size_t count, Order order) {
    prepareIndices(count, order); // once: the child process of each run inherits the lists
    for (auto _ : state) {
        const auto timing = inChild([=] { return timingOf<Operation>(count, order); });
        if (!timing) {
            state.SkipWithError("the measurement's process died");
            return;
        }
        state.SetIterationTime(timing->nsPerItem * 1e-9);
        state.counters["ns_per_item"] = timing->nsPerItem;
        state.counters["shortest_region_us"] = timing->shortestRegionUs;
    }
}

template <class Set>
void measureBytes(benchmark::State& state, std::size_t count, Order order) {
    for (auto _ : state) {
        const auto bytes = inChild([=] { return bytesPerItem<Set>(count, order); });
        if (!bytes) {
            state.SkipWithError("the measurement's process died");
            return;
        }
        state.SetIterationTime(1e-9);
        state.counters["bytes_per_item"] = *bytes;
    }
}

std::string nameFor(const std::string& operation, Order order, std::size_t count, const char* contender) {
    return std::string(operation) + "/" + nameOf(order) + "/" + std::to_string(count) + "/" + contender;
}

template <class Set, class Operation>
benchmark::internal::Benchmark* add(const std::string& name, std::size_t count, Order order) {
    return benchmark::RegisterBenchmark(
               nameFor(name, order, count, Set::kName).c_str(),
               [count, order](benchmark::State& state) { measure<Operation>(state, count, order); })
        ->UseManualTime()
        ->Iterations(1);
}

// Adds the measurement of a set's memory. It runs only once, because a set takes the same memory every time.
template <class Set>
void addMemory(std::size_t count, Order order) {
    benchmark::RegisterBenchmark(
        nameFor("memory", order, count, Set::kName).c_str(),
        [count, order](benchmark::State& state) { measureBytes<Set>(state, count, order); })
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(1);
}

template <class Set, class... Operations>
void addAll(OperationList<Operations...>, std::size_t count, Order order) {
    (add<Set, Operations>(Operations::kName, count, order), ...);
    addMemory<Set>(count, order);
}

template <class Set>
void addAll(const Sizes& sizes) {
    for (const std::size_t count : sizes) {
        if (count > Set::kLargest)
            continue;
        addAll<Set>(AllOperations<Set>(), count, Order::kAscending);
        addAll<Set>(AllOperations<Set>(), count, Order::kShuffled);
    }
}

// Adds an operation on items of one main id. A long operation of a peer runs only once, because one run shows
// the order of magnitude.
template <class Set, class Difference, class Operation>
void addOneMainId(std::size_t count, Order order) {
    auto* const added = add<Set, Operation>(nameOfOneMainId<Difference, Operation>(), count, order);
    if (isLongForPeers<Set>(count))
        added->Repetitions(1);
}

template <class Set, class Difference, class... Operations>
void addOneMainId(OperationList<Operations...>, std::size_t count, Order order) {
    (addOneMainId<Set, Difference, Operations>(count, order), ...);
}

template <class Set, class... Differences>
void addOneMainId(DifferenceList<Differences...>, const Sizes& sizes) {
    for (const std::size_t count : sizes) {
        if (count > kLargestOfOneMainId<Set>)
            continue;
        for (const Order order : {Order::kAscending, Order::kShuffled})
            (addOneMainId<Set, Differences>(OperationsOf<Set, OneMainId<Set, Differences>>(), count, order),
             ...);
    }
}

template <class... Sets>
struct All {
    static void add(const Sizes& sizes) { (addAll<Sets>(sizes), ...); }
    static void addOneMainId(const Sizes& sizes) {
        (kvbench::addOneMainId<Sets>(AllDifferences(), sizes), ...);
    }
};

// Removes the argument that begins with `flag` from argv, and returns the sizes that sizesOf() finds in the
// rest of the argument. Returns `otherwise` if no argument begins with `flag`.
Sizes takeSizes(int& argc, char** argv, const char* flag, const Sizes& otherwise) {
    char** const end = argv + argc;
    char** const found = std::find_if(argv + 1, end, [&](char* arg) { return valueOf(arg, flag); });
    if (found == end)
        return otherwise;

    const Sizes sizes = sizesOf(valueOf(*found, flag));
    std::copy(found + 1, end, found);
    --argc;
    return sizes;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    using namespace kvbench;
    const Sizes sizes = takeSizes(argc, argv, "--sizes=", {10, 100, 1000, 10000, 100000, 1000000});
    const Sizes oneMainIdSizes = takeSizes(argc, argv, "--one-main-id-sizes=", {1000, 10000, 100000});
    ContendersIn<All>::add(sizes);
    ContendersIn<All>::addOneMainId(oneMainIdSizes);
    All<ManyMainIds>::addOneMainId(oneMainIdSizes);
    benchmark::AddCustomContext("left_out", leftOut());
    benchmark::Initialize(&argc, argv);
    if (sizes.empty() || oneMainIdSizes.empty() || benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    learnFullSpeed();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
