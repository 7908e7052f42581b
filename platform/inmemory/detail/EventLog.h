// EventLog: the recorded calls of one log of the platform.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"

#include <mutex>
#include <utility>

namespace kvinmemory::detail {

// A list of events. Event is a structure with a member `sequence`, which the log sets.
//
// Invariants:
//  1. The sequence numbers ascend, because append() takes a number and stores the event under one lock.
//  2. The log has every event since the last clear().
//
// Thread safety: every function may be called on any thread. One mutex guards the list.
template <class Event>
class EventLog {
public:
    void append(Event event) {
        const std::lock_guard<std::mutex> guard(mMutex);
        event.sequence = nextSequence();
        mEvents.push_back(std::move(event));
    }

    // Returns a copy of the events, oldest first.
    MallocVector<Event> events() const {
        const std::lock_guard<std::mutex> guard(mMutex);
        return mEvents;
    }

    void clear() {
        const std::lock_guard<std::mutex> guard(mMutex);
        mEvents.clear();
    }

private:
    mutable std::mutex mMutex;
    MallocVector<Event> mEvents;
};

} // namespace kvinmemory::detail
