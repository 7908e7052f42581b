#include "tests/selectcontext/threads/Worker.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Infos.h"

#include <algorithm>
#include <mutex>
#include <numeric>
#include <utility>

namespace kvsoak {

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::numberOf;
using Records = std::vector<selected_entity*>;

constexpr int kMains = 150;   // ordinary main ids: 1 to kMains
constexpr int kRunMain = 200; // a third of all items have this main id
constexpr int kRunSubs = 250;
constexpr int kSubs = 3;
constexpr int kPaths = 4;
constexpr unsigned long kTwin = 3000; // id(n) and id(n + kTwin) may be stubs of one object
constexpr unsigned long kPagesOfLarge = 5;
constexpr unsigned long kKeptOfLarge = 20; // one item in so many stays
constexpr int kFewItems =
    250; // a set with fewer items gets more, and a set with more than kManyItems loses some
constexpr int kManyItems = 400;
constexpr int kStepsOfWalk = 4;

long markerOf(int sub) {
    return 1 + sub % 3; // few different markers, so that a hash also serves look-ups without a marker
}

// Returns the nested path of all items with this sub id.
std::size_t pathOf(int sub) {
    return static_cast<std::size_t>(sub % kPaths);
}

int countOf(const GxapSelectSet& set) {
    return static_cast<int>(set.sharedData->entityCount);
}

Records recordsOf(const GxapSelectSet& set) {
    Records records;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step())
        records.push_back(it.get());
    return records;
}

GxDbObjectId anyStub(int sub, bool hasTwins, Random& random) {
    const bool isTwin = hasTwins && random.oneIn(2);
    return id(static_cast<unsigned long>(sub) + (isTwin ? kTwin : 0));
}

// Returns whether each item has the marker of its sub id, and is found at its position.
bool isSound(const GxapSelectSet& set) {
    int at = 0;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step(), ++at) {
        const selected_entity& record = *it.get();
        if (record.gsMarker != markerOf(static_cast<int>(numberOf(record.subEntId))))
            return false;
        if (at % 16 == 0 && set.find(record.mainEntId, record.subEntId, record.gsMarker) != at)
            return false;
    }
    return at == countOf(set);
}

} // namespace

// ---- Numbers and common data

std::uint64_t Random::next() {
    std::uint64_t x = mState += 0x9E3779B97F4A7C15U;
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBU;
    return x ^ (x >> 31U);
}

Source::Source(std::uint64_t seed, bool twins) : hasTwins(twins) {
    for (unsigned long sub = 1; hasTwins && sub <= kRunSubs; ++sub)
        kvinmemory::makeEqual(id(sub), id(sub + kTwin));
    makePaths();
    Random random(seed);
    while (countOf(set) < kFewItems) {
        const bool isInRun = random.oneIn(3);
        const int main = isInRun ? kRunMain : 1 + random.below(kMains);
        const int sub = 1 + random.below(isInRun ? kRunSubs : kSubs);
        edit(set).select(id(static_cast<unsigned long>(main)), anyStub(sub, hasTwins, random), markerOf(sub),
                         nullptr, &paths[pathOf(sub)]);
    }
    fillLarge();
}

void Source::makePaths() {
    for (unsigned long length = 0; length < kPaths; ++length) {
        KvVector<GxDbObjectId> path;
        path.setLogicalLength(static_cast<int>(length));
        for (unsigned long i = 0; i < length; ++i)
            path.at(static_cast<int>(i)) = id(1 + i);
        paths.push_back(path);
    }
}

void Source::fillLarge() {
    for (unsigned long n = 1; n <= kPagesOfLarge * kvtest::kPageSlots; ++n) {
        const GxDbObjectId main = id(n + 2 * kTwin);
        edit(large).append(main, GxDbObjectId());
        if (n % kKeptOfLarge == 1)
            continue;
        const std::unique_ptr<selected_entity> removed(large.getLast());
        edit(large).remove(main);
    }
}

// ---- Beginning and end

const Worker::Choice Worker::kChoices[] = {
    {380, &Worker::lookUp},      {160, &Worker::walk},          {100, &Worker::readPosition},
    {100, &Worker::editOwn},     {60, &Worker::lookUpInOwn},    {60, &Worker::copyHandle},
    {50, &Worker::deleteRecord}, {30, &Worker::readLarge},      {20, &Worker::emptyPages},
    {15, &Worker::editSegments}, {10, &Worker::writeViewports}, {6, &Worker::drawItem},
    {4, &Worker::useNamedSet},   {3, &Worker::writeToCopy},     {1, &Worker::readNewestNamedSet},
    {1, &Worker::combine},
};

Worker::Worker(std::size_t number, std::uint64_t seed, const Source& source, Network& network)
    : mNumber(number), mSource(source), mNetwork(network), mRandom(seed + number), mOwn(source.set),
      mSpare(source.set), mLarge(source.large) {
    mHeld.fill(source.set);
}

Worker::~Worker() = default;

