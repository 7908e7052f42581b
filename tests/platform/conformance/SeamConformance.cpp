#include "tests/platform/conformance/SeamConformance.h"

#include "base/KvVector.h"
#include "platform/KvGeometry.h"
#include "platform/KvOsBase.h"
#include "platform/KvRx.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <future>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <thread>

namespace kvconformance {

namespace {

using Ids = std::vector<GxDbObjectId>;

// ---- The report

// Collects verdicts. A promise is named by its sentence, and is reported once, with the first breach.
class Verdicts {
public:
    // `seen` says what was seen instead.
    void expect(bool holds, const std::string& promise, const std::string& seen = {}) {
        std::string& breach = mPromises[promise].breach;
        if (holds || !breach.empty())
            return;
        breach = seen.empty() ? promise : promise + " (" + seen + ")";
        mOrder.push_back(promise);
    }

    void leaveUnchecked(const std::string& promise, const std::string& lack) {
        mUnchecked.push_back(promise + ": the subject has no " + lack);
    }

    Report report() const {
        Report report;
        for (const std::string& promise : mOrder)
            report.broken.push_back(mPromises.at(promise).breach);
        report.unchecked = mUnchecked;
        report.held = static_cast<int>(mPromises.size() - mOrder.size());
        return report;
    }

private:
    struct Promise {
        std::string breach; // empty: it holds
    };

