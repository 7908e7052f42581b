#include "tests/selectcontext/model/World.h"

#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Infos.h"

#include <cstdint>
#include <string>
#include <utility>

namespace kvmodel {

namespace {

constexpr std::size_t kDatabaseCapacity = 20000;

std::vector<std::string> sHighlightCalls;
int sCallsToThrow = 0; // the highlight call that throws, counted from the next one; 0: none

// An entity that only notes that it is highlighted or unhighlighted, and may then throw.
class NotingEntity : public GxDbEntity {
public:
    GxErrorStatus highlight(const GxDbFullSubentPath& path, bool flag) const override {
        return note(true, path, flag);
    }
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool flag) const override {
        return note(false, path, flag);
    }

private:
    static GxErrorStatus note(bool on, const GxDbFullSubentPath& path, bool flag) {
        sHighlightCalls.push_back(World::highlightCall(on, flag, &path));
        if (sCallsToThrow > 0 && --sCallsToThrow == 0)
            throw CallbackFailure();
        return eOk;
    }
};

const Info kInfos[World::kInfoCount] = {{7, 0, -1, 0}, {0, 1, -1, 0},  {1, 2, -1, 0},
                                        {2, 3, -1, 0}, {3, 0, 2, 0.5}, {4, 1, 0, 0.25}};

} // namespace

World::World(const Profile& profile)
    : mDatabase(kDatabaseCapacity), mRules(profile.idCount + 2), mInvalid(profile.idCount + 1),
      mErased(profile.idCount) {
    mIds.emplace_back();
    for (int i = 1; i <= profile.idCount; ++i)
        mIds.push_back(mDatabase.add(std::make_unique<NotingEntity>()));
    mIds.push_back(mDatabase.addInvalid());
    mDatabase.erase(id(mErased));
    if (profile.hasEqualIds) {
        for (const auto& [a, b] : {std::pair(2, 3), std::pair(5, 3), std::pair(7, 6), std::pair(8, 0)})
            makeEqual(a, b);
    }

    for (const std::vector<int>& ids :
         std::vector<std::vector<int>>{{}, {1}, {1, 2}, {2, 1}, {1, 2, 3}, {1, 2}, {4, 3, 1, 2}})
        addNestedPath(ids);
    if (profile.shape == Shape::kRuns)
        addPathsOfRuns();
    addSubentPath({{}, 1, 0});
    addSubentPath({{1, mInvalid}, 1, 0});
    addSubentPath({{1, 0}, 1, 0});
    for (int entity = 1; entity <= 8; ++entity) {
        addSubentPath({{entity}, 1, 0});
        addSubentPath({{entity % 8 + 1, entity}, 1, entity % 2});
    }
    addSubentPath({{1}, 1, 1});
}

World::~World() {
    std::vector<std::string>().swap(sHighlightCalls);
    throwAtHighlight(0);
}

void World::makeEqual(int a, int b) {
    kvinmemory::makeEqual(id(a), id(b));
    mRules.makeEqual(a, b);
}

// Adds paths of up to four ids. These are few different ids, so that many paths begin alike. Some of the ids
// are spare ids.
void World::addPathsOfRuns() {
    for (int i = kNestedPathCount; i < kPathCountOfRuns; ++i) {
        std::vector<int> ids;
        for (int at = 0; at < i % 5; ++at) {
            const int part = (i / 5 + 3 * at) % 7;
            ids.push_back(i % 4 == 3 && at == 1 ? kFirstSpare + part : part);
        }
        addNestedPath(ids);
    }
}

// The number of an id is also the handle of its object, since the ids are made in the order of their numbers.
int World::numberOf(const GxDbObjectId& id) const {
    return static_cast<int>(mDatabase.handleOf(id));
}

bool World::opens(int number) const {
    // Compares the number itself: an id that equals an erased id may still open.
    return number != 0 && number != mInvalid && number != mErased;
}

std::optional<int> World::entityOf(const SubentPath& path) const {
    if (path.ids.empty())
        return std::nullopt;
    const int last = path.ids.back();
    if (mRules.isNull(last) || last == mInvalid)
        return std::nullopt;
    return last;
}

const KvVector<GxDbObjectId>* World::nestedPath(int number) const {
    return number < 0 ? nullptr : &mNestedPaths[static_cast<std::size_t>(number)];
}

const Vector<int>* World::modelNestedPath(int number) const {
    return number < 0 ? nullptr : &mModelNestedPaths[static_cast<std::size_t>(number)];
}

GxGeMatrix3d World::matrix(int number) {
    constexpr double kFarBelowTolerance = 1e-12;
    return kvtest::matrixMovedBy(number == 2 ? 1 + kFarBelowTolerance : number);
}

std::optional<Info> World::modelInfo(int number) {
    return number < 0 ? std::nullopt : std::optional<Info>(kInfos[number]);
}

GxapSelectedEntInfo* World::makeInfo(int number) {
    if (number < 0)
        return nullptr;
    const Info& contents = kInfos[number];
    GxapSelectedEntInfo* const info = kvtest::makeInfo();
    info->word0 = contents.word0;
    if (contents.matrix != 0)
        info->setCompoundTransformWithBTROffset(matrix(contents.matrix));
    if (contents.fenceIndex >= 0)
        info->setSelFenceResultInfo({contents.fenceIndex, 0, contents.fenceParam});
    return info;
}

void World::addNestedPath(const std::vector<int>& ids) {
    KvVector<GxDbObjectId> path;
    Vector<int> modelPath;
    for (int number : ids) {
        kvtest::append(path, id(number));
        modelPath.push(number);
    }
    if (modelPath.block())
        modelPath.block()->actual = path.data.block;
    mNestedPaths.push_back(path);
    mModelNestedPaths.push_back(modelPath);
}

void World::addSubentPath(const SubentPath& path) {
    auto actual = std::make_unique<GxDbFullSubentPath>();
    actual->objectIds().setLogicalLength(static_cast<int>(path.ids.size()));
    for (std::size_t i = 0; i < path.ids.size(); ++i)
        actual->objectIds()[static_cast<int>(i)] = id(path.ids[i]);
    actual->subentId() = {path.type, path.index, nullptr};
    mSubentPaths.push_back(std::move(actual));
    mModelSubentPaths.push_back(path);
}

// No stream: a stream that lacks memory throws nothing, but cuts the text.
std::string World::highlightCall(bool on, bool flag, const void* path) {
    std::string call = on ? "+" : "-";
    call += flag ? '1' : '0';
    return call += std::to_string(reinterpret_cast<std::uintptr_t>(path));
}

std::vector<std::string> World::takeHighlightCalls() {
    return std::exchange(sHighlightCalls, {});
}

void World::throwAtHighlight(int nth) {
    sCallsToThrow = nth;
}

} // namespace kvmodel
