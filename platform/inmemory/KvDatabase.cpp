// The in-memory libKvDatabase: defines what KvDatabase.h declares, and the switches and logs.
#include "platform/KvDatabase.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "platform/inmemory/detail/DatabaseRegistry.h"
#include "platform/inmemory/detail/EqualIds.h"
#include "platform/inmemory/detail/EventLog.h"
#include "platform/inmemory/detail/NthCallTrigger.h"
#include "platform/inmemory/detail/ObjectTable.h"
#include "platform/inmemory/detail/SubentId.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <utility>

// ---- Ids

const GxDbObjectId GxDbObjectId::kNull;

namespace kvinmemory {

namespace {

detail::EqualIds gEqualIds;

} // namespace

void makeEqual(GxDbObjectId a, GxDbObjectId b) {
    gEqualIds.unite(a.stub(), b.stub());
}

namespace {

// These two functions are not inlined. So the usual comparison of ids, without any call of makeEqual(), has
// little code.
[[gnu::noinline, gnu::cold]] bool haveEqualLowest(const GxDbStub* a, const GxDbStub* b) noexcept {
    return gEqualIds.lowest(a) == gEqualIds.lowest(b);
}

[[gnu::noinline, gnu::cold]] bool hasLessLowest(const GxDbStub* a, const GxDbStub* b) noexcept {
    return std::less<>()(gEqualIds.lowest(a), gEqualIds.lowest(b));
}

bool isEqual(const GxDbStub* a, const GxDbStub* b) noexcept {
    return a == b || (!gEqualIds.isEmpty() && haveEqualLowest(a, b));
}

// All accesses to the counts are relaxed: counting must not synchronise the threads that compare ids.
std::atomic<bool> gCountsComparisons{false};
std::atomic<long> gEqualityCalls{0};
std::atomic<long> gOrderCalls{0};

void countCall(std::atomic<long>& calls) noexcept {
    if (gCountsComparisons.load(std::memory_order_relaxed))
        calls.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void countIdComparisons(bool on) noexcept {
    gCountsComparisons.store(on, std::memory_order_relaxed);
    gEqualityCalls.store(0, std::memory_order_relaxed);
    gOrderCalls.store(0, std::memory_order_relaxed);
}

long idEqualityCalls() noexcept {
    return gEqualityCalls.load(std::memory_order_relaxed);
}

long idOrderCalls() noexcept {
    return gOrderCalls.load(std::memory_order_relaxed);
}

} // namespace kvinmemory

bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    kvinmemory::countCall(kvinmemory::gEqualityCalls);
    return kvinmemory::isEqual(a, b);
}

bool c5ObjIdIsLessThan(const GxDbStub* a, const GxDbStub* b) noexcept {
    kvinmemory::countCall(kvinmemory::gOrderCalls);
    if (!kvinmemory::gEqualIds.isEmpty())
        return kvinmemory::hasLessLowest(a, b);
    return std::less<>()(a, b);
}

bool GxDbObjectId::isNull() const {
    return kvinmemory::isEqual(mStub, nullptr);
}

bool GxDbObjectId::isValid() const {
    return !isNull() && kvinmemory::detail::databaseRegistry().isValid(mStub);
}

// ---- The log

namespace kvinmemory {

namespace {

detail::EventLog<DatabaseEvent> gEvents;

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

MallocVector<DatabaseEvent> databaseEvents() {
    return gEvents.events();
}

MallocVector<DatabaseEvent> databaseEvents(DatabaseCall call) {
    MallocVector<DatabaseEvent> events = gEvents.events();
    const auto isOther = [call](const DatabaseEvent& event) { return event.call != call; };
    events.erase(std::remove_if(events.begin(), events.end(), isOther), events.end());
    return events;
}

} // namespace kvinmemory

// ---- Sub-entity paths

namespace kvinmemory {

namespace {

// gLivePaths is changed by relaxed accesses: counting must not synchronise the threads that make or destroy
// paths.
std::atomic<long> gLivePaths{0};
detail::NthCallTrigger gPathCopyFailure;
detail::NthCallTrigger gPathAssignmentFailure;

// Counts one call, and throws a PlatformFailure if this call is the nth.
void throwAtNthCall(detail::NthCallTrigger& trigger) {
    if (trigger.countCall() == 0)
        throw PlatformFailure{trigger.nth()};
}

} // namespace

long livePaths() noexcept {
    return gLivePaths.load();
}

void throwFromPathCopy(long nth) noexcept {
    gPathCopyFailure.arm(nth);
}

void throwFromPathAssignment(long nth) noexcept {
    gPathAssignmentFailure.arm(nth);
}

} // namespace kvinmemory

GxDbFullSubentPath::GxDbFullSubentPath() {
    kvinmemory::gLivePaths.fetch_add(1, std::memory_order_relaxed);
}

GxDbFullSubentPath::GxDbFullSubentPath(const GxDbFullSubentPath& other)
    : mObjectIds(other.mObjectIds), mSubentId(other.mSubentId) {
    using namespace kvinmemory;
    throwAtNthCall(gPathCopyFailure);
    gLivePaths.fetch_add(1, std::memory_order_relaxed);
    if (isLogging())
        gEvents.append(eventOf(DatabaseCall::PathCopy, this, &other));
}

GxDbFullSubentPath& GxDbFullSubentPath::operator=(const GxDbFullSubentPath& other) {
    using namespace kvinmemory;
    throwAtNthCall(gPathAssignmentFailure);
    mObjectIds = other.mObjectIds;
    mSubentId = other.mSubentId;
    if (isLogging())
        gEvents.append(eventOf(DatabaseCall::PathAssignment, this, &other));
    return *this;
}

GxDbFullSubentPath::~GxDbFullSubentPath() {
    using namespace kvinmemory;
    gLivePaths.fetch_sub(1, std::memory_order_relaxed);
    if (isLogging())
        gEvents.append(eventOf(DatabaseCall::PathDestruction, this, nullptr));
}

bool GxDbFullSubentPath::operator==(const GxDbFullSubentPath& other) const {
    const int length = mObjectIds.logicalLength();
    if (length != other.mObjectIds.logicalLength() ||
        !kvinmemory::detail::isEqual(mSubentId, other.mSubentId))
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
        gEvents.append(eventOf(DatabaseCall::Delete, objectId(), this));
}

GxErrorStatus GxDbObject::close() {
    using namespace kvinmemory;
    const GxErrorStatus status = mStub != nullptr && mStub->close() ? eOk : eNotOpen;
    if (!isLogging())
        return status;
    DatabaseEvent event = eventOf(DatabaseCall::Close, objectId(), this);
    event.status = status;
    gEvents.append(std::move(event));
    return status;
}

GxDbObjectId GxDbObject::objectId() const {
    return GxDbObjectId(mStub);
}

GxErrorStatus gxdbOpenObject(GxDbEntity*& entity, GxDbObjectId id, GxDb::OpenMode mode, bool openErased) {
    using namespace kvinmemory;
    entity = nullptr;
    const detail::ObjectTable* const table = detail::databaseRegistry().ownerOf(id.stub());
    const GxErrorStatus status = table ? table->open(entity, *id.stub(), mode, openErased) : kInvalidId;
    if (!isLogging())
        return status;
    DatabaseEvent event = eventOf(DatabaseCall::Open, id, entity);
    event.status = status;
    event.mode = mode;
    event.openErased = openErased;
    gEvents.append(std::move(event));
    return status;
}

// ---- Highlighting

namespace kvinmemory {

namespace {

using HighlightCallback = std::function<void(const HighlightCall&)>;

detail::NthCallTrigger gHighlightFailure;
std::shared_ptr<const HighlightCallback> gHighlightCallback;

GxErrorStatus handleHighlight(const HighlightCall& call) {
    if (isLogging()) {
        DatabaseEvent event = eventOf(call.on ? DatabaseCall::Highlight : DatabaseCall::Unhighlight,
                                      call.entity.objectId(), &call.entity);
        event.path = &call.path;
        event.contents = contentsOf(call.path);
        event.entityFlag = call.entityFlag;
        gEvents.append(std::move(event));
    }
    throwAtNthCall(gHighlightFailure);
    // Keeps the callback alive: the callback may call onHighlight(), which replaces gHighlightCallback.
    const std::shared_ptr<const HighlightCallback> callback = gHighlightCallback;
    if (callback != nullptr)
        (*callback)(call);
    return eOk;
}

} // namespace

void throwFromHighlight(long nth) noexcept {
    gHighlightFailure.arm(nth);
}

void onHighlight(HighlightCallback callback) {
    gHighlightCallback =
        callback ? std::allocate_shared<const HighlightCallback>(MallocAllocator<char>(), std::move(callback))
                 : nullptr;
}

} // namespace kvinmemory

GxDbEntity::~GxDbEntity() = default;

GxErrorStatus GxDbEntity::highlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    return kvinmemory::handleHighlight({*this, path, entityFlag, true});
}

GxErrorStatus GxDbEntity::unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    return kvinmemory::handleHighlight({*this, path, entityFlag, false});
}

// ---- Names of sets

namespace kvinmemory {

namespace {

std::atomic<long> gLastNameKey{0};
detail::EventLog<NameKeyCall> gNameKeyCalls;

} // namespace

MallocVector<NameKeyCall> nameKeyCalls() {
    return gNameKeyCalls.events();
}

} // namespace kvinmemory

void gxdbInitGdsNameKey(long* name) {
    using namespace kvinmemory;
    name[1] = ++gLastNameKey;
    if (isLogging())
        gNameKeyCalls.append({0, name, name[0], name[1]});
}

// ---- Reset

namespace kvinmemory {

void resetAll() {
    resetOsBase();
    resetGeometry();
    gEqualIds.clear();
    countIdComparisons(false);
    throwFromHighlight(0);
    throwFromPathCopy(0);
    throwFromPathAssignment(0);
    onHighlight({});
    detail::databaseRegistry().clearForcedStatuses();
    gEvents.clear();
    gNameKeyCalls.clear();
    gLastNameKey.store(0);
}

} // namespace kvinmemory