    std::map<std::string, Promise> mPromises;
    std::vector<std::string> mOrder; // the broken promises, in the order of their discovery
    std::vector<std::string> mUnchecked;
};

// ---- Threads

constexpr int kThreads = 4;
constexpr std::chrono::seconds kPatience(2);         // a call that takes longer is taken to lock up
constexpr std::chrono::milliseconds kShortWhile(50); // in which a waiting thread would go on if it could

template <class Work>
void onThreads(Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

// A thread that may lock up. It is left behind then, so its work must own what it uses.
class Attempt {
public:
    template <class Work>
    explicit Attempt(Work work) {
        std::packaged_task<void()> task(std::move(work));
        mEnd = task.get_future();
        mThread = std::thread(std::move(task));
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() {
        if (endsWithin(kPatience))
            mThread.join();
        else
            mThread.detach();
    }

    template <class Duration>
    bool endsWithin(Duration duration) const {
        return mEnd.wait_for(duration) == std::future_status::ready;
    }

private:
    std::future<void> mEnd;
    std::thread mThread;
};

// ---- KvOsBase.h: memory

bool isAligned(const void* memory) {
    return reinterpret_cast<std::uintptr_t>(memory) % alignof(std::max_align_t) == 0;
}

struct Block {
    unsigned char* memory;
    std::size_t size;
    unsigned char mark; // every byte of the block
};

Block newBlock(std::size_t size, unsigned char mark) {
    const Block block{static_cast<unsigned char*>(_kvMalloc(size)), size, mark};
    if (block.memory != nullptr)
        std::memset(block.memory, mark, size);
    return block;
}

bool isIntact(const Block& block) {
    return std::all_of(block.memory, block.memory + block.size,
                       [&](unsigned char byte) { return byte == block.mark; });
}

std::vector<Block> newBlocks(unsigned char firstMark) {
    std::vector<Block> blocks;
    for (unsigned size : {1U, 2U, 3U, 7U, 8U, 15U, 16U, 17U, 24U, 40U, 64U, 100U, 4096U, 1U << 16})
        blocks.push_back(newBlock(size, static_cast<unsigned char>(firstMark + blocks.size())));
    return blocks;
}

void freeBlocks(const std::vector<Block>& blocks) {
    for (const Block& block : blocks)
        _kvFree(block.memory);
}

void checkBlocks(Verdicts& verdicts) {
    const std::vector<Block> blocks = newBlocks(1);
    for (const Block& block : blocks) {
        const std::string size = std::to_string(block.size) + " bytes";
        verdicts.expect(block.memory != nullptr, "KvOsBase.h: _kvMalloc allocates memory", size);
        verdicts.expect(isAligned(block.memory),
                        "KvOsBase.h: memory of _kvMalloc is aligned for every scalar type", size);
        verdicts.expect(block.memory == nullptr || isIntact(block),
                        "KvOsBase.h: blocks of _kvMalloc share no bytes", size);
    }
    freeBlocks(blocks);
}

void checkBoundsOfMemory(Verdicts& verdicts) {
    for (std::size_t bytes : {SIZE_MAX, SIZE_MAX - 8, SIZE_MAX - 64, SIZE_MAX / 2}) {
        void* const memory = _kvMalloc(bytes);
        verdicts.expect(memory == nullptr, "KvOsBase.h: _kvMalloc returns null if there is no memory",
                        std::to_string(bytes) + " bytes");
        _kvFree(memory);
    }
    _kvFree(_kvMalloc(0));
    _kvFree(nullptr);
}

void checkMemoryOnThreads(Verdicts& verdicts) {
    std::array<std::vector<Block>, kThreads> blocks;
    onThreads([&](int i) {
        for (int round = 0; round < 20; ++round) {
            freeBlocks(blocks[static_cast<std::size_t>(i)]);
            blocks[static_cast<std::size_t>(i)] = newBlocks(static_cast<unsigned char>(1 + 16 * i));
        }
    });
    for (const std::vector<Block>& ofThread : blocks) {
        verdicts.expect(std::all_of(ofThread.begin(), ofThread.end(),
                                    [](const Block& each) { return each.memory && isIntact(each); }),
                        "KvOsBase.h: any thread may call _kvMalloc and _kvFree");
        freeBlocks(ofThread); // on another thread than the one that allocated
    }
}

// ---- KvOsBase.h: the empty block

struct Early {
    KvVectorBlock* emptyBlock;
    GxGeTol tolerance;
};
Early gEarly{};

// Runs before the constructors of static objects.
[[gnu::constructor(101)]] void lookEarly() {
    gEarly.emptyBlock = gpEmptyVectorData;
    gEarly.tolerance = GxGeContext::gTol;
}

bool isEmptyBlock(const KvVectorBlock& block) {
    return block.logicalLength == 0 && block.physicalLength == 0 && block.growLength == 8 &&
           block.array == nullptr;
}

void checkEmptyBlock(Verdicts& verdicts) {
    verdicts.expect(gEarly.emptyBlock == gpEmptyVectorData,
                    "KvOsBase.h: gpEmptyVectorData is initialised at compile time");
    KvVectorBlock* const block = gpEmptyVectorData;
    if (block == nullptr)
        return;
    const std::uint32_t references = block->refCount.load();
    verdicts.expect(references > 0, "KvOsBase.h: the application owns one reference to the empty block");
    verdicts.expect(isEmptyBlock(*block),
                    "KvOsBase.h: the empty block has lengths 0, grow length 8 and no storage");
    if (references == 0 || !isEmptyBlock(*block))
        return; // a vector would free or use what is not there
    {
        KvVector<int> filled;
        const KvVector<int> shared(filled);
        filled.setLogicalLength(3);
        filled.at(2) = 7;
    }
    verdicts.expect(isEmptyBlock(*block) && block->refCount.load() == references,
                    "KvOsBase.h: only the reference count of the empty block changes");
}

// ---- KvOsBase.h: exceptions

void checkExceptions(Verdicts& verdicts) {
    const wchar_t* const file = L"drawing.cpp";
    const wchar_t* const text = L"no such layer";
    const KvErrorStatus status(24, file, 7);
    verdicts.expect(status.status() == 24 && status.file() == file && status.line() == 7,
                    "KvOsBase.h: KvErrorStatus returns what its constructor was given");
    const KvExceptionWithMsg message(file, 8, text);
    verdicts.expect(message.message() == text && message.file() == file && message.line() == 8,
                    "KvOsBase.h: KvExceptionWithMsg returns what its constructor was given");
}

// An exception that notices its end.
class WatchedException : public KvErrorStatus {
public:
    explicit WatchedException(bool& isGone) : KvErrorStatus(6, L"", 1), mIsGone(isGone) {}
    ~WatchedException() override { mIsGone = true; }

private:
    bool& mIsGone;
};

void checkRecorder(Verdicts& verdicts) {
    IKvCrashRecorder* const recorder = gxapGetCrashRecorder();
    IKvCrashRecorder* elsewhere = nullptr;
    std::thread([&] { elsewhere = gxapGetCrashRecorder(); }).join();
    verdicts.expect(recorder == elsewhere, "KvOsBase.h: any thread may call gxapGetCrashRecorder()");
    if (recorder == nullptr)
        return;
    bool isGone = false;
    auto exception = std::make_unique<WatchedException>(isGone);
    bool isQuiet = true;
    try {
        recorder->recordException(exception.get());
    } catch (...) {
        isQuiet = false;
    }
    verdicts.expect(isQuiet, "KvOsBase.h: a crash recorder throws nothing");
    verdicts.expect(!isGone, "KvOsBase.h: a crash recorder does not delete the exception");
    if (isGone)
        (void)exception.release();
}

// ---- KvOsBase.h: the lock

void checkExclusion(Verdicts& verdicts) {
    KvLocker locker;
    std::atomic<int> owners{0};
    std::atomic<bool> alone{true};
    onThreads([&](int) {
        for (int i = 0; i < 100; ++i) {
            locker.lock();
            if (++owners != 1)
                alone = false;
            std::this_thread::yield();
            --owners;
            locker.unlock();
        }
    });
    verdicts.expect(alone, "KvOsBase.h: at most one thread owns a KvLocker");
}

// A lock that one thread takes twice and releases in two steps.
struct TwiceTaken {
    KvLocker locker;
    std::promise<void> releasedOnce;
    std::promise<void> mayRelease;
    std::atomic<bool> isTakenElsewhere{false};
};

void takeTwice(TwiceTaken& lock) {
    lock.locker.lock();
    lock.locker.lock();
    lock.locker.unlock();
    lock.releasedOnce.set_value();
    lock.mayRelease.get_future().wait();
    lock.locker.unlock();
}

void takeOnce(TwiceTaken& lock) {
    lock.locker.lock();
    lock.isTakenElsewhere = true;
    lock.locker.unlock();
}

void checkLock(Verdicts& verdicts) {
    const auto lock = std::make_shared<TwiceTaken>();
    const auto releasedOnce = lock->releasedOnce.get_future();
    const Attempt owner([lock] { takeTwice(*lock); });
    const bool isRecursive = releasedOnce.wait_for(kPatience) == std::future_status::ready;
    verdicts.expect(isRecursive, "KvOsBase.h: the owner of a KvLocker may call lock() again");
    if (!isRecursive)
        return;
    const Attempt other([lock] { takeOnce(*lock); });
    std::this_thread::sleep_for(kShortWhile);
    verdicts.expect(!lock->isTakenElsewhere,
                    "KvOsBase.h: the owner of a KvLocker must call unlock() as often as lock()");
    lock->mayRelease.set_value();
    verdicts.expect(other.endsWithin(kPatience), "KvOsBase.h: lock() waits until the lock is free");
}

// ---- KvGeometry.h

void checkTolerance(Verdicts& verdicts) {
    verdicts.expect(gEarly.tolerance.equalPoint == GxGeContext::gTol.equalPoint &&
                        gEarly.tolerance.equalVector == GxGeContext::gTol.equalVector,
                    "KvGeometry.h: gTol is constant-initialised");
}

bool isIdentity(const GxGeMatrix3d& matrix) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            if (matrix.entry[row][column] != (row == column ? 1 : 0))
                return false;
        }
    }
    return true;
}

void checkIdentity(Verdicts& verdicts) {
    verdicts.expect(isIdentity(GxGeMatrix3d()), "KvGeometry.h: GxGeMatrix3d() makes the identity");
    GxGeMatrix3d matrix;
    for (auto& row : matrix.entry)
        std::fill(std::begin(row), std::end(row), 5.0);
    const GxGeMatrix3d* const returned = &matrix.setToIdentity();
    verdicts.expect(isIdentity(matrix), "KvGeometry.h: setToIdentity() makes the transform the identity");
    verdicts.expect(returned == &matrix, "KvGeometry.h: setToIdentity() returns *this");
}

// Checks the comparison of two matrices that differ in one entry only.
void checkOneEntry(Verdicts& verdicts, int row, int column) {
    const std::string place = "entry[" + std::to_string(row) + "][" + std::to_string(column) + "]";
    GxGeTol tolerance;
    tolerance.equalPoint = tolerance.equalVector = 0.5;
    const GxGeMatrix3d identity;
    GxGeMatrix3d near;
    GxGeMatrix3d far;
    near.entry[row][column] += 0.25;
    far.entry[row][column] -= 0.75;
    verdicts.expect(identity.isEqualTo(near, tolerance) && near.isEqualTo(identity, tolerance),
                    "KvGeometry.h: transforms within the tolerance are equal", place);
    verdicts.expect(!identity.isEqualTo(far, tolerance) && !far.isEqualTo(identity, tolerance),
                    "KvGeometry.h: transforms outside the tolerance are not equal", place);
    verdicts.expect(!identity.isEqualTo(near), "KvGeometry.h: the default tolerance is gTol", place);
    GxGeMatrix3d odd;
    odd.entry[row][column] = std::numeric_limits<double>::quiet_NaN();
    verdicts.expect(!odd.isEqualTo(identity, tolerance) && !identity.isEqualTo(odd, tolerance),
                    "KvGeometry.h: what is not a number is within no tolerance", place);
}

void checkComparison(Verdicts& verdicts) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column)
            checkOneEntry(verdicts, row, column);
    }
    GxGeMatrix3d large;
    large.entry[0][3] = 1e15;
    const GxGeMatrix3d copy = large;
    verdicts.expect(large.isEqualTo(copy), "KvGeometry.h: a transform equals its copy");
}

