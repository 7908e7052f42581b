// Performs each operation with the library and with the model, and then compares the two.
#pragma once

#include "selectcontext/KvSelectContext.h"
#include "tests/selectcontext/model/Episodes.h"
#include "tests/selectcontext/model/Expect.h"
#include "tests/selectcontext/model/Model.h"
#include "tests/selectcontext/model/Operation.h"
#include "tests/selectcontext/model/World.h"
#include "tests/selectcontext/support/RecordTracker.h"
#include "tests/support/SetInvariants.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvmodel {

// A failure in one call of the library.
struct Failure {
    enum Source { kMalloc, kNew, kPathCopy };
    Source source;
    long nth;        // of the allocations or copies of the call
    bool andLater;   // all later allocations fail, too
    int callsToPass; // calls of the library before that one
};

// What holds after a failure has ended a call of the library.
enum class AfterFailure {
    kUnchanged, // the items are as before the call; data that was shared may have been copied
    kIndexLost, // the index may be incomplete
    kNoSet      // there is no set to compare
};

// The keys by which sets are compared after a failure: the numbers of main id and sub id, and the marker.
using ItemKeys = std::array<long, 3>;

class Machine {
public:
    Machine(const Profile& profile, kvtest::RecordTracker& tracker);
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    void perform(const Operation& operation);

    // Destroys all objects that the operations have made.
    void finish();

    // Describe the state of all sets and cursors. States that callers cannot tell apart give the same text
    // and the same number, whatever the build, and without regard to addresses. text() names everything.
    // number() leaves out the records between two full comparisons.
    std::string text() const;
    std::uint64_t number() const;

    // Whether this build may rightly be in another state than others since the last full comparison: a call
    // that failed has left copies, or a cursor was compared by an address that was used again.
    bool mayDiffer() const;

    // Gives all sets new data, and drops all cursors.
    void reset();

    // Drops the cursors whose page or store is gone. A new page or store may get the same address, so what
    // such a cursor equals depends on addresses.
    void dropStaleCursors();

    int countOf(int s) const;

    // Returns how many calls of the library a failure has ended.
    long failedCalls() const { return mFailedCalls; }

private:
    using ConstIterator = GxapSelectSet::ConstIterator;
    using Iterator = GxapSelectSet::Iterator;
    using SegmentList = KvVector<GxDbFullSubentPath*>;

    static constexpr int kConstCount = kCursorCount / 2;

#define KV_MODEL_METHOD(name, roles, small, middle, large, runs) void name(const Operation& o);
    KV_MODEL_OPERATIONS(KV_MODEL_METHOD)
#undef KV_MODEL_METHOD

    // ---- The sets and cursors that an argument stands for
    GxapSelectSet& set(int s) const {
        return *mSets[static_cast<std::size_t>(s)];
    }
    GxapSSetWriteAccessor& accessor(int s) const {
        return static_cast<GxapSSetWriteAccessor&>(set(s));
    }
    GxapSelectSet* setOrNull(int s) const {
        return s < 0 ? nullptr : &set(s);
    }
    Set& modelSet(int s) {
        return mModel.sets[static_cast<std::size_t>(s)];
    }
    const Set& modelSet(int s) const {
        return mModel.sets[static_cast<std::size_t>(s)];
    }
    Set* modelSetOrNull(int s) {
        return s < 0 ? nullptr : &modelSet(s);
    }
    ConstIterator& cursor(int c) const;
    Iterator& writable(int c) const {
        return *mWritable[static_cast<std::size_t>(c - kConstCount)];
    }
    Cursor& modelCursor(int c) {
        return mModel.cursors[static_cast<std::size_t>(c)];
    }
    const Cursor& modelCursor(int c) const {
        return mModel.cursors[static_cast<std::size_t>(c)];
    }
    int numberOf(const Set* set) const;
    int numberOf(const ConstIterator& cursor) const;
    long stubOf(int id) const;

