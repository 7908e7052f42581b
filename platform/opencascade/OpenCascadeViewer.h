// Shows highlights in the kernel's viewer.
#pragma once

#include "platform/opencascade/OpenCascadeDatabase.h"

#include <AIS_InteractiveContext.hxx>
#include <Quantity_Color.hxx>

namespace kvopencascade {

// Shows each highlighted shape as an object of its own, on top of the instance that it belongs to. So the
// instances need not be objects of a certain kind, and other instances of the same part do not change.
//
// The objects cannot be picked. They are drawn with the next redraw of the view, which the application does.
//
// Thread safety: that of the context.
class KV_SEAM_API ViewHighlighter : public Highlighter {
public:
    // Keeps the context alive.
    explicit ViewHighlighter(const Handle(AIS_InteractiveContext) & context,
                             const Quantity_Color& color = Quantity_NOC_ORANGE);

    Handle(Standard_Transient) show(const Place& place) override;
    void hide(const Handle(Standard_Transient) & shown) override;

private:
    Handle(AIS_InteractiveContext) mContext;
    Quantity_Color mColor;
};

} // namespace kvopencascade