// ---- KvDatabase.h: ids

bool equal(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsEqualTo(a.stub(), b.stub());
}

bool less(const GxDbObjectId& a, const GxDbObjectId& b) {
    return c5ObjIdIsLessThan(a.stub(), b.stub());
}

constexpr std::size_t kMostOfAKind = 16; // so that checking all triples takes a moment only

void addSome(Ids& to, const Ids& from) {
    to.insert(to.end(), from.begin(),
              from.begin() + static_cast<std::ptrdiff_t>(std::min(from.size(), kMostOfAKind)));
}

// Returns the null id and ids of every kind.
Ids sampleOf(const Subject& subject) {
    Ids ids{GxDbObjectId()};
    for (const Ids* some : {&subject.entities, &subject.erased, &subject.others, &subject.invalid})
        addSome(ids, *some);
    for (const auto& [one, other] : subject.twins)
        addSome(ids, {one, other});
    return ids;
}

void checkEquality(Verdicts& verdicts, const Ids& ids) {
    for (const GxDbObjectId& a : ids) {
        verdicts.expect(equal(a, a), "KvDatabase.h: equality is reflexive; null equals null");
        for (const GxDbObjectId& b : ids) {
            verdicts.expect(equal(a, b) == equal(b, a), "KvDatabase.h: equality is symmetric");
            for (const GxDbObjectId& c : ids)
                verdicts.expect(!equal(a, b) || !equal(b, c) || equal(a, c),
                                "KvDatabase.h: equality is transitive");
        }
    }
}

