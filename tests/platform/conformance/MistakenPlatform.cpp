#include "tests/platform/conformance/MistakenPlatform.h"

#include "base/KvVector.h"
#include "platform/KvGeometry.h"
#include "platform/KvOsBase.h"
#include "platform/KvRx.h"

#include <array>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace kvmistaken {

namespace {

std::atomic<Mistake> gMistake{Mistake::kNone};

bool makes(Mistake mistake) {
    return gMistake == mistake;
}

} // namespace

} // namespace kvmistaken

using kvmistaken::makes;
using kvmistaken::Mistake;

// ---- KvOsBase.h: memory

namespace kvmistaken {

namespace {

constexpr std::size_t kPreamble = alignof(std::max_align_t);

alignas(std::max_align_t) std::array<char, 1 << 17> gOneBlock;

bool isOneBlock(const void* memory) {
    return memory == gOneBlock.data();
}

KvVectorBlock gEmptyBlock{1, 0, 0, 8, nullptr};
int gStorage = 0;

} // namespace

} // namespace kvmistaken

// The block begins behind a preamble, or within it if the mistake says so.
void* _kvMalloc(std::size_t bytes) noexcept {
    using namespace kvmistaken;
    if (makes(Mistake::kMallocReusesOneBlock))
        return bytes <= gOneBlock.size() ? gOneBlock.data() : nullptr;
    if (bytes > SIZE_MAX - kPreamble) {
        if (!makes(Mistake::kMallocOverflows))
            return nullptr;
        bytes = 0;
    }
    auto* const memory = static_cast<char*>(std::malloc(bytes + kPreamble));
    if (memory == nullptr)
        return nullptr;
    const std::size_t offset = makes(Mistake::kMallocForgetsAlignment) ? kPreamble / 2 : kPreamble;
    memory[offset - 1] = static_cast<char>(offset);
    return memory + offset;
}

void _kvFree(void* memory) noexcept {
    using namespace kvmistaken;
    if (memory == nullptr || isOneBlock(memory))
        return;
    auto* const block = static_cast<char*>(memory);
    std::free(block - block[-1]);
}

KvVectorBlock* gpEmptyVectorData = &kvmistaken::gEmptyBlock;

// ---- KvOsBase.h: exceptions

KvException::~KvException() = default;

KvErrorStatus::KvErrorStatus(int status, const wchar_t* file, int line)
    : mFile(file), mStatus(status), mLine(makes(Mistake::kStatusForgetsLine) ? 0 : line) {}
KvErrorStatus::~KvErrorStatus() = default;
int KvErrorStatus::status() const noexcept {
    return mStatus;
}
const wchar_t* KvErrorStatus::file() const noexcept {
    return mFile;
}
int KvErrorStatus::line() const noexcept {
    return mLine;
}

KvExceptionWithMsg::KvExceptionWithMsg(const wchar_t* file, int line, const wchar_t* message)
    : mFile(file), mMessage(makes(Mistake::kMessageForgetsText) ? L"error" : message), mLine(line) {}
KvExceptionWithMsg::~KvExceptionWithMsg() = default;
const wchar_t* KvExceptionWithMsg::file() const noexcept {
    return mFile;
}
int KvExceptionWithMsg::line() const noexcept {
    return mLine;
}
const wchar_t* KvExceptionWithMsg::message() const noexcept {
    return mMessage;
}

namespace kvmistaken {

namespace {

class Recorder : public IKvCrashRecorder {
public:
    virtual ~Recorder() = default;

    void recordException(KvException* exception) override {
        if (makes(Mistake::kRecorderDeletes))
            delete exception;
        if (makes(Mistake::kRecorderThrows))
            throw std::runtime_error("the log is full");
    }
};

Recorder gRecorder;
const std::thread::id gMainThread = std::this_thread::get_id();

bool isOnMainThread() {
    return std::this_thread::get_id() == gMainThread;
}

} // namespace

} // namespace kvmistaken

IKvCrashRecorder* gxapGetCrashRecorder() {
    using namespace kvmistaken;
    return makes(Mistake::kRecorderOfOneThread) && !isOnMainThread() ? nullptr : &gRecorder;
}

