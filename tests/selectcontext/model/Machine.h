// Performs each operation with the library and with the model, and then compares the two.
#pragma once

#include "selectcontext/KvSelectContext.h"
#include "tests/selectcontext/model/Expect.h"
#include "tests/selectcontext/model/Model.h"
#include "tests/selectcontext/model/Operation.h"
#include "tests/selectcontext/model/World.h"
#include "tests/selectcontext/support/RecordTracker.h"

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kvmodel {

class Machine {
public:
    Machine(const Profile& profile, kvtest::RecordTracker& tracker);
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    void perform(const Operation& operation);

    // Destroys all objects that the operations have made.
    void finish();

private:
    using ConstIterator = GxapSelectSet::ConstIterator;
    using Iterator = GxapSelectSet::Iterator;
    using SegmentList = KvVector<GxDbFullSubentPath*>;

    static constexpr int kConstCount = kCursorCount / 2;

#define KV_MODEL_METHOD(name, roles, small, large, runs) void name(const Operation& o);
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
    int countOf(int s);
    int numberOf(const Set* set) const;
    long stubOf(int id) const;

    // ---- Calling the library and the model
    using Call = std::function<long()>;
    long both(const char* what, const Call& actual, const Call& model);
    void bothRecords(const char* what, const std::function<selected_entity*()>& actual,
                     const std::function<RecordPtr()>& model);
    void limitSizes();
    void dropCursor(int c);
    void makeSet(int s, int mode, int source);
    using Work = std::function<void()>;
    void bothDo(const char* what, const Work& actual, const Work& model);
    template <class Slot, class Make>
    void place(Slot& slot, Cursor& cursor, bool assigned, const Make& make,
               const std::function<void(Cursor&)>& makeModel);
    template <class Slot, class Make>
    void placeActual(Slot& slot, bool assigned, const Make& make);
    void placeModel(Cursor& cursor, bool assigned, const std::function<void(Cursor&)>& make);
    static int sourceOf(const Operation& o);
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
    void expectHighlights(const std::vector<RecordPtr>& records, bool flag, bool on);

    // ---- Comparing
    void compare();
    void validateSets();
    void bindLeftBehind();
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
    std::vector<selected_entity*> mNewRecords; // made by the library in this step, sorted by address
    std::vector<selected_entity*> mNewInSets;  // those of mNewRecords that are in sets
    std::vector<bool> mIsUsed;                 // for each id: whether an item may have had it
    int mStep = 0;
    bool mRecordsChanged = false; // this step changed records, not only added or removed them
    long mEmptyVectors = 0;       // number of empty vectors that compare() has seen
    long mOtherEmptyVectors;      // owners of the empty block before the sets were made
    long mOtherPaths;
};

// Runs operations on new sets, and checks that nothing is left afterwards. Calls progress(i) before operation
// i. Throws Mismatch if library and model differ.
void runOperations(const Profile& profile, const std::vector<Operation>& operations, bool tracksMemory,
                   const std::function<void(int)>& progress);

} // namespace kvmodel
