#include "tests/platform/opencascade/Rack.h"

#include <BRepPrimAPI_MakeBox.hxx>
#include <Quantity_Color.hxx>
#include <TCollection_ExtendedString.hxx>
#include <TDataStd_Name.hxx>
#include <TopLoc_Location.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>

namespace kvtest {

namespace {

TopLoc_Location movedBy(double x, double y) {
    gp_Trsf transform;
    transform.SetTranslation(gp_Vec(x, y, 0));
    return TopLoc_Location(transform);
}

void name(const TDF_Label& label, const char* text) {
    TDataStd_Name::Set(label, TCollection_ExtendedString(text));
}

} // namespace

Rack::Rack() {
    XCAFApp_Application::GetApplication()->NewDocument("BinXCAF", document);
    document->SetUndoLimit(10);
    const Handle(XCAFDoc_ShapeTool) shapes = XCAFDoc_DocumentTool::ShapeTool(document->Main());
    box = shapes->AddShape(BRepPrimAPI_MakeBox(kBoxLength, kBoxDepth, kBoxHeight).Shape(), false);
    bulb = shapes->AddShape(BRepPrimAPI_MakeBox(5, 5, 5).Shape(), false);
    shelf = shapes->NewShape();
    rack = shapes->NewShape();
    front = shapes->AddComponent(shelf, box, movedBy(0, 0));
    back = shapes->AddComponent(shelf, box, movedBy(0, kBackBox));
    left = shapes->AddComponent(rack, shelf, movedBy(0, 0));
    right = shapes->AddComponent(rack, shelf, movedBy(kRightShelf, 0));
    lamp = shapes->AddComponent(rack, bulb, movedBy(kLamp, 0));
    shapes->UpdateAssemblies();
    name(box, "box");
    name(right, "shelf right");
    lamp.ForgetAttribute(TDataStd_Name::GetID());
    name(bulb, "bulb");
    colour = XCAFDoc_DocumentTool::ColorTool(document->Main())->AddColor(Quantity_NOC_RED);
}

Rack::~Rack() {
    XCAFApp_Application::GetApplication()->Close(document);
}

} // namespace kvtest
