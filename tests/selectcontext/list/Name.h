// Name: the two words that name a set of a list.
#pragma once

namespace kvtest {

// A name. At first, its two words name no set.
struct Name {
    long words[2] = {-7, -8};

    operator long*() { return words; }
};

} // namespace kvtest
