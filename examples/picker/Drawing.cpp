#include "examples/picker/Drawing.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>
#include <utility>

namespace picker {
namespace {

std::uint64_t saturatedSum(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t sum = a + b;
    return sum < a ? std::numeric_limits<std::uint64_t>::max() : sum;
}

} // namespace

Box BlockDefinition::Content::box() const {
    return reference ? reference->placement()(reference->block().box()) : curve->outline().box();
}

const BlockDefinition::Content* BlockDefinition::find(GxDbObjectId id) const {
    // The contents are in drawing order, and their ids were issued in that order. So they are sorted by id.
    const auto found =
        std::lower_bound(mContents.begin(), mContents.end(), id,
                         [](const Content& content, GxDbObjectId wanted) { return content.id < wanted; });
    return found != mContents.end() && found->id == id ? &*found : nullptr;
}

void BlockDefinition::finish() {
    std::vector<Box> boxes;
    boxes.reserve(mContents.size());
    for (const Content& content : mContents) {
        const BlockReference* reference = content.reference;
        boxes.push_back(content.box());
        mBox.add(boxes.back());
        mCurveCount = saturatedSum(mCurveCount, reference ? reference->block().curveCount() : 1);
    }
    mTree = BoxTree(boxes);
}

Drawing::Drawing(const Scene& scene, Interrupt* interrupt)
    : mName(scene.name), mSource(scene.source), mPage(scene.page), mOmissions(scene.omissions) {
    // Makes all definitions before it fills any: a reference may refer to any definition.
    std::vector<std::unique_ptr<BlockDefinition>> owned;
    std::vector<BlockDefinition*> definitions;
    for (const SceneBlock& source : scene.blocks) {
        owned.push_back(std::make_unique<BlockDefinition>(source.name));
        definitions.push_back(owned.back().get());
    }
    for (std::size_t i = 0; i < definitions.size(); ++i) {
        mDatabase.add(std::move(owned[i]));
        addContents(*definitions[i], scene.blocks[i], definitions, interrupt);
    }
    for (const std::size_t block : scene.innermostFirst)
        definitions[block]->finish();
    mBlocks.assign(definitions.begin(), definitions.end());
}

void Drawing::addContents(BlockDefinition& block, const SceneBlock& source,
                          const std::vector<BlockDefinition*>& definitions, Interrupt* interrupt) {
    for (const auto& item : source.contents) {
        if (interrupt)
            interrupt->check();
        if (const Shape* shape = std::get_if<Shape>(&item)) {
            auto curve = std::make_unique<Curve>(shape->type, shape->outline);
            const Curve* const added = curve.get();
            block.add({mDatabase.add(std::move(curve), shape->name), added, nullptr});
            continue;
        }
        const Insert& insert = std::get<Insert>(item);
        auto reference = std::make_unique<BlockReference>(*definitions[insert.block], insert.placement);
        const BlockReference* const added = reference.get();
        block.add({mDatabase.add(std::move(reference), insert.name), nullptr, added});
    }
}

const Curve* Drawing::curve(GxDbObjectId id) const {
    return dynamic_cast<const Curve*>(mDatabase.entity(id));
}

const BlockReference* Drawing::reference(GxDbObjectId id) const {
    return dynamic_cast<const BlockReference*>(mDatabase.entity(id));
}

std::string Drawing::label(GxDbObjectId id) const {
    std::string handle = std::to_string(mDatabase.handleOf(id));
    if (const Curve* found = curve(id))
        return handle + " " + found->type();
    if (const BlockReference* found = reference(id))
        return handle + " " + found->block().name();
    return handle;
}

GxDbObjectId Drawing::find(const std::string& handleOrName) const {
    std::uint64_t handle = 0;
    const char* const end = handleOrName.data() + handleOrName.size();
    const std::from_chars_result result = std::from_chars(handleOrName.data(), end, handle);
    if (result.ec == std::errc() && result.ptr == end)
        return mDatabase.findByHandle(handle);
    return mDatabase.findByName(handleOrName);
}

} // namespace picker