void checkOrder(Verdicts& verdicts, const Ids& ids) {
    for (const GxDbObjectId& a : ids) {
        verdicts.expect(!less(a, a), "KvDatabase.h: no id comes before itself");
        for (const GxDbObjectId& b : ids) {
            verdicts.expect(!less(a, b) || !less(b, a), "KvDatabase.h: the order is asymmetric");
            verdicts.expect(equal(a, b) == (!less(a, b) && !less(b, a)),
                            "KvDatabase.h: ids are equal exactly when neither comes before the other");
            for (const GxDbObjectId& c : ids)
                verdicts.expect(!less(a, b) || !less(b, c) || less(a, c),
                                "KvDatabase.h: the order is transitive");
        }
    }
}

void checkObjectsOfIds(Verdicts& verdicts, const Subject& subject) {
    for (std::size_t i = 0; i < subject.entities.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j)
            verdicts.expect(!equal(subject.entities[i], subject.entities[j]),
                            "KvDatabase.h: ids of different objects are not equal");
    }
    const char* const promise = "KvDatabase.h: ids that name one object are equal";
    if (subject.twins.empty())
        verdicts.leaveUnchecked(promise, "twins");
    for (const auto& [one, other] : subject.twins)
        verdicts.expect(equal(one, other), promise);
}

void checkNull(Verdicts& verdicts, const Ids& ids) {
    const char* const promise = "KvDatabase.h: isNull() says whether an id equals kNull";
    verdicts.expect(GxDbObjectId::kNull.stub() == nullptr, "KvDatabase.h: kNull is the null id");
    verdicts.expect(GxDbObjectId().isNull() && GxDbObjectId::kNull.isNull(), promise);
    for (const GxDbObjectId& id : ids)
        verdicts.expect(id.isNull() == equal(id, GxDbObjectId::kNull), promise);
}

