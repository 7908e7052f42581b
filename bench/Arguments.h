// Reads the command lines of the benchmark's programs.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <vector>

namespace kvbench {

// Returns the rest of `argument` after `flag`. Returns null if `argument` does not begin with `flag`.
inline const char* valueOf(const char* argument, const char* flag) {
    const std::size_t length = std::strlen(flag);
    return std::strncmp(argument, flag, length) == 0 ? argument + length : nullptr;
}

using Sizes = std::vector<std::size_t>;

// Returns the sizes in a list such as 100,10000. Returns no sizes if an entry is 0 or not a number.
inline Sizes sizesOf(const char* list) {
    Sizes sizes;
    for (const char* at = list;; ++at) {
        char* next = nullptr;
        const unsigned long size = std::strtoul(at, &next, 10);
        if (size == 0 || (*next != ',' && *next != '\0'))
            return {};
        sizes.push_back(size);
        if (*next == '\0')
            return sizes;
        at = next;
    }
}

// Returns run(argc, argv). If run() throws because --filter has a bad regular expression, prints an error
// that begins with `name`, and returns 2.
template <class Run>
int runProgram(const char* name, Run run, int argc, char** argv) try {
    return run(argc, argv);
} catch (const std::regex_error& error) {
    std::fprintf(stderr, "%s: --filter: %s\n", name, error.what());
    return 2;
}

} // namespace kvbench
