#include "platform/opencascade/OpenCascadeDatabase.h"

#include "tests/platform/opencascade/Rack.h"

#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace kvopencascade;
using kvtest::Rack;

// Counts what is shown.
class Counter : public Highlighter {
public:
    Handle(Standard_Transient) show(const Place& place) override {
        ++shown;
        last = place;
        return {};
    }
    void hide(const Handle(Standard_Transient) &) override { --shown; }

    int shown = 0;
    Place last;
};

class OpenCascadeDatabase : public testing::Test {
protected:
    GxDbObjectId id(const TDF_Label& label) { return mDatabase.idOf(label); }

    GxDbFullSubentPath path(const std::vector<TDF_Label>& labels, const GxDbSubentId& part = {}) {
        IdPath ids;
        for (const TDF_Label& label : labels)
            ids.push_back(id(label));
        return subentPathOf(ids, part);
    }

    std::optional<Place> place(const std::vector<TDF_Label>& labels, const GxDbSubentId& part = {}) {
        Place found;
        if (!Database::locate(path(labels, part), found))
            return std::nullopt;
        return found;
    }

    // Opens an id, closes it again, and returns the status of the opening.
    static GxErrorStatus statusOf(GxDbObjectId id, bool openErased = false) {
        GxDbObjectPointerBase<GxDbEntity> pointer;
        return pointer.open(id, GxDb::kForRead, openErased);
    }

    Counter mCounter; // it outlives the database, which hides its highlights at the end
    Counter mOtherCounter;
    Rack mRack;
    Database mDatabase{mRack.document};
};

// ---- Ids

TEST_F(OpenCascadeDatabase, ALabelHasOneIdAndAnIdHasItsLabel) {
    EXPECT_EQ(id(mRack.left).stub(), id(mRack.left).stub());
    EXPECT_EQ(Database::labelOf(id(mRack.left)), mRack.left);
    EXPECT_NE(id(mRack.left), id(mRack.right));
}

TEST_F(OpenCascadeDatabase, ANullLabelHasTheNullId) {
    EXPECT_TRUE(id(TDF_Label()).isNull());
    EXPECT_TRUE(Database::labelOf(GxDbObjectId()).IsNull());
}

TEST_F(OpenCascadeDatabase, RefusesALabelOfAnotherDocument) {
    const Rack other;
    EXPECT_THROW(id(other.left), std::invalid_argument);
}

TEST_F(OpenCascadeDatabase, RefusesNoDocument) {
    EXPECT_THROW(Database(Handle(TDocStd_Document)()), std::invalid_argument);
}

TEST_F(OpenCascadeDatabase, TwoDatabasesOnOneDocumentHaveEqualIds) {
    Database other(mRack.document);
    EXPECT_NE(other.idOf(mRack.left).stub(), id(mRack.left).stub());
    EXPECT_EQ(other.idOf(mRack.left), id(mRack.left));
    EXPECT_EQ(other.idOf(mRack.left) < id(mRack.right), id(mRack.left) < other.idOf(mRack.right));
}

TEST_F(OpenCascadeDatabase, IdsOfTwoDocumentsAreNotEqual) {
    const Rack otherRack;
    Database other(otherRack.document);
    EXPECT_NE(other.idOf(otherRack.left), id(mRack.left));
}

TEST_F(OpenCascadeDatabase, IdsAscendInTheOrderOfTheirFirstUse) {
    const GxDbObjectId first = id(mRack.right);
    const GxDbObjectId second = id(mRack.left);
    EXPECT_TRUE(first < second);
    EXPECT_FALSE(second < first);
}

TEST_F(OpenCascadeDatabase, ANameIsTheLabelsOrThatOfWhatItRefersTo) {
    EXPECT_EQ(Database::nameOf(id(mRack.right)), "shelf right");
    EXPECT_EQ(Database::nameOf(id(mRack.lamp)), "bulb");
    EXPECT_EQ(Database::nameOf(GxDbObjectId()), "");
}

// ---- Opening

