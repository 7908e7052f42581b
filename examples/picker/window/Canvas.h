// Shows the drawing with its highlights, and turns mouse and keys into picks.
//
//   left click            picks what lies under the mouse
//   left drag             to the right: a window, to the left: a crossing
//   F                     begins a fence: a click adds a point, Enter or a right click ends it
//   Shift, Ctrl           take out, or toggle, what a click, a box or a fence finds
//   Tab                   goes on to what lies behind the entity under the mouse
//   Esc                   gives up a box or a fence; otherwise clears the set
//   wheel                 zooms around the mouse
//   middle button         pans; a double click shows everything
//
// The lines of the drawing are painted once for each view, in the background. Until they are there, the last
// picture is shown, shifted and scaled. Highlights are painted on a layer above, band and pre-highlight last.
#pragma once

#include "examples/picker/Picker.h"
#include "examples/picker/window/Area.h"
#include "examples/picker/window/Camera.h"
#include "examples/picker/window/HighlightBook.h"
#include "examples/picker/window/Renderer.h"

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

namespace picker {

class Canvas : public QWidget {
public:
    static constexpr double kAperture = 6; // pixels that a click reaches

    explicit Canvas(HighlightBook& highlights, QWidget* parent = nullptr);

    // What the canvas asks for. A function may change the sets, and calls refreshHighlights() afterwards.
    std::function<void(const Area&, Change)> onPick;
    std::function<void()> onClear;
    // Called when the mouse enters, changes or leaves an entity. The text is empty if there is none.
    std::function<void(const std::string&)> onHover;

    // Between the two calls, another thread works on the drawing and the sets. The canvas uses neither, shows
    // its last picture, and ignores mouse and keys. Afterwards there may be another drawing, which is shown
    // as a whole, or none.
    void beginWork();
    void endWork(const Drawing* drawing);
    // Paints what was highlighted and unhighlighted since the last call.
    void refreshHighlights();
    // Marks the entities at the ends of paths, such as those that are chosen in the table.
    void mark(std::vector<std::vector<GxDbObjectId>> paths);

    void showAll();
    void showBox(const Box& box); // enlarges a part of the drawing
    void beginFence();

    const Camera& camera() const { return mCamera; }
    // Returns whether the picture of the present view is complete.
    bool isPainted() const;
    // Returns what the next click picks, or null.
    const Pick* candidate() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool focusNextPrevChild(bool next) override;

private:
    enum class Mode { idle, pressed, box, fence, pan };

    bool isReady() const { return mDrawing && !mIsWorking; }
    bool isInView(const Renderer::Picture& picture) const;

    void setCamera(const Camera& camera);
    void repaintPicture();
    void accept(const Renderer::Picture& picture);
    void paintOverlay();
    void paintLayer(QPainter& painter, const Renderer::Picture& layer, const QRect& area) const;
    void paintMarked(QPainter& painter) const;
    void paintCandidate(QPainter& painter) const;
    void paintBand(QPainter& painter) const;

    double reach() const; // of a click, in the drawing's units
    void hover(QPointF pixel);
    void forgetCandidates();
    void nextCandidate(int step);
    void tellHover() const;
    QRect candidateArea() const;

    void press(QPointF pixel);
    void move(QPointF pixel);
    void release(QPointF pixel, Qt::KeyboardModifiers modifiers);
    void escape();
    void endFence(Qt::KeyboardModifiers modifiers);
    void click(QPointF pixel, Qt::KeyboardModifiers modifiers);
    void pick(const Area& area, Qt::KeyboardModifiers modifiers);

    HighlightBook& mHighlights;
    const Drawing* mDrawing = nullptr;
    bool mIsWorking = false;

    Camera mCamera;
    Renderer mRenderer;
    Renderer::Picture mPicture; // the lines of the drawing
    Renderer::Picture mOverlay; // the highlights
    std::vector<std::vector<GxDbObjectId>> mMarked;

    Mode mMode = Mode::idle;
    QPointF mPressed; // where a box began, or the last place of a pan
    QPointF mMouse;
    std::vector<Point> mFence;
    std::vector<Pick> mCandidates;
    std::size_t mCandidate = 0;
};

} // namespace picker
