// A model of selection sets, made of standard containers.
//
// The model does not use the library. Class Machine stores the addresses of library objects in fields whose
// names begin with `actual`. These addresses are only compared.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace kvmodel {

constexpr int kSetCount = 5;
constexpr int kCursorCount = 8;
constexpr int kPageSlots = 4096;
constexpr int kSlotBytes = 16;
constexpr std::uint32_t kBeforeFirst = 0xFFFFFFFFu;

// How an operation ends: it returns, or it raises an error.
enum Outcome : int {
    kReturned = 0,
    kInvalidIndex = 24,
    kStoreAccess = 1001,
    kMisuse = 1002,
    kOtherError = 1003,
    kCallbackThrows = 1004
};

// Thrown by an operation of the model if the library raises an error in this case.
struct Raised {
    Outcome outcome;
};

// ---- Ids

// Ids are numbers, and 0 is the null id. Different ids may be equal: they have the same rank. Ids are ordered
// by rank.
class IdRules {
public:
    explicit IdRules(int count);
    void makeEqual(int a, int b);
    int rank(int id) const { return mRank[static_cast<std::size_t>(id)]; }
    bool same(int a, int b) const { return rank(a) == rank(b); }
    bool isNull(int id) const { return same(id, 0); }

private:
    std::vector<int> mRank; // for each id: the lowest id that equals it
};

// ---- Copy-on-write vectors

template <class T>
struct Block {
    std::vector<T> elements;
    int capacity;
    std::map<int, T> behind; // values that were elements, by their index, which a longer vector shows again
    const void* actual = nullptr;
};

template <class T>
class Vector {
public:
    static constexpr int kGrowLength = 8;

    int size() const { return mBlock ? static_cast<int>(mBlock->elements.size()) : 0; }
    int capacity() const { return mBlock ? mBlock->capacity : 0; }
    bool isOnEmptyBlock() const { return !mBlock; }
    long owners() const { return mBlock.use_count(); }
    Block<T>* block() const { return mBlock.get(); }
    const T& operator[](int i) const { return mBlock->elements[static_cast<std::size_t>(i)]; }

    void set(int i, const T& value) {
        makePrivate();
        mBlock->elements[static_cast<std::size_t>(i)] = value;
    }

    void makePrivate() {
        if (mBlock && mBlock.use_count() > 1)
            replace(mBlock->capacity);
    }

    void resize(int n) {
        if (n == size())
            return;
        const int kept = std::min(size(), n);
        if (n > capacity() || mBlock.use_count() > 1) {
            replace(n > capacity() ? std::max(size() + kGrowLength, n) : capacity());
            mBlock->elements.resize(static_cast<std::size_t>(kept));
        }
        while (size() > n)
            takeLast();
        while (size() < n)
            mBlock->elements.push_back(mBlock->behind[size()]);
    }

    void push(const T& value) {
        resize(size() + 1);
        set(size() - 1, value);
    }

    void removeAt(int i) {
        makePrivate();
        std::vector<T>& elements = mBlock->elements;
        std::copy(elements.begin() + i + 1, elements.end(), elements.begin() + i);
        takeLast();
    }

private:
    // The value stays behind the end, unless it is an owner: the library never reads such a place again.
    void takeLast() {
        if constexpr (std::is_trivially_copyable_v<T>)
            mBlock->behind[size() - 1] = mBlock->elements.back();
        mBlock->elements.pop_back();
    }

    void replace(int newCapacity) {
        auto fresh = std::make_shared<Block<T>>();
        if (mBlock)
            fresh->elements = mBlock->elements;
        fresh->capacity = newCapacity;
        mBlock = std::move(fresh);
    }

    std::shared_ptr<Block<T>> mBlock; // null: the empty block
};

// ---- Records

struct SubentPath {
    std::vector<int> ids;
    int type;
    long index;
};

// A path object. The lists of paths share its ownership.
struct PathObject {
    explicit PathObject(const SubentPath& path) : value(path) { ++liveCount; }
    PathObject(const PathObject&) = delete;
    PathObject& operator=(const PathObject&) = delete;
    ~PathObject() { --liveCount; }

    SubentPath value;
    const void* actual = nullptr;
    static long liveCount;
};
using PathPtr = std::shared_ptr<PathObject>;
using PathList = Vector<PathPtr>;

