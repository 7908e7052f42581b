#include "examples/picker/Scene.h"

#include <algorithm>

namespace picker {
namespace {

enum class Mark { untouched, open, done };

// A block on the way from the drawing to the current block. `next` is the index of the next content to visit.
struct Visit {
    std::size_t block;
    std::size_t next = 0;
};

} // namespace

void Scene::omit(const std::string& what, std::size_t line) {
    const auto known = std::find_if(omissions.begin(), omissions.end(),
                                    [&](const Omission& omission) { return omission.what == what; });
    if (known == omissions.end())
        omissions.push_back({what, 1, line});
    else
        ++known->count;
}

void Scene::untangle() {
    std::vector<Mark> marks(blocks.size(), Mark::untouched);
    std::vector<Visit> way{{0}};
    marks[0] = Mark::open;
    while (!way.empty()) {
        Visit& visit = way.back();
        auto& contents = blocks[visit.block].contents;
        if (visit.next == contents.size()) {
            marks[visit.block] = Mark::done;
            innermostFirst.push_back(visit.block);
            way.pop_back();
            continue;
        }
        const Insert* insert = std::get_if<Insert>(&contents[visit.next]);
        if (insert && marks[insert->block] == Mark::open) {
            omit("use inside itself", insert->line);
            contents.erase(contents.begin() + static_cast<std::ptrdiff_t>(visit.next));
            continue;
        }
        ++visit.next;
        if (insert && marks[insert->block] == Mark::untouched) {
            marks[insert->block] = Mark::open;
            way.push_back({insert->block});
        }
    }
}

} // namespace picker
