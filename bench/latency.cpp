// Times single calls of the operations that a user waits for, in processor time of the calling thread. An
// average would hide the longest calls.
//
// Writes one line for each run: operation,order,size,p50,p99,p99.99,max. Times are in nanoseconds. The first
// lines after the heading show the time of reading the clock. All other times include that time.
// scripts/bench --latency reports on the lines.
//
// --sizes=1000000 selects the sizes (default: 1000000).
// --runs=3 selects the number of runs (default: 3).
// --filter=REGEX selects by operation/order/size.

#include "bench/Arguments.h"
#include "bench/Child.h"
#include "bench/Item.h"
#include "bench/Operations.h"
#include "bench/Percentiles.h"
#include "bench/ThreadClock.h"
#include "selectcontext/KvSelectContext.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace kvbench {
namespace {

// Times calls, and keeps one sample for each call. The constructor writes to the memory of all samples.
// Otherwise, a timed call could include the wait for new memory.
class Stopwatch {
public:
    explicit Stopwatch(std::size_t count) : mSamples(count) {}

    template <class Call>
    void time(Call call) {
        const std::uint64_t start = threadNanoseconds();
        call();
        const std::uint64_t end = threadNanoseconds();
        constexpr std::uint64_t kMost = std::numeric_limits<Nanoseconds>::max();
        mSamples.at(mTaken++) = static_cast<Nanoseconds>(std::min(end - start, kMost));
    }

    Percentiles percentiles() const {
        require(mTaken == mSamples.size());
        return percentilesOf(mSamples);
    }

private:
    std::vector<Nanoseconds> mSamples;
    std::size_t mTaken = 0;
};

// The items and the set of a run. The set is not freed: that would take longer than a run.
struct Subject {
    Subject(std::size_t count, Order order) : items(picks(count, order)), set(*new GxapSelectSet) {}

    GxapSSetWriteAccessor& edit() { return static_cast<GxapSSetWriteAccessor&>(set); }
    void select(const Pick& pick) { edit().select(pick.mainId, pick.subId, pick.gsMarker, nullptr, nullptr); }
    bool holds(GxapSelectSet::SSetData::DataMap::const_iterator found) const {
        return found != set.sharedData->dataMap.end();
    }

    Picks items;
    GxapSelectSet& set;
};

struct FilledSubject : Subject {
    FilledSubject(std::size_t count, Order order) : Subject(count, order) {
        for (const Pick& pick : items)
            select(pick);
    }
};

// Every latency class has kName, a constructor that prepares, and run(), which times one call for each item.

struct ReadingTheClock {
    static constexpr const char* kName = "reading the clock";

    ReadingTheClock(std::size_t count, Order /*order*/) : mCount(count) {}
    void run(Stopwatch& watch) {
        for (std::size_t i = 0; i < mCount; ++i)
            watch.time([] {});
    }

    std::size_t mCount;
};

struct SelectNew : Subject {
    static constexpr const char* kName = "select a new item";

    using Subject::Subject;
    void run(Stopwatch& watch) {
        for (const Pick& pick : items)
            watch.time([&] { select(pick); });
        require(set.sharedData->entityCount == items.size());
    }
};

struct SelectRefused : FilledSubject {
    static constexpr const char* kName = "re-select (refused)";

    using FilledSubject::FilledSubject;
    void run(Stopwatch& watch) {
        for (const Pick& pick : items)
            watch.time([&] { select(pick); });
        require(set.sharedData->entityCount == items.size());
    }
};

struct FindById : FilledSubject {
    static constexpr const char* kName = "look-up by id";

    using FilledSubject::FilledSubject;
    void run(Stopwatch& watch) {
        std::size_t found = 0;
        for (const Pick& pick : items)
            watch.time([&] { found += std::size_t{holds(set.findInMap(pick.mainId))}; });
        require(found == items.size());
    }
};

// Passes an empty path, because the items have empty paths. With a null path, the look-up would compare
// neither path nor transform.
struct FindByFiveKeys : FilledSubject {
    static constexpr const char* kName = "look-up by five keys";