void checkValidity(Verdicts& verdicts, const Subject& subject) {
    const char* const knows = "KvDatabase.h: an id is valid if a database knows its object";
    const char* const knowsErased = "KvDatabase.h: the id of an erased object is valid";
    const char* const knowsNot = "KvDatabase.h: an id is not valid if no database knows its object";
    for (const Ids* known : {&subject.entities, &subject.others}) {
        for (const GxDbObjectId& id : *known)
            verdicts.expect(id.isValid(), knows);
    }
    for (const GxDbObjectId& id : subject.erased)
        verdicts.expect(id.isValid(), knowsErased);
    verdicts.expect(!GxDbObjectId().isValid(), knowsNot, "the null id");
    for (const GxDbObjectId& id : subject.invalid)
        verdicts.expect(!id.isValid(), knowsNot);
    if (subject.invalid.empty())
        verdicts.leaveUnchecked(knowsNot, "invalid ids");
}

using Comparisons = std::vector<bool>;

Comparisons comparisonsOf(const Ids& ids) {
    Comparisons comparisons;
    for (const GxDbObjectId& a : ids) {
        for (const GxDbObjectId& b : ids) {
            comparisons.push_back(equal(a, b));
            comparisons.push_back(less(a, b));
        }
    }
    return comparisons;
}

void checkComparisonsOnThreads(Verdicts& verdicts, const Ids& ids, const Comparisons& before) {
    std::atomic<bool> same{true};
    onThreads([&](int) {
        if (comparisonsOf(ids) != before)
            same = false;
    });
    verdicts.expect(same, "KvDatabase.h: any thread may compare ids, and sees the same");
}

// ---- KvDatabase.h: paths

GxDbFullSubentPath pathOf(const Ids& ids, const GxDbSubentId& part = {}) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        path.objectIds()[static_cast<int>(i)] = ids[i];
    path.subentId() = part;
    return path;
}

// Returns whether a path has exactly these ids and this part. Does not use the operators of paths.
bool has(const GxDbFullSubentPath& path, const Ids& ids, const GxDbSubentId& part) {
    const GxArray<GxDbObjectId>& found = path.objectIds();
    if (found.logicalLength() != static_cast<int>(ids.size()))
        return false;
    for (int i = 0; i < found.logicalLength(); ++i) {
        if (found[i].stub() != ids[static_cast<std::size_t>(i)].stub())
            return false;
    }
    const GxDbSubentId& own = path.subentId();
    return own.type == part.type && own.index == part.index && own.extra == part.extra;
}

void checkPathParts(Verdicts& verdicts) {
    GxDbFullSubentPath path;
    const GxDbFullSubentPath& seen = path;
    verdicts.expect(has(path, {}, {}), "KvDatabase.h: a new path has no ids and the null part");
    verdicts.expect(&path.objectIds() == &seen.objectIds() && &path.subentId() == &seen.subentId(),
                    "KvDatabase.h: a path returns the ids and the part that it owns");
}

void checkPathCopies(Verdicts& verdicts, const Ids& ids, const GxDbSubentId& part) {
    GxDbFullSubentPath source = pathOf(ids, part);
    const GxDbFullSubentPath copy(source);
    verdicts.expect(has(copy, ids, part), "KvDatabase.h: copying a path copies the ids and the part");
    verdicts.expect(ids.empty() || copy.objectIds().mArray != source.objectIds().mArray,
                    "KvDatabase.h: a copy of a path has its own array of ids");

    const char* const assigns = "KvDatabase.h: assigning a path copies the ids and the part";
    GxDbFullSubentPath longer = pathOf({ids[0], ids[0], ids[0], ids[0], ids[0], ids[0]});
    longer = source;
    verdicts.expect(has(longer, ids, part), assigns, "over a longer path");
    GxDbFullSubentPath shorter;
    shorter = source;
    verdicts.expect(has(shorter, ids, part), assigns, "over a shorter path");
    const GxDbFullSubentPath& self = source;
    source = self;
    verdicts.expect(has(source, ids, part), assigns, "to itself");
}

