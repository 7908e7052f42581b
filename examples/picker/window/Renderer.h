// Paints the drawing in the background, so that the window answers while a large drawing is painted.
#pragma once

#include "examples/picker/Drawing.h"
#include "examples/picker/window/Camera.h"

#include <QImage>
#include <QObject>
#include <QSize>

#include <atomic>
#include <functional>
#include <thread>

namespace picker {

// Lives on the thread of the window. The drawing must live until the picture is done, or until stop().
class Renderer {
public:
    struct Picture {
        QImage image;
        Camera camera;
    };

    Renderer() = default;
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;
    ~Renderer() { stop(); }

    // Gives up an unfinished picture, and begins the next one. Calls `done` on the window's thread when the
    // picture is finished. Does not call it if the picture is given up.
    void start(const Drawing& drawing, const Camera& camera, QSize size, std::function<void(Picture)> done);
    // Gives up an unfinished picture, and waits until the drawing is no longer used.
    void stop();
    bool isBusy() const { return mIsBusy; }

private:
    QObject mReceiver; // receives finished pictures on the window's thread
    std::thread mThread;
    std::atomic<bool> mIsStale{false};
    std::uint64_t mNumber = 0; // of the last picture that was begun
    bool mIsBusy = false;
};

// Paints the lines of the drawing. Returns an incomplete picture if `isStale` becomes true.
QImage pictureOf(const Drawing& drawing, const Camera& camera, QSize size, const std::atomic<bool>& isStale);

} // namespace picker