struct Info {
    unsigned word0 = 0;
    int matrix = 0;      // 0: none; 1 and 2 are equal within the tolerance
    int fenceIndex = -1; // negative: no fence result
    double fenceParam = 0;
};

struct Record {
    Record() { ++liveCount; }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record();

    int main = 0;
    int sub = 0;
    long marker = -1;
    Vector<int> viewports;
    std::optional<PathList> segments;
    std::optional<PathList> subselection;
    bool hasSubselection = false;
    Vector<int> path;
    std::optional<Info> info;

    const void* actual = nullptr;
    const void* actualSubselection = nullptr; // the address of the list object

    // Lists of destroyed records whose hasSubselection was false. The library does not delete such lists.
    static std::vector<const void*> orphanedLists;
    static long liveCount;
};
using RecordPtr = std::shared_ptr<Record>;

// ---- The store

struct Page {
    std::vector<RecordPtr> slots; // the used slots; null: free
    int live = 0;
    const void* actual = nullptr;
    const char* actualSlots = nullptr;
};
using PagePtr = std::shared_ptr<Page>;

struct Place {
    PagePtr page;
    int slot = 0;
    const RecordPtr& record() const { return page->slots[static_cast<std::size_t>(slot)]; }
};

struct Store {
    std::vector<PagePtr> pages;
    const void* actual = nullptr;

    Place append(const RecordPtr& record);
    void free(const Place& place);
    void clear(); // a page lives on while a cursor refers to it
    std::optional<Place> elementAt(int index) const;
    int positionOf(const Place& place) const;
    std::vector<RecordPtr> records() const;
    std::vector<Place> places() const;
};
using StorePtr = std::shared_ptr<Store>;

// A cursor of the store. A cursor without a page has no slot either.
struct Position {
    StorePtr store;
    PagePtr page;
    int slot = 0;
    std::uint32_t position = 0;
};

// ---- Sets

struct IndexEntry {
    int id;
    Place place;
};
using Index = std::multimap<int, IndexEntry>; // the key is the rank of the id

struct Data {
    Data() = default;
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;
    ~Data() { store->clear(); }

    bool unique = true;
    bool nestedMode = false;
    std::uint32_t count = 0;
    Index index;
    StorePtr store = std::make_shared<Store>();

    const void* actual = nullptr;
    bool isNew = true;        // the data has not been compared yet
    std::vector<Place> added; // records appended since the last comparison
};
using DataPtr = std::shared_ptr<Data>;

struct Cursor;

struct Set {
    DataPtr data;
    std::vector<Cursor*> registry;
    long lispCount = 0;

    bool hasItems() const { return data && data->count != 0; }
};

struct Cursor {
    Set* set = nullptr;
    int index = 0;
    std::optional<Position> at;
};

// The keys of a lookup. Keys without a value are not compared.
struct Keys {
    int main = 0;
    std::optional<int> sub;
    std::optional<long> marker;
    const Vector<int>* path = nullptr;
    std::optional<int> matrix; // for look-ups with an info; only used if `path` is not null
};

bool sameMarker(long a, long b);

class Model {
public:
    explicit Model(const IdRules& rules);

    const IdRules& ids;
    std::array<Set, kSetCount> sets;
    std::array<Cursor, kCursorCount> cursors;
    std::vector<RecordPtr> removed;  // records removed from a store in this step; the caller must delete them
    std::vector<PathPtr> loosePaths; // paths of sub-selections; the library never deletes them

    // Whether the model has since taken different objects for the same one, because they have the same
    // address. The library decides so, too, where it compares a cursor that was left behind.
    static bool hasMetReusedAddress;

    // Handles
    void createData(Set& set);
    void assignData(Set& set, const DataPtr& data);
    void releaseData(Set& set);
    void destroySet(Set& set);
    DataPtr clone(const Data& data) const;
    void clearData(const DataPtr& data);
    long lispCount(Set& set);
    long addLispCount(Set& set);
    long subtractLispCount(Set& set);

