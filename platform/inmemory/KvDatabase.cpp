// The in-memory libKvDatabase: what the seam declares.
#include "platform/KvDatabase.h"

#include "platform/inmemory/BookMap.h"
#include "platform/inmemory/Countdown.h"
#include "platform/inmemory/DatabaseBooks.h"
#include "platform/inmemory/EventLog.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

// ---- Ids

const GxDbObjectId GxDbObjectId::kNull;

namespace kvinmemory {

namespace {

// Which ids a test has made equal: each of them with the lowest of those that it equals.
class EqualIds {
public:
    bool isEmpty() const noexcept { return !mAny.load(std::memory_order_relaxed); }

    void join(const GxDbStub* a, const GxDbStub* b) {
        const std::lock_guard<std::shared_mutex> guard(mMutex);
        const GxDbStub* const lowestOfA = find(a);
        const GxDbStub* const lowestOfB = find(b);
        const GxDbStub* const lowest = std::min(lowestOfA, lowestOfB, std::less<>());
        const GxDbStub* const other = std::max(lowestOfA, lowestOfB, std::less<>());
        for (auto& [stub, itsLowest] : mLowest) {
            if (itsLowest == other)
                itsLowest = lowest;
        }
        mLowest[other] = lowest;
        mAny.store(true);
    }

    const GxDbStub* lowest(const GxDbStub* stub) const noexcept {
        const std::shared_lock<std::shared_mutex> guard(mMutex);
        return find(stub);
    }

    void clear() {
        const std::lock_guard<std::shared_mutex> guard(mMutex);
        mAny.store(false);
        mLowest.clear();
    }

private:
    const GxDbStub* find(const GxDbStub* stub) const noexcept {
        const auto found = mLowest.find(stub);
        return found == mLowest.end() ? stub : found->second;
    }

    std::atomic<bool> mAny{false};
    mutable std::shared_mutex mMutex;
    BookMap<const GxDbStub*, const GxDbStub*> mLowest;
};

EqualIds gEqualIds;

} // namespace

void makeEqual(GxDbObjectId a, GxDbObjectId b) {
    gEqualIds.join(a.stub(), b.stub());
}

} // namespace kvinmemory

namespace kvinmemory {

namespace {

// Out of line, so that comparisons are as short as can be as long as nothing was made equal.
[[gnu::noinline, gnu::cold]] bool haveSameLowest(const GxDbStub* a, const GxDbStub* b) noexcept {
    return gEqualIds.lowest(a) == gEqualIds.lowest(b);
}

[[gnu::noinline, gnu::cold]] bool hasLessLowest(const GxDbStub* a, const GxDbStub* b) noexcept {
    return std::less<>()(gEqualIds.lowest(a), gEqualIds.lowest(b));
}

bool isEqual(const GxDbStub* a, const GxDbStub* b) noexcept {
    return a == b || (!gEqualIds.isEmpty() && haveSameLowest(a, b));
}

} // namespace

} // namespace kvinmemory

bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    return kvinmemory::isEqual(a, b);
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    if (!kvinmemory::gEqualIds.isEmpty())
        return kvinmemory::hasLessLowest(a, b);
    return std::less<>()(a, b);
}

bool GxDbObjectId::isNull() const {
    return kvinmemory::isEqual(mStub, nullptr);
}

bool GxDbObjectId::isValid() const {
    return !isNull() && kvinmemory::isValidStub(mStub);
}

// ---- The log

namespace kvinmemory {

namespace {

EventLog<DatabaseEvent> gEvents;

DatabaseEvent eventOf(DatabaseCall call, GxDbObjectId id, const GxDbObject* object) {
    DatabaseEvent event{};
    event.call = call;
    event.id = id;
    event.object = object;
    return event;
}

DatabaseEvent eventOf(DatabaseCall call, const GxDbFullSubentPath* path, const GxDbFullSubentPath* source) {
    DatabaseEvent event{};
    event.call = call;
    event.path = path;
    event.source = source;
    if (source != nullptr)
        event.contents = contentsOf(*source);
    return event;
}

} // namespace

BookVector<DatabaseEvent> databaseEvents() {
    return gEvents.entries();
}

BookVector<DatabaseEvent> databaseEvents(DatabaseCall call) {
    BookVector<DatabaseEvent> events = gEvents.entries();
    const auto isOther = [call](const DatabaseEvent& event) { return event.call != call; };
    events.erase(std::remove_if(events.begin(), events.end(), isOther), events.end());
    return events;
}

} // namespace kvinmemory

// ---- Sub-entity paths

namespace kvinmemory {

namespace {

// Relaxed: counting must not order the threads whose paths it counts.
std::atomic<long> gLivePaths{0};
Countdown gPathCopyCountdown;
Countdown gPathAssignmentCountdown;

void throwIfDue(Countdown& countdown) {
    if (countdown.count() == 0)
        throw PlatformFailure{countdown.nth()};
}

} // namespace

long livePaths() noexcept {
    return gLivePaths.load();
}

void throwFromPathCopy(long nth) noexcept {
    gPathCopyCountdown.arm(nth);
}

void throwFromPathAssignment(long nth) noexcept {
    gPathAssignmentCountdown.arm(nth);
}

} // namespace kvinmemory

GxDbFullSubentPath::GxDbFullSubentPath() {
    kvinmemory::gLivePaths.fetch_add(1, std::memory_order_relaxed);
}

