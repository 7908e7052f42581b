// What the user works on: one drawing, and named working sets of which one is current.
//
// An entity of a block is in a set by the outermost reference as main id, its own id as sub id, and the whole
// path between them; the compound transform of the references is in its info.
#pragma once

#include "examples/picker/Drawing.h"
#include "examples/picker/Picker.h"
#include "selectcontext/KvSelectContext.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

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

class Session {
public:
    // Replaces the drawing; all sets of the old one go.
    void load(const std::string& file);
    void load(const Scene& scene);

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
    // The entity at the end of a path of ids, as a whole.
    Tally byPath(const std::vector<GxDbObjectId>& path);

    // ---- working sets

    const std::map<std::string, GxapSelectSet>& sets() const { return mSets; }
    const std::string& currentName() const { return mCurrent; }
    const GxapSelectSet& set() const { return mSets.at(mCurrent); }
    GxapSSetWriteAccessor& edit();
    // Makes the set current; it is empty if it is new.
    void use(const std::string& name);
    // The copy shares its data with the current set until one of them changes.
    void copyTo(const std::string& name);

private:
    Tally collect(const std::function<void(Picker&, const Picker::Found&)>& pick);
    void add(const Pick& pick);

    std::unique_ptr<const Drawing> mDrawing;
    std::map<std::string, GxapSelectSet> mSets = freshSets();
    std::string mCurrent = kFirstSet;
    double mAperture = 3;

    static constexpr const char* kFirstSet = "A";
    static std::map<std::string, GxapSelectSet> freshSets();
};

// The number of items of a set.
std::uint32_t itemCount(const GxapSelectSet& set);

} // namespace picker
