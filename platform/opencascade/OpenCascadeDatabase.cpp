#include "platform/opencascade/OpenCascadeDatabase.h"

#include "platform/opencascade/detail/LabelStubs.h"

#include <Standard_GUID.hxx>
#include <TCollection_AsciiString.hxx>
#include <TDF_LabelSequence.hxx>
#include <TDF_Tool.hxx>
#include <TDataStd_Name.hxx>
#include <TDataStd_UAttribute.hxx>
#include <TopExp.hxx>
#include <TopLoc_Location.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <stdexcept>

namespace kvopencascade {

Highlighter::~Highlighter() = default;

// ---- Labels

Database::Database(const Handle(TDocStd_Document) & document)
    : mStubs(std::make_unique<detail::LabelStubs>(document)) {}

Database::~Database() = default;

const Handle(TDocStd_Document) & Database::document() const noexcept {
    return mStubs->document();
}

GxDbObjectId Database::idOf(const TDF_Label& label) {
    return label.IsNull() ? GxDbObjectId() : GxDbObjectId(&mStubs->stubOf(label));
}

TDF_Label Database::labelOf(GxDbObjectId id) {
    return id.stub() == nullptr ? TDF_Label() : id.stub()->record.label;
}

namespace {

std::string ownNameOf(const TDF_Label& label) {
    Handle(TDataStd_Name) name;
    if (!label.FindAttribute(TDataStd_Name::GetID(), name))
        return {};
    return TCollection_AsciiString(name->Get()).ToCString();
}

std::string entryOf(const TDF_Label& label) {
    TCollection_AsciiString entry;
    TDF_Tool::Entry(label, entry);
    return entry.ToCString();
}

} // namespace

std::string Database::nameOf(GxDbObjectId id) {
    const TDF_Label label = labelOf(id);
    if (label.IsNull())
        return {};
    std::string name = ownNameOf(label);
    TDF_Label referred;
    if (name.empty() && XCAFDoc_ShapeTool::GetReferredShape(label, referred))
        name = ownNameOf(referred);
    return name.empty() ? entryOf(label) : name;
}

// ---- Erasing

namespace {

const Standard_GUID& erasedMark() {
    static const Standard_GUID mark("6b1f3c52-90a7-4d0e-8e5b-27c4a8d9f013");
    return mark;
}

TDF_Label checkedLabelOf(GxDbObjectId id) {
    if (id.isNull())
        throw std::invalid_argument("the id is null");
    return Database::labelOf(id);
}

} // namespace

void Database::erase(GxDbObjectId id) {
    TDataStd_UAttribute::Set(checkedLabelOf(id), erasedMark());
}

void Database::unerase(GxDbObjectId id) {
    checkedLabelOf(id).ForgetAttribute(erasedMark());
}

bool Database::isErased(GxDbObjectId id) {
    return checkedLabelOf(id).IsAttribute(erasedMark());
}

int Database::openCount(GxDbObjectId id) {
    return id.isNull() ? 0 : id.stub()->record.openCount();
}

// ---- Instances

namespace {

// Walks an assembly depth first.
class InstanceWalk {
public:
    explicit InstanceWalk(Database& database) : mDatabase(database) {}

    void enter(const TDF_Label& shape) {
        if (!XCAFDoc_ShapeTool::IsAssembly(shape))
            return addInstanceOf(shape);
        TDF_LabelSequence components;
        XCAFDoc_ShapeTool::GetComponents(shape, components);
        for (const TDF_Label& component : components)
            enterComponent(component);
    }

    std::vector<IdPath> paths;

private:
    void enterComponent(const TDF_Label& component) {
        TDF_Label referred;
        if (!XCAFDoc_ShapeTool::GetReferredShape(component, referred))
            return;
        mPath.push_back(mDatabase.idOf(component));
        enter(referred);
        mPath.pop_back();
    }

    void addInstanceOf(const TDF_Label& part) {
        paths.push_back(mPath);
        paths.back().push_back(mDatabase.idOf(part));
    }