TEST_F(OpenCascadeDatabase, AForgottenLabelDoesNotOpen) {
    const GxDbObjectId back = id(mRack.back);
    mRack.back.ForgetAllAttributes();
    EXPECT_FALSE(back.isValid());
    EXPECT_EQ(statusOf(back, true), kForgottenLabel);
}

TEST_F(OpenCascadeDatabase, AnUndoBringsAForgottenLabelBack) {
    const GxDbObjectId back = id(mRack.back);
    mRack.document->NewCommand();
    mRack.back.ForgetAllAttributes();
    mRack.document->CommitCommand();
    ASSERT_FALSE(back.isValid());
    mRack.document->Undo();
    EXPECT_TRUE(back.isValid());
    EXPECT_EQ(statusOf(back), eOk);
}

TEST_F(OpenCascadeDatabase, AnErasedLabelOpensOnRequest) {
    Database::erase(id(mRack.lamp));
    EXPECT_TRUE(Database::isErased(id(mRack.lamp)));
    EXPECT_EQ(statusOf(id(mRack.lamp)), kErasedLabel);
    EXPECT_EQ(statusOf(id(mRack.lamp), true), eOk);
    Database::unerase(id(mRack.lamp));
    EXPECT_EQ(statusOf(id(mRack.lamp)), eOk);
}

TEST_F(OpenCascadeDatabase, ALabelThatIsNoShapeDoesNotOpen) {
    EXPECT_TRUE(id(mRack.colour).isValid());
    EXPECT_EQ(statusOf(id(mRack.colour)), kNotAShape);
}

TEST_F(OpenCascadeDatabase, OpeningsOfAllDatabasesCount) {
    Database other(mRack.document);
    GxDbObjectPointerBase<GxDbEntity> pointer;
    GxDbObjectPointerBase<GxDbEntity> elsewhere;
    pointer.open(id(mRack.box), GxDb::kForRead);
    elsewhere.open(other.idOf(mRack.box), GxDb::kForRead);
    EXPECT_EQ(Database::openCount(id(mRack.box)), 2);
    pointer.closeInternal();
    EXPECT_EQ(Database::openCount(id(mRack.box)), 1);
    EXPECT_EQ(GxDbObjectPointerBase<GxDbEntity>().open(other.idOf(mRack.box), GxDb::kForWrite),
              kOpenOtherwise);
}

TEST_F(OpenCascadeDatabase, ClosingWhatIsNotOpenSaysSo) {
    GxDbEntity* entity = nullptr;
    ASSERT_EQ(gxdbOpenObject(entity, id(mRack.box), GxDb::kForRead, false), eOk);
    EXPECT_EQ(entity->close(), eOk);
    EXPECT_EQ(entity->close(), eNotOpen);
}

// ---- Instances

TEST_F(OpenCascadeDatabase, InstancesGoFromTheOutermostComponentToThePart) {
    EXPECT_THAT(mDatabase.instances(),
                testing::ElementsAre(IdPath{id(mRack.left), id(mRack.front), id(mRack.box)},
                                     IdPath{id(mRack.left), id(mRack.back), id(mRack.box)},
                                     IdPath{id(mRack.right), id(mRack.front), id(mRack.box)},
                                     IdPath{id(mRack.right), id(mRack.back), id(mRack.box)},
                                     IdPath{id(mRack.lamp), id(mRack.bulb)}));
}

TEST_F(OpenCascadeDatabase, APlacementIsTheProductOfTheLocations) {
    const std::optional<Place> found = place({mRack.right, mRack.back, mRack.box});
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->part, mRack.box);
    const GxGeMatrix3d matrix = matrixOf(found->placement);
    EXPECT_EQ(matrix.entry[0][3], Rack::kRightShelf);
    EXPECT_EQ(matrix.entry[1][3], Rack::kBackBox);
}

TEST_F(OpenCascadeDatabase, TheLastComponentMayStandForItsPart) {
    const std::optional<Place> found = place({mRack.right, mRack.back});
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->part, mRack.box);
    EXPECT_EQ(found->placement.TranslationPart().X(), Rack::kRightShelf);
}

