// A drawing in the in-memory database: curves, block definitions and references to them.
//
// What a block contains is in the database once, however often the block is placed. An entity that is seen is
// therefore named by its path: the ids of the references from the outermost one inwards, and its own.
#pragma once

#include "examples/picker/BoxTree.h"
#include "examples/picker/Scene.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace picker {

class BlockDefinition;

// The types of parts that paths lead to: an entity as a whole, with the gs marker of its item as index, or
// one segment of it by its number.
constexpr std::int32_t kWholePart = 0;
constexpr std::int32_t kEdgePart = 2;

// Segment n of the outline, counted from 1, is what gs marker n names.
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
    // Either a curve or a reference; the other one is null.
    struct Content {
        GxDbObjectId id;
        const Curve* curve;
        const BlockReference* reference;

        Box box() const; // in the block's coordinates
    };

    explicit BlockDefinition(std::string name) : mName(std::move(name)) {}

    const std::string& name() const { return mName; }
    const std::vector<Content>& contents() const { return mContents; } // in drawing order
    const Content* find(GxDbObjectId id) const;   // null where it is not directly in this block; O(log n)
    const BoxTree& tree() const { return mTree; } // of the contents, by their index
    const Box& box() const { return mBox; }
    // Curves that one reference to the block shows, at any depth. The largest number stands for more as well.
    std::uint64_t curveCount() const { return mCurveCount; }

private:
    friend class Drawing;

    void add(const Content& content) { mContents.push_back(content); }
    // When the contents are complete, those of all blocks inside included.
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
    // All blocks, the model first.
    const std::vector<const BlockDefinition*>& blocks() const { return mBlocks; }

    // Null where the id is that of something else.
    const Curve* curve(GxDbObjectId id) const;
    const BlockReference* reference(GxDbObjectId id) const;

    // "17 line", "4 chair": the handle, and the kind of a curve or the block of a reference.
    std::string label(GxDbObjectId id) const;
    // By handle or name; the null id where there is none.
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
