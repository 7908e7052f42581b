// An assembly, its view, and the sets of what the user has picked.
#pragma once

#include "aids/KvSelectContextAids.h"
#include "examples/assembly/View.h"
#include "platform/opencascade/OpenCascadeDatabase.h"
#include "selectcontext/KvSelectContext.h"

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace assembly {

// A command that cannot be done. The text is for the user.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// How two sets are combined.
enum class Combination { kUnion, kDifference, kIntersection };

// Invariants:
//  1. What leaves a set is destroyed, and so are its highlights.
//  2. Every path in a set is one of the instances.
//
// Thread safety: one thread at a time.
class Session {
public:
    // The document stays open until the session is destroyed.
    Session(const Handle(TDocStd_Document) & document, const ViewSize& size, bool hasWindow);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // ---- Picks; they return how many items the set has more

    void setMode(PickMode mode);
    int pick(int x, int y);
    int pickBox(int x1, int y1, int x2, int y2, bool crossing);
    int pickByName(const std::string& name); // all instances of parts with this name
    int pickSameParts();                     // all instances of the parts in the set

    // ---- The current set

    const GxapSelectSet& picked() const { return mPicked; }
    int count() const;
    void remove(int index);
    void clear();
    void combine(Combination how, const std::string& name);
    void subselectFace(int x, int y); // of the part under a pixel, in an item of the part

    void highlight();
    void unhighlight();

    // ---- Named sets

    void save(const std::string& name);
    void load(const std::string& name);
    const std::map<std::string, GxapSelectSet>& named() const { return mNamed; }

    // ---- The assembly

    const std::vector<kvopencascade::IdPath>& instances() const { return mInstances; }
    kvopencascade::Database& database() { return mDatabase; }
    View& view() { return mView; }
    void fitPicked();

private:
    // Closes the document after all else is gone.
    struct OpenDocument {
        Handle(TDocStd_Document) document;
        ~OpenDocument();
    };

    int add(const std::vector<Hit>& hits);
    void add(const Hit& hit);
    const GxapSelectSet& find(const std::string& name) const;

    OpenDocument mOpen;
    kvopencascade::Database mDatabase;
    std::vector<kvopencascade::IdPath> mInstances;
    View mView;
    kvopencascade::ViewHighlighter mHighlighter;
    kv::SubselectionPaths mSubselections;
    std::map<std::string, GxapSelectSet> mNamed;
    GxapSelectSet mPicked;
};

} // namespace assembly