TEST_F(OpenCascadeDatabase, AComponentAloneLeadsToItsAssembly) {
    const std::optional<Place> found = place({mRack.right});
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->part, mRack.shelf);
}

TEST_F(OpenCascadeDatabase, APathThatLeavesItsAssemblyLeadsNowhere) {
    EXPECT_FALSE(place({mRack.right, mRack.lamp}));
    EXPECT_FALSE(place({mRack.lamp, mRack.box}));
    EXPECT_FALSE(place({mRack.front, mRack.right}));
    EXPECT_FALSE(place({}));
    EXPECT_FALSE(place({TDF_Label()}));
    EXPECT_FALSE(place({mRack.colour}));
}

TEST_F(OpenCascadeDatabase, APathWithAForgottenLabelLeadsNowhere) {
    mRack.back.ForgetAllAttributes();
    EXPECT_FALSE(place({mRack.right, mRack.back, mRack.box}));
}

// ---- Sub-shapes

TEST_F(OpenCascadeDatabase, SubshapesAreNumberedAsTheKernelNumbersThem) {
    const TopoDS_Shape box = XCAFDoc_ShapeTool::GetShape(mRack.box);
    TopTools_IndexedMapOfShape faces;
    TopExp::MapShapes(box, TopAbs_FACE, faces);
    const std::optional<Place> face = place({mRack.right, mRack.back, mRack.box}, {kFace, 3, nullptr});
    ASSERT_TRUE(face.has_value());
    EXPECT_TRUE(face->shape.IsSame(faces(3)));
    EXPECT_EQ(Database::subentIdOf(box, faces(3)).type, kFace);
    EXPECT_EQ(Database::subentIdOf(box, faces(3)).index, 3);
}

TEST_F(OpenCascadeDatabase, ABoxHas6Faces12EdgesAnd8Vertices) {
    const auto has = [&](std::int32_t type, std::int64_t index) {
        return place({mRack.lamp, mRack.bulb}, {type, index, nullptr}).has_value();
    };
    EXPECT_TRUE(has(kFace, 6));
    EXPECT_FALSE(has(kFace, 7));
    EXPECT_TRUE(has(kEdge, 12));
    EXPECT_FALSE(has(kEdge, 13));
    EXPECT_TRUE(has(kVertex, 8));
    EXPECT_FALSE(has(kVertex, 9));
    EXPECT_FALSE(has(kFace, 0));
    EXPECT_FALSE(has(4, 1));
}

TEST_F(OpenCascadeDatabase, AShapeThatThePartDoesNotHaveIsNoSubentity) {
    const TopoDS_Shape box = XCAFDoc_ShapeTool::GetShape(mRack.box);
    TopTools_IndexedMapOfShape faces;
    TopExp::MapShapes(XCAFDoc_ShapeTool::GetShape(mRack.bulb), TopAbs_FACE, faces);
    EXPECT_EQ(Database::subentIdOf(box, faces(1)).type, kWholePart);
    EXPECT_EQ(Database::subentIdOf(box, box).type, kWholePart);
    EXPECT_EQ(Database::subentIdOf(box, TopoDS_Shape()).type, kWholePart);
}

// ---- Markers

TEST(OpenCascadeMarker, APartComesBackFromItsMarker) {
    for (std::int32_t type : {kFace, kEdge, kVertex}) {
        for (std::int64_t index : {1, 2, 1000000}) {
            const GxDbSubentId part = partOf(markerOf({type, index, nullptr}));
            EXPECT_EQ(part.type, type);
            EXPECT_EQ(part.index, index);
        }
    }
}

TEST(OpenCascadeMarker, TheWholePartHasNone) {
    EXPECT_EQ(markerOf({}), -1);
    EXPECT_EQ(partOf(-1).type, kWholePart);
    EXPECT_EQ(partOf(0).type, kWholePart);
}

// ---- Highlights