void checkPathEquality(Verdicts& verdicts, const Ids& ids, const GxDbSubentId& part) {
    const GxDbFullSubentPath path = pathOf(ids, part);
    const auto differs = [&](const GxDbFullSubentPath& other, const char* by) {
        verdicts.expect(!(path == other) && !(other == path),
                        "KvDatabase.h: paths with other ids, another order or another part are not equal",
                        by);
    };
    verdicts.expect(path == pathOf(ids, part),
                    "KvDatabase.h: paths with equal ids and the same part are equal");
    differs(pathOf(Ids(ids.begin(), ids.end() - 1), part), "one id less");
    differs(pathOf(Ids(ids.rbegin(), ids.rend()), part), "another order");
    differs(pathOf(Ids(ids.size(), ids[0]), part), "another id");
    differs(pathOf(ids, {part.type + 1, part.index, part.extra}), "another type");
    differs(pathOf(ids, {part.type, part.index + (std::int64_t{1} << 40), part.extra}), "another index");
    differs(pathOf(ids, {part.type, part.index, nullptr}), "another extra");
}

void checkPathTwins(Verdicts& verdicts, const Subject& subject) {
    for (const auto& [one, other] : subject.twins)
        verdicts.expect(pathOf({one}) == pathOf({other}), "KvDatabase.h: paths compare their ids as ids");
}

void checkPathsOnThreads(Verdicts& verdicts, const Ids& ids, const GxDbSubentId& part) {
    const GxDbFullSubentPath path = pathOf(ids, part);
    std::atomic<bool> same{true};
    onThreads([&](int) {
        for (int i = 0; i < 100; ++i) {
            const GxDbFullSubentPath copy(path);
            if (!(copy == path))
                same = false;
        }
    });
    verdicts.expect(same, "KvDatabase.h: several threads may read one path");
}

void checkPaths(Verdicts& verdicts, const Subject& subject) {
    checkPathParts(verdicts);
    Ids ids = subject.entities;
    ids.insert(ids.end(), subject.others.begin(), subject.others.end());
    if (ids.size() < 2) {
        verdicts.leaveUnchecked("KvDatabase.h: paths are copied and compared",
                                "two ids of different objects");
        return;
    }
    ids.resize(std::min<std::size_t>(ids.size(), 4));
    int anchor = 0;
    const GxDbSubentId part{3, 7, &anchor};
    checkPathCopies(verdicts, ids, part);
    checkPathEquality(verdicts, ids, part);
    checkPathTwins(verdicts, subject);
    checkPathsOnThreads(verdicts, ids, part);
}

// ---- KvDatabase.h: objects

class OwnEntity : public GxDbEntity {};

// Closes a resident object, and deletes a non-resident one.
GxErrorStatus release(GxDbEntity* entity) {
    if (entity == nullptr)
        return eOk;
    if (!entity->objectId().isNull())
        return entity->close();
    delete entity;
    return eOk;
}

// One opening, which the destructor ends.
class Opening {
public:
    explicit Opening(GxDbObjectId id, GxDb::OpenMode mode = GxDb::kForRead, bool openErased = false) {
        mEntity = &mUntouched;
        try {
            mStatus = gxdbOpenObject(mEntity, id, mode, openErased);
        } catch (...) {
            mThrows = true;
        }
        mIsSet = mEntity != &mUntouched;
        if (!mIsSet)
            mEntity = nullptr;
    }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    ~Opening() { end(); }

    GxErrorStatus end() {
        GxDbEntity* const entity = mEntity;
        mEntity = nullptr;
        return release(entity);
    }

    bool isOpen() const { return !mThrows && mStatus == eOk && mEntity != nullptr; }
    bool hasFailed() const { return mThrows || mStatus != eOk; }
    bool isSet() const { return mThrows || mIsSet; }
    GxDbEntity* entity() const { return mEntity; }
    bool isResident() const { return !mEntity->objectId().isNull(); }

private:
    OwnEntity mUntouched;
    GxDbEntity* mEntity = nullptr;
    GxErrorStatus mStatus = eNotOpen;
    bool mThrows = false;
    bool mIsSet = false;
};

void checkNewObject(Verdicts& verdicts) {
    const OwnEntity entity;
    verdicts.expect(entity.objectId().isNull(), "KvDatabase.h: an object that no database has, has no id");
}

