#include "examples/picker/window/Canvas.h"

#include "examples/picker/window/Candidates.h"
#include "examples/picker/window/Colours.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>
#include <utility>

namespace picker {
namespace {

constexpr double kDragDistance = 5; // pixels; a shorter drag is a click
constexpr double kHighlightWidth = 3;
constexpr double kZoomOfStep = 1.25;
constexpr double kWheelStep = 120; // what Qt reports for one notch of a wheel
// A picture of more highlights is painted without smoothing, which takes a third of the time.
constexpr std::size_t kMostSmooth = 2000;

QPen penOf(const QColor& colour, double width) {
    QPen pen(colour, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    pen.setCosmetic(true);
    return pen;
}

Change changeOf(Qt::KeyboardModifiers modifiers) {
    if (modifiers.testFlag(Qt::ShiftModifier))
        return Change::remove;
    return modifiers.testFlag(Qt::ControlModifier) ? Change::toggle : Change::add;
}

// Returns how the pixels of one view are mapped to those of another.
QTransform viewChange(const Camera& from, const Camera& to) {
    const double factor = to.scale() / from.scale();
    const QPointF origin = to.toPixels(Point{}) - factor * from.toPixels(Point{});
    return {factor, 0, 0, factor, origin.x(), origin.y()};
}

} // namespace

Canvas::Canvas(HighlightBook& highlights, QWidget* parent) : QWidget(parent), mHighlights(highlights) {
    setObjectName("canvas");
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::CrossCursor);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(200, 150);
}

// ---- the view

void Canvas::beginWork() {
    forgetCandidates();
    mIsWorking = true;
    mRenderer.stop();
}

void Canvas::endWork(const Drawing* drawing) {
    mIsWorking = false;
    if (drawing != mDrawing) {
        mDrawing = drawing;
        mPicture = {};
        mOverlay = {};
        mMode = Mode::idle;
        showAll();
    } else if (!isInView(mPicture)) {
        repaintPicture();
    }
    mMarked.clear();
    if (isReady() && underMouse())
        hover(mMouse);
}

void Canvas::showAll() {
    if (!isReady())
        return update();
    Box box = mDrawing->page();
    box.add(mDrawing->model().box());
    Camera camera = mCamera;
    camera.showAll(box, size());
    setCamera(camera);
}

void Canvas::showBox(const Box& box) {
    Camera camera = mCamera;
    camera.showAll(box, size());
    setCamera(camera);
}

void Canvas::setCamera(const Camera& camera) {
    mCamera = camera;
    forgetCandidates();
    repaintPicture();
    update();
}

bool Canvas::isInView(const Renderer::Picture& picture) const {
    return picture.image.size() == size() && picture.camera == mCamera;
}

bool Canvas::isPainted() const {
    return isInView(mPicture) && isInView(mOverlay);
}

void Canvas::repaintPicture() {
    if (isReady())
        mRenderer.start(*mDrawing, mCamera, size(), [this](const Renderer::Picture& done) { accept(done); });
}

void Canvas::accept(const Renderer::Picture& picture) {
    mPicture = picture;
    paintOverlay();
    update();
}

void Canvas::resizeEvent(QResizeEvent* event) {
    // The first size that the window gets shows the whole drawing. Later sizes show more or less of it.
    if (mPicture.image.isNull())
        showAll();
    else
        setCamera(mCamera);
    QWidget::resizeEvent(event);
}

// ---- painting

void Canvas::refreshHighlights() {
    if (!isInView(mOverlay)) // is painted with the next picture
        return;
    if (mHighlights.hasEnded()) {
        paintOverlay();
    } else if (mHighlights.hasNew()) {
        QPainter painter(&mOverlay.image);
        painter.setRenderHint(QPainter::Antialiasing, mHighlights.size() <= kMostSmooth);
        painter.setPen(penOf(colours::kHighlight, kHighlightWidth));
        Strokes strokes(painter);
        mHighlights.paintNew(strokes, *mDrawing, mCamera.toPixels());
    }
    update();
}

void Canvas::paintOverlay() {
    if (mOverlay.image.size() != size())
        mOverlay.image = QImage(size(), QImage::Format_ARGB32_Premultiplied);
    mOverlay.image.fill(Qt::transparent);
    mOverlay.camera = mCamera;
    QPainter painter(&mOverlay.image);
    painter.setRenderHint(QPainter::Antialiasing, mHighlights.size() <= kMostSmooth);
    painter.setPen(penOf(colours::kHighlight, kHighlightWidth));
    Strokes strokes(painter);
    mHighlights.paintAll(strokes, *mDrawing, mCamera.toPixels());
}

void Canvas::mark(std::vector<std::vector<GxDbObjectId>> paths) {
    mMarked = std::move(paths);
    update();
}

void Canvas::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    const QRect area = event->rect();
    if (!isInView(mPicture))
        painter.fillRect(area, colours::kGround);
    paintLayer(painter, mPicture, area);
    paintLayer(painter, mOverlay, area);
    if (!isReady())
        return;
    painter.setRenderHint(QPainter::Antialiasing);
    paintMarked(painter);
    paintCandidate(painter);
    paintBand(painter);
}

