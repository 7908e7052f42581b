// Knows every record that exists, so that a test can free the ones that an edit leaves behind on purpose,
// also those of a copy that the edit itself made of shared data: nobody else has their address.
#pragma once

#include "selectcontext/selected_entity.h"

#include <functional>
#include <vector>

namespace kvtest {

// From opening on the ledger enters blocks of a record's size, and blocks of many records, and strikes them
// when they are freed. Its
// test program is linked with --wrap=malloc,--wrap=free. One thread at a time.
void openRecordLedger();
void closeRecordLedger();

// The records made since the ledger was opened that still exist, in no particular order.
std::vector<selected_entity*> liveRecords();

// How many of them have a block to themselves.
long liveRecordBlocks();
bool isLiveRecord(const selected_entity* record);

// Calls the function when the next record is made, once. Where an edit copies shared data, that is in the
// middle of it: what another thread may do to its own handle at any time can be done there at will.
void atNextRecord(std::function<void()> call);

} // namespace kvtest
