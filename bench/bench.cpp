// Times the library's operations beside contenders that do the same work on the same items, in one run.
//
// Benchmarks are named operation/order/size/contender. Medians over interleaved repetitions are what counts:
//   --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true

#include "bench/Operations.h"
#include "bench/peers/LinkedList.h"
#include "bench/peers/SelectContext.h"
#include "bench/peers/VectorHash.h"
#ifdef KV_BENCH_BOOST
#include "bench/peers/MultiIndex.h"
#endif
#ifdef KV_BENCH_COLONY
#include "bench/peers/Colony.h"
#endif
#ifdef KV_BENCH_QT
#include "bench/peers/QtContainers.h"
#endif
#ifdef KV_BENCH_OCCT
#include "bench/peers/NCollection.h"
#endif

#include <benchmark/benchmark.h>
#include <chrono>
#include <malloc.h>
#include <memory>
#include <string>

namespace kvbench {
namespace {

constexpr std::size_t kSizes[] = {100, 1000, 10000, 100000, 1000000};

double secondsOf(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// One in `share` of the items is dealt with.
template <class Operation>
auto shareOf(const Operation& operation, int) -> decltype(operation.share()) {
    return operation.share();
}
template <class Operation>
std::size_t shareOf(const Operation&, long) {
    return 1;
}

template <class Operation>
double timedRun(Operation& operation) {
    const auto start = std::chrono::steady_clock::now();
    operation.run();
    const auto end = std::chrono::steady_clock::now();
    operation.check();
    return secondsOf(end - start);
}

template <class Operation>
void measure(benchmark::State& state, std::size_t count, Order order) {
    std::unique_ptr<Operation> operation;
    double seconds = 0;
    std::size_t runs = 0;
    std::size_t share = 1;
    for (auto _ : state) {
        if (!operation || !Operation::kIsRepeatable)
            operation = std::make_unique<Operation>(count, order);
        share = shareOf(*operation, 0);
        const double run = timedRun(*operation);
        state.SetIterationTime(run);
        seconds += run;
        ++runs;
    }
    const double items = static_cast<double>(runs) * static_cast<double>((count + share - 1) / share);
    state.counters["ns_per_item"] = seconds * 1e9 / items;
}

std::size_t allocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Everything that a set of `count` items takes from the heap, as the allocator accounts for it.
template <class Set>
void measureBytes(benchmark::State& state, std::size_t count, Order order) {
    for (auto _ : state) {
        const Picks items = picks(count, order);
        const std::size_t before = allocatedBytes();
        Set set;
        fill(set, items);
        for (const Pick& pick : items) // an index that is built when first asked is part of the set
            require(set.has(pick.mainId));
        const std::size_t after = allocatedBytes();
        state.SetIterationTime(1e-9);
        state.counters["bytes_per_item"] = static_cast<double>(after - before) / static_cast<double>(count);
    }
}

// Fewer iterations for larger sets: each prepares sets of its own.
benchmark::IterationCount iterationsFor(std::size_t count) {
    return static_cast<benchmark::IterationCount>(std::max<std::size_t>(200000 / count, 1));
}

std::string nameFor(const char* operation, Order order, std::size_t count, const char* contender) {
    return std::string(operation) + "/" + nameOf(order) + "/" + std::to_string(count) + "/" + contender;
}

template <template <class> class Operation, class Set>
void add(std::size_t count, Order order) {
    benchmark::RegisterBenchmark(
        nameFor(Operation<Set>::kName, order, count, Set::kName).c_str(),
        [count, order](benchmark::State& state) { measure<Operation<Set>>(state, count, order); })
        ->UseManualTime()
        ->Iterations(iterationsFor(count));
}

template <class Set>
void addAll() {
    for (const std::size_t count : kSizes) {
        if (count > Set::kLargest)
            break;
        for (const Order order : {Order::kAscending, Order::kShuffled}) {
            add<Select, Set>(count, order);
            add<Reselect, Set>(count, order);
            add<Presence, Set>(count, order);
            add<Position, Set>(count, order);
            add<Walk, Set>(count, order);
            add<Nth, Set>(count, order);
            add<HandleCopy, Set>(count, order);
            add<FirstWrite, Set>(count, order);
            add<RemoveHalf, Set>(count, order);
            add<RemoveAllForward, Set>(count, order);
            add<RemoveAllBackward, Set>(count, order);
            add<Merge, Set>(count, order);
            add<Minus, Set>(count, order);
            add<Contains, Set>(count, order);
            add<SetUnique, Set>(count, order);
            add<Destroy, Set>(count, order);
            benchmark::RegisterBenchmark(
                nameFor("memory", order, count, Set::kName).c_str(),
                [count, order](benchmark::State& state) { measureBytes<Set>(state, count, order); })
                ->UseManualTime()
                ->Iterations(1);
        }
    }
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    using namespace kvbench;
    addAll<SelectContext>();
    addAll<VectorHash>();
#ifdef KV_BENCH_BOOST
    addAll<MultiIndex>();
#endif
#ifdef KV_BENCH_COLONY
    addAll<Colony>();
#endif
#ifdef KV_BENCH_QT
    addAll<QtContainers>();
#endif
#ifdef KV_BENCH_OCCT
    addAll<NCollection>();
#endif
    addAll<LinkedList>();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
