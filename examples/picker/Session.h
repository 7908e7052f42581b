// The user's work: one drawing, and working sets with names. One of the working sets is current.
//
// An item for an entity in a block has the outermost reference as main id and the entity as sub id. Its
// nested path leads from that reference to the entity. Its info has the compound transform of all references
// on the path.
#pragma once

#include "aids/History.h"
#include "aids/Reclaim.h"
#include "examples/picker/Drawing.h"
#include "examples/picker/Filter.h"
#include "examples/picker/Highlighter.h"
#include "examples/picker/Interrupt.h"
#include "examples/picker/Picker.h"
#include "selectcontext/KvSelectContext.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace picker {

// Thrown if a command cannot be done. The text is for the user.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// How many entities a pick found, and how many of them the set added.
struct Tally {
    std::uint32_t found = 0;
    std::uint32_t added = 0;

    std::uint32_t refused() const { return found - added; }
};

// How many items a transfer matched, and how many of them the target added.
struct Transfer {
    std::uint32_t matched = 0;
    std::uint32_t added = 0;
};

// The two words that name a set in the list of named sets.
using SetWords = std::array<long, 2>;

// The work of one user. An edit that fails or is cancelled leaves all sets as they were. An edit that changes
// a set can be undone; for that the set shares its data with its history, so each edit of a set copies its
// data once, which costs O(items).
//
// Only one session at a time can save sets, because a process has only one list of
// named sets.
class Session {
public:
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // Replace the drawing, and delete all sets of the old drawing.
    void load(const std::string& file);
    void load(const Scene& scene);
    const std::string& file() const { return mFile; } // empty if the drawing does not come from a file

    // Remember a file that was written, also when the drawing is replaced.
    void noteWritten(const std::filesystem::path& file);
    bool hasWritten(const std::filesystem::path& file) const;

    bool hasDrawing() const { return mDrawing != nullptr; }
    const Drawing& drawing() const; // CommandError if there is none

    // The link to the owner of long work: loading, picks, and what they are part of. These throw Cancelled.
    Interrupt& interrupt() { return mInterrupt; }

    double aperture() const { return mAperture; }
    void setAperture(double aperture) { mAperture = aperture; }

    // ---- picks, which add to the current set

    Tally pick(Point p, double aperture);
    Tally window(const Box& box);
    Tally crossing(const Box& box);
    Tally fence(const std::vector<Point>& chain);
    Tally all();
    // Adds the whole entities at the ends of paths of ids. If a path leads to no entity, throws CommandError
    // and adds no entity.
    Tally byPaths(const std::vector<std::vector<GxDbObjectId>>& paths);

    // ---- working sets

    const std::map<std::string, GxapSelectSet>& sets() const { return mSets; }
    const std::string& currentName() const { return mCurrent; }
    const GxapSelectSet& set() const { return mSets.at(mCurrent); }
    const GxapSelectSet& set(const std::string& name) const; // CommandError if there is none
    // Makes the set with this name current. Creates an empty set if no set has the name.
    void use(const std::string& name);
    // Copies the current set to `name`. Both sets share their data until one of them changes.
    void copyTo(const std::string& name);
    // Make the set `target` a copy of `source`, the union of `a` and `b`, or the items of `a` without those
    // of `b`. `target` may also be an operand.
    void assign(const std::string& target, const std::string& source);
    void unite(const std::string& target, const std::string& a, const std::string& b);
    void subtract(const std::string& target, const std::string& a, const std::string& b);
    // Adds to the set `target` the items of the current set whose main entity matches `filter`.
    Transfer copyMatching(const Filter& filter, const std::string& target);
    // Does what copyMatching() does, and then removes these items from the current set.
    Transfer moveMatching(const Filter& filter, const std::string& target);

    // ---- edits of the current set

    // The functions with a count return the number of removed items.
    std::uint32_t removeNearest(Point p, double aperture);
    std::uint32_t removeInside(const Box& box);   // removes the entities that are wholly inside
    std::uint32_t removeCrossing(const Box& box); // removes the entities that the box touches
    std::uint32_t removeFence(const std::vector<Point>& chain);
    // Removes the entities at the ends of paths of ids. A single id stands for all items with that main id.
    std::uint32_t removePaths(const std::vector<std::vector<GxDbObjectId>>& paths);
    std::uint32_t removeAt(int position);
    std::uint32_t setUnique(bool on);
    void clear();
    // Replaces the items by whole entities: all that the drawing shows and that no item stands for. An item
    // of a reference stands for all that the reference shows.
    void invert();
    // Adds the items of the set that was cleared last. If the current set has items, those that come have no
    // highlights and edges. Throws CommandError if no set was cleared.
    Tally addPrevious();

