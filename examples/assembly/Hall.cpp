#include "examples/assembly/Hall.h"

#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <Quantity_Color.hxx>
#include <TCollection_ExtendedString.hxx>
#include <TDataStd_Name.hxx>
#include <TopLoc_Location.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <string>
#include <utility>

namespace assembly {

namespace {

TopLoc_Location at(double x, double y, double z) {
    gp_Trsf transform;
    transform.SetTranslation(gp_Vec(x, y, z));
    return TopLoc_Location(transform);
}

// Millimetres; x to the right, y to the back, z up.
class HallBuilder {
public:
    HallBuilder(const Handle(TDocStd_Document) & document, const HallSize& size)
        : mShapes(XCAFDoc_DocumentTool::ShapeTool(document->Main())),
          mColors(XCAFDoc_DocumentTool::ColorTool(document->Main())), mSize(size) {}

    void build() {
        hall();
        mShapes->UpdateAssemblies();
    }

private:
    // ---- Parts and assemblies

    TDF_Label part(const char* name, const TopoDS_Shape& shape, const Quantity_Color& color) {
        const TDF_Label label = mShapes->AddShape(shape, false);
        setName(label, name);
        mColors->SetColor(label, color, XCAFDoc_ColorSurf);
        return label;
    }

    TDF_Label box(const char* name, double x, double y, double z, const Quantity_Color& color) {
        return part(name, BRepPrimAPI_MakeBox(x, y, z).Shape(), color);
    }

    TDF_Label cylinder(const char* name, double radius, double height, const Quantity_Color& color) {
        return part(name, BRepPrimAPI_MakeCylinder(radius, height).Shape(), color);
    }

    TDF_Label group(const char* name) {
        const TDF_Label label = mShapes->NewShape();
        setName(label, name);
        return label;
    }

    void add(const TDF_Label& to, const TDF_Label& what, const std::string& name,
             const TopLoc_Location& where) {
        setName(mShapes->AddComponent(to, what, where), name.c_str());
    }

    static void setName(const TDF_Label& label, const char* name) {
        TDataStd_Name::Set(label, TCollection_ExtendedString(name));
    }

    static std::string numbered(const char* name, int i) {
        return std::string(name) + " " + std::to_string(i + 1);
    }

    // ---- From the chip to the hall

    TDF_Label processor() {
        const TDF_Label all = group("processor");
        add(all, box("chip", 40, 40, 4, Quantity_NOC_GRAY60), "chip", at(0, 0, 0));
        add(all, box("heat sink", 36, 36, 26, Quantity_NOC_LIGHTSTEELBLUE), "heat sink", at(2, 2, 4));
        return all;
    }

    TDF_Label board() {
        const TDF_Label all = group("board");
        add(all, box("circuit board", 400, 280, 2, Quantity_NOC_DARKGREEN), "circuit board", at(0, 0, 0));
        const TDF_Label cpu = processor();
        for (int i = 0; i < 2; ++i)
            add(all, cpu, numbered("processor", i), at(70 + 200 * i, 110, 2));
        const TDF_Label memory = box("memory module", 6, 130, 30, Quantity_NOC_FORESTGREEN);
        for (int i = 0; i < 8; ++i)
            add(all, memory, numbered("memory", i), at(130 + 12 * (i % 4) + 200 * (i / 4), 70, 2));
        const TDF_Label slot = box("slot", 90, 8, 12, Quantity_NOC_IVORY);
        for (int i = 0; i < 2; ++i)
            add(all, slot, numbered("slot", i), at(20 + 200 * i, 250, 2));
        return all;
    }

    TDF_Label powerSupply() {
        const TDF_Label all = group("power supply");
        add(all, box("supply case", 70, 200, 60, Quantity_NOC_GRAY40), "case", at(0, 0, 0));
        add(all, cylinder("fan", 24, 8, Quantity_NOC_GRAY20), "fan", at(35, 40, 60));
        add(all, box("plug", 24, 16, 20, Quantity_NOC_BLACK), "plug", at(23, 200, 20));
        return all;
    }

    TDF_Label drive() {
        const TDF_Label all = group("drive");
        add(all, box("caddy", 100, 150, 26, Quantity_NOC_GRAY50), "caddy", at(0, 0, 0));
        add(all, box("disk", 70, 100, 6, Quantity_NOC_GOLDENROD), "disk", at(15, 25, 26));
        return all;
    }

