// Counts how often every operation of the library calls the application's two comparison functions of ids.
// Prints a Markdown table of calls per item, with a column for each size. An application whose comparisons
// are slow can tell from this table what the library will cost.
//
// --sizes=100,10000 (default) selects the sizes, and --filter=REGEX selects by operation/order.

#include "bench/Arguments.h"
#include "bench/OneMainId.h"
#include "bench/Operations.h"
#include "bench/peers/SelectContext.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdio>
#include <regex>
#include <string>

namespace kvbench {
namespace {

struct Asked {
    Sizes sizes{100, 10000};
    std::regex filter{""};
};

// Prints the calls of one run: those of equality, and those of order. Does not count the first run of a
// repeatable operation, which may make a hash.
template <class Operation>
void printCalls(std::size_t count, Order order) {
    Operation operation(count, order);
    if (Operation::kIsRepeatable)
        operation.run();
    kvinmemory::countIdComparisons(true);
    operation.run();
    const auto equality = static_cast<double>(kvinmemory::idEqualityCalls());
    const auto less = static_cast<double>(kvinmemory::idOrderCalls());
    kvinmemory::countIdComparisons(false);
    operation.check();
    const auto items = static_cast<double>(operation.itemsDealtWith());
    std::printf(" %.2f + %.2f |", equality / items, less / items);
}

template <class Operation>
void printRow(const std::string& name, Order order, const Asked& asked) {
    if (!std::regex_search(name + "/" + nameOf(order), asked.filter))
        return;
    std::printf("| %s | %s |", name.c_str(), nameOf(order));
    for (const std::size_t size : asked.sizes)
        printCalls<Operation>(size, order);
    std::puts("");
}

template <class Operation>
void printRows(const std::string& name, const Asked& asked) {
    printRow<Operation>(name, Order::kAscending, asked);
    printRow<Operation>(name, Order::kShuffled, asked);
}

template <class... Operations>
void printAll(OperationList<Operations...>, const Asked& asked) {
    (printRows<Operations>(Operations::kName, asked), ...);
}

template <class Difference, class... Operations>
void printOneMainId(OperationList<Operations...>, const Asked& asked) {
    (printRows<Operations>(nameOfOneMainId<Difference, Operations>(), asked), ...);
}

template <class... Differences>
void printOneMainId(DifferenceList<Differences...>, const Asked& asked) {
    (printOneMainId<Differences>(OperationsOf<SelectContext, OneMainId<SelectContext, Differences>>(), asked),
     ...);
}

void printHeading(const Sizes& sizes) {
    std::string heading = "| Operation | Order |";
    std::string rule = "|---|---|";
    for (const std::size_t size : sizes) {
        heading += " " + std::to_string(size) + " items |";
        rule += "--:|";
    }
    std::printf("%s\n%s\n", heading.c_str(), rule.c_str());
}

int run(int argc, char** argv) {
    Asked asked;
    for (int i = 1; i < argc; ++i) {
        if (const char* const list = valueOf(argv[i], "--sizes="))
            asked.sizes = sizesOf(list);
        else if (const char* const pattern = valueOf(argv[i], "--filter="))
            asked.filter = pattern;
        else
            asked.sizes.clear();
    }
    if (asked.sizes.empty()) {
        std::fputs("usage: kv_comparisons [--sizes=N,N...] [--filter=REGEX]\n", stderr);
        return 2;
    }
    printHeading(asked.sizes);
    printAll(AllOperations<SelectContext>(), asked);
    printOneMainId(AllDifferences(), asked);
    return 0;
}

} // namespace
} // namespace kvbench

int main(int argc, char** argv) {
    return kvbench::runProgram("kv_comparisons", kvbench::run, argc, argv);
}