    Database& mDatabase;
    IdPath mPath;
};

} // namespace

std::vector<IdPath> Database::instances() {
    TDF_LabelSequence roots;
    XCAFDoc_DocumentTool::ShapeTool(document()->Main())->GetFreeShapes(roots);
    InstanceWalk walk(*this);
    for (const TDF_Label& root : roots)
        walk.enter(root);
    return std::move(walk.paths);
}

// ---- Places

namespace {

TopAbs_ShapeEnum kindOf(std::int32_t type) {
    switch (type) {
    case kFace:
        return TopAbs_FACE;
    case kEdge:
        return TopAbs_EDGE;
    case kVertex:
        return TopAbs_VERTEX;
    default:
        return TopAbs_SHAPE;
    }
}

std::int32_t typeOf(TopAbs_ShapeEnum kind) {
    switch (kind) {
    case TopAbs_FACE:
        return kFace;
    case TopAbs_EDGE:
        return kEdge;
    case TopAbs_VERTEX:
        return kVertex;
    default:
        return kWholePart;
    }
}

// Follows a path from component to component.
class PathWalk {
public:
    // Returns whether the path may go on with this label.
    bool step(const TDF_Label& label) {
        if (!XCAFDoc_ShapeTool::IsShape(label) || !isWithin(label))
            return false;
        TDF_Label referred;
        if (!XCAFDoc_ShapeTool::GetReferredShape(label, referred)) {
            mAt = label;
            return true;
        }
        mLocation = mLocation * XCAFDoc_ShapeTool::GetLocation(label);
        mAt = referred;
        return true;
    }

    const TDF_Label& at() const { return mAt; }
    gp_Trsf placement() const { return mLocation.Transformation(); }

private:
    // The path begins anywhere. Then comes a component of the assembly, or the part that the component is of.
    bool isWithin(const TDF_Label& label) const {
        return mAt.IsNull() || label == mAt || label.Father() == mAt;
    }

    TDF_Label mAt; // where the path has got to, beyond references
    TopLoc_Location mLocation;
};

// Replaces a part's shape by one of its sub-shapes. Returns whether there is such a sub-shape.
bool descend(TopoDS_Shape& shape, const GxDbSubentId& part) {
    if (part.type == kWholePart)
        return true;
    const TopAbs_ShapeEnum kind = kindOf(part.type);
    if (kind == TopAbs_SHAPE)
        return false;
    TopTools_IndexedMapOfShape subshapes;
    TopExp::MapShapes(shape, kind, subshapes);
    if (part.index < 1 || part.index > subshapes.Extent())
        return false;
    shape = subshapes(static_cast<int>(part.index));
    return true;
}

} // namespace

bool Database::locate(const GxDbFullSubentPath& path, Place& place) {
    PathWalk walk;
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    for (int i = 0; i < ids.logicalLength(); ++i) {
        if (!ids[i].isValid() || !walk.step(labelOf(ids[i])))
            return false;
    }
    if (walk.at().IsNull())
        return false;
    TopoDS_Shape shape = XCAFDoc_ShapeTool::GetShape(walk.at());
    if (shape.IsNull() || !descend(shape, path.subentId()))
        return false;
    place = {walk.at(), shape, walk.placement()};
    return true;
}

GxDbSubentId Database::subentIdOf(const TopoDS_Shape& part, const TopoDS_Shape& subshape) {
    GxDbSubentId found;
    if (part.IsNull() || subshape.IsNull() || typeOf(subshape.ShapeType()) == kWholePart)
        return found;
    TopTools_IndexedMapOfShape subshapes;
    TopExp::MapShapes(part, subshape.ShapeType(), subshapes);
    found.index = subshapes.FindIndex(subshape);
    found.type = found.index == 0 ? kWholePart : typeOf(subshape.ShapeType());
    return found;
}

// ---- Highlights

void Database::setHighlighter(Highlighter* highlighter) {
    mStubs->setHighlighter(highlighter);
}

std::size_t Database::highlights() const noexcept {
    return mStubs->highlights();
}

// ---- Markers

namespace {

constexpr long kTypes = 4; // of sub-entities, with the whole part
constexpr long kNoMarker = -1;

} // namespace

long markerOf(const GxDbSubentId& part) noexcept {
    return part.type == kWholePart ? kNoMarker : kTypes * static_cast<long>(part.index) + part.type;
}

GxDbSubentId partOf(long marker) noexcept {
    if (marker <= 0)
        return {};
    return {static_cast<std::int32_t>(marker % kTypes), marker / kTypes, nullptr};
}

GxDbFullSubentPath subentPathOf(const IdPath& ids, const GxDbSubentId& part) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        path.objectIds()[static_cast<int>(i)] = ids[i];
    path.subentId() = part;
    return path;
}

} // namespace kvopencascade
