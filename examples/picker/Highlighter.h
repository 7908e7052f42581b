// Keeps what entities show equal to what the items of sets highlight.
#pragma once

#include "examples/picker/Drawing.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdint>
#include <vector>

namespace picker {

// Returns the path to a part of the entity at the end of `ids`: the whole entity, or one of its edges.
GxDbFullSubentPath partOf(const std::vector<GxDbObjectId>& ids, std::int32_t type, std::int64_t index);

// An entity is told of a part once, however many items and sets highlight it, and told again when none of
// them does any more. So edits of sets need not care which records they copy, share or destroy.
class Highlighter {
public:
    // Tells the entities what has changed since the last call. Sets may share data. If there is no memory,
    // throws before any entity is told, except where an entity itself needs memory. O(items), and O(n log n)
    // for n highlighted parts.
    void show(const std::vector<const GxapSelectSet*>& sets);

    // Forgets all parts without telling anybody. Call it when the entities are gone.
    void forget() { mShown.clear(); }

private:
    // One part, and the entity that shows it.
    struct Part {
        GxDbObjectId main;
        std::vector<GxDbObjectId> ids;
        std::int32_t type;
        std::int64_t index;

        bool operator<(const Part& other) const;
    };

    static std::vector<Part> partsOf(const std::vector<const GxapSelectSet*>& sets);
    static GxapSelectSet itemsOf(const std::vector<Part>& parts);

    std::vector<Part> mShown; // sorted, each once
};

} // namespace picker
