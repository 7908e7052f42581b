// Appending the records of a whole set at once.
#pragma once

#include "selectcontext/SetDetail.h"

namespace kvdetail {

// Whether `added` has many records, also beside the entries of the index of `data`, and the first of them do
// not come in the order of their stubs. O(1), O(slots) of a store that begins with holes.
bool isWorthAppendingInBulk(const SSetData& data, const SSetData& added) noexcept;

// Appends copies of the records of `added` to data that has a store and is shared with nobody, as appending
// one after the other does, but looks them up and enters them into the index in the order of their ids: so
// they meet the index in a walk from its first entry to its last. That order is taken to be the one of the
// stubs' addresses, and each id is compared with the one before it: false, with nothing changed, where it is
// another order, where two stubs name one object, or where there is no memory for sorting. std::bad_alloc or
// KvErrorStatus 6 when there is none for what is appended; then some of it may be. O(n + entries of the
// index), and O(n^2) in the items of one id.
bool appendInBulk(SSetData& data, const SSetData& added);

} // namespace kvdetail