    using FilledSubject::FilledSubject;
    void run(Stopwatch& watch) {
        const KvVector<GxDbObjectId> noPath;
        std::size_t found = 0;
        for (const Pick& pick : items)
            watch.time([&] {
                found += std::size_t{
                    holds(set.findInMap(pick.mainId, pick.subId, pick.gsMarker, &noPath, nullptr))};
            });
        require(found == items.size());
    }
};

// Removes the items in random order, until the set is empty.
struct RemoveByThreeKeys : FilledSubject {
    static constexpr const char* kName = "remove by three keys";

    RemoveByThreeKeys(std::size_t count, Order order) : FilledSubject(count, order) {
        for (const std::size_t index : indices(count, Order::kShuffled, kRemovalSeed))
            mDoomed.push_back(items[index]);
    }
    void run(Stopwatch& watch) {
        for (const Pick& pick : mDoomed)
            watch.time([&] { edit().remove(pick.mainId, pick.subId, pick.gsMarker); });
        require(set.sharedData->entityCount == 0);
    }

    Picks mDoomed;
};

// Steps to the next item and reads its record.
struct WalkStep : FilledSubject {
    static constexpr const char* kName = "walk step";

    using FilledSubject::FilledSubject;
    void run(Stopwatch& watch) {
        std::size_t steps = 0;
        std::uintptr_t read = 0;
        for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); ++steps) {
            watch.time([&] {
                it.step(true);
                read += reinterpret_cast<std::uintptr_t>(it.mainEntId().stub());
            });
        }
        keep(read);
        require(steps == items.size());
    }
};

struct Asked {
    Sizes sizes{1000000};
    std::size_t runs = 3;
    std::regex filter{""};
};

template <class Latency>
void measure(std::size_t count, Order order, const Asked& asked) {
    const std::string name = std::string(Latency::kName) + "/" + nameOf(order) + "/" + std::to_string(count);
    if (!std::regex_search(name, asked.filter))
        return;
    prepareIndices(count, order); // once: the child process of each run inherits the lists
    for (std::size_t run = 0; run < asked.runs; ++run) {
        const auto taken = inChild([=] {
            Latency latency(count, order);
            Stopwatch watch(count);
            latency.run(watch);
            return watch.percentiles();
        });
        require(taken.has_value());
        std::printf("%s,%s,%zu,%u,%u,%u,%u\n", Latency::kName, nameOf(order), count, taken->p50, taken->p99,
                    taken->p9999, taken->most);
        std::fflush(stdout);
    }
}

template <class... Latencies>
void measureAll(std::size_t count, Order order, const Asked& asked) {
    (measure<Latencies>(count, order, asked), ...);
}

// Stores the value of the argument in `asked`. Returns false for an argument that is unknown or has a bad
// value.
bool take(const char* argument, Asked& asked) {
    if (const char* const list = valueOf(argument, "--sizes="))
        asked.sizes = sizesOf(list);
    else if (const char* const number = valueOf(argument, "--runs="))
        asked.runs = sizesOf(number).size() == 1 ? sizesOf(number).front() : 0;
    else if (const char* const pattern = valueOf(argument, "--filter="))
        asked.filter = pattern;
    else
        return false;
    return !asked.sizes.empty() && asked.runs > 0;
}

int run(int argc, char** argv) {
    Asked asked;
    if (!std::all_of(argv + 1, argv + argc, [&](const char* argument) { return take(argument, asked); })) {
        std::fputs("usage: kv_latency [--sizes=N,N...] [--runs=N] [--filter=REGEX]\n", stderr);
        return 2;
    }
    std::puts("operation,order,size,p50,p99,p99.99,max");
    Asked clock;
    clock.runs = asked.runs;
    measure<ReadingTheClock>(asked.sizes.front(), Order::kAscending, clock);
    for (const std::size_t size : asked.sizes) {
        for (const Order order : {Order::kAscending, Order::kShuffled})
            measureAll<SelectNew, SelectRefused, FindById, FindByFiveKeys, RemoveByThreeKeys, WalkStep>(
                size, order, asked);
    }
    return 0;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    return kvbench::runProgram("kv_latency", kvbench::run, argc, argv);
}