void Canvas::paintLayer(QPainter& painter, const Renderer::Picture& layer, const QRect& area) const {
    if (layer.image.isNull())
        return;
    if (isInView(layer)) {
        painter.drawImage(area, layer.image, area);
        return;
    }
    painter.setTransform(viewChange(layer.camera, mCamera));
    painter.drawImage(0, 0, layer.image);
    painter.resetTransform();
}

void Canvas::paintMarked(QPainter& painter) const {
    painter.setPen(penOf(colours::kMarked, kHighlightWidth));
    Strokes strokes(painter);
    for (const std::vector<GxDbObjectId>& path : mMarked)
        paintPlaced(strokes, *mDrawing, path, mCamera.toPixels());
}

void Canvas::paintCandidate(QPainter& painter) const {
    if (!candidate())
        return;
    painter.setPen(penOf(colours::kPreHighlight, kHighlightWidth));
    Strokes strokes(painter);
    strokes.add(mDrawing->curve(candidate()->path.back())->outline(),
                mCamera.toPixels() * candidate()->placement);
}

void Canvas::paintBand(QPainter& painter) const {
    if (mMode == Mode::box) {
        const bool isWindow = mMouse.x() >= mPressed.x();
        QColor colour = isWindow ? colours::kWindow : colours::kCrossing;
        painter.setPen(QPen(colour, 1, isWindow ? Qt::SolidLine : Qt::DashLine));
        colour.setAlpha(40);
        painter.setBrush(colour);
        painter.setRenderHint(QPainter::Antialiasing, false);
        painter.drawRect(QRectF(mPressed, mMouse).normalized());
    }
    if (mMode == Mode::fence) {
        painter.setPen(QPen(colours::kFence, 1.5, Qt::DashLine));
        QPolygonF chain;
        for (const Point p : mFence)
            chain.append(mCamera.toPixels(p));
        chain.append(mMouse);
        painter.drawPolyline(chain);
    }
}

// ---- what lies under the mouse

const Pick* Canvas::candidate() const {
    return mCandidate < mCandidates.size() ? &mCandidates[mCandidate] : nullptr;
}

QRect Canvas::candidateArea() const {
    if (!candidate())
        return {};
    const Curve* const curve = mDrawing->curve(candidate()->path.back());
    const Box box = (mCamera.toPixels() * candidate()->placement)(curve->outline().box());
    // Adds the width of the pen first: the intersection with a box without width or height would be empty.
    const QRectF pixels(QPointF(box.low.x, box.low.y), QPointF(box.high.x, box.high.y));
    return (pixels.adjusted(-4, -4, 4, 4) & QRectF(rect())).toAlignedRect();
}

double Canvas::reach() const {
    return mCamera.rounded(kAperture / mCamera.scale());
}

void Canvas::hover(QPointF pixel) {
    const std::vector<GxDbObjectId> before = candidate() ? candidate()->path : std::vector<GxDbObjectId>();
    const QRect areaBefore = candidateArea();
    mCandidate = 0;
    try {
        mCandidates = candidatesAt(*mDrawing, mCamera.roundedToDrawing(pixel), reach());
    } catch (const PickError&) { // there is too much to look at: nothing is shown in advance
        mCandidates.clear();
    }
    if (before == (candidate() ? candidate()->path : std::vector<GxDbObjectId>()))
        return;
    update(areaBefore | candidateArea());
    tellHover();
}

void Canvas::forgetCandidates() {
    const QRect area = candidateArea();
    mCandidate = 0;
    if (mCandidates.empty())
        return;
    mCandidates.clear();
    update(area);
    tellHover();
}

void Canvas::nextCandidate(int step) {
    const std::size_t count = mCandidates.size();
    if (count < 2)
        return;
    const QRect before = candidateArea();
    mCandidate = (mCandidate + (step > 0 ? 1 : count - 1)) % count;
    update(before | candidateArea());
    tellHover();
}

void Canvas::tellHover() const {
    if (!onHover)
        return;
    std::string text;
    if (const Pick* pick = candidate()) {
        for (const GxDbObjectId id : pick->path)
            text += (text.empty() ? "" : " > ") + mDrawing->label(id);
        text += ", segment " + std::to_string(pick->gsMarker);
        if (mCandidates.size() > 1)
            text += " (" + std::to_string(mCandidate + 1) + " of " + std::to_string(mCandidates.size()) +
                    " here, Tab for the next)";
    }
    onHover(text);
}

// ---- mouse and keys