GxDbFullSubentPath::GxDbFullSubentPath(const GxDbFullSubentPath& other)
    : mObjectIds(other.mObjectIds), mSubentId(other.mSubentId) {
    using namespace kvinmemory;
    throwIfDue(gPathCopyCountdown);
    gLivePaths.fetch_add(1, std::memory_order_relaxed);
    if (isLogging())
        gEvents.write(eventOf(DatabaseCall::PathCopy, this, &other));
}

GxDbFullSubentPath& GxDbFullSubentPath::operator=(const GxDbFullSubentPath& other) {
    using namespace kvinmemory;
    throwIfDue(gPathAssignmentCountdown);
    mObjectIds = other.mObjectIds;
    mSubentId = other.mSubentId;
    if (isLogging())
        gEvents.write(eventOf(DatabaseCall::PathAssignment, this, &other));
    return *this;
}

GxDbFullSubentPath::~GxDbFullSubentPath() {
    using namespace kvinmemory;
    gLivePaths.fetch_sub(1, std::memory_order_relaxed);
    if (isLogging())
        gEvents.write(eventOf(DatabaseCall::PathDestruction, this, nullptr));
}

bool GxDbFullSubentPath::operator==(const GxDbFullSubentPath& other) const {
    const int length = mObjectIds.logicalLength();
    if (length != other.mObjectIds.logicalLength() || !kvinmemory::isSamePart(mSubentId, other.mSubentId))
        return false;
    return std::equal(mObjectIds.mArray, mObjectIds.mArray + length, other.mObjectIds.mArray);
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

// ---- Objects

namespace kvinmemory {

namespace {

std::atomic<long> gLiveObjects{0};

} // namespace

long liveObjects() noexcept {
    return gLiveObjects.load();
}

} // namespace kvinmemory

GxDbObject::GxDbObject() {
    ++kvinmemory::gLiveObjects;
}

GxDbObject::~GxDbObject() {
    using namespace kvinmemory;
    --gLiveObjects;
    if (isLogging())
        gEvents.write(eventOf(DatabaseCall::Delete, objectId(), this));
}

GxErrorStatus GxDbObject::close() {
    using namespace kvinmemory;
    const GxErrorStatus status = mStub == nullptr ? eNotOpen : closeStub(*mStub);
    if (!isLogging())
        return status;
    DatabaseEvent event = eventOf(DatabaseCall::Close, objectId(), this);
    event.status = status;
    gEvents.write(std::move(event));
    return status;
}

GxDbObjectId GxDbObject::objectId() const {
    return GxDbObjectId(mStub);
}

GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode, bool openErased) {
    using namespace kvinmemory;
    entity = nullptr;
    const Database::Books* books = ownerOf(id.stub());
    const GxErrorStatus status = books ? books->open(entity, *id.stub(), mode, openErased) : kInvalidId;
    if (!isLogging())
        return status;
    DatabaseEvent event = eventOf(DatabaseCall::Open, id, entity);
    event.status = status;
    event.mode = mode;
    event.openErased = openErased;
    gEvents.write(std::move(event));
    return status;
}

// ---- Highlighting

namespace kvinmemory {

namespace {

using HighlightCallback = std::function<void(const HighlightCall&)>;

Countdown gHighlightCountdown;
std::shared_ptr<const HighlightCallback> gHighlightCallback;

GxErrorStatus drawHighlight(const HighlightCall& call) {
    if (isLogging()) {
        DatabaseEvent event = eventOf(call.on ? DatabaseCall::Highlight : DatabaseCall::Unhighlight,
                                      call.entity.objectId(), &call.entity);
        event.path = &call.path;
        event.contents = contentsOf(call.path);
        event.entityFlag = call.entityFlag;
        gEvents.write(std::move(event));
    }
    throwIfDue(gHighlightCountdown);
    // Held here, since the callback may set another one while it runs.
    const std::shared_ptr<const HighlightCallback> callback = gHighlightCallback;
    if (callback != nullptr)
        (*callback)(call);
    return eOk;
}

} // namespace

void throwFromHighlight(long nth) noexcept {
    gHighlightCountdown.arm(nth);
}

void onHighlight(HighlightCallback callback) {
    gHighlightCallback =
        callback ? std::allocate_shared<const HighlightCallback>(BookAllocator<char>(), std::move(callback))
                 : nullptr;
}

} // namespace kvinmemory

GxDbEntity::~GxDbEntity() = default;

GxErrorStatus GxDbEntity::highlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    return kvinmemory::drawHighlight({*this, path, entityFlag, true});
}

GxErrorStatus GxDbEntity::unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    return kvinmemory::drawHighlight({*this, path, entityFlag, false});
}

// ---- Names of sets

namespace kvinmemory {

namespace {

std::atomic<long> gLastNameKey{0};
EventLog<NameKeyCall> gNameKeyCalls;

} // namespace

BookVector<NameKeyCall> nameKeyCalls() {
    return gNameKeyCalls.entries();
}

} // namespace kvinmemory

void gxdbInitGdsNameKey(long* name) {
    using namespace kvinmemory;
    name[1] = ++gLastNameKey;
    if (isLogging())
        gNameKeyCalls.write({0, name, name[0], name[1]});
}

// ---- Putting everything back

namespace kvinmemory {

void resetAll() {
    resetOsBase();
    resetGeometry();
    gEqualIds.clear();
    throwFromHighlight(0);
    throwFromPathCopy(0);
    throwFromPathAssignment(0);
    onHighlight({});
    allowAllOpens();
    gEvents.clear();
    gNameKeyCalls.clear();
    gLastNameKey.store(0);
}

} // namespace kvinmemory
