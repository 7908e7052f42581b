// Shows the instances of an assembly, and finds what is under a pixel or in a box.
#pragma once

#include "platform/opencascade/OpenCascadeViewer.h"

#include <AIS_InteractiveContext.hxx>
#include <AIS_Shape.hxx>
#include <Image_PixMap.hxx>
#include <V3d_View.hxx>
#include <Xw_Window.hxx>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace assembly {

// The text is one line, for the user.
class ViewError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a pick finds in a part.
enum class PickMode { kPart, kFace, kEdge };

// What a pick has found.
struct Hit {
    std::size_t instance; // position among the paths that the view shows
    GxDbSubentId part;    // the whole part, or a sub-shape
};

struct ViewSize {
    int width = 800;
    int height = 600;
};

// Pixels count from the upper left corner.
//
// Invariant: mObjects has one object for each path, in their order.
//
// Thread safety: one thread at a time.
class View {
public:
    // Shows the instances to which the paths lead, seen from the front, the left and above. Throws ViewError
    // without a display.
    View(const std::vector<kvopencascade::IdPath>& paths, const ViewSize& size, bool hasWindow);
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    void setMode(PickMode mode);

    // Finds what is nearest to the eye under a pixel.
    std::optional<Hit> at(int x, int y);

    // Finds what is wholly inside a box, or also what crosses its border. Hidden instances count, too. The
    // hits are in the order of the paths.
    std::vector<Hit> inBox(int x1, int y1, int x2, int y2, bool crossing);

    // Sees the named instances in the middle. Sees everything for no instance.
    void fit(const std::vector<std::size_t>& instances = {});

    // Returns the picture, or writes it to a file. Throw ViewError if that fails.
    std::unique_ptr<Image_PixMap> picture();
    void save(const std::string& file);

    // Draws the window again, if there is one.
    void redraw();

    const Handle(AIS_InteractiveContext) & context() const { return mContext; }
    const ViewSize& size() const { return mSize; }

private:
    void open(bool hasWindow);
    void add(const kvopencascade::IdPath& path);
    std::vector<Hit> hits() const;

    ViewSize mSize;
    Handle(AIS_InteractiveContext) mContext;
    Handle(V3d_View) mView;
    Handle(Xw_Window) mWindow;
    std::vector<Handle(AIS_Shape)> mObjects;
    std::unordered_map<const Standard_Transient*, std::size_t> mInstanceOf;
};

} // namespace assembly
