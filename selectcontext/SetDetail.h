// What the sources of the library share about a set's data.
#pragma once

#include "selectcontext/GxapSelectSet.h"

#include <memory>

namespace kvdetail {

using SSetData = GxapSelectSet::SSetData;
using DataMap = SSetData::DataMap;
using Store = SSetData::Store;

// An index entry's value is the address of the record's slot.
inline unsigned long slotAddress(const Store::Slot* slot) noexcept {
    return reinterpret_cast<unsigned long>(slot);
}

inline Store::Slot* slotAt(unsigned long address) noexcept {
    return reinterpret_cast<Store::Slot*>(address);
}

// Null for an entry without a slot, and for a slot into which a caller has put null.
inline selected_entity* recordAt(unsigned long address) noexcept {
    return address ? slotAt(address)->value : nullptr;
}

// The set has data, and items in it. Almost every operation asks this first.
inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0;
}

// Data as a fresh set has it: unique, empty, with a store of its own, held by nobody yet.
std::unique_ptr<SSetData> makeData();

// The set's data, made first where there is none; for const operations that may have to create it.
SSetData& dataOf(const GxapSelectSet& set);

// Appends the record to store and index, with the count left to the caller. All or nothing.
void appendRecord(SSetData& data, std::unique_ptr<selected_entity> record);

} // namespace kvdetail
