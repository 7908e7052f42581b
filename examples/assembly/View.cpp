#include "examples/assembly/View.h"

#include <Aspect_DisplayConnection.hxx>
#include <Bnd_Box.hxx>
#include <Image_AlienPixMap.hxx>
#include <OpenGl_GraphicDriver.hxx>
#include <SelectMgr_EntityOwner.hxx>
#include <Standard_Failure.hxx>
#include <StdSelect_BRepOwner.hxx>
#include <StdSelect_ViewerSelector3d.hxx>
#include <V3d_Viewer.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace assembly {

using kvopencascade::Database;
using kvopencascade::IdPath;
using kvopencascade::Place;

namespace {

Handle(V3d_Viewer) newViewer(const Handle(Aspect_DisplayConnection) & display) {
    const Handle(OpenGl_GraphicDriver) driver = new OpenGl_GraphicDriver(display, false);
    driver->ChangeOptions().swapInterval = 0;
    driver->ChangeOptions().ffpEnable = false;
    Handle(V3d_Viewer) viewer = new V3d_Viewer(driver);
    viewer->SetDefaultLights();
    viewer->SetLightOn();
    return viewer;
}

int selectionModeOf(PickMode mode) {
    switch (mode) {
    case PickMode::kFace:
        return AIS_Shape::SelectionMode(TopAbs_FACE);
    case PickMode::kEdge:
        return AIS_Shape::SelectionMode(TopAbs_EDGE);
    default:
        return AIS_Shape::SelectionMode(TopAbs_SHAPE);
    }
}

Quantity_Color colorOf(const TDF_Label& part) {
    Quantity_Color color(Quantity_NOC_GRAY60);
    XCAFDoc_DocumentTool::ColorTool(part)->GetColor(part, XCAFDoc_ColorSurf, color);
    return color;
}

} // namespace

View::View(const std::vector<IdPath>& paths, const ViewSize& size, bool hasWindow) : mSize(size) {
    try {
        open(hasWindow);
    } catch (const Standard_Failure& failure) {
        throw ViewError(std::string("there is no display: ") + failure.GetMessageString());
    }
    for (const IdPath& path : paths)
        add(path);
    mView->SetProj(V3d_XnegYnegZpos);
    fit();
}

void View::open(bool hasWindow) {
    if (std::getenv("DISPLAY") == nullptr)
        throw ViewError("there is no display: DISPLAY is not set (xvfb-run provides one)");
    const Handle(Aspect_DisplayConnection) display = new Aspect_DisplayConnection;
    const Handle(V3d_Viewer) viewer = newViewer(display);
    mContext = new AIS_InteractiveContext(viewer);
    mContext->SetAutomaticHilight(false); // the selection sets decide what is highlighted
    mContext->SetPixelTolerance(1);
    mView = viewer->CreateView();
    mWindow = new Xw_Window(display, "assembly", 0, 0, mSize.width, mSize.height);
    mWindow->SetVirtual(!hasWindow);
    mView->SetWindow(mWindow);
    if (hasWindow)
        mWindow->Map();
    mView->SetBackgroundColor(Quantity_NOC_WHITE);
}

void View::add(const IdPath& path) {
    Place place;
    if (!Database::locate(kvopencascade::subentPathOf(path), place))
        throw ViewError("an instance has no place: " + Database::nameOf(path.back()));
    const Handle(AIS_Shape) object = new AIS_Shape(place.shape);
    object->SetLocalTransformation(place.placement);
    object->SetColor(colorOf(place.part));
    mContext->Display(object, AIS_Shaded, selectionModeOf(PickMode::kPart), false);
    mInstanceOf.emplace(object.get(), mObjects.size());
    mObjects.push_back(object);
}

// ---- Picking

void View::setMode(PickMode mode) {
    mContext->Deactivate();
    for (const Handle(AIS_Shape) & object : mObjects)
        mContext->Activate(object, selectionModeOf(mode));
}

std::optional<Hit> View::at(int x, int y) {
    mContext->MainSelector()->Pick(x, y, mView);
    const std::vector<Hit> found = hits();
    if (found.empty())
        return std::nullopt;
    return found.front();
}

std::vector<Hit> View::inBox(int x1, int y1, int x2, int y2, bool crossing) {
    const Handle(StdSelect_ViewerSelector3d)& selector = mContext->MainSelector();
    selector->AllowOverlapDetection(crossing);
    selector->Pick(std::min(x1, x2), std::min(y1, y2), std::max(x1, x2), std::max(y1, y2), mView);
    selector->AllowOverlapDetection(false);
    std::vector<Hit> found = hits();
    std::sort(found.begin(), found.end(), [](const Hit& a, const Hit& b) {
        return std::tie(a.instance, a.part.type, a.part.index) <
               std::tie(b.instance, b.part.type, b.part.index);
    });
    return found;
}

// Returns what the selector has found, the nearest first.
std::vector<Hit> View::hits() const {
    const Handle(StdSelect_ViewerSelector3d)& selector = mContext->MainSelector();
    std::vector<Hit> found;
    for (int rank = 1; rank <= selector->NbPicked(); ++rank) {
        const Handle(StdSelect_BRepOwner) owner =
            Handle(StdSelect_BRepOwner)::DownCast(selector->Picked(rank));
        if (owner.IsNull())
            continue;
        const auto instance = mInstanceOf.find(owner->Selectable().get());
        if (instance == mInstanceOf.end())
            continue;
        const TopoDS_Shape& whole = mObjects[instance->second]->Shape();
        found.push_back({instance->second, Database::subentIdOf(whole, owner->Shape())});
    }
    return found;
}

// ---- The picture

void View::fit(const std::vector<std::size_t>& instances) {
    if (instances.empty())
        return mView->FitAll(0.02, false);
    Bnd_Box all;
    for (std::size_t instance : instances) {
        Bnd_Box box;
        mObjects[instance]->BoundingBox(box);
        all.Add(box);
    }
    mView->FitAll(all, 0.3, false);
}

std::unique_ptr<Image_PixMap> View::picture() {
    auto picture = std::make_unique<Image_AlienPixMap>();
    V3d_ImageDumpOptions options;
    options.Width = mSize.width;
    options.Height = mSize.height;
    options.BufferType = Graphic3d_BT_RGB;
    if (!mView->ToPixMap(*picture, options))
        throw ViewError("the picture cannot be drawn");
    return picture;
}

void View::save(const std::string& file) {
    const std::unique_ptr<Image_PixMap> drawn = picture();
    if (!static_cast<Image_AlienPixMap&>(*drawn).Save(file.c_str()))
        throw ViewError(file + ": the picture cannot be written");
}

void View::redraw() {
    if (!mWindow->IsVirtual())
        mView->Redraw();
}

} // namespace assembly
