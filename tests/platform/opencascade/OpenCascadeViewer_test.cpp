// Reads the pixels of highlights in the kernel's viewer.
#include "platform/opencascade/OpenCascadeViewer.h"

#include "tests/platform/opencascade/Rack.h"

#include <AIS_Shape.hxx>
#include <Aspect_DisplayConnection.hxx>
#include <Image_PixMap.hxx>
#include <OpenGl_GraphicDriver.hxx>
#include <V3d_View.hxx>
#include <V3d_Viewer.hxx>
#include <Xw_Window.hxx>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using namespace kvopencascade;
using kvtest::Rack;

constexpr int kWidth = 400;
constexpr int kHeight = 300;

// A view of the rack, off screen. Each instance is an object of its own.
class RackView {
public:
    explicit RackView(Database& database) {
        const Handle(Aspect_DisplayConnection) display = new Aspect_DisplayConnection;
        const Handle(OpenGl_GraphicDriver) driver = new OpenGl_GraphicDriver(display, false);
        driver->ChangeOptions().swapInterval = 0;
        const Handle(V3d_Viewer) viewer = new V3d_Viewer(driver);
        viewer->SetDefaultLights();
        viewer->SetLightOn();
        context = new AIS_InteractiveContext(viewer);
        context->SetAutomaticHilight(false); // picking does not change the picture
        context->SetPixelTolerance(0);
        mView = viewer->CreateView();
        const Handle(Xw_Window) window = new Xw_Window(display, "rack", 0, 0, kWidth, kHeight);
        window->SetVirtual(true);
        mView->SetWindow(window);
        mView->SetBackgroundColor(Quantity_NOC_BLACK);
        for (const IdPath& ids : database.instances())
            objects.push_back(displayed(ids));
        mView->SetProj(V3d_XnegYnegZpos);
        mView->FitAll(0.1, false);
    }

    // Returns what the view shows.
    std::unique_ptr<Image_PixMap> picture() {
        auto picture = std::make_unique<Image_PixMap>();
        V3d_ImageDumpOptions options;
        options.Width = kWidth;
        options.Height = kHeight;
        options.BufferType = Graphic3d_BT_RGB;
        EXPECT_TRUE(mView->ToPixMap(*picture, options));
        return picture;
    }

    // Returns the object under a pixel, or null. Highlights are no objects that can be picked.
    Handle(AIS_InteractiveObject) objectAt(int x, int y) {
        context->MoveTo(x, y, mView, false);
        return context->HasDetected() ? context->DetectedInteractive() : Handle(AIS_InteractiveObject)();
    }

    Handle(AIS_InteractiveContext) context;
    std::vector<Handle(AIS_InteractiveObject)> objects; // one for each instance

private:
    Handle(AIS_InteractiveObject) displayed(const IdPath& ids) {
        Place place;
        EXPECT_TRUE(Database::locate(subentPathOf(ids), place));
        const Handle(AIS_Shape) object = new AIS_Shape(place.shape);
        object->SetLocalTransformation(place.placement);
        object->SetColor(Quantity_NOC_STEELBLUE);
        context->Display(object, AIS_Shaded, 0, false);
        return Handle(AIS_InteractiveObject)(object);
    }

    Handle(V3d_View) mView;
};

struct Pixel {
    int x, y;
};

std::vector<Pixel> differences(const Image_PixMap& a, const Image_PixMap& b) {
    std::vector<Pixel> pixels;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            if (a.PixelColor(x, y).GetRGB().Distance(b.PixelColor(x, y).GetRGB()) > 0)
                pixels.push_back({x, y});
        }
    }
    return pixels;
}

class OpenCascadeViewer : public testing::Test {
protected:
    // The leak sanitizer names the driver's leaks by its library, which has to be loaded still.
    static void SetUpTestSuite() {
        for (const char* library : {"libGLX_mesa.so.0", KV_SOFTWARE_RENDERER})
            dlopen(library, RTLD_LAZY | RTLD_NODELETE);
    }

    void SetUp() override {
        mDatabase.setHighlighter(&mHighlighter);
        mInstances = mDatabase.instances();
    }
    void TearDown() override { mDatabase.setHighlighter(nullptr); }