GxErrorStatus draw(GxDbObjectId id, const GxDbFullSubentPath& path, bool on) {
    GxDbObjectPointerBase<GxDbEntity> pointer;
    if (pointer.open(id, GxDb::kForRead) != eOk)
        return pointer.mStatus;
    return on ? pointer.mObject->highlight(path, false) : pointer.mObject->unhighlight(path, false);
}

TEST_F(OpenCascadeDatabase, HighlightsOfOnePathCount) {
    mDatabase.setHighlighter(&mCounter);
    const GxDbFullSubentPath face = path({mRack.right, mRack.back, mRack.box}, {kFace, 1, nullptr});
    EXPECT_EQ(draw(id(mRack.right), face, true), eOk);
    EXPECT_EQ(draw(id(mRack.right), face, true), eOk);
    EXPECT_EQ(mCounter.shown, 1);
    EXPECT_EQ(draw(id(mRack.right), face, false), eOk);
    EXPECT_EQ(mCounter.shown, 1);
    EXPECT_EQ(draw(id(mRack.right), face, false), eOk);
    EXPECT_EQ(mCounter.shown, 0);
    EXPECT_EQ(draw(id(mRack.right), face, false), kNotHighlighted);
    EXPECT_EQ(mDatabase.highlights(), 0u);
}

TEST_F(OpenCascadeDatabase, EachInstanceIsHighlightedByItself) {
    mDatabase.setHighlighter(&mCounter);
    draw(id(mRack.left), path({mRack.left, mRack.back, mRack.box}), true);
    EXPECT_EQ(mCounter.last.placement.TranslationPart().X(), 0);
    draw(id(mRack.right), path({mRack.right, mRack.back, mRack.box}), true);
    EXPECT_EQ(mCounter.last.placement.TranslationPart().X(), Rack::kRightShelf);
    EXPECT_EQ(mCounter.shown, 2);
}

TEST_F(OpenCascadeDatabase, ASecondDatabaseDrawsItsOwnHighlights) {
    Database other(mRack.document);
    mDatabase.setHighlighter(&mCounter);
    other.setHighlighter(&mOtherCounter);
    draw(other.idOf(mRack.left), path({mRack.left, mRack.front}), true);
    EXPECT_EQ(mCounter.shown, 0);
    EXPECT_EQ(mOtherCounter.shown, 1);
}

TEST_F(OpenCascadeDatabase, HighlightsMoveToANewHighlighter) {
    draw(id(mRack.left), path({mRack.left}), true);
    mDatabase.setHighlighter(&mCounter);
    EXPECT_EQ(mCounter.shown, 1);
    mDatabase.setHighlighter(&mOtherCounter);
    EXPECT_EQ(mCounter.shown, 0);
    EXPECT_EQ(mOtherCounter.shown, 1);
    mDatabase.setHighlighter(nullptr);
    EXPECT_EQ(mOtherCounter.shown, 0);
    EXPECT_EQ(mDatabase.highlights(), 1u);
}

TEST_F(OpenCascadeDatabase, ADatabaseThatGoesTakesItsHighlightsBack) {
    {
        Database passing(mRack.document);
        passing.setHighlighter(&mCounter);
        draw(passing.idOf(mRack.left), path({mRack.left}), true);
        ASSERT_EQ(mCounter.shown, 1);
    }
    EXPECT_EQ(mCounter.shown, 0);
}

TEST_F(OpenCascadeDatabase, APathThatLeadsNowhereIsNotHighlighted) {
    mDatabase.setHighlighter(&mCounter);
    EXPECT_EQ(draw(id(mRack.left), path({mRack.left, mRack.lamp}), true), kNoSuchInstance);
    EXPECT_EQ(mCounter.shown, 0);
}

TEST_F(OpenCascadeDatabase, AHighlightEndsAlsoIfItsLabelIsForgotten) {
    mDatabase.setHighlighter(&mCounter);
    const GxDbFullSubentPath back = path({mRack.left, mRack.back, mRack.box});
    draw(id(mRack.left), back, true);
    mRack.back.ForgetAllAttributes();
    EXPECT_EQ(draw(id(mRack.left), back, false), eOk);
    EXPECT_EQ(mCounter.shown, 0);
}

} // namespace
