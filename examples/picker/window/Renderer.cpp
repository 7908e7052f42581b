#include "examples/picker/window/Renderer.h"

#include "examples/picker/window/Colours.h"
#include "examples/picker/window/Strokes.h"

#include <QMetaObject>

#include <utility>

namespace picker {

QImage pictureOf(const Drawing& drawing, const Camera& camera, QSize size, const std::atomic<bool>& isStale) {
    QImage image(size, QImage::Format_RGB32);
    image.fill(colours::kGround);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(colours::kLine);
    pen.setCosmetic(true);
    painter.setPen(pen);
    Strokes(painter).add(drawing.model(), camera.toPixels(), isStale);
    return image;
}

void Renderer::start(const Drawing& drawing, const Camera& camera, QSize size,
                     std::function<void(Picture)> done) {
    stop();
    if (size.isEmpty())
        return;
    mIsStale = false;
    mIsBusy = true;
    const std::uint64_t number = ++mNumber;
    mThread = std::thread([this, &drawing, camera, size, number, done = std::move(done)] {
        QImage image = pictureOf(drawing, camera, size, mIsStale);
        if (mIsStale)
            return;
        // A picture that was given up after this point still arrives. Its number tells.
        QMetaObject::invokeMethod(&mReceiver, [this, number, done, image = std::move(image), camera] {
            if (number != mNumber || !mIsBusy)
                return;
            mIsBusy = false;
            done({image, camera});
        });
    });
}

void Renderer::stop() {
    mIsStale = true;
    mIsBusy = false;
    if (mThread.joinable())
        mThread.join();
}

} // namespace picker
