#include "tests/selectcontext/scenarios/World.h"

#include "tests/selectcontext/support/EditTestSupport.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kvscenario {

namespace {

using kvtest::elementAt;
using kvtest::numberOf;

constexpr std::size_t kMostAnswers = 4096;
constexpr std::size_t kMostSubselected = 256;

} // namespace

Drawing::Drawing() : mDatabase(64) {
    for (std::size_t i = 0; i < kEntities; ++i)
        mEntities.push_back(mDatabase.addEntity());
    for (std::size_t i = 0; i < kParts; ++i)
        mParts.push_back(kvtest::subentPath({mEntities[i % kEntities]}, 1, static_cast<std::int64_t>(i)));
}

World::World(const Drawing& ofDrawing) : drawing(ofDrawing) {
    for (auto& set : sets)
        set = std::make_unique<GxapSelectSet>();
    answers.reserve(kMostAnswers);
    mSubselected.reserve(kMostSubselected);
}

World::~World() {
    noteSubselections();
    for (auto& set : sets)
        set.reset();
    list.reset();
    GxapSelectSetListManager::destroy();
    for (const GxDbFullSubentPath* path : mSubselected)
        delete path;
    if (!leavesPathCopies)
        return;
    const Logging logging;
    kvtest::freePathCopiesLeft();
}

GxapSSetWriteAccessor& World::edit(std::size_t i) const {
    return kvtest::edit(set(i));
}

namespace {

// Allocates nothing.
template <class Visit>
void forEachRecord(const GxapSelectSet& set, Visit visit) {
    if (!set.sharedData)
        return;
    for (const kvtest::Store::Page* page = set.sharedData->entities->head; page; page = page->next) {
        for (const kvtest::Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (!slot->free)
                visit(*slot->value);
        }
    }
}

} // namespace

void World::noteSubselections() {
    forEachSet(*this, [this](const GxapSelectSet& set) {
        forEachRecord(set, [this](const selected_entity& record) {
            const kvtest::SegmentArray* const paths = record.subselPathArray;
            for (int i = 0; paths && i < paths->logicalLength(); ++i)
                note(paths->at(i));
        });
    });
}

void World::note(const GxDbFullSubentPath* path) {
    if (path && std::find(mSubselected.begin(), mSubselected.end(), path) == mSubselected.end())
        mSubselected.push_back(path);
}

namespace {

// Appends values to a vector of numbers.
class Writer {
public:
    explicit Writer(Numbers& numbers) : mNumbers(numbers) {}

    void add(long value) { mNumbers.push_back(value); }
    void add(const GxDbObjectId& id) { add(static_cast<long>(numberOf(id))); }
    void add(double value) {
        std::int64_t bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        add(static_cast<long>(bits));
    }

    void add(const GxDbFullSubentPath* path) {
        if (!path) {
            add(-1L);
            return;
        }
        add(static_cast<long>(path->objectIds().logicalLength()));
        for (int i = 0; i < path->objectIds().logicalLength(); ++i)
            add(path->objectIds()[i]);
        add(static_cast<long>(path->subentId().index));
    }

    template <class T>
    void add(const KvVector<T>* vector) {
        add(vector ? static_cast<long>(vector->logicalLength()) : -1L);
        for (int i = 0; vector && i < vector->logicalLength(); ++i)
            add(elementAt(*vector, i));
    }
    void add(int value) { add(static_cast<long>(value)); }

    void add(const GxapSelectedEntInfo* info) {
        if (!info) {
            add(-1L);
            return;
        }
        add(static_cast<long>(info->word0));
        add(static_cast<long>(info->presenceBits));
        SelFenceIntersectInfo fence{};
        if (info->getSelFenceResultInfo(fence)) {
            add(fence.index);
            add(fence.param);
        }
        if (const GxGeMatrix3d* const matrix = info->getBTRMatPtr())
            add(matrix->entry[0][3]);
    }

    void add(const selected_entity& record) {
        add(record.mainEntId);
        add(record.subEntId);
        add(record.gsMarker);
        add(static_cast<long>(record.hasSubselPaths));
        add(&record.hlVpArray);
        add(&record.nestedEntFullPath);
        add(record.highlightSegmentArray);
        add(record.subselPathArray);
        add(record.selectedEntityInfo);
    }

    void add(const GxapSelectSet& set) {
        add(static_cast<long>(set.lispRefCnt));
        const kvtest::SSetData* const data = set.sharedData;
        if (!data) {
            add(-1L);
            return;
        }
        add(static_cast<long>(data->entityCount));
        add(static_cast<long>(data->unique));
        add(static_cast<long>(data->selectByNestedMode));
        forEachRecord(set, [this](const selected_entity& record) { add(record); });
        for (const auto& entry : data->dataMap)
            add(entry.first);
    }

private:
    Numbers& mNumbers;
};

} // namespace

Numbers contentsOf(const World& world) {
    Numbers numbers;
    Writer writer(numbers);
    forEachSet(world, [&writer](const GxapSelectSet& set) { writer.add(set); });
    return numbers;
}

Numbers answersOf(const World& world) {
    Numbers numbers = world.answers;
    std::vector<const kvtest::SSetData*> datas;
    forEachSet(world, [&](const GxapSelectSet& set) {
        datas.push_back(set.sharedData);
        const auto first = std::find(datas.begin(), datas.end(), set.sharedData);
        numbers.push_back(first - datas.begin());
    });
    return numbers;
}

} // namespace kvscenario
