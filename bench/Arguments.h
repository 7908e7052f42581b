// What the programs of the benchmark are asked for on their command lines.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kvbench {

// What follows `flag` where the argument begins with it; else null.
inline const char* valueOf(const char* argument, const char* flag) {
    const std::size_t length = std::strlen(flag);
    return std::strncmp(argument, flag, length) == 0 ? argument + length : nullptr;
}

using Sizes = std::vector<std::size_t>;

// Of a list such as 100,10000. Empty for one with something else than sizes in it.
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

} // namespace kvbench
