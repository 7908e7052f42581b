// Name: the two words that name a set of a list.
#pragma once

namespace kvtest {

// At first, the two words name no set.
struct Name {
    long words[2] = {-7, -8};

    operator long*() { return words; }
};

} // namespace kvtest