// ---- KvOsBase.h: the lock

namespace kvmistaken {

namespace {

class Lock {
public:
    void lock() {
        if (makes(Mistake::kLockExcludesNobody))
            return;
        std::unique_lock<std::mutex> guard(mMutex);
        const bool mayReturn = !makes(Mistake::kLockIsNotRecursive);
        mFreed.wait(guard,
                    [&] { return mDepth == 0 || (mayReturn && mOwner == std::this_thread::get_id()); });
        mOwner = std::this_thread::get_id();
        ++mDepth;
    }

    void unlock() {
        if (makes(Mistake::kLockExcludesNobody))
            return;
        const std::lock_guard<std::mutex> guard(mMutex);
        const bool wasTwice = mDepth == 2;
        --mDepth;
        mHasBeenTwice = mHasBeenTwice || wasTwice;
        if (makes(Mistake::kLockIsFreedByOneUnlock) && wasTwice)
            mDepth = 0;
        if (makes(Mistake::kLockIsFreedByOneUnlock) && mDepth < 0)
            mDepth = 0;
        if (makes(Mistake::kLockNeverComesBack) && mHasBeenTwice)
            mDepth = 1;
        mFreed.notify_all();
    }

private:
    std::mutex mMutex;
    std::condition_variable mFreed;
    std::thread::id mOwner;
    int mDepth = 0;
    bool mHasBeenTwice = false;
};

} // namespace

} // namespace kvmistaken

KvLocker::KvLocker() : mLock(new kvmistaken::Lock) {}
KvLocker::~KvLocker() {
    delete static_cast<kvmistaken::Lock*>(mLock);
}
void KvLocker::lock() {
    static_cast<kvmistaken::Lock*>(mLock)->lock();
}
void KvLocker::unlock() {
    static_cast<kvmistaken::Lock*>(mLock)->unlock();
}

// ---- KvRx.h

GxRxObject::~GxRxObject() = default;

// ---- KvGeometry.h

GxGeTol GxGeContext::gTol;

namespace kvmistaken {

namespace {

void fillWithIdentity(GxGeMatrix3d& matrix, int columns) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < columns; ++column)
            matrix.entry[row][column] = row == column ? 1 : 0;
    }
}

} // namespace

} // namespace kvmistaken

GxGeMatrix3d::GxGeMatrix3d() {
    kvmistaken::fillWithIdentity(*this, 4);
    if (makes(Mistake::kMatrixStartsWithZeros))
        entry[0][0] = entry[1][1] = entry[2][2] = entry[3][3] = 0;
}

GxGeMatrix3d& GxGeMatrix3d::setToIdentity() {
    static GxGeMatrix3d copy;
    kvmistaken::fillWithIdentity(*this, makes(Mistake::kIdentityForgetsTranslation) ? 3 : 4);
    return makes(Mistake::kIdentityReturnsACopy) ? copy : *this;
}

bool GxGeMatrix3d::isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol) const {
    const int rows = makes(Mistake::kComparisonForgetsARow) ? 3 : 4;
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < 4; ++column) {
            const double distance = std::fabs(entry[row][column] - other.entry[row][column]);
            const double limit = makes(Mistake::kComparisonIsExact) ? 0 : tol.equalVector;
            if (distance > limit || (std::isnan(distance) && !makes(Mistake::kComparisonTakesNaN)))
                return false;
        }
    }
    return true;
}

// ---- KvDatabase.h: ids

namespace kvmistaken {

namespace {

enum class Kind { kEntity, kErased, kOther, kInvalid };

} // namespace

} // namespace kvmistaken

class GxDbStub {
public:
    int number = 0; // of the object
    kvmistaken::Kind kind = kvmistaken::Kind::kEntity;
    std::unique_ptr<GxDbEntity> entity;
    std::unique_ptr<GxDbEntity> copy;
    std::atomic<int> openings{0}; // -1: for writing
};