    TDF_Label server() {
        const TDF_Label all = group("server");
        add(all, box("chassis", 440, 700, 4, Quantity_NOC_GRAY70), "chassis", at(0, 0, 0));
        add(all, box("lid", 440, 200, 2, Quantity_NOC_GRAY80), "lid", at(0, 500, 84));
        add(all, box("front", 440, 6, 84, Quantity_NOC_GRAY30), "front", at(0, -6, 0));
        const TDF_Label handle = cylinder("handle", 6, 60, Quantity_NOC_ORANGE4);
        add(all, handle, "handle left", at(14, -14, 12));
        add(all, handle, "handle right", at(426, -14, 12));
        add(all, board(), "board", at(20, 200, 6));
        const TDF_Label power = powerSupply();
        for (int i = 0; i < 2; ++i)
            add(all, power, numbered("power", i), at(20 + 330 * i, 490, 6));
        const TDF_Label bay = drive();
        for (int i = 0; i < 4; ++i)
            add(all, bay, numbered("drive", i), at(8 + 106 * i, 10, 8));
        return all;
    }

    TDF_Label rack() {
        const TDF_Label all = group("rack");
        const TDF_Label post = box("post", 30, 30, 1200, Quantity_NOC_GRAY25);
        for (int i = 0; i < 4; ++i)
            add(all, post, numbered("post", i), at(i % 2 * 510, i / 2 * 740, 60));
        const TDF_Label rail = box("rail", 16, 720, 20, Quantity_NOC_GRAY45);
        for (int i = 0; i < 4; ++i)
            add(all, rail, numbered("rail", i), at(30 + i % 2 * 464, 30, 90 + i / 2 * 1000));
        const TDF_Label foot = cylinder("foot", 20, 40, Quantity_NOC_BLACK);
        for (int i = 0; i < 2; ++i)
            add(all, foot, numbered("foot", i), at(15 + i * 510, 385, 0));
        add(all, box("base", 540, 770, 20, Quantity_NOC_GRAY35), "base", at(0, 0, 40));
        add(all, box("top", 540, 770, 10, Quantity_NOC_GRAY35), "top", at(0, 0, 1260));
        add(all, box("side", 4, 700, 1200, Quantity_NOC_SLATEGRAY), "side", at(-4, 35, 60));
        add(all, box("back door", 540, 6, 1200, Quantity_NOC_SLATEGRAY), "back door", at(0, 770, 60));
        add(all, box("cable tray", 40, 20, 1100, Quantity_NOC_DARKORANGE), "cable tray", at(490, 790, 100));
        const TDF_Label unit = server();
        for (int i = 0; i < mSize.serversInRack; ++i)
            add(all, unit, numbered("server", i), at(50, 20, 130 + 180 * i));
        return all;
    }

    TDF_Label row() {
        const TDF_Label all = group("row");
        const double length = 620.0 * mSize.racksInRow;
        const TDF_Label unit = rack();
        for (int i = 0; i < mSize.racksInRow; ++i)
            add(all, unit, numbered("rack", i), at(620 * i, 0, 20));
        add(all, box("plinth", length, 900, 20, Quantity_NOC_GRAY55), "plinth", at(-40, -60, 0));
        add(all, box("cable duct", length, 120, 60, Quantity_NOC_GOLD), "cable duct", at(-40, 600, 1400));
        add(all, box("light", length, 30, 20, Quantity_NOC_WHITE), "light", at(-40, -400, 1900));
        add(all, cylinder("post of the duct", 20, 110, Quantity_NOC_GRAY45), "post of the duct",
            at(0, 660, 1290));
        return all;
    }

    void hall() {
        const TDF_Label all = group("hall");
        const double depth = 2000.0 * mSize.rows;
        const double length = 620.0 * mSize.racksInRow;
        const TDF_Label unit = row();
        for (int i = 0; i < mSize.rows; ++i)
            add(all, unit, numbered("row", i), at(0, 2000 * i, 0));
        add(all, box("floor", length + 800, depth + 400, 40, Quantity_NOC_LIGHTGRAY), "floor",
            at(-400, -800, -40));
        add(all, cylinder("column", 90, 2000, Quantity_NOC_ANTIQUEWHITE), "column", at(-250, 1400, 0));
        add(all, box("cooler", 300, 900, 1600, Quantity_NOC_POWDERBLUE), "cooler", at(length + 40, 0, 0));
        add(all, box("sign", 400, 10, 200, Quantity_NOC_RED), "sign", at(-380, -700, 0));
    }

    Handle(XCAFDoc_ShapeTool) mShapes;
    Handle(XCAFDoc_ColorTool) mColors;
    HallSize mSize;
};

} // namespace

void buildHall(const Handle(TDocStd_Document) & document, const HallSize& size) {
    HallBuilder(document, size).build();
}

} // namespace assembly
