// ItemText: the fields of items as text.
#pragma once

#include "aids/Inspect.h"

#include <string>
#include <vector>

namespace kv::detail {

// Returns the text of an id. The text of the null id is "null".
std::string textOfId(const GxDbObjectId& id, const IdText& idText);

// Returns the keys of an item: "wall" for a plain pick, and "kitchen, sub stove, marker 1, path
// kitchen/stove" for a nested one.
std::string textOfKeys(const selected_entity& item, const IdText& idText);

// One field of two items.
struct FieldTexts {
    const char* name;
    std::string a;
    std::string b;
};

// Returns the text of all fields that are no keys and do not have their default: ", viewports 1 2, word0 6".
std::string textOfOtherFields(const selected_entity& item, const IdText& idText);

// Returns the fields that differ, with their texts. The keys are not compared, except the marker.
std::vector<FieldTexts> changedFields(const selected_entity& a, const selected_entity& b,
                                      const IdText& idText);

// Returns whether changedFields() would return nothing. Makes no texts.
bool hasSameFields(const selected_entity& a, const selected_entity& b);

} // namespace kv::detail