namespace kvmistaken {

namespace {

// Two stubs for each of eight objects.
constexpr int kObjects = 8;
std::array<GxDbStub, 2 * kObjects> gStubs;
std::atomic<bool> gHasBeenOpened{false};

int numberOf(const GxDbStub* stub) {
    return stub == nullptr ? 0 : stub->number;
}

bool isLess(int a, int b) {
    switch (gMistake) {
    case Mistake::kOrderHasTies:
        return a / 2 < b / 2;
    case Mistake::kOrderIsReflexive:
        return a <= b;
    case Mistake::kOrderIsACycle:
        return a != b && (b - a + 2 * kObjects) % (kObjects + 1) <= kObjects / 2;
    case Mistake::kOrderChanges:
        return gHasBeenOpened ? b < a : a < b;
    case Mistake::kOrderDependsOnThread:
        return isOnMainThread() ? a < b : b < a;
    default:
        return a < b;
    }
}

} // namespace

} // namespace kvmistaken

bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    const int first = kvmistaken::numberOf(a);
    const int second = kvmistaken::numberOf(b);
    switch (kvmistaken::gMistake) {
    case Mistake::kTwinsDiffer:
        return a == b;
    case Mistake::kEqualityIsOneSided:
        return first == second || (first == 1 && second == 2);
    case Mistake::kEqualityIsNearness:
        return std::abs(first - second) <= 1;
    case Mistake::kEverythingIsEqual:
        return true;
    case Mistake::kNothingIsEqual:
        return false;
    default:
        return first == second;
    }
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    return kvmistaken::isLess(kvmistaken::numberOf(a), kvmistaken::numberOf(b));
}

const GxDbObjectId GxDbObjectId::kNull;

bool GxDbObjectId::isNull() const {
    return mStub == nullptr && !makes(Mistake::kNothingIsNull);
}

bool GxDbObjectId::isValid() const {
    if (mStub == nullptr || makes(Mistake::kNoIdIsValid))
        return false;
    if (mStub->kind == kvmistaken::Kind::kErased && makes(Mistake::kErasedIdIsInvalid))
        return false;
    return mStub->kind != kvmistaken::Kind::kInvalid || makes(Mistake::kInvalidIdIsValid);
}

// ---- KvDatabase.h: paths

GxDbFullSubentPath::GxDbFullSubentPath() {
    if (makes(Mistake::kPathStartsWithAPart))
        mSubentId.index = -1;
}

GxDbFullSubentPath::GxDbFullSubentPath(const GxDbFullSubentPath& other)
    : mObjectIds(other.mObjectIds), mSubentId(other.mSubentId) {
    if (makes(Mistake::kPathCopyForgetsThePart))
        mSubentId = GxDbSubentId();
}

GxDbFullSubentPath& GxDbFullSubentPath::operator=(const GxDbFullSubentPath& other) {
    if (makes(Mistake::kPathSelfAssignmentClears))
        mObjectIds.setLogicalLength(0);
    if (!makes(Mistake::kPathAssignmentForgetsIds))
        mObjectIds = other.mObjectIds;
    mSubentId = other.mSubentId;
    return *this;
}

GxDbFullSubentPath::~GxDbFullSubentPath() = default;

namespace kvmistaken {

namespace {

bool haveEqualIds(const GxDbObjectId& a, const GxDbObjectId& b) {
    return makes(Mistake::kPathEqualityComparesStubs) ? a.stub() == b.stub() : a == b;
}

// Returns whether each id of `a` is somewhere in `b`.
bool isWithin(const GxArray<GxDbObjectId>& a, const GxArray<GxDbObjectId>& b) {
    for (int i = 0; i < a.logicalLength(); ++i) {
        bool isFound = false;
        for (int j = 0; j < b.logicalLength(); ++j)
            isFound = isFound || a[i] == b[j];
        if (!isFound)
            return false;
    }
    return true;
}

bool haveEqualIds(const GxArray<GxDbObjectId>& a, const GxArray<GxDbObjectId>& b) {
    const int length = a.logicalLength();
    if (makes(Mistake::kPathEqualityForgetsOrder))
        return length == b.logicalLength() && isWithin(a, b) && isWithin(b, a);
    if (length > b.logicalLength() ||
        (length != b.logicalLength() && !makes(Mistake::kPathEqualityForgetsLength)))
        return false;
    for (int i = 0; i < length; ++i) {
        if (!haveEqualIds(a[i], b[i]))
            return false;
    }
    return true;
}

bool haveEqualParts(const GxDbSubentId& a, const GxDbSubentId& b) {
    const bool haveEqualIndices = makes(Mistake::kPathEqualityTruncatesIndex)
                                      ? static_cast<int>(a.index) == static_cast<int>(b.index)
                                      : a.index == b.index;
    return a.type == b.type && haveEqualIndices &&
           (a.extra == b.extra || makes(Mistake::kPathEqualityForgetsExtra));
}

} // namespace

} // namespace kvmistaken

