// A drawing in the in-memory database: curves, block definitions and references to them.
//
// The contents of a block are in the database only once, even if the drawing shows the block many times. So
// an id does not tell which of these occurrences the user means. A path does: it has the ids of the
// references, outermost first, and then the entity's own id.
#pragma once

#include "examples/picker/BoxTree.h"
#include "examples/picker/Interrupt.h"
#include "examples/picker/Scene.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace picker {

class BlockDefinition;

// Types of the parts that paths lead to, for GxDbSubentId::type. If the part is a whole entity, its
// GxDbSubentId::index is the marker of the item. If the part is an edge, the index is the number of the
// segment, counted from 1.
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
    // An entity in the block. Either `curve` or `reference` is null.
    struct Content {
        GxDbObjectId id;
        const Curve* curve;
        const BlockReference* reference;

        Box box() const; // in the block's coordinates
    };

    explicit BlockDefinition(std::string name) : mName(std::move(name)) {}

    const std::string& name() const { return mName; }
    const std::vector<Content>& contents() const { return mContents; } // in drawing order
    const Content* find(GxDbObjectId id) const;   // null if `id` is not directly in this block; O(log n)
    const BoxTree& tree() const { return mTree; } // finds contents by their boxes, as indices of contents()
    const Box& box() const { return mBox; }
    // Returns how many curves one reference to the block shows, including those in nested blocks. Returns the
    // largest number of the type if there are more.
    std::uint64_t curveCount() const { return mCurveCount; }

private:
    friend class Drawing;

    void add(const Content& content) { mContents.push_back(content); }
    // Computes box, tree and curve count. The contents of this block must be complete. All blocks in it must
    // be finished.
    void finish();

    std::string mName;
    std::vector<Content> mContents;
    BoxTree mTree;
    Box mBox;
    std::uint64_t mCurveCount = 0;
};

class Drawing {
public:
    // Throws Cancelled if `interrupt` is not null and requests it.
    explicit Drawing(const Scene& scene, Interrupt* interrupt = nullptr);

    const std::string& name() const { return mName; }
    const std::string& source() const { return mSource; } // the file's text
    const Box& page() const { return mPage; }
    const std::vector<Omission>& omissions() const { return mOmissions; }
    const kvinmemory::Database& database() const { return mDatabase; }

    const BlockDefinition& model() const { return *mBlocks.front(); }
    // Returns all blocks, the model first.
    const std::vector<const BlockDefinition*>& blocks() const { return mBlocks; }

    // curve() returns null if `id` names no curve. reference() returns null if `id` names no reference.
    const Curve* curve(GxDbObjectId id) const;
    const BlockReference* reference(GxDbObjectId id) const;

    // Returns the handle of an object, with the type of a curve or the block name of a reference: "17 line",
    // "4 chair".
    std::string label(GxDbObjectId id) const;
    // Finds an object by handle or name. Returns the null id if there is none.
    GxDbObjectId find(const std::string& handleOrName) const;

private:
    void addContents(BlockDefinition& block, const SceneBlock& source,
                     const std::vector<BlockDefinition*>& definitions, Interrupt* interrupt);

    kvinmemory::Database mDatabase;
    std::string mName;
    std::string mSource;
    Box mPage;
    std::vector<Omission> mOmissions;
    std::vector<const BlockDefinition*> mBlocks;
};

} // namespace picker