void checkReading(Verdicts& verdicts, GxDbObjectId id) {
    Opening first(id);
    verdicts.expect(first.isOpen(), "KvDatabase.h: gxdbOpenObject() opens the entity that an id names");
    if (!first.isOpen())
        return;
    const bool isResident = first.isResident();
    Opening second(id);
    verdicts.expect(second.isOpen(), "KvDatabase.h: several openings for reading may exist at once");
    if (!second.isOpen())
        return;
    verdicts.expect(!isResident || first.entity()->objectId() == id,
                    "KvDatabase.h: a resident object has its id");
    verdicts.expect(
        isResident == (first.entity() == second.entity()),
        "KvDatabase.h: each opening yields the resident object, or a non-resident one of its own");
    const GxErrorStatus closed = second.end();
    verdicts.expect(closed == eOk && first.end() == eOk, "KvDatabase.h: close() ends an opening");
}

void checkWriting(Verdicts& verdicts, GxDbObjectId id) {
    const char* const promise = "KvDatabase.h: an opening for writing is the only opening";
    {
        const Opening writing(id, GxDb::kForWrite);
        if (!writing.isOpen() || !writing.isResident())
            return; // an application may refuse to write
        verdicts.expect(!Opening(id).isOpen(), promise, "a reader joins a writer");
        verdicts.expect(!Opening(id, GxDb::kForWrite).isOpen(), promise, "a writer joins a writer");
    }
    const Opening reading(id);
    verdicts.expect(!Opening(id, GxDb::kForWrite).isOpen(), promise, "a writer joins a reader");
}

void checkOpeningOnThreads(Verdicts& verdicts, GxDbObjectId id) {
    std::atomic<bool> opens{true};
    onThreads([&](int) {
        for (int i = 0; i < 50; ++i) {
            if (!Opening(id).isOpen())
                opens = false;
        }
    });
    verdicts.expect(opens, "KvDatabase.h: several threads may have one object open for reading");
}

class Openings {
public:
    Openings(const Subject& subject, GxDbObjectId id) : mSubject(subject), mId(id), mBefore(now()) {}

    bool areAsBefore() const { return now() == mBefore; }

private:
    int now() const { return mSubject.openCount && mId.stub() != nullptr ? mSubject.openCount(mId) : 0; }

    const Subject& mSubject;
    GxDbObjectId mId;
    int mBefore;
};

void checkEntities(Verdicts& verdicts, const Subject& subject) {
    const char* const ends = "KvDatabase.h: closing an object leaves no opening behind";
    if (subject.entities.empty())
        verdicts.leaveUnchecked("KvDatabase.h: entities are opened and closed", "entities");
    if (!subject.openCount)
        verdicts.leaveUnchecked(ends, "count of openings");
    for (const GxDbObjectId& id : subject.entities) {
        const Openings openings(subject, id);
        checkReading(verdicts, id);
        checkWriting(verdicts, id);
        checkOpeningOnThreads(verdicts, id);
        verdicts.expect(Opening(id).isOpen(), "KvDatabase.h: an object that was closed opens again");
        verdicts.expect(openings.areAsBefore(), ends);
    }
}

void checkFailure(Verdicts& verdicts, const Subject& subject, GxDbObjectId id, const char* promise) {
    const Openings openings(subject, id);
    for (GxDb::OpenMode mode : {GxDb::kForRead, GxDb::kForWrite}) {
        const Opening opening(id, mode);
        verdicts.expect(opening.hasFailed(), promise);
        verdicts.expect(opening.isSet(),
                        "KvDatabase.h: after a failure, the entity is null or an object to be released");
    }
    verdicts.expect(openings.areAsBefore(), "KvDatabase.h: a failed opening leaves no opening behind");
}

void checkFailures(Verdicts& verdicts, const Subject& subject) {
    checkFailure(verdicts, subject, GxDbObjectId(), "KvDatabase.h: the null id does not open");
    for (const Ids* ids : {&subject.others, &subject.invalid}) {
        for (const GxDbObjectId& id : *ids)
            checkFailure(verdicts, subject, id, "KvDatabase.h: an id that names no entity does not open");
    }
    if (subject.others.empty())
        verdicts.leaveUnchecked("KvDatabase.h: an object that is no entity does not open", "others");
    if (subject.erased.empty())
        verdicts.leaveUnchecked("KvDatabase.h: an erased entity opens on request only", "erased entities");
    for (const GxDbObjectId& id : subject.erased) {
        checkFailure(verdicts, subject, id, "KvDatabase.h: an erased entity does not open without request");
        verdicts.expect(Opening(id, GxDb::kForRead, true).isOpen(),
                        "KvDatabase.h: an erased entity opens on request");
    }
}

