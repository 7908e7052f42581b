// Makes sets for debugger_test.py, which stops the program in allIsMade() and looks at the variables of
// main().
#include "base/GxArray.h"
#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "platform/KvGeometry.h"
#include "platform/KvOsBase.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdint>
#include <initializer_list>
#include <new>

// The parameters are there to be looked at, too.
extern "C" void allIsMade(const GxapSelectSet& set, const GxapSelectSet* pointer, long address);

extern "C" [[gnu::noinline]] void allIsMade([[maybe_unused]] const GxapSelectSet& set,
                                            [[maybe_unused]] const GxapSelectSet* pointer,
                                            [[maybe_unused]] long address) {}

namespace {

// Returns an id that no database has issued. Its stub has the address 16 * n.
GxDbObjectId id(unsigned long n) {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>(16 * n));
}

KvVector<GxDbObjectId> idVector(std::initializer_list<unsigned long> numbers) {
    KvVector<GxDbObjectId> ids;
    for (const unsigned long n : numbers) {
        ids.setLogicalLength(ids.logicalLength() + 1);
        ids.at(ids.logicalLength() - 1) = id(n);
    }
    return ids;
}

GxDbFullSubentPath subentPath(std::initializer_list<unsigned long> numbers, std::int32_t type,
                              std::int64_t index) {
    GxDbFullSubentPath path;
    for (const unsigned long n : numbers) {
        const int length = path.objectIds().logicalLength();
        path.objectIds().setLogicalLength(length + 1);
        path.objectIds()[length] = id(n);
    }
    path.subentId().type = type;
    path.subentId().index = index;
    return path;
}

GxapSelectedEntInfo* newInfo() {
    return new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo;
}

GxapSelectedEntInfo* infoWithFence() {
    GxapSelectedEntInfo* const info = newInfo();
    info->setSelFenceResultInfo({2, 0, 0.5});
    return info;
}

GxapSelectedEntInfo* infoWithMatrix() {
    GxapSelectedEntInfo* const info = newInfo();
    GxGeMatrix3d matrix;
    matrix.entry[0][3] = 5;
    info->setCompoundTransformWithBTROffset(matrix);
    return info;
}

GxapSSetWriteAccessor& edit(GxapSelectSet& set) {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

void append(GxapSelectSet& set, unsigned long first, unsigned long last) {
    for (unsigned long n = first; n <= last; ++n)
        edit(set).append(id(n), GxDbObjectId());
}

void remove(GxapSelectSet& set, unsigned long first, unsigned long last) {
    for (unsigned long n = first; n <= last; ++n)
        edit(set).remove(id(n));
}

// An item without anything, one that is nested, and two with an info.
void fillPlain(GxapSelectSet& set) {
    append(set, 1, 1);
    const KvVector<GxDbObjectId> path = idVector({3, 2});
    edit(set).select(id(2), id(3), 7, nullptr, &path);
    edit(set).select(id(4), GxDbObjectId(), -1, infoWithFence(), nullptr);
    edit(set).select(id(5), GxDbObjectId(), 0, infoWithMatrix(), nullptr);
}

// One item that has everything that a record can have.
void fillFull(GxapSelectSet& set) {
    const KvVector<GxDbObjectId> path = idVector({1, 2, 3, 4, 5, 6});
    GxapSelectedEntInfo* const info = infoWithFence();
    info->word0 = 6;
    info->setCompoundTransformWithBTROffset(GxGeMatrix3d());
    info->pointArray.setLogicalLength(1);
    info->pointArray.at(0).x = 1.5;
    edit(set).select(id(1), id(2), 3, info, &path);

    selected_entity& record = *set.getFirst();
    record.hlVpArray.setLogicalLength(2);
    record.hlVpArray.at(1) = 9;
    const GxDbFullSubentPath segment = subentPath({1, 2}, 1, 8);
    edit(set).begin().setHighlightSegment(&segment);
    record.subselPathArray = new KvVector<GxDbFullSubentPath*>;
    record.subselPathArray->setLogicalLength(2);
    record.subselPathArray->at(0) = new GxDbFullSubentPath(subentPath({1}, 2, 4));
    record.hasSubselPaths = true;
}

} // namespace

int main() {
    [[maybe_unused]] const GxDbObjectId someId = id(1);
    [[maybe_unused]] const GxDbObjectId nullId;
    const GxDbFullSubentPath path = subentPath({1, 2}, 3, 4);
    const GxDbFullSubentPath emptyPath;
    const KvVector<GxDbObjectId> emptyVector;
    const KvVector<GxDbObjectId> ids = idVector({1, 2});
    const KvVector<int> numbers = [] {
        KvVector<int> made;
        made.setLogicalLength(3);
        made.at(0) = 7;
        return made;
    }();
    const KvVector<int> sameNumbers(numbers);
    GxArray<int> array;
    array.setLogicalLength(2);
    array[1] = 5;

    const GxapSelectSet empty;
    GxapSelectSet without;
    without.releaseData();

    GxapSelectSet plain;
    fillPlain(plain);
    const GxapSelectSet::ConstIterator onItem = plain.iteratorAt(1);
    const GxapSelectSet::ConstIterator atEnd = plain.end();
    const GxapSelectSet::ConstIterator beyond(&plain, 9);
    GxapSelectSet full;
    fillFull(full);

    GxapSelectSet grown;
    append(grown, 1, 1);
    const GxapSelectSet::ConstIterator formerEnd = grown.end();
    append(grown, 2, 2);

    GxapSelectSet shared;
    append(shared, 1, 2);
    const GxapSelectSet sharer(shared);

    GxapSelectSet modes;
    edit(modes).setUnique(false);
    edit(modes).setSelectByNestedMode(true);
    append(modes, 1, 1);
    append(modes, 1, 1);
    modes.addLispRefCnt();

    // Five items, of which two are removed: one under an iterator, and one before another iterator.
    GxapSelectSet holes;
    append(holes, 1, 5);
    const GxapSelectSet::ConstIterator onRemoved = holes.iteratorAt(1);
    const GxapSelectSet::ConstIterator afterRemoved = holes.iteratorAt(2);
    remove(holes, 2, 2);
    remove(holes, 4, 4);

    // Three pages. The first is emptied, and so is freed under an iterator.
    GxapSelectSet pages;
    append(pages, 1, 8194);
    const GxapSelectSet::ConstIterator stale = pages.iteratorAt(3);
    const GxapSelectSet::ConstIterator onLaterPage = pages.iteratorAt(8193);
    GxapSelectSet::ConstIterator beforeFirst = pages.iteratorAt(4096);
    remove(pages, 1, 4096);
    beforeFirst.getPrevIterator(beforeFirst);

    // An edit makes the data private, and so disables an iterator.
    GxapSelectSet changed(shared);
    const GxapSelectSet::ConstIterator disabled = changed.begin();
    append(changed, 3, 3);
    auto* const passing = new GxapSelectSet(shared);
    const GxapSelectSet::ConstIterator orphan = passing->begin();
    delete passing;

    // The removal with two ids takes the index entry of the other item, too.
    GxapSelectSet unindexed;
    edit(unindexed).append(id(1), id(8));
    edit(unindexed).append(id(1), id(9));
    edit(unindexed).remove(id(1), id(8));

    allIsMade(plain, &plain, reinterpret_cast<long>(&plain));
    return 0;
}
