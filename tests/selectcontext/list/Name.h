// Name: the two words that name a set of a list.
#pragma once

namespace kvtest {

// The words that no set is named by yet.
struct Name {
    long words[2] = {-7, -8};

    operator long*() { return words; }
};

} // namespace kvtest