// ---- KvDatabase.h: highlighting

using Draw = GxErrorStatus (GxDbEntity::*)(const GxDbFullSubentPath&, bool) const;

// Calls with a path of its own, which is gone afterwards, as the library's may be.
void checkDrawing(Verdicts& verdicts, const GxDbEntity& entity, const GxDbFullSubentPath& path, Draw draw) {
    for (bool entityFlag : {false, true}) {
        const GxDbFullSubentPath own(path);
        const GxDbObjectId* const ids = own.objectIds().mArray;
        bool throws = false;
        try {
            (entity.*draw)(own, entityFlag);
        } catch (...) {
            throws = true;
        }
        verdicts.expect(!throws, "KvDatabase.h: an open entity is highlighted and unhighlighted");
        verdicts.expect(own == path && own.objectIds().mArray == ids,
                        "KvDatabase.h: the path of a highlight belongs to the caller");
    }
}

void checkHighlights(Verdicts& verdicts, const Subject& subject) {
    if (subject.entities.empty())
        verdicts.leaveUnchecked("KvDatabase.h: entities are highlighted", "entities");
    for (const GxDbObjectId& id : subject.entities) {
        const Opening opening(id);
        if (!opening.isOpen())
            continue;
        const GxDbFullSubentPath path = subject.pathOf ? subject.pathOf(id) : pathOf({id});
        checkDrawing(verdicts, *opening.entity(), path, &GxDbEntity::highlight);
        checkDrawing(verdicts, *opening.entity(), path, &GxDbEntity::unhighlight);
    }
}

// ---- KvDatabase.h: names of sets

void checkNameKey(Verdicts& verdicts) {
    constexpr long kGuard = 0x5A5A5A5A;
    bool isSet = false;
    for (long before : {-12345678L, 87654321L}) {
        std::array<long, 4> words{kGuard, 4711, before, kGuard};
        gxdbInitGdsNameKey(&words[1]);
        isSet = isSet || words[2] != before;
        verdicts.expect(words[1] == 4711 && words[0] == kGuard && words[3] == kGuard,
                        "KvDatabase.h: gxdbInitGdsNameKey() writes the second word only");
    }
    verdicts.expect(isSet, "KvDatabase.h: gxdbInitGdsNameKey() sets the second word");
}

// ---- All libraries

void checkOsBase(Verdicts& verdicts) {
    checkBlocks(verdicts);
    checkBoundsOfMemory(verdicts);
    checkMemoryOnThreads(verdicts);
    checkEmptyBlock(verdicts);
    checkExceptions(verdicts);
    checkRecorder(verdicts);
    checkExclusion(verdicts);
    checkLock(verdicts);
}

void checkGeometry(Verdicts& verdicts) {
    checkTolerance(verdicts);
    checkIdentity(verdicts);
    checkComparison(verdicts);
}

void checkDatabase(Verdicts& verdicts, const Subject& subject) {
    const Ids ids = sampleOf(subject);
    const Comparisons before = comparisonsOf(ids);
    checkEquality(verdicts, ids);
    checkOrder(verdicts, ids);
    checkObjectsOfIds(verdicts, subject);
    checkNull(verdicts, ids);
    checkValidity(verdicts, subject);
    checkComparisonsOnThreads(verdicts, ids, before);
    checkPaths(verdicts, subject);
    checkNewObject(verdicts);
    checkEntities(verdicts, subject);
    checkFailures(verdicts, subject);
    checkHighlights(verdicts, subject);
    checkNameKey(verdicts);
    verdicts.expect(comparisonsOf(ids) == before,
                    "KvDatabase.h: the order of two ids does not change while their stubs live");
}

} // namespace

Report check(const Subject& subject) {
    Verdicts verdicts;
    checkOsBase(verdicts);
    checkGeometry(verdicts);
    checkDatabase(verdicts, subject);
    return verdicts.report();
}

std::ostream& operator<<(std::ostream& out, const Report& report) {
    for (const std::string& sentence : report.broken)
        out << "broken: " << sentence << '\n';
    for (const std::string& sentence : report.unchecked)
        out << "not checked: " << sentence << '\n';
    return out << report.held << " promises hold, " << report.broken.size() << " are broken\n";
}

} // namespace kvconformance
