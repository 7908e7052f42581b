// An assembly of our own: a hall of servers.
#pragma once

#include <Standard_Handle.hxx>
#include <TDocStd_Document.hxx>

namespace assembly {

// How many there are of each thing. The defaults give 2,202 instances of 30 parts, on seven levels: hall,
// row, rack, server, board, processor, chip.
struct HallSize {
    int rows = 2;
    int racksInRow = 5;
    int serversInRack = 6;
};

// Adds the hall to an empty document.
void buildHall(const Handle(TDocStd_Document) & document, const HallSize& size = {});

} // namespace assembly
