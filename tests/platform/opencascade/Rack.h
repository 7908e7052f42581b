// A small document with an assembly structure: a rack with two shelves and a lamp. A shelf has two boxes.
//
//     rack ── shelf left  ── box front, box back
//          ├─ shelf right ── box front, box back
//          └─ lamp
#pragma once

#include "platform/opencascade/OpenCascadeDatabase.h"

#include <TDF_Label.hxx>
#include <TDocStd_Document.hxx>

namespace kvtest {

// Invariant: the document is open until the rack is destroyed.
class Rack {
public:
    // The sizes of a box, and the places of what is in the rack, along the first axis unless said otherwise.
    static constexpr double kBoxLength = 10;
    static constexpr double kBoxDepth = 20;
    static constexpr double kBoxHeight = 30;
    static constexpr double kBackBox = 50;    // of the back box in its shelf, along the second axis
    static constexpr double kRightShelf = 40; // of the right shelf
    static constexpr double kLamp = 80;       // of the lamp

    Rack();
    Rack(const Rack&) = delete;
    Rack& operator=(const Rack&) = delete;
    ~Rack();

    Handle(TDocStd_Document) document;
    TDF_Label rack, shelf, box, bulb;         // the assemblies and parts
    TDF_Label left, right, front, back, lamp; // the components
    TDF_Label colour;                         // a label that is no shape
};

} // namespace kvtest
