// Hands sets and records over from one thread to another.
#pragma once

#include "selectcontext/KvSelectContext.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kvsoak {

// What one thread gives to another. The receiver owns all of it.
struct Parcel {
    std::unique_ptr<GxapSelectSet> set; // shares its data with sets of the sender
    std::vector<std::unique_ptr<selected_entity>>
        removed; // records that the sender has removed from its sets
};

// A queue from one sender to one receiver.
//
// Thread safety: one thread may call send(), and another one receive().
class Channel {
public:
    void send(Parcel parcel) {
        {
            const std::lock_guard<std::mutex> guard(mMutex);
            mParcels.push_back(std::move(parcel));
        }
        mArrival.notify_one();
    }

    // Waits for the next parcel.
    Parcel receive() {
        std::unique_lock<std::mutex> lock(mMutex);
        mArrival.wait(lock, [this] { return !mParcels.empty(); });
        Parcel parcel = std::move(mParcels.front());
        mParcels.pop_front();
        return parcel;
    }

private:
    std::mutex mMutex;
    std::condition_variable mArrival;
    std::deque<Parcel> mParcels;
};

} // namespace kvsoak
