#include "examples/picker/window/Strokes.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace picker {
namespace {

constexpr double kDot = 1;    // pixels; a block in a smaller box becomes a dot
constexpr double kStep = 0.4; // pixels; nearer points of a curve are left out

// Blocks in blocks can show more than any machine can paint. The limit is far beyond what a screen can show.
constexpr std::size_t kMostPainted = 4'000'000;

bool isDot(const Box& pixels) {
    return pixels.high.x - pixels.low.x < kDot && pixels.high.y - pixels.low.y < kDot;
}

Box pixelsOf(const QPainter& painter) {
    const QRect window = painter.window();
    const double margin = 2; // for the width of the pen
    return Box::between({window.left() - margin, window.top() - margin},
                        {window.right() + 1 + margin, window.bottom() + 1 + margin});
}

} // namespace

void Strokes::append(const Outline& outline, const Outline::Segment& segment, const Affine& placement) {
    for (std::uint32_t i = segment.first; i <= segment.last; ++i) {
        const Point p = placement(outline.points()[i]);
        const bool isInner = i != segment.first && i != segment.last;
        if (isInner && std::abs(p.x - mLine.last().x()) + std::abs(p.y - mLine.last().y()) < kStep)
            continue;
        mLine.append({p.x, p.y});
    }
}

void Strokes::paintLine() {
    if (!mLine.isEmpty())
        mPainter.drawPolyline(mLine);
    mLine.resize(0); // keeps the memory, which clear() would free
}

void Strokes::add(const Outline& outline, const Affine& placement) {
    const std::vector<Outline::Segment>& segments = outline.segments();
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (i > 0 && segments[i].first != segments[i - 1].last)
            paintLine();
        append(outline, segments[i], placement);
    }
    paintLine();
}

void Strokes::add(const Outline& outline, const Outline::Segment& segment, const Affine& placement) {
    append(outline, segment, placement);
    paintLine();
}

bool Strokes::add(const BlockDefinition& block, const Affine& placement, const std::atomic<bool>& isStale) {
    struct Placed {
        const BlockDefinition* block;
        Affine placement;
    };
    const Box view = pixelsOf(mPainter);
    std::size_t painted = 0;
    std::vector<Placed> rest{{&block, placement}};
    const auto paint = [&](const BlockDefinition::Content& content, const Affine& around) {
        if (content.curve) {
            add(content.curve->outline(), around);
            return;
        }
        const Box pixels = around(content.box());
        if (isDot(pixels))
            mPainter.drawPoint(QPointF(pixels.low.x, pixels.low.y));
        else
            rest.push_back({&content.reference->block(), around * content.reference->placement()});
    };
    while (!rest.empty()) {
        const Placed next = rest.back();
        rest.pop_back();
        const std::vector<BlockDefinition::Content>& contents = next.block->contents();
        const auto paintAt = [&](std::size_t index) {
            if (!isStale && painted < kMostPainted)
                paint(contents[index], next.placement);
            ++painted;
        };
        // A placement without an inverse flattens the block. All contents are then painted.
        if (const std::optional<Affine> toBlock = next.placement.inverse())
            next.block->tree().visitOverlapping((*toBlock)(view), paintAt);
        else
            for (std::size_t i = 0; i < contents.size(); ++i)
                paintAt(i);
        if (isStale || painted >= kMostPainted)
            return false;
    }
    return true;
}

} // namespace picker