void Canvas::press(QPointF pixel) {
    mPressed = pixel;
    if (mMode == Mode::fence) {
        mFence.push_back(mCamera.roundedToDrawing(pixel));
        update();
    } else {
        mMode = Mode::pressed;
    }
}

void Canvas::move(QPointF pixel) {
    const QPointF before = std::exchange(mMouse, pixel);
    if (mMode == Mode::pressed && (pixel - mPressed).manhattanLength() > kDragDistance) {
        mMode = Mode::box;
        forgetCandidates();
    }
    if (mMode == Mode::box) {
        const QRectF changed = QRectF(mPressed, before).normalized() | QRectF(mPressed, pixel).normalized();
        update(changed.toAlignedRect().adjusted(-2, -2, 2, 2));
    } else if (mMode == Mode::fence) {
        update();
    } else if (mMode == Mode::idle && isReady()) {
        hover(pixel);
    }
}

void Canvas::release(QPointF pixel, Qt::KeyboardModifiers modifiers) {
    const Mode mode = mMode;
    if (mode == Mode::fence)
        return;
    mMode = Mode::idle;
    update();
    if (mode == Mode::pressed)
        return click(mPressed, modifiers);
    if (mode != Mode::box)
        return;
    const bool isWindow = pixel.x() >= mPressed.x();
    pick({isWindow ? Area::Kind::window : Area::Kind::crossing,
          {mCamera.roundedToDrawing(mPressed), mCamera.roundedToDrawing(pixel)}},
         modifiers);
}

void Canvas::click(QPointF pixel, Qt::KeyboardModifiers modifiers) {
    // After Tab, the entity that is pre-highlighted counts, not the nearest one.
    pick({Area::Kind::point, {mCamera.roundedToDrawing(pixel)}, reach(), mCandidate}, modifiers);
}

void Canvas::pick(const Area& area, Qt::KeyboardModifiers modifiers) {
    if (onPick)
        onPick(area, changeOf(modifiers));
}

void Canvas::beginFence() {
    if (!isReady())
        return;
    mMode = Mode::fence;
    mFence.clear();
    forgetCandidates();
    setFocus();
    update();
}

void Canvas::endFence(Qt::KeyboardModifiers modifiers) {
    mMode = Mode::idle;
    const std::vector<Point> chain = std::exchange(mFence, {});
    update();
    if (chain.size() > 1)
        pick({Area::Kind::fence, chain}, modifiers);
}

void Canvas::escape() {
    if (mMode == Mode::idle) {
        if (onClear)
            onClear();
        return;
    }
    mMode = Mode::idle;
    mFence.clear();
    update();
}

void Canvas::mousePressEvent(QMouseEvent* event) {
    setFocus();
    if (!isReady())
        return;
    if (event->button() == Qt::LeftButton) {
        press(event->position());
    } else if (event->button() == Qt::RightButton && mMode == Mode::fence) {
        endFence(event->modifiers());
    } else if (event->button() == Qt::MiddleButton && mMode == Mode::idle) {
        mMode = Mode::pan;
        mPressed = event->position();
        forgetCandidates();
    }
}

void Canvas::mouseMoveEvent(QMouseEvent* event) {
    if (mMode != Mode::pan)
        return move(event->position());
    Camera camera = mCamera;
    camera.pan(event->position() - mPressed);
    mPressed = event->position();
    setCamera(camera);
}

void Canvas::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::MiddleButton && mMode == Mode::pan)
        mMode = Mode::idle;
    else if (event->button() == Qt::LeftButton && isReady())
        release(event->position(), event->modifiers());
}

void Canvas::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::MiddleButton)
        showAll();
    else
        mousePressEvent(event); // two clicks in a short time
}

void Canvas::wheelEvent(QWheelEvent* event) {
    if (!isReady())
        return;
    Camera camera = mCamera;
    camera.zoomAround(event->position(), std::pow(kZoomOfStep, event->angleDelta().y() / kWheelStep));
    setCamera(camera);
    event->accept();
}

void Canvas::leaveEvent(QEvent*) {
    forgetCandidates();
}

void Canvas::keyPressEvent(QKeyEvent* event) {
    if (!isReady())
        return QWidget::keyPressEvent(event);
    const bool isFence = mMode == Mode::fence;
    switch (event->key()) {
    case Qt::Key_Escape:
        return escape();
    case Qt::Key_F:
        return beginFence();
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return isFence ? endFence(event->modifiers()) : QWidget::keyPressEvent(event);
    case Qt::Key_Tab:
        return nextCandidate(1);
    case Qt::Key_Backtab:
        return nextCandidate(-1);
    default:
        QWidget::keyPressEvent(event);
    }
}

// Tab changes the candidate if there are several. Otherwise it moves the keyboard's focus.
bool Canvas::focusNextPrevChild(bool next) {
    return mCandidates.size() < 2 && QWidget::focusNextPrevChild(next);
}

} // namespace picker