    // ---- Calling the library and the model
    using Call = std::function<long()>;
    using Work = std::function<void()>;
    Outcome outcomeOfActual(const Work& call, AfterFailure after = AfterFailure::kUnchanged);
    long both(const char* what, const Call& actual, const Call& model);
    void bothRecords(const char* what, const std::function<selected_entity*()>& actual,
                     const std::function<RecordPtr()>& model);
    void limitSizes();
    void dropCursor(int c);
    bool isStale(const Cursor& cursor) const;
    void makeSet(int s, int mode, int source);
    void bothDo(const char* what, const Work& actual, const Work& model,
                AfterFailure after = AfterFailure::kUnchanged);
    template <class Slot, class Make>
    void place(Slot& slot, Cursor& cursor, bool assigned, const Make& make,
               const std::function<void(Cursor&)>& makeModel);
    template <class Slot, class Make>
    void placeActual(Slot& slot, bool assigned, const Make& make);
    void placeModel(Cursor& cursor, bool assigned, const std::function<void(Cursor&)>& make);
    static int sourceOf(const Operation& o);

    // ---- Calls of the library that fail
    void callLibrary(const Work& call, AfterFailure after = AfterFailure::kUnchanged);
    bool isEndedBy(const Failure& failure, const Work& call);
    std::optional<Failure> takeFailure();
    bool mayLoseLists() const;
    int takeThrow() {
        return std::exchange(mThrowAt, 0);
    }
    void takeOverCopies();
    bool areSound(kvtest::IndexState state) const;

    // An operation on whole sets.
    using SetAt = std::function<Set*(int)>;
    struct WholeSets {
        const char* what;
        std::vector<int> receivers; // negative: none
        bool isReducing;            // the receiver gets the items of `source`, and then loses some of them
        int source;                 // negative: none
        Work actual;
        std::function<void(const SetAt&)> model;
    };
    struct Receiver {
        // Returns whether the set may have these items if a failure has ended the operation.
        bool mayHave(const std::vector<ItemKeys>& items) const;

        int set;
        std::vector<ItemKeys> before;
        std::vector<ItemKeys> result;
        std::optional<std::vector<ItemKeys>> reduced; // the items of `source`, if some of them are removed
    };
    void bothDoWhole(const WholeSets& operation);
    void failWhole(const WholeSets& operation, const Failure& failure);
    std::vector<Receiver> receiversOf(const WholeSets& operation);
    static std::vector<ItemKeys> keysOf(const Set& set);
    std::vector<ItemKeys> actualKeysOf(int s) const;
    void deleteStrayRecords();

    // ---- Long runs and lookup
    void noteUsed(int main, int sub, int path = -1);
    bool isMovable(int id) const;
    bool hasRuns() const {
        return mProfile.shape == Shape::kRuns;
    }
    void addToRun(int s, int main, int sub, long marker, int info, int path);

    struct ActualKeys {
        const GxDbObjectId& main;
        const GxDbObjectId& sub;
        long marker;
        const KvVector<GxDbObjectId>* path;
        int info;
    };
    void lookUpAll(int s, const ActualKeys& actual, const Keys& all);
    void lookUpForm(int s, const Keys& keys,
                    const std::function<GxapSelectSet::SSetData::DataMap::const_iterator()>& findInMap,
                    const std::function<int()>& find, const std::function<ConstIterator()>& findItr);
    void readRecord(const ConstIterator& it, const Cursor& model);
    void readPaths(const ConstIterator& it, const Cursor& model);
    std::vector<std::string> highlightsOf(const std::vector<RecordPtr>& records, bool flag, bool on) const;
    void drawRecords(const char* what, bool flag, bool on, const Work& actual,
                     const std::function<std::vector<RecordPtr>()>& model);

