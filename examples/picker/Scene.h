// The contents of a drawing file, before they are added to a database. A scene has blocks, which have shapes
// and inserts of other blocks.
#pragma once

#include "examples/picker/Outline.h"

#include <cstddef>
#include <string>
#include <unordered_map>
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
    Affine placement;  // from that block's coordinates to those of the block that contains this insert
    std::string name;
    std::size_t line = 0; // in the file
};

struct SceneBlock {
    std::string name;
    std::vector<std::variant<Shape, Insert>> contents; // in drawing order
};

// Something in the file that the scene does not have, or has only in part.
struct Omission {
    std::string what;
    std::size_t count;
    std::size_t firstLine;
};

struct Scene {
    std::string name;
    std::string source;                      // the file's text
    std::vector<SceneBlock> blocks;          // the first one is the drawing itself
    std::vector<std::size_t> innermostFirst; // all blocks, each after the blocks that it inserts
    std::vector<Omission> omissions;
    Box page;

    // Counts an omission. O(1).
    void omit(const std::string& what, std::size_t line);
    // Removes the inserts through which a block would contain itself, and fills innermostFirst. O(contents).
    void untangle();

private:
    std::unordered_map<std::string, std::size_t> mOmissionPlaces; // in `omissions`, by what is omitted
};

} // namespace picker
