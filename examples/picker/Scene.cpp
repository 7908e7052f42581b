#include "examples/picker/Scene.h"

#include <utility>

namespace picker {
namespace {

enum class Mark { untouched, open, done };

// A block on the way from the drawing to the current block. Contents up to `kept` stay. Those up to `next`
// have been visited.
struct Visit {
    std::size_t block;
    std::size_t next = 0;
    std::size_t kept = 0;
};

} // namespace

void Scene::omit(const std::string& what, std::size_t line) {
    const auto [place, isNew] = mOmissionPlaces.emplace(what, omissions.size());
    if (isNew)
        omissions.push_back({what, 1, line});
    else
        ++omissions[place->second].count;
}

void Scene::untangle() {
    std::vector<Mark> marks(blocks.size(), Mark::untouched);
    std::vector<Visit> way{{0}};
    marks[0] = Mark::open;
    while (!way.empty()) {
        Visit& visit = way.back();
        auto& contents = blocks[visit.block].contents;
        if (visit.next == contents.size()) {
            contents.resize(visit.kept);
            marks[visit.block] = Mark::done;
            innermostFirst.push_back(visit.block);
            way.pop_back();
            continue;
        }
        const Insert* insert = std::get_if<Insert>(&contents[visit.next]);
        if (insert && marks[insert->block] == Mark::open) {
            omit("use inside itself", insert->line);
            ++visit.next;
            continue;
        }
        const std::size_t inserted = insert ? insert->block : visit.block;
        if (visit.kept != visit.next)
            contents[visit.kept] = std::move(contents[visit.next]);
        ++visit.kept;
        ++visit.next;
        if (marks[inserted] == Mark::untouched) {
            marks[inserted] = Mark::open;
            way.push_back({inserted});
        }
    }
}

} // namespace picker
