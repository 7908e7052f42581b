#include "platform/opencascade/OpenCascadeViewer.h"

#include <AIS_Shape.hxx>
#include <BRepTools.hxx>
#include <Precision.hxx>
#include <Prs3d_Drawer.hxx>

namespace kvopencascade {

namespace {

constexpr double kLineWidth = 4;
constexpr int kNotSelectable = -1;

bool isTriangulated(const TopoDS_Shape& shape) {
    return BRepTools::Triangulation(shape, Precision::Infinite());
}

// A new triangulation would not fit the one that the instance is drawn with.
Handle(AIS_Shape) objectOf(const Place& place, const Quantity_Color& color) {
    const Handle(AIS_Shape) object = new AIS_Shape(place.shape);
    object->Attributes()->SetAutoTriangulation(!isTriangulated(place.shape));
    object->SetLocalTransformation(place.placement);
    object->SetColor(color);
    object->SetWidth(kLineWidth);
    object->SetZLayer(
        Graphic3d_ZLayerId_Top); // it is drawn after the parts, and hidden where they are nearer
    return object;
}

} // namespace

ViewHighlighter::ViewHighlighter(const Handle(AIS_InteractiveContext) & context, const Quantity_Color& color)
    : mContext(context), mColor(color) {}

Handle(Standard_Transient) ViewHighlighter::show(const Place& place) {
    const Handle(AIS_Shape) object = objectOf(place, mColor);
    mContext->Display(object, AIS_Shaded, kNotSelectable, false);
    return Handle(Standard_Transient)(object);
}

void ViewHighlighter::hide(const Handle(Standard_Transient) & shown) {
    const Handle(AIS_InteractiveObject) object = Handle(AIS_InteractiveObject)::DownCast(shown);
    if (!object.IsNull())
        mContext->Remove(object, false);
}

} // namespace kvopencascade