    // Calls edits(), whose edits of the current set count as one. If anything throws, the set is as before.
    void asOneEdit(const std::function<void()>& edits);

    // ---- history of the current set

    // undo() takes the last edit back, and redo() takes that back. They return false if there is none. Only
    // the last kMostUndos edits are kept, and none of an older drawing.
    static constexpr std::size_t kMostUndos = 16; // each may need as much memory as the set
    bool undo();
    bool redo();
    std::size_t undos() const;
    std::size_t redos() const;

    // ---- edges: the segments of an entity that its item sub-selects

    // Adds the segment nearest to the point, if a segment is near enough. Throws CommandError if the set
    // already has the entity as an item without edges.
    Tally addEdge(Point p, double aperture);
    void removeEdge(int position, int edge);

    // ---- highlights

    // highlight() highlights the edges of an item that has edges, and the whole path of any other item.
    // unhighlight() ends all highlights of the items. If a position has no item, both throw CommandError and
    // change nothing.
    void highlight(const std::vector<int>& positions);
    void unhighlight(const std::vector<int>& positions);
    void highlightAll();
    void unhighlightAll();
    // Highlights the segment nearest to the point. Earlier highlights of the entity's item stay. Returns the
    // position of the item, or nothing if there is no entity near the point. Throws CommandError if the
    // entity is not in the set.
    std::optional<int> highlightSegment(Point p, double aperture);

    // ---- sets with names, in the process's list

    const std::map<std::string, SetWords>& savedSets() const { return mSaved; }
    const GxapSelectSet& saved(const std::string& name) const; // CommandError if there is none
    const SetWords& save(const std::string& name);
    void recall(const std::string& name);
    void drop(const std::string& name);

private:
    using Item = GxapSelectSet::ConstIterator;
    using PickFunction = std::function<void(Picker&, const Picker::Found&)>;

    class Before;

    // Calls edit() and returns its result, which must not be void. `names` are the sets that it may change or
    // make. If anything throws, these sets are as before.
    template <class Edit>
    auto editing(const std::vector<std::string>& names, Edit edit) -> decltype(edit());
    void showHighlights();

    Tally collect(const PickFunction& pick);
    std::uint32_t removeFound(const PickFunction& pick);
    void add(const Pick& pick);
    Pick pickAt(const std::vector<GxDbObjectId>& path) const;
    GxapSSetWriteAccessor& edit(); // makes the data of the current set private
    void empty();
    bool step(bool (kv::History::*move)(GxapSelectSet&));
    void expectPosition(int position) const;
    Transfer transfer(const Filter& filter, const std::string& target, std::set<GxDbObjectId>& mainIds);
    std::uint32_t removeIf(const std::function<bool(const selected_entity&)>& isDoomed);
    std::uint32_t removePlaced(const std::set<std::vector<GxDbObjectId>>& paths);
    void dropAll();

    std::unique_ptr<const Drawing> mDrawing;
    std::string mFile;
    std::set<std::filesystem::path> mWritten;
    Interrupt mInterrupt;
    Highlighter mHighlighter;
    // The paths of edges, which items of several sets may share. So they live until the drawing is replaced.
    kv::SubselectionPaths mEdgePaths;
    std::map<std::string, SetWords> mSaved;
    std::map<std::string, GxapSelectSet> mSets = freshSets();
    std::map<std::string, kv::History> mHistories; // by the set's name
    std::optional<GxapSelectSet> mPrevious;        // the set that was cleared last
    std::string mCurrent = kFirstSet;
    bool mIsInEdit = false; // an edit that has others as parts is running
    double mAperture = 3;

    static constexpr const char* kFirstSet = "A";
    static std::map<std::string, GxapSelectSet> freshSets();
};

// Returns the number of items of a set.
std::uint32_t itemCount(const GxapSelectSet& set);

// Returns the ids that lead to an item's entity. Returns only the main id if the entity is in no block.
std::vector<GxDbObjectId> pathOf(const selected_entity& item);

} // namespace picker
