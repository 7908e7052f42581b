// What the user works on: one drawing, and named working sets of which one is current.
//
// An entity of a block is in a set by the outermost reference as main id, its own id as sub id, and the whole
// path between them; the compound transform of the references is in its info.
#pragma once

#include "examples/picker/Drawing.h"
#include "examples/picker/Filter.h"
#include "examples/picker/Picker.h"
#include "selectcontext/KvSelectContext.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace picker {

// A command that cannot be done as it was asked.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a pick did to the set.
struct Tally {
    std::uint32_t found = 0;
    std::uint32_t added = 0;

    std::uint32_t refused() const { return found - added; }
};

// What a transfer did: items that matched, and those of them that the target took.
struct Transfer {
    std::uint32_t matched = 0;
    std::uint32_t added = 0;
};

// The two words by which the list of named sets knows a set.
using SetWords = std::array<long, 2>;

// There is one list of named sets in a process, so there is one session at a time that saves sets.
class Session {
public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // Replaces the drawing; all sets of the old one go.
    void load(const std::string& file);
    void load(const Scene& scene);
    const std::string& file() const { return mFile; } // empty where the drawing came from elsewhere

    bool hasDrawing() const { return mDrawing != nullptr; }
    const Drawing& drawing() const; // CommandError without one

    double aperture() const { return mAperture; }
    void setAperture(double aperture) { mAperture = aperture; }

    // ---- picks, into the current set

    Tally pick(Point p, double aperture);
    Tally window(const Box& box);
    Tally crossing(const Box& box);
    Tally fence(const std::vector<Point>& chain);
    Tally all();
    // The entities at the ends of paths of ids, as a whole. CommandError where a path leads nowhere; then no
    // entity is added.
    Tally byPaths(const std::vector<std::vector<GxDbObjectId>>& paths);

    // ---- working sets

    const std::map<std::string, GxapSelectSet>& sets() const { return mSets; }
    const std::string& currentName() const { return mCurrent; }
    const GxapSelectSet& set() const { return mSets.at(mCurrent); }
    const GxapSelectSet& set(const std::string& name) const; // CommandError where there is none
    // Makes the set current; it is empty if it is new.
    void use(const std::string& name);
    // The copy shares its data with the current set until one of them changes.
    void copyTo(const std::string& name);
    // The target may be one of the operands.
    void assign(const std::string& target, const std::string& source);
    void unite(const std::string& target, const std::string& a, const std::string& b);
    void subtract(const std::string& target, const std::string& a, const std::string& b);
    // Adds the items of the current set whose main entity matches to another set.
    Transfer copyMatching(const Filter& filter, const std::string& target);
    // And takes them out of the current one.
    Transfer moveMatching(const Filter& filter, const std::string& target);

    // ---- edits of the current set

    // Each answers how many items went.
    std::uint32_t removeNearest(Point p, double aperture);
    std::uint32_t removeInside(const Box& box); // of the entities wholly inside
    // Of the entities at the ends of paths of ids; an id alone stands for all items under that main id.
    std::uint32_t removePaths(const std::vector<std::vector<GxDbObjectId>>& paths);
    std::uint32_t removeAt(int position);
    std::uint32_t setUnique(bool on);
    void clear();

    // ---- edges: single segments of an entity, in an item of their own

    // The segment nearest to the point, where there is one. CommandError where the entity is in the set
    // otherwise.
    Tally addEdge(Point p, double aperture);
    void removeEdge(int position, int edge);

    // ---- highlights

    // The whole path of each item, or its edges; and none of it. CommandError, with nothing done, where a
    // position has no item.
    void highlight(const std::vector<int>& positions);
    void unhighlight(const std::vector<int>& positions);
    void highlightAll();
    void unhighlightAll();
    // The segment nearest to the point, in addition to what its item shows. CommandError where the entity is
    // not in the set. Answers the item's position, or nothing where no entity is there.
    std::optional<int> highlightSegment(Point p, double aperture);

    // ---- sets with names, in the process's list

    const std::map<std::string, SetWords>& savedSets() const { return mSaved; }
    const GxapSelectSet& saved(const std::string& name) const; // CommandError where there is none
    const SetWords& save(const std::string& name);
    void recall(const std::string& name);
    void drop(const std::string& name);

private:
    using Item = GxapSelectSet::ConstIterator;

    Tally collect(const std::function<void(Picker&, const Picker::Found&)>& pick);
    void add(const Pick& pick);
    Pick pickAt(const std::vector<GxDbObjectId>& path) const;
    GxapSSetWriteAccessor& edit();
    void expectPosition(int position) const;
    Transfer transfer(const Filter& filter, const std::string& target, std::set<GxDbObjectId>& mainIds);
    std::uint32_t removeIf(const std::function<bool(const Item&)>& isDoomed);
    std::uint32_t removePlaced(const std::set<std::vector<GxDbObjectId>>& paths);
    GxapSelectSet::Iterator edgeItem(GxDbObjectId id);
    void highlight(GxapSelectSet::Iterator& it);
    void unhighlight(GxapSelectSet::Iterator& it);
    void dropAll();

    std::unique_ptr<const Drawing> mDrawing;
    std::string mFile;
    // Items share the paths of their edges with the items of copied sets, so the paths stay as long as any
    // set of the drawing does.
    std::vector<std::unique_ptr<GxDbFullSubentPath>> mEdgePaths;
    std::map<std::string, SetWords> mSaved;
    std::map<std::string, GxapSelectSet> mSets = freshSets();
    std::string mCurrent = kFirstSet;
    double mAperture = 3;

    static constexpr const char* kFirstSet = "A";
    static std::map<std::string, GxapSelectSet> freshSets();
};

// The number of items of a set.
std::uint32_t itemCount(const GxapSelectSet& set);

// The ids that lead to an item's entity; the main id alone where it is in no block.
std::vector<GxDbObjectId> pathOf(const GxapSelectSet::ConstIterator& it);

} // namespace picker