bool GxDbFullSubentPath::operator==(const GxDbFullSubentPath& other) const {
    return kvmistaken::haveEqualIds(mObjectIds, other.mObjectIds) &&
           kvmistaken::haveEqualParts(mSubentId, other.mSubentId);
}

GxArray<GxDbObjectId>& GxDbFullSubentPath::objectIds() {
    return mObjectIds;
}
const GxArray<GxDbObjectId>& GxDbFullSubentPath::objectIds() const {
    return mObjectIds;
}
GxDbSubentId& GxDbFullSubentPath::subentId() {
    return mSubentId;
}
const GxDbSubentId& GxDbFullSubentPath::subentId() const {
    return mSubentId;
}

// ---- KvDatabase.h: objects

GxDbObject::GxDbObject() {
    if (makes(Mistake::kNewObjectHasAnId))
        mStub = kvmistaken::gStubs.data();
}
GxDbObject::~GxDbObject() = default;

GxErrorStatus GxDbObject::close() {
    if (makes(Mistake::kCloseDoesNothing))
        return eOk;
    if (mStub->openings > 0)
        --mStub->openings;
    else
        mStub->openings = 0;
    return makes(Mistake::kCloseFails) ? eNotOpen : eOk;
}

GxDbObjectId GxDbObject::objectId() const {
    if (makes(Mistake::kObjectForgetsItsId) && mStub != nullptr)
        return GxDbObjectId(&kvmistaken::gStubs[mStub->number == 1 ? 2 : 0]);
    return GxDbObjectId(mStub);
}

namespace kvmistaken {

namespace {

constexpr GxErrorStatus kFailed = static_cast<GxErrorStatus>(1);

class StubEntity : public GxDbEntity {
public:
    explicit StubEntity(GxDbStub* stub) { mStub = stub; }
};

bool mayOpen(const GxDbStub& stub, bool openErased) {
    switch (stub.kind) {
    case Kind::kEntity:
        return !makes(Mistake::kOpensNothing);
    case Kind::kErased:
        return openErased ? !makes(Mistake::kNeverOpensErased) : makes(Mistake::kOpensErased);
    default:
        return makes(Mistake::kOpensWhatIsNoEntity);
    }
}

bool enterAsReader(GxDbStub& stub) {
    if (makes(Mistake::kReadersDisturbEachOther) && !isOnMainThread())
        return false;
    int openings = stub.openings;
    do {
        if (openings < 0 && !makes(Mistake::kWriterIsNotAlone))
            return false;
        if (openings > 0 && makes(Mistake::kOneReaderOnly))
            return false;
    } while (!stub.openings.compare_exchange_weak(openings, openings + 1));
    return true;
}

bool enterAsWriter(GxDbStub& stub) {
    int none = 0;
    return stub.openings.compare_exchange_strong(none, -1) || makes(Mistake::kWriterIsNotAlone);
}

GxErrorStatus fail(GxDbEntity*& entity, GxDbStub* stub) {
    if (!makes(Mistake::kFailureLeavesTheArgument))
        entity = nullptr;
    if (makes(Mistake::kFailureLeavesAnOpening) && stub != nullptr)
        ++stub->openings;
    return kFailed;
}

} // namespace

} // namespace kvmistaken

GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode, bool openErased) {
    using namespace kvmistaken;
    GxDbStub* const stub = id.stub();
    if (stub == nullptr) {
        fail(entity, stub);
        return makes(Mistake::kOpensNull) ? eOk : kFailed;
    }
    if (!mayOpen(*stub, openErased))
        return fail(entity, stub);
    if (makes(Mistake::kOpensWithoutObject)) {
        entity = nullptr;
        return eOk;
    }
    const bool isAgain = stub->openings > 0;
    if (mode == GxDb::kForRead ? !enterAsReader(*stub) : !enterAsWriter(*stub))
        return fail(entity, stub);
    gHasBeenOpened = true;
    entity = isAgain && makes(Mistake::kResidentObjectIsCopied) ? stub->copy.get() : stub->entity.get();
    return eOk;
}

