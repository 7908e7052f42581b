// What a drawing file says, before anything of it is in a database: blocks of shapes and of inserts of other
// blocks.
#pragma once

#include "examples/picker/Outline.h"

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

namespace picker {

struct Shape {
    std::string type; // "line", "path", ...
    std::string name; // may be empty
    Outline outline;  // in the block's coordinates
};

struct Insert {
    std::size_t block; // index in Scene::blocks
    Affine placement;  // from that block's coordinates to this one's
    std::string name;
    std::size_t line = 0; // in the file
};

struct SceneBlock {
    std::string name;
    std::vector<std::variant<Shape, Insert>> contents; // in drawing order
};

// Something that is in the file but not, or not wholly, in the scene.
struct Omission {
    std::string what;
    std::size_t count;
    std::size_t firstLine;
};

struct Scene {
    std::string name;
    std::string source;                      // the file's text
    std::vector<SceneBlock> blocks;          // the first one is the drawing itself
    std::vector<std::size_t> innermostFirst; // all blocks, each behind the blocks that it inserts
    std::vector<Omission> omissions;
    Box page;

    void omit(const std::string& what, std::size_t line);
    // Takes out the inserts through which a block would contain itself, and fills innermostFirst.
    void untangle();
};

} // namespace picker