    // Cursors
    void construct(Cursor& cursor, Set* set, int index);
    void constructCopy(Cursor& cursor, const Cursor& other);
    void assign(Cursor& cursor, const Cursor& other);
    void destroy(Cursor& cursor);
    bool isDone(const Cursor& cursor) const;
    bool step(Cursor& cursor);
    bool previous(const Cursor& cursor, Cursor& before);
    bool equal(const Cursor& a, const Cursor& b) const;
    RecordPtr get(const Cursor& cursor) const; // throws Raised if the library raises an error
    void begin(Cursor& cursor, Set& set);
    void end(Cursor& cursor, Set& set);
    void iteratorAt(Cursor& cursor, Set& set, int index);
    bool isNested(const Cursor& cursor) const;
    std::optional<std::vector<int>> fullPath(const Cursor& cursor) const;

    // Lookup
    Index::const_iterator findInMap(const Set& set, const Keys& keys) const;
    int find(const Set& set, const Keys& keys) const;
    void findIterator(Cursor& cursor, Set& set, const Keys& keys);
    void findMainSubselection(Cursor& cursor, Set& set, int id);

    // Positions and comparison
    RecordPtr getAt(const Set& set, int index) const;
    bool contains(const Set& set, const Set* other) const;
    bool intersects(const Set& set, const Set* other) const;

    // The write accessor
    Data& writeData(Set& set);
    void updateDataMap(Set& set);
    void clear(Set& set);
    RecordPtr writeAt(Set& set, int index);
    void setNestedMode(Set& set, bool on);
    void writeBegin(Cursor& cursor, Set& set);
    void writeIteratorAt(Cursor& cursor, Set& set, int index);
    void writeFind(Cursor& cursor, Set& set, const Keys& keys);
    void writeFindMainSubselection(Cursor& cursor, Set& set, int id);
    void setSegment(Cursor& cursor, const SubentPath* path);

    // Editing
    void select(Set& set, int main, int sub, long marker, const std::optional<Info>& info,
                const Vector<int>* path);
    bool append(Set& set, const RecordPtr& record);
    bool remove(Set& set, int main);
    bool remove(Set& set, int main, int sub);
    bool remove(Set& set, int main, int sub, long marker);
    bool removeAt(Set& set, Cursor& cursor);
    bool removeAt(Set& set, int index);
    void merge(Set& set, Set* a, Set* b);
    void minus(Set& set, Set* a, Set* b);
    void transfer(Set& set, Set& target, const std::function<bool(int)>* isExcluded, Set* excludedOut);
    void setUnique(Set& set, bool on);

    // Sub-selections. entityOf() returns the last id of the path, or nothing if there is no valid last id.
    std::function<std::optional<int>(const SubentPath&)> entityOf;
    bool appendSubselection(Set& set, const SubentPath& path);
    bool removeSubselection(Set& set, const SubentPath& path);
    bool removeSubselectionAt(Set& set, int entityIndex, int pathIndex);
    int findSubselection(const Set& set, int id, const SubentPath& path);
    PathPtr subselectionAt(const Set& set, int entityIndex, int pathIndex, bool& found);

    bool samePath(const SubentPath& a, const SubentPath& b) const;

    // Returns whether the data is as one expects: each record has one index entry, under its main id and in
    // the order of the store, no main id is null, and no two records of unique data are equal. Operations may
    // leave data that is otherwise: callers change records and entries, and a removal by two ids loses
    // entries.
    bool isSound(const Data& data) const;

private:
    bool isIndexSound(const Data& data) const;
    bool hasEqualRecords(const Data& data) const;
    using PlaceAt = void (Model::*)(Cursor& cursor, Set& set, int index);
    void placeOnMainSubselection(Cursor& cursor, Set& set, int id, PlaceAt placeAt);

    bool sameIds(const Vector<int>& a, const Vector<int>& b) const;
    bool matches(const Record& record, const Keys& keys) const;
    std::pair<Index::iterator, Index::iterator> run(Data& data, int id) const;
    void addRecord(Data& data, const RecordPtr& record) const;
    void takeOut(Data& data, const Place& place);
    int positionIn(PathList& list, const SubentPath& path) const;

    void registerCursor(Set& set, Cursor& cursor) const;
    void unregisterCursor(Set& set, const Cursor& cursor) const;

    static Position endOf(const StorePtr& store);
    static Position positionAt(const StorePtr& store, int index);
    static bool isEnd(const StorePtr& store, const Position& at);
    static bool resolve(const Store& store, const Position& at);
    static void next(Position& at);
    static void back(const StorePtr& store, Position& at);
};

} // namespace kvmodel