// ---- KvDatabase.h: highlighting

GxDbEntity::~GxDbEntity() = default;

GxErrorStatus GxDbEntity::highlight(const GxDbFullSubentPath& path, bool) const {
    if (makes(Mistake::kHighlightTakesThePath)) {
        auto& ids = const_cast<GxDbFullSubentPath&>(path).objectIds();
        ids.setLogicalLength(0);
    }
    return eOk;
}

GxErrorStatus GxDbEntity::unhighlight(const GxDbFullSubentPath&, bool) const {
    if (makes(Mistake::kUnhighlightThrows))
        throw std::runtime_error("nothing is highlighted");
    return eOk;
}

// ---- KvDatabase.h: names of sets

void gxdbInitGdsNameKey(long* name) {
    if (makes(Mistake::kNameKeyOverwritesTheAddress))
        name[0] = 0;
    if (makes(Mistake::kNameKeyIsTooLong))
        name[2] = 0;
    if (!makes(Mistake::kNameKeyStaysUnset))
        name[1] = 1;
}

// ---- The switch

namespace kvmistaken {

namespace {

void fill(GxDbStub& stub, int number, Kind kind) {
    stub.number = number;
    stub.kind = kind;
    stub.entity = std::make_unique<StubEntity>(&stub);
    stub.copy = std::make_unique<StubEntity>(&stub);
    stub.openings = 0;
}

Kind kindOf(int number) {
    constexpr std::array<Kind, kObjects> kinds{Kind::kEntity, Kind::kEntity, Kind::kEntity,  Kind::kErased,
                                               Kind::kOther,  Kind::kOther,  Kind::kInvalid, Kind::kEntity};
    return kinds[static_cast<std::size_t>(number - 1)];
}

GxDbObjectId idOf(int number, int stub = 0) {
    return GxDbObjectId(&gStubs[static_cast<std::size_t>(2 * (number - 1) + stub)]);
}

// The next two mistakes show at the start of the program only, so these are their effects.
void initialiseLate(Mistake mistake) {
    static KvVectorBlock lateBlock{1, 0, 0, 8, nullptr};
    gpEmptyVectorData = mistake == Mistake::kEmptyBlockComesLate ? &lateBlock : &gEmptyBlock;
    GxGeContext::gTol = GxGeTol();
    if (mistake == Mistake::kToleranceComesLate)
        GxGeContext::gTol.equalPoint = 1e-6;
}

} // namespace

void makeMistake(Mistake mistake) {
    gMistake = Mistake::kNone;
    for (int number = 1; number <= kObjects; ++number) {
        for (int stub : {0, 1})
            fill(*idOf(number, stub).stub(), number, kindOf(number));
    }
    gHasBeenOpened = false;
    gEmptyBlock.array = mistake == Mistake::kEmptyBlockHasStorage ? &gStorage : nullptr;
    gEmptyBlock.refCount = mistake == Mistake::kEmptyBlockHasNoOwner ? 0 : 1;
    initialiseLate(mistake);
    gMistake = mistake;
}

kvconformance::Subject subject() {
    kvconformance::Subject subject;
    for (int number = 1; number <= kObjects; ++number) {
        std::vector<GxDbObjectId>* ids = nullptr;
        switch (kindOf(number)) {
        case Kind::kEntity:
            ids = &subject.entities;
            break;
        case Kind::kErased:
            ids = &subject.erased;
            break;
        case Kind::kOther:
            ids = &subject.others;
            break;
        case Kind::kInvalid:
            ids = &subject.invalid;
            break;
        }
        ids->push_back(idOf(number));
    }
    subject.twins.emplace_back(idOf(1), idOf(1, 1));
    subject.openCount = [](GxDbObjectId id) { return id.stub()->openings.load(); };
    return subject;
}

} // namespace kvmistaken
