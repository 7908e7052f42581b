// One log: entries that any thread may write.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <cstdint>
#include <mutex>
#include <utility>

namespace kvinmemory {

// Entry is a structure whose member `sequence` the log fills in.
template <class Entry>
class EventLog {
public:
    // The number is drawn under the log's lock, so entries stand in the order of their numbers.
    void write(Entry entry) {
        const std::lock_guard<std::mutex> guard(mMutex);
        entry.sequence = nextSequence();
        mEntries.push_back(std::move(entry));
    }

    BookVector<Entry> entries() const {
        const std::lock_guard<std::mutex> guard(mMutex);
        return mEntries;
    }

    void clear() {
        const std::lock_guard<std::mutex> guard(mMutex);
        mEntries.clear();
    }

private:
    mutable std::mutex mMutex;
    BookVector<Entry> mEntries;
};

} // namespace kvinmemory
