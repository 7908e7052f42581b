// findItem: finds the item with given keys among those of one main id.
#pragma once

#include "selectcontext/detail/IdSearch.h"
#include "selectcontext/detail/ItemKeys.h"
#include "selectcontext/detail/RunIndex.h"
#include "selectcontext/detail/SetData.h"

#include <cstddef>

namespace kvdetail {

// A run is all entries of one main id. `run` must be at the first of them. Returns the first entry for which
// passes(entry) is true, or the place behind the run if there is none. passes() must reject an entry whose
// record differs from `keys` in any key except the main id.
//
// If the run has an index, uses that index. Otherwise walks through the run, and makes an index if it walks
// past RunIndex::kFewestItems entries. O(1) with an index, otherwise O(entries of the run).
template <class Passes>
IdIndex::Run findEntry(const IdIndex& index, IdIndex::Run run, const ItemKeys& keys, Passes passes) {
    const auto search = [&](const RunIndex& indexed) {
        const IdIndex::Entry* const found = indexed.find(keys, passes);
        return found ? IdIndex::Run{*found, true} : IdIndex::Run{indexed.end(), false};
    };
    if (!run.isHeld)
        return run;
    const IdIndex::Run first = run;
    if (const RunIndex* const indexed = index.runIndexFor(keys, first))
        return search(*indexed);
    for (std::size_t steps = 0; run.isHeld && !passes(run.entry); index.next(run, keys.mainId)) {
        if (++steps != RunIndex::kFewestItems + 1)
            continue;
        if (const RunIndex* const indexed = index.makeRunIndexFor(keys, first))
            return search(*indexed);
    }
    return run;
}

// Returns whether the entry's record has the main id and passes `matches`. The data must have a store.
template <class Matches>
bool isMatch(const SSetData& data, IdIndex::Entry entry, const ItemKeys& keys, Matches matches) {
    const selected_entity* const record = recordAt(*data.entities, entry->second);
    return record && isSame(record->mainEntId, keys.mainId) && matches(*record);
}

// Returns the first entry of the run whose record has the main id and passes `matches`. Returns the place
// behind the run if there is none. `run` must be at the first entry of the run. The data must have a store.
template <class Matches>
IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const ItemKeys& keys, Matches matches) {
    return findEntry(indexOf(data), run, keys,
                     [&](IdIndex::Entry entry) { return isMatch(data, entry, keys, matches); });
}

// Returns an entry whose record has the main id and passes `matches`. First tries `search.next()`, which most
// often passes, and then does what findItem() does. Returns the place behind the entries of the id if there
// is no such entry.
template <class Matches>
IdIndex::Run findAnyItem(const SSetData& data, IdSearch& search, const ItemKeys& keys, Matches matches) {
    const IdIndex::Run next = search.next(keys.mainId);
    if (next.isHeld && isMatch(data, next.entry, keys, matches)) {
        search.skipNext();
        return next;
    }
    const IdIndex::Run found = findItem(data, search.find(keys.mainId), keys, matches);
    search.goOnBehind(found);
    return found;
}

// Returns the first entry of the run whose record has all keys. Does not compare the block transform.
inline IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const ItemKeys& keys) {
    return findItem(data, run, keys, [&](const selected_entity& record) { return hasKeys(record, keys); });
}

// Returns the first entry of the run whose record has all keys and the block transform `matrix`.
inline IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const ItemKeys& keys,
                             const GxGeMatrix3d* matrix) {
    return findItem(data, run, keys,
                    [&](const selected_entity& record) { return isItem(record, keys, matrix); });
}

} // namespace kvdetail
