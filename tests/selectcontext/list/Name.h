// Name: the two words that name a set of a list.
#pragma once

namespace kvtest {

// Has two words that name no set at first.
struct Name {
    long words[2] = {-7, -8};

    operator long*() { return words; }
};

} // namespace kvtest
