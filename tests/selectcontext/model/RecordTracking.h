// Knows which records exist that the library has made: removed ones stay behind on purpose, and some of them
// are reachable from nowhere. Watches malloc and free, from which the test programs' operators new and delete
// come: the program is linked with --wrap=malloc,--wrap=free. One thread at a time.
#pragma once

#include <cstddef>
#include <vector>

namespace kvmodel {

// As long as one lives, blocks of a record's size are taken for records.
class RecordsAreMade {
public:
    RecordsAreMade() noexcept;
    RecordsAreMade(const RecordsAreMade&) = delete;
    RecordsAreMade& operator=(const RecordsAreMade&) = delete;
    ~RecordsAreMade();
};

// Says that this block, should it have been taken for one, is none. The data of sets may be of the same size;
// other such blocks do not outlive a call of the library.
void isNoRecord(const void* block);

// Whether the record has been made so and not deleted.
bool isLiveRecord(const void* record);

// How many there are.
std::size_t liveRecordCount();

// Those that were made since this was called last, and still are, by address.
std::vector<void*> takeNewRecords();

} // namespace kvmodel
