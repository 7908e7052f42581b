// ItemKeys: what identifies an item among those of one main id.
#pragma once

#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/SetData.h"

namespace kvdetail {

// A null path stands for any path, and for any block transform.
struct ItemKeys {
    const GxDbObjectId& mainId;
    const GxDbObjectId& subId;
    long gsMarker;
    const KvVector<GxDbObjectId>* path;
};

inline ItemKeys keysOf(const selected_entity& record) noexcept {
    return {record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath};
}

inline const GxGeMatrix3d* matrixOf(const GxapSelectedEntInfo* info) {
    return info ? info->getBTRMatPtr() : nullptr;
}

inline bool isMatrixEqual(const GxGeMatrix3d* wanted, const GxGeMatrix3d* held) {
    if (!wanted || !held)
        return wanted == held;
    return wanted->isEqualTo(*held, GxGeContext::gTol);
}

// The record, which is one of the main id, has the other keys.
inline bool hasKeys(const selected_entity& record, const ItemKeys& keys) {
    return record.subEntId == keys.subId && isGsMarkEqual(record.gsMarker, keys.gsMarker) &&
           (!keys.path || record.nestedEntFullPath == *keys.path);
}

// The same, and where there is a path it has the block transform.
inline bool isItem(const selected_entity& record, const ItemKeys& keys, const GxGeMatrix3d* matrix) {
    return hasKeys(record, keys) &&
           (!keys.path || isMatrixEqual(matrix, matrixOf(record.selectedEntityInfo)));
}

// Moves on to the id's first entry, from `run` on, whose record has the main id and passes `matches`; else
// behind all entries of the id. The data has a store. O(entries of the id).
template <class Matches>
IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const GxDbObjectId& mainId, Matches matches) {
    for (; run.isHeld; indexOf(data).next(run, mainId)) {
        const selected_entity* const record = recordAt(*data.entities, run.entry->second);
        if (record && record->mainEntId == mainId && matches(*record))
            break;
    }
    return run;
}

// By all keys but the transform.
inline IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const ItemKeys& keys) {
    return findItem(data, run, keys.mainId,
                    [&](const selected_entity& record) { return hasKeys(record, keys); });
}

// By all keys.
inline IdIndex::Run findItem(const SSetData& data, IdIndex::Run run, const ItemKeys& keys,
                             const GxGeMatrix3d* matrix) {
    return findItem(data, run, keys.mainId,
                    [&](const selected_entity& record) { return isItem(record, keys, matrix); });
}

// Gives a fresh record its keys, and the info. Without a path the record's stays empty.
inline void setKeys(selected_entity& record, const ItemKeys& keys, OwnedInfo&& info) {
    record.mainEntId = keys.mainId;
    record.subEntId = keys.subId;
    record.gsMarker = keys.gsMarker;
    if (keys.path)
        record.nestedEntFullPath = *keys.path;
    record.selectedEntityInfo = info.release();
}

} // namespace kvdetail