void Worker::send() {
    const std::size_t distance = 1 + mExchanges++ % (kWorkerCount - 1);
    mNetwork[mNumber][(mNumber + distance) % kWorkerCount].send(
        {std::make_unique<GxapSelectSet>(mOwn), std::exchange(mRemovedBefore, std::exchange(mRemoved, {}))});
}

void Worker::work(int operations) {
    const std::size_t distance = 1 + (mExchanges - 1) % (kWorkerCount - 1);
    Parcel parcel = mNetwork[(mNumber + kWorkerCount - distance) % kWorkerCount][mNumber].receive();
    mDoomed = std::move(parcel.removed);
    anyHeld() = *parcel.set;
    parcel.set.reset();
    for (int i = 0; i < operations; ++i)
        performOne();
}

void Worker::finish() {
    if (mName)
        useNamedSet();
    for (auto& walk : mWalks)
        walk.reset();
    for (GxapSelectSet& held : mHeld)
        held.releaseData();
    mOwn.releaseData();
    mSpare.releaseData();
    mLarge.releaseData();
    mRemoved.clear();
    mRemovedBefore.clear();
    mDoomed.clear();
}

void Worker::performOne() {
    static const int all = std::accumulate(std::begin(kChoices), std::end(kChoices), 0,
                                           [](int sum, const Choice& choice) { return sum + choice.weight; });
    int at = mRandom.below(all);
    const Choice* choice = kChoices;
    while (at >= choice->weight) {
        at -= choice->weight;
        ++choice;
    }
    (this->*choice->perform)();
}

void Worker::note(std::uint64_t value) {
    mChecksum = (mChecksum ^ value) * 0x9E3779B97F4A7C15U;
    mChecksum ^= mChecksum >> 32U;
}

// Reads everything that a record has, so that a sanitizer sees a record that another thread writes or frees.
void Worker::note(const selected_entity& record) {
    note(numberOf(record.mainEntId));
    note(numberOf(record.subEntId));
    note(static_cast<std::uint64_t>(record.gsMarker));
    for (int i = 0; i < record.nestedEntFullPath.logicalLength(); ++i)
        note(numberOf(record.nestedEntFullPath.at(i)));
    for (int i = 0; i < record.hlVpArray.logicalLength(); ++i)
        note(static_cast<std::uint64_t>(record.hlVpArray.at(i)));
    if (record.selectedEntityInfo)
        note(record.selectedEntityInfo->word0);
    const auto* const segments = record.highlightSegmentArray;
    for (int i = 0; segments && i < segments->logicalLength(); ++i)
        note(static_cast<std::uint64_t>(std::as_const(*segments->at(i)).subentId().index));
}

// ---- Reading

Worker::Keys Worker::anyKeys() {
    const bool isInRun = mRandom.oneIn(3);
    const int main = isInRun ? kRunMain : 1 + mRandom.below(kMains);
    const int sub = 1 + mRandom.below(isInRun ? kRunSubs : kSubs);
    return {id(static_cast<unsigned long>(main)), anyStub(sub, mSource.hasTwins, mRandom), markerOf(sub),
            &mSource.paths[pathOf(sub)]};
}

void Worker::lookUpIn(const GxapSelectSet& set) {
    const Keys keys = anyKeys();
    switch (mRandom.below(5)) {
    case 0:
        return note(static_cast<std::uint64_t>(set.find(keys.main)));
    case 1:
        return note(static_cast<std::uint64_t>(set.find(keys.main, keys.sub)));
    case 2:
        return note(static_cast<std::uint64_t>(set.find(keys.main, keys.sub, keys.marker)));
    case 3:
        return note(static_cast<std::uint64_t>(set.find(keys.main, keys.sub, keys.marker, keys.path)));
    default:
        const auto found = set.findInMap(keys.main, keys.sub, keys.marker, keys.path, nullptr);
        return note(std::uint64_t{found != set.sharedData->dataMap.end()});
    }
}

void Worker::lookUp() {
    lookUpIn(anyHeld());
}

void Worker::lookUpInOwn() {
    lookUpIn(mOwn);
}

void Worker::readPositionIn(const GxapSelectSet& set) {
    const selected_entity& record = *set.getAt(mRandom.below(countOf(set)));
    note(record);
    note(static_cast<std::uint64_t>(
        set.find(record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath)));
}

void Worker::readPosition() {
    readPositionIn(anyHeld());
}

// Reads positions in a set of several pages. Its page index is checked again whenever another store frees a
// page.
void Worker::readLarge() {
    readPositionIn(mLarge);
}

// Goes on with a walk that an earlier call began. Meanwhile, other threads free pages of other stores.
void Worker::walk() {
    const auto k = static_cast<std::size_t>(mRandom.below(kHeldCount));
    auto& walk = mWalks[k];
    if (!walk || walk->isDone())
        walk.emplace(mHeld[k].begin());
    for (int i = 0; i < kStepsOfWalk && !walk->isDone(); ++i, walk->step())
        note(*walk->get());
}

void Worker::drawItem() {
    const GxapSelectSet& set = anyHeld();
    auto it = set.iteratorAt(mRandom.below(countOf(set)));
    set.draw(it, true, mRandom.oneIn(2));
}

