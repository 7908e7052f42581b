// IndexCopy: the id index of a small copy, made from that of the original.
#pragma once

#include "selectcontext/GxapSelectSet.h"

namespace kvdetail {

// A set that fits into one page. Copying a tree takes half the time of building it while its nodes are in the
// caches, and longer where they are not, for a tree is not copied in the order in which its nodes lie.
bool isWorthCopyingIndex(const GxapSelectSet::SSetData& original) noexcept;

// Gives `copy`, whose store holds copies of the original's records in the same order, and whose index is
// empty, the index that entering its records in store order makes. What it is made from is not believed:
// false, with an empty index, where records lie in more than one page or at different places of it, as holes
// close in a copy, or where the original's index is not the one to be expected. std::bad_alloc when there is
// no memory. O(n).
bool copyIndex(const GxapSelectSet::SSetData& original, GxapSelectSet::SSetData& copy);

} // namespace kvdetail
