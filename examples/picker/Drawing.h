// A drawing in the in-memory database: curves, block definitions and references to them.
//
// The contents of a block are in the database once, however often the block is placed. A path therefore names
// an entity as the user sees it: the ids of the references from the outermost one inwards, then the entity's
// own id.
#pragma once

#include "examples/picker/BoxTree.h"
#include "examples/picker/Scene.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace picker {

class BlockDefinition;

// The types of the parts that paths lead to. A whole entity has the marker of its item as index. A segment of
// an entity has its number as index.
constexpr std::int32_t kWholePart = 0;
constexpr std::int32_t kEdgePart = 2;

// An entity with an outline. Marker n names segment n of the outline, counted from 1.
class Curve : public kvinmemory::Entity {
public:
    Curve(std::string type, Outline outline) : mType(std::move(type)), mOutline(std::move(outline)) {}

    const std::string& type() const { return mType; }
    const Outline& outline() const { return mOutline; }

private:
    std::string mType;
    Outline mOutline;
};

class BlockReference : public kvinmemory::Entity {
public:
    BlockReference(const BlockDefinition& block, const Affine& placement)
        : mBlock(block), mPlacement(placement) {}

    const BlockDefinition& block() const { return mBlock; }
    const Affine& placement() const { return mPlacement; }

private:
    const BlockDefinition& mBlock;
    Affine mPlacement;
};

class BlockDefinition : public kvinmemory::NonEntity {
public:
    // An entity in the block: a curve or a reference. The pointer to the other kind is null.
    struct Content {
        GxDbObjectId id;
        const Curve* curve;
        const BlockReference* reference;

        Box box() const; // in the block's coordinates
    };

    explicit BlockDefinition(std::string name) : mName(std::move(name)) {}

    const std::string& name() const { return mName; }
    const std::vector<Content>& contents() const { return mContents; } // in drawing order
    const Content* find(GxDbObjectId id) const;   // null if it is not directly in this block; O(log n)
    const BoxTree& tree() const { return mTree; } // finds contents by their boxes, as indices of contents()
    const Box& box() const { return mBox; }
    // Returns the number of curves that one reference to the block shows, at any depth. A number that is too
    // large for the type is returned as the largest number.
    std::uint64_t curveCount() const { return mCurveCount; }

private:
    friend class Drawing;

    void add(const Content& content) { mContents.push_back(content); }
    // Computes box, tree and curve count. The contents of this block and of all blocks in it must be
    // complete.
    void finish();

    std::string mName;
    std::vector<Content> mContents;
    BoxTree mTree;
    Box mBox;
    std::uint64_t mCurveCount = 0;
};

class Drawing {
public:
    explicit Drawing(const Scene& scene);

    const std::string& name() const { return mName; }
    const std::string& source() const { return mSource; } // the file's text
    const Box& page() const { return mPage; }
    const std::vector<Omission>& omissions() const { return mOmissions; }
    const kvinmemory::Database& database() const { return mDatabase; }

    const BlockDefinition& model() const { return *mBlocks.front(); }
    // Returns all blocks, the model first.
    const std::vector<const BlockDefinition*>& blocks() const { return mBlocks; }

    // Return null if `id` names no curve, or no reference.
    const Curve* curve(GxDbObjectId id) const;
    const BlockReference* reference(GxDbObjectId id) const;

    // Returns the handle, and the type of a curve or the block of a reference: "17 line", "4 chair".
    std::string label(GxDbObjectId id) const;
    // Finds an object by handle or name. Returns the null id if there is none.
    GxDbObjectId find(const std::string& handleOrName) const;

private:
    void addContents(BlockDefinition& block, const SceneBlock& source,
                     const std::vector<BlockDefinition*>& definitions);

    kvinmemory::Database mDatabase;
    std::string mName;
    std::string mSource;
    Box mPage;
    std::vector<Omission> mOmissions;
    std::vector<const BlockDefinition*> mBlocks;
};

} // namespace picker
