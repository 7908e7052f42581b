// One of the workers that use sets which share data, each on a thread of its own.
#pragma once

#include "base/KvVector.h"
#include "selectcontext/KvSelectContext.h"
#include "tests/selectcontext/threads/Channel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kvsoak {

constexpr std::size_t kWorkerCount = 8;
constexpr std::size_t kHeldCount = 4;

// The channels between the workers, by sender and receiver.
using Network = std::array<std::array<Channel, kWorkerCount>, kWorkerCount>;

// What the workers begin with. They only read it.
class Source {
public:
    // If `hasTwins` is true, makes other stubs for the sub ids, and some items get these.
    Source(std::uint64_t seed, bool hasTwins);

    GxapSelectSet set;
    GxapSelectSet large;                       // of several pages with many free slots
    std::vector<KvVector<GxDbObjectId>> paths; // nested paths; new items share their blocks
    const bool hasTwins;

private:
    void makePaths();
    void fillLarge();
};

// Draws numbers that are the same on every platform.
class Random {
public:
    explicit Random(std::uint64_t seed) : mState(seed) {}

    std::uint64_t next();
    int below(int bound) { return static_cast<int>(next() % static_cast<std::uint64_t>(bound)); }
    bool oneIn(int count) { return below(count) == 0; }

private:
    std::uint64_t mState;
};

// Edits a set of its own, and reads sets that it got from other workers. The data of the sets is shared with
// sets of other workers.
//
// A worker takes parcels from channels only, each time from a certain worker. So what it reads depends on
// the seed alone, and not on which thread runs first. There is one exception: a named set of another worker.
// The checksum leaves out what is read there.
//
// Invariants:
//  1. A set or an iterator is used by its worker only. Named sets are used under the manager's s_locker.
//  2. No set of a worker has two items with the same main id, sub id and marker. So removeAt() removes the
//     item at its argument.
//  3. `mRemoved` and `mRemovedBefore` have records that this worker has removed: since it last sent a parcel,
//     and before. `mDoomed` has records that others have removed.
//
// Thread safety: one thread at a time. Different workers may run on different threads.
class Worker {
public:
    Worker(std::size_t number, std::uint64_t seed, const Source& source, Network& network);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker();

    // Gives a copy of the worker's own set and the records in `mRemovedBefore` to another worker. The set
    // that lost these records went to yet another one. So different threads free the memory that records
    // share.
    void send();

    // Takes a parcel from another worker, and then performs random operations.
    void work(int operations);

    // Releases all sets, and deletes all records.
    void finish();

    std::uint64_t checksum() const { return mChecksum; }
    long mistakes() const { return mMistakes; }

private:
    struct Keys {
        GxDbObjectId main;
        GxDbObjectId sub;
        long marker;
        const KvVector<GxDbObjectId>* path;
    };
    struct Choice {
        int weight;
        void (Worker::*perform)();
    };
    static const Choice kChoices[];

    // ---- Operations
    void lookUp();
    void lookUpInOwn();
    void readPosition();
    void readLarge();
    void walk();
    void copyHandle();
    void writeToCopy();
    void editOwn();
    void editSegments();
    void writeViewports();
    void drawItem();
    void emptyPages();
    void useNamedSet();
    void readNewestNamedSet();
    void combine();
    void deleteRecord();

    // ---- Steps of operations
    Keys anyKeys();
    GxapSelectSet& anyHeld() { return mHeld[static_cast<std::size_t>(mRandom.below(kHeldCount))]; }
    void performOne();
    void lookUpIn(const GxapSelectSet& set);
    void readPositionIn(const GxapSelectSet& set);
    void selectItem(GxapSelectSet& set);
    void removeItem(GxapSelectSet& set);
    GxapSelectSet::Iterator anyItem(GxapSelectSet& set);
    void check(bool holds) { mMistakes += holds ? 0 : 1; }
    void note(std::uint64_t value);
    void note(const selected_entity& record);

    const std::size_t mNumber;
    const Source& mSource;
    Network& mNetwork;
    Random mRandom;
    std::size_t mExchanges = 0; // number of parcels sent
    GxapSelectSet mOwn;
    GxapSelectSet mSpare; // a copy that is written to now and then
    std::array<GxapSelectSet, kHeldCount> mHeld;
    GxapSelectSet mLarge;
    std::array<std::optional<GxapSelectSet::ConstIterator>, kHeldCount> mWalks; // each through a held set
    std::optional<std::array<long, 2>> mName;                                   // of the worker's named set
    std::vector<std::unique_ptr<selected_entity>> mRemoved;
    std::vector<std::unique_ptr<selected_entity>> mRemovedBefore;
    std::vector<std::unique_ptr<selected_entity>> mDoomed;
    std::uint64_t mChecksum = 0;
    long mMistakes = 0;
};

} // namespace kvsoak