// ---- Copies

void Worker::copyHandle() {
    const GxapSelectSet copy(anyHeld());
    mSpare = copy;
    note(std::uint64_t{mSpare.sharedData->entityCount});
}

// Writes to a copy, which makes its data private, and drops highlight paths that other copies have, too.
void Worker::writeToCopy() {
    mSpare = anyHeld();
    selectItem(mSpare);
    removeItem(mSpare);
    auto it = edit(mSpare).begin();
    for (int i = 0; i < 50 && !it.isDone(); ++i, it.step())
        it.setHighlightSegment(nullptr);
    lookUpIn(mSpare);
}

// Unites two sets, and subtracts one from another. The records that are subtracted are removed.
void Worker::combine() {
    const GxapSelectSet& first = anyHeld();
    const GxapSelectSet& second = anyHeld();
    note(std::uint64_t{first.contains(&second)});
    note(std::uint64_t{first.intersectedWith(&second)});

    GxapSelectSet both;
    edit(both).merge(&first, &second);
    note(std::uint64_t{both.sharedData->entityCount});

    GxapSelectSet rest(first);
    edit(rest).writeData();
    const Records before = recordsOf(rest);
    edit(rest).minus(&rest, &mOwn);
    const Records after = recordsOf(rest);
    auto kept = after.begin();
    for (selected_entity* const record : before) {
        if (kept != after.end() && *kept == record)
            ++kept;
        else
            mRemoved.emplace_back(record);
    }
    note(after.size());
}

// ---- Editing

void Worker::selectItem(GxapSelectSet& set) {
    const Keys keys = anyKeys();
    GxapSelectedEntInfo* const info = mRandom.oneIn(8) ? kvtest::makeInfo() : nullptr;
    if (info)
        info->word0 = static_cast<std::uint32_t>(mRandom.below(100));
    edit(set).select(keys.main, keys.sub, keys.marker, info, keys.path);
}

void Worker::removeItem(GxapSelectSet& set) {
    edit(set).writeData(); // otherwise the record below would stay in the shared data
    const int at = mRandom.below(countOf(set));
    mRemoved.emplace_back(set.getAt(at));
    check(edit(set).removeAt(at));
}

GxapSelectSet::Iterator Worker::anyItem(GxapSelectSet& set) {
    return edit(set).iteratorAt(mRandom.below(countOf(set)));
}

void Worker::editOwn() {
    const int count = countOf(mOwn);
    if (count < kFewItems || (count < kManyItems && mRandom.oneIn(2)))
        selectItem(mOwn);
    else
        removeItem(mOwn);
    note(std::uint64_t{mOwn.sharedData->entityCount});
}

void Worker::editSegments() {
    auto it = anyItem(mOwn);
    if (mRandom.oneIn(3))
        return it.setHighlightSegment(nullptr);
    const GxDbFullSubentPath path = kvtest::subentPath({1, 2}, 1, mRandom.below(1000));
    it.setHighlightSegment(&path);
}

void Worker::writeViewports() {
    auto it = anyItem(mOwn);
    KvVector<int>& viewports = *it.hlVpArray();
    viewports.setLogicalLength(1 + mRandom.below(3));
    viewports.at(0) = mRandom.below(100);
    note(*it.get());
}

// Fills and empties a set. Emptying it frees its page, while other threads walk through other sets.
void Worker::emptyPages() {
    GxapSelectSet passing;
    for (int i = 0; i < 3; ++i)
        selectItem(passing);
    const auto it = passing.begin();
    note(*it.get());
    while (countOf(passing) > 0)
        removeItem(passing);
    check(!it.step());
    selectItem(passing);
    note(*passing.getFirst());
}

void Worker::deleteRecord() {
    if (!mDoomed.empty())
        mDoomed.pop_back();
}

// ---- Named sets

// Makes a named set that shares the data of the worker's own set. The next call edits and deletes it.
void Worker::useNamedSet() {
    const std::lock_guard<KvLocker> guard(GxapSelectSetListManager::s_locker);
    GxapSelectSetList& named = *GxapSelectSetListManager::getInstance()->list;
    if (!mName) {
        mName.emplace();
        check(named.addSelectSet(mOwn, mName->data()) != nullptr);
        return;
    }
    GxapSelectSet& set = *named.getSSetByName(mName->data());
    selectItem(set);
    note(std::uint64_t{set.sharedData->entityCount});
    named.delSelectSet(mName->data());
    mName.reset();
}

// Copies the newest named set, whichever worker has made it. The worker that has made it may edit it while
// this one reads the copy.
void Worker::readNewestNamedSet() {
    std::optional<GxapSelectSet> copy;
    {
        const std::lock_guard<KvLocker> guard(GxapSelectSetListManager::s_locker);
        const auto& sets = GxapSelectSetListManager::getInstance()->list->sets;
        if (!sets.empty())
            copy.emplace(*sets.front());
    }
    check(!copy || isSound(*copy));
}

} // namespace kvsoak
