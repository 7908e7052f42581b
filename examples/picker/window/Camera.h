// The part of the drawing that the window shows: how far it is enlarged, and where it lies.
#pragma once

#include "examples/picker/Geometry.h"

#include <QPointF>
#include <QSize>

namespace picker {

class Camera {
public:
    // Both coordinate systems have y downwards. So a camera only scales and shifts.
    double scale() const { return mScale; } // pixels of a unit
    Affine toPixels() const;
    QPointF toPixels(Point p) const;
    Point toDrawing(QPointF pixel) const;
    // As toDrawing(), with no more decimal places than a hundredth of a pixel needs. For numbers that people
    // read.
    Point roundedToDrawing(QPointF pixel) const;
    double rounded(double length) const; // of the drawing, to the same places

    // Shows the whole box in the middle of the window, with a narrow margin.
    void showAll(const Box& box, QSize window);
    // Enlarges by the factor. What lies under the pixel stays there.
    void zoomAround(QPointF pixel, double factor);
    void pan(QPointF pixels);

    friend bool operator==(const Camera& a, const Camera& b) {
        return a.mScale == b.mScale && a.mOrigin == b.mOrigin;
    }
    friend bool operator!=(const Camera& a, const Camera& b) { return !(a == b); }

private:
    double mScale = 1;
    Point mOrigin; // the drawing's origin, in pixels
};

} // namespace picker
