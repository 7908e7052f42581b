// Paints outlines as lines of a constant width on the screen.
#pragma once

#include "examples/picker/Drawing.h"

#include <QPainter>
#include <QPolygonF>

#include <atomic>
#include <cstdint>

namespace picker {

// Paints with the pen of a painter.
class Strokes {
public:
    explicit Strokes(QPainter& painter) : mPainter(painter) {}

    // `placement` maps the outline to pixels.
    void add(const Outline& outline, const Affine& placement);
    void add(const Outline& outline, const Outline::Segment& segment, const Affine& placement);
    // Paints all that a block shows. Stands a dot in for what is smaller than a pixel. Stops early if
    // `isStale` becomes true or if there is more than a picture can show. Returns whether everything was
    // painted.
    bool add(const BlockDefinition& block, const Affine& placement, const std::atomic<bool>& isStale);

private:
    void append(const Outline& outline, const Outline::Segment& segment, const Affine& placement);
    void paintLine();

    QPainter& mPainter;
    QPolygonF mLine; // kept for its memory
};

} // namespace picker
