// Keeps the items of one set highlighted, whatever happens to the set.
//
// The set itself is not written to. So its data stays shared with its history, and an undo has nothing to do
// with highlights.
#pragma once

#include "examples/picker/window/HighlightBook.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace picker {

class Spotlight {
public:
    // Highlights the items of the set, and ends the highlights of items that it no longer has. Items with
    // edges show their edges. O(items).
    void show(const GxapSelectSet& set);

    // Forgets all highlights: their entities are gone with their drawing.
    void forget() { mShown.clear(); }

private:
    using Part = HighlightBook::Part;

    struct Shown {
        std::uint64_t since; // the number of the call that began the highlight
        std::uint64_t seen;  // the number of the last call whose set had it
        std::size_t order;   // among the highlights of the same call
    };

    static std::vector<Part> partsOf(const selected_entity& item);
    std::vector<Part> takeUnseen();

    std::unordered_map<Part, Shown, HighlightBook::Hash> mShown;
    std::uint64_t mCall = 0;
};

} // namespace picker
