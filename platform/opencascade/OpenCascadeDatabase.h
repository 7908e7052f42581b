// The kernel's document as a database: ids of its labels, instances of its parts, and their highlights.
//
// An application makes a Database on a document with an assembly structure. The ids that it issues work with
// everything that KvDatabase.h declares.
//
// Thread safety: a document and its databases belong to one thread at a time. Several threads may compare
// ids, open and close objects for reading, and copy paths, while no thread changes the document.
#pragma once

#include "platform/KvDatabase.h"
#include "platform/opencascade/OpenCascadeGeometry.h"

#include <Standard_Handle.hxx>
#include <TDF_Label.hxx>
#include <TDocStd_Document.hxx>
#include <TopoDS_Shape.hxx>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The platform on the kernel's document.
namespace kvopencascade {

// ---- Statuses besides eOk

constexpr GxErrorStatus kUnknownId = static_cast<GxErrorStatus>(201);      // null
constexpr GxErrorStatus kForgottenLabel = static_cast<GxErrorStatus>(202); // the label has no attributes
constexpr GxErrorStatus kErasedLabel = static_cast<GxErrorStatus>(203);    // and nobody asked for erased ones
constexpr GxErrorStatus kNotAShape = static_cast<GxErrorStatus>(204);      // a colour or a layer, for example
constexpr GxErrorStatus kOpenOtherwise =
    static_cast<GxErrorStatus>(205); // one of two openings is for writing
constexpr GxErrorStatus kNoSuchInstance = static_cast<GxErrorStatus>(206); // the path leads nowhere
constexpr GxErrorStatus kNotHighlighted = static_cast<GxErrorStatus>(207); // nothing to take back

// ---- Instances

// The type of a sub-entity. Its index is the number of the sub-shape in the part's shape, counted from 1, as
// TopExp::MapShapes() counts.
enum SubentType : std::int32_t { kWholePart = 0, kFace = 1, kEdge = 2, kVertex = 3 };

// Ids from the outermost component to the part. Each component is in the assembly that the one before refers
// to. A part without components is a path of its own.
using IdPath = std::vector<GxDbObjectId>;

// What a path leads to.
struct Place {
    TDF_Label part;     // the label of the part, or of the assembly that a component refers to
    TopoDS_Shape shape; // the part's shape or its sub-shape, where the part itself has it
    gp_Trsf placement;  // the product of the components' locations, the outermost first
};

// Shows highlights in a view.
//
// Thread safety: that of the database.
class KV_SEAM_API Highlighter {
public:
    Highlighter() = default;
    Highlighter(const Highlighter&) = delete;
    Highlighter& operator=(const Highlighter&) = delete;
    virtual ~Highlighter();

    // Shows the shape of a place. Returns what hide() needs.
    virtual Handle(Standard_Transient) show(const Place& place) = 0;

    // Ends what show() began.
    virtual void hide(const Handle(Standard_Transient) & shown) = 0;
};

// ---- The database

namespace detail {
class LabelStubs;
} // namespace detail

// Issues ids for the labels of one document.
//
// Invariants:
//  1. A database has at most one stub for a label. Several databases on one document have a stub each. The
//  ids
//     of all these stubs are equal.
//  2. Ids are in the order in which their labels got their first id. The order is the same for all databases
//     on one document, as long as one of them exists.
//  3. A label whose attributes are forgotten has an id that is not valid. If an undo brings the attributes
//     back, the id is valid again.
//
// Thread safety: see the top of this header.
class KV_SEAM_API Database {
public:
    // The database keeps the document alive. Throws std::invalid_argument for null.
    explicit Database(const Handle(TDocStd_Document) & document);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Ends the highlights. The ids are gone afterwards, and must not be used.
    ~Database();

    const Handle(TDocStd_Document) & document() const noexcept;

    // Returns the id of a label. Returns the null id for a null label. Throws std::invalid_argument for a
    // label of another document. O(1).
    GxDbObjectId idOf(const TDF_Label& label);

    // Returns the label of an id, or a null label for the null id. The id may be one of another database.
    static TDF_Label labelOf(GxDbObjectId id);

    // Returns the name of the label. If a component has no name, returns that of what it refers to. If there
    // is none, returns the label's entry, such as "0:1:1:3".
    static std::string nameOf(GxDbObjectId id);

    // Erase an object, restore it, and return whether it is erased. The mark is an attribute of the label, so
    // it is saved with the document, and an undo takes it back. They throw std::invalid_argument for null.
    static void erase(GxDbObjectId id);
    static void unerase(GxDbObjectId id);
    static bool isErased(GxDbObjectId id);

    // Returns the number of current openings of the object, by all databases.
    static int openCount(GxDbObjectId id);

    // Returns the paths of all instances of parts, in the order of the document. Leaves out components
    // without a part. O(instances * depth).
    std::vector<IdPath> instances();

    // Finds what a path leads to. Returns false, and changes nothing, for a path without ids, a component
    // that is not in the assembly before it, a forgotten label, and a sub-shape that the part does not have.
    // The last component may stand for its part. O(depth), and O(sub-shapes) for a sub-shape.
    static bool locate(const GxDbFullSubentPath& path, Place& place);

    // Returns the number of a sub-shape of a part. Returns the whole part for a shape of another kind, and
    // for one that the part does not have. O(sub-shapes).
    static GxDbSubentId subentIdOf(const TopoDS_Shape& part, const TopoDS_Shape& subshape);

    // Sets where highlights are shown. The caller keeps the highlighter alive until it sets another one. Null
    // shows them nowhere. Highlights that are on move to the new highlighter.
    void setHighlighter(Highlighter* highlighter);

    // Returns the number of paths that are highlighted.
    std::size_t highlights() const noexcept;

private:
    std::unique_ptr<detail::LabelStubs> mStubs;
};

// Return the graphics marker of a part, and the part of a marker: 4 * index + type, and -1 for the whole
// part. So picks of a face and of an edge with the same number are different items of a set.
KV_SEAM_API long markerOf(const GxDbSubentId& part) noexcept;
KV_SEAM_API GxDbSubentId partOf(long marker) noexcept;

// Returns a path of the seam.
KV_SEAM_API GxDbFullSubentPath subentPathOf(const IdPath& ids, const GxDbSubentId& part = {});

} // namespace kvopencascade
