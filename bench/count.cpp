// Counts, under callgrind, the work of every operation of the library. Each operation runs in a process of
// its own, and only run() is counted. The counts are dumped under the name operation/order/size/items/bytes,
// where bytes is the heap memory that the operations have added. scripts/bench --counts reports on the dumps.
//
// --sizes=100,10000 selects the sizes. The default is 10,100,10000.
// --filter=REGEX selects by operation/order/size.

#include "bench/Arguments.h"
#include "bench/Child.h"
#include "bench/Measure.h"
#include "bench/Operations.h"
#include "bench/peers/SelectContext.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <regex>
#include <string>
#include <valgrind/callgrind.h>
#include <vector>

namespace kvbench {
namespace {

// Switches callgrind off while the object exists, if `count` is large. Without callgrind, the work takes a
// tenth of the time. The simulated caches are empty afterwards.
class Unwatched {
public:
    explicit Unwatched(std::size_t count) : mIsLarge(!isSmall(count)) {
        if (mIsLarge)
            CALLGRIND_STOP_INSTRUMENTATION;
    }
    ~Unwatched() {
        if (mIsLarge)
            CALLGRIND_START_INSTRUMENTATION;
    }
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

private:
    bool mIsLarge;
};

// The items that the counted operations have handled, and the heap memory that they have added.
struct Collected {
    std::size_t items = 0;
    std::int64_t bytes = 0; // negative if the operations free memory
};

template <class Operation>
void collect(Operation& operation, Collected& collected) {
    const std::size_t before = allocatedBytes();
    CALLGRIND_TOGGLE_COLLECT;
    operation.run();
    CALLGRIND_TOGGLE_COLLECT;
    collected.bytes += static_cast<std::int64_t>(allocatedBytes()) - static_cast<std::int64_t>(before);
    operation.check();
    collected.items += operation.itemsDealtWith();
}

template <class Operation>
std::unique_ptr<Operation> prepared(std::size_t count, Order order) {
    const Unwatched meanwhile(count);
    return std::make_unique<Operation>(count, order);
}

// Counts a repeatable operation. The first run fills the caches and is not counted.
template <class Operation>
Collected collectRepeatable(std::size_t count, Order order) {
    std::vector<std::unique_ptr<Operation>> operations;
    while (operations.size() < setsOf(count))
        operations.push_back(prepared<Operation>(count, order));
    for (const auto& operation : operations)
        operation->run();
    Collected collected;
    for (const auto& operation : operations)
        collect(*operation, collected);
    return collected;
}

// Counts an operation that needs a new set each time. Small sets use memory that an earlier set has freed.
// Large sets use new memory.
template <class Operation>
Collected collectFresh(std::size_t count, Order order) {
    if (isSmall(count))
        prepared<Operation>(count, order)->run();
    Collected collected;
    for (std::size_t i = 0; i < setsOf(count); ++i)
        collect(*prepared<Operation>(count, order), collected);
    return collected;
}

template <class Operation>
Collected collectAny(std::size_t count, Order order) {
    if constexpr (Operation::kIsRepeatable)
        return collectRepeatable<Operation>(count, order);
    else
        return collectFresh<Operation>(count, order);
}

template <class Operation>
void count(std::size_t count, Order order, const std::regex& filter) {
    const std::string name =
        std::string(Operation::kName) + "/" + nameOf(order) + "/" + std::to_string(count);
    if (!std::regex_search(name, filter))
        return;
    prepareIndices(count, order);
    const auto collected = inChild([&] {
        const Collected all = collectAny<Operation>(count, order);
        // A temporary string would end before the dump is written.
        const std::string dump = name + "/" + std::to_string(all.items) + "/" + std::to_string(all.bytes);
        CALLGRIND_DUMP_STATS_AT(dump.c_str());
        return all;
    });
    require(collected.has_value());
}

template <class... Operations>
void countAll(OperationList<Operations...>, const Sizes& sizes, const std::regex& filter) {
    for (const std::size_t size : sizes) {
        for (const Order order : {Order::kAscending, Order::kShuffled})
            (count<Operations>(size, order, filter), ...);
    }
}

int run(int argc, char** argv) {
    Sizes sizes{10, 100, 10000};
    std::regex filter("");
    for (int i = 1; i < argc; ++i) {
        if (const char* const list = valueOf(argv[i], "--sizes="))
            sizes = sizesOf(list);
        else if (const char* const pattern = valueOf(argv[i], "--filter="))
            filter = pattern;
        else
            sizes.clear();
    }
    if (sizes.empty()) {
        std::fputs("usage: kv_count [--sizes=N,N...] [--filter=REGEX]\n", stderr);
        return 2;
    }
    countAll(AllOperations<SelectContext>(), sizes, filter);
    return 0;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    return kvbench::runProgram("kv_count", kvbench::run, argc, argv);
}
