#include "examples/picker/Session.h"

#include "examples/picker/SvgReader.h"

#include <new>

namespace picker {
namespace {

// An info belongs to nobody until a set takes it over.
struct InfoDeleter {
    void operator()(GxapSelectedEntInfo* info) const {
        info->~GxapSelectedEntInfo();
        _kvFree(info);
    }
};
using InfoPointer = std::unique_ptr<GxapSelectedEntInfo, InfoDeleter>;

InfoPointer newInfo() {
    void* const memory = _kvMalloc(sizeof(GxapSelectedEntInfo));
    if (!memory)
        throw std::bad_alloc();
    return InfoPointer(new (memory) GxapSelectedEntInfo);
}

GxGeMatrix3d toMatrix(const Affine& affine) {
    GxGeMatrix3d matrix;
    matrix.entry[0][0] = affine.a;
    matrix.entry[1][0] = affine.b;
    matrix.entry[0][1] = affine.c;
    matrix.entry[1][1] = affine.d;
    matrix.entry[0][3] = affine.e;
    matrix.entry[1][3] = affine.f;
    return matrix;
}

// Null where a plain pick has nothing more to say.
InfoPointer infoOf(const Pick& pick) {
    if (!pick.isNested() && !pick.crossing)
        return nullptr;
    InfoPointer info = newInfo();
    if (pick.isNested())
        info->setCompoundTransformWithBTROffset(toMatrix(pick.placement));
    if (pick.crossing)
        info->setSelFenceResultInfo({pick.crossing->segment, 0, pick.crossing->parameter});
    return info;
}

KvVector<GxDbObjectId> toVector(const std::vector<GxDbObjectId>& path) {
    KvVector<GxDbObjectId> ids;
    ids.setLogicalLength(static_cast<int>(path.size()));
    for (std::size_t i = 0; i < path.size(); ++i)
        ids.at(static_cast<int>(i)) = path[i];
    return ids;
}

} // namespace

std::uint32_t itemCount(const GxapSelectSet& set) {
    return set.sharedData ? set.sharedData->entityCount : 0;
}

std::map<std::string, GxapSelectSet> Session::freshSets() {
    std::map<std::string, GxapSelectSet> sets;
    sets.try_emplace(kFirstSet);
    return sets;
}

void Session::load(const std::string& file) {
    load(readSvg(file));
}

void Session::load(const Scene& scene) {
    auto drawing = std::make_unique<const Drawing>(scene);
    mSets = freshSets();
    mCurrent = kFirstSet;
    mDrawing = std::move(drawing);
}

const Drawing& Session::drawing() const {
    if (!mDrawing)
        throw CommandError("there is no drawing yet: load FILE");
    return *mDrawing;
}

GxapSSetWriteAccessor& Session::edit() {
    return static_cast<GxapSSetWriteAccessor&>(mSets.at(mCurrent));
}

void Session::use(const std::string& name) {
    mSets.try_emplace(name);
    mCurrent = name;
}

void Session::copyTo(const std::string& name) {
    mSets[name] = set();
}

Tally Session::pick(Point p, double aperture) {
    return collect([&](Picker& picker, const Picker::Found& found) {
        if (const std::optional<Pick> nearest = picker.nearest(p, aperture))
            found(*nearest);
    });
}

Tally Session::window(const Box& box) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.window(box, found); });
}

Tally Session::crossing(const Box& box) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.crossing(box, found); });
}

Tally Session::fence(const std::vector<Point>& chain) {
    return collect([&](Picker& picker, const Picker::Found& found) { picker.fence(chain, found); });
}

Tally Session::all() {
    return collect([](Picker& picker, const Picker::Found& found) { picker.all(found); });
}

Tally Session::byPath(const std::vector<GxDbObjectId>& path) {
    Pick pick;
    const BlockDefinition* block = &drawing().model();
    for (const GxDbObjectId id : path) {
        const BlockDefinition::Content* content = block ? block->find(id) : nullptr;
        if (!content)
            throw CommandError(
                drawing().label(id) + " is not " +
                (pick.path.empty() ? "in the drawing itself" : "in " + drawing().label(pick.path.back())));
        if (!pick.path.empty())
            pick.placement = pick.placement * drawing().reference(pick.path.back())->placement();
        pick.path.push_back(id);
        block = content->reference ? &content->reference->block() : nullptr;
    }
    return collect([&](Picker&, const Picker::Found& found) { found(pick); });
}

Tally Session::collect(const std::function<void(Picker&, const Picker::Found&)>& pick) {
    Picker picker(drawing());
    const std::uint32_t before = itemCount(set());
    Tally tally;
    pick(picker, [&](const Pick& found) {
        add(found);
        ++tally.found;
    });
    tally.added = itemCount(set()) - before;
    return tally;
}

void Session::add(const Pick& pick) {
    InfoPointer info = infoOf(pick);
    if (!pick.isNested()) {
        edit().select(pick.path.front(), GxDbObjectId::kNull, pick.gsMarker, info.release(), nullptr);
        return;
    }
    const KvVector<GxDbObjectId> path = toVector(pick.path);
    // From the call on the set owns the info, also where it refuses the item or runs out of memory.
    edit().select(pick.path.front(), pick.path.back(), pick.gsMarker, info.release(), &path);
}

} // namespace picker