    void draw(const GxDbFullSubentPath& path, bool on) {
        GxDbObjectPointerBase<GxDbEntity> entity;
        ASSERT_EQ(entity.open(path.objectIds()[0], GxDb::kForRead), eOk);
        EXPECT_EQ(on ? entity.mObject->highlight(path, false) : entity.mObject->unhighlight(path, false),
                  eOk);
    }

    // Returns whether the instance is under the pixel or beside it. A pixel at a border may be drawn with one
    // instance, and be picked with another.
    bool isNear(const Pixel& pixel, std::size_t instance) {
        for (int x : {pixel.x - 1, pixel.x, pixel.x + 1}) {
            for (int y : {pixel.y - 1, pixel.y, pixel.y + 1}) {
                if (mView.objectAt(x, y) == mView.objects[instance])
                    return true;
            }
        }
        return false;
    }

    void expectWithin(const std::vector<Pixel>& pixels, std::size_t instance) {
        EXPECT_GT(pixels.size(), 20u);
        for (const Pixel& pixel : pixels)
            EXPECT_TRUE(isNear(pixel, instance)) << pixel.x << ", " << pixel.y << " is not of " << instance;
    }

    Rack mRack;
    Database mDatabase{mRack.document};
    RackView mView{mDatabase};
    ViewHighlighter mHighlighter{mView.context};
    std::vector<IdPath> mInstances;
};

TEST_F(OpenCascadeViewer, ThePictureShowsTheRackAndStaysTheSame) {
    const auto first = mView.picture();
    const auto second = mView.picture();
    EXPECT_TRUE(differences(*first, *second).empty());
    int lit = 0;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            lit += first->PixelColor(x, y).GetRGB().Distance(Quantity_NOC_BLACK) > 0.05 ? 1 : 0;
    }
    EXPECT_GT(lit, 2000);
}

TEST_F(OpenCascadeViewer, AHighlightedPartChangesItsOwnPixelsOnly) {
    const auto before = mView.picture();
    for (std::size_t i = 0; i < mInstances.size(); ++i) {
        const GxDbFullSubentPath path = subentPathOf(mInstances[i]);
        draw(path, true);
        expectWithin(differences(*before, *mView.picture()), i);
        draw(path, false);
        EXPECT_TRUE(differences(*before, *mView.picture()).empty());
    }
}

TEST_F(OpenCascadeViewer, AHighlightedFaceChangesLessThanItsPart) {
    const auto before = mView.picture();
    const auto changedBy = [&](const GxDbSubentId& part) {
        const GxDbFullSubentPath path = subentPathOf(mInstances[0], part);
        draw(path, true);
        const std::vector<Pixel> changed = differences(*before, *mView.picture());
        draw(path, false);
        return changed;
    };
    const std::size_t whole = changedBy({}).size();
    std::size_t faces = 0;
    int visible = 0;
    for (std::int64_t face = 1; face <= 6; ++face) {
        const std::size_t changed = changedBy({kFace, face, nullptr}).size();
        EXPECT_LT(changed, whole);
        faces += changed;
        visible += changed > 20 ? 1 : 0;
    }
    EXPECT_EQ(visible, 3); // of the six faces of a box
    EXPECT_NEAR(static_cast<double>(faces), static_cast<double>(whole), 0.2 * static_cast<double>(whole));
    EXPECT_TRUE(differences(*before, *mView.picture()).empty());
}

TEST_F(OpenCascadeViewer, ASecondHighlightOfAPartKeepsItUntilBothEnd) {
    const auto before = mView.picture();
    const GxDbFullSubentPath path = subentPathOf(mInstances[0]);
    draw(path, true);
    const auto highlighted = mView.picture();
    draw(path, true);
    draw(path, false);
    EXPECT_TRUE(differences(*highlighted, *mView.picture()).empty());
    draw(path, false);
    EXPECT_TRUE(differences(*before, *mView.picture()).empty());
}

TEST_F(OpenCascadeViewer, HighlightsCannotBePicked) {
    const auto before = mView.picture();
    const GxDbFullSubentPath path = subentPathOf(mInstances[0]);
    draw(path, true);
    const std::vector<Pixel> changed = differences(*before, *mView.picture());
    ASSERT_FALSE(changed.empty());
    expectWithin(changed, 0);
    draw(path, false);
}

} // namespace