    // ---- Describing
    template <class Out>
    void describe(Out& out, bool full) const;
    template <class Out>
    void describeSet(Out& out, int s, bool full) const;
    template <class Out>
    void describeData(Out& out, const GxapSelectSet::SSetData& data, bool full) const;
    template <class Out>
    void describeRecord(Out& out, const selected_entity& record) const;
    template <class Out>
    void describeList(Out& out, const char* name, const SegmentList* list) const;
    template <class Out>
    void describeCursor(Out& out, int c) const;
    bool isFull() const {
        return mStep % mProfile.fullEvery == 0;
    }

    void forgetDifferences();

    // ---- Comparing
    void compare();
    void validateSets();
    void bindLeftBehind();
    std::vector<selected_entity*> recordsInNoSet() const;
    bool couldBe(const selected_entity& actual, const Record& model) const;
    void compareHandle(int s);
    void compareCursor(int c);
    void compareData(const GxapSelectSet::SSetData& actual, Data& model, bool full);
    void comparePages(const GxapSelectSet::SSetData::Store& actual, const Store& model, bool full);
    void compareSlot(const Page& page, int slot);
    void compareIndex(const GxapSelectSet::SSetData& actual, const Data& model) const;
    void compareRecord(const selected_entity& actual, Record& model);
    void compareInfo(const GxapSelectedEntInfo* actual, const std::optional<Info>& model);
    void compareList(const char* what, const SegmentList* actual, std::optional<PathList>& model);
    template <class T, class U, class Same>
    void compareVector(const char* what, const KvVector<T>& actual, const Vector<U>& model, const Same& same);
    void comparePath(const GxDbFullSubentPath* actual, const PathPtr& model) const;
    void deleteLeftBehind();
    static void deleteOrphanedLists();

    const Profile& mProfile;
    kvtest::RecordTracker& mTracker;
    World mWorld;
    Model mModel;
    GxapSelectSetList mNamed;
    std::array<GxapSelectSet*, kSetCount> mSets{};
    std::array<long[2], kSetCount> mNames{};
    std::array<bool, kSetCount> mIsNamed{};
    std::array<std::unique_ptr<ConstIterator>, kConstCount> mConst;
    std::array<std::unique_ptr<Iterator>, kConstCount> mWritable;

    std::vector<std::pair<const void*, RecordPtr>> mReturned; // returned in this step by library and model
    std::vector<bool> mIsUsed;                                // for each id: whether an item may have had it
    int mStep = 0;
    bool mRecordsChanged = false;    // this step changed records, not only added or removed them
    std::optional<Failure> mFailure; // of the next call of the library
    long mFailedCalls = 0;
    int mThrowAt = 0;           // the call of the next operation's callback that throws; 0: none
    bool mHasTakenOver = false; // a call that failed has left copies
    long mHeldInfos = 0;        // infos of the operation that no record has
    long mHeldPaths = 0;        // paths of the operation that no list has
    long mEmptyVectors = 0;     // number of empty vectors that compare() has seen
    long mOtherEmptyVectors;    // owners of the empty block before the sets were made
    long mOtherPaths;
};

// A machine with new sets, and the memory that exists before them.
class Session {
public:
    Session(const Profile& profile, bool tracksMemory);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    Machine& machine() { return *mMachine; }

    // Destroys the machine, and checks that nothing is left.
    void finish();

private:
    struct Counts {
        Counts();
        long blocks;
        long paths;
        long emptyVectors;
    };

    const Profile mProfile;
    std::optional<Counts> mBefore;
    std::optional<kvtest::RecordTracker> mTracker;
    std::unique_ptr<Machine> mMachine;
};

// Performs an episode with library and model. Throws Mismatch if they differ, or if something is left at the
// end. If `digest` is not null, adds the state after each operation to it. All builds then have the same
// digest, as long as no operation fails for lack of memory.
void runOperations(const Episode& episode, const Progress& progress, std::uint64_t* digest = nullptr);

} // namespace kvmodel
