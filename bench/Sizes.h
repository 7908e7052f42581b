// The sizes of sets that are asked for on a command line.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace kvbench {

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
