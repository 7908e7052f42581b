#include "examples/picker/window/LongWork.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLocale>
#include <QMetaObject>
#include <QProgressBar>
#include <QTimer>

#include <chrono>
#include <future>
#include <thread>

namespace picker {
namespace {

// Until then, the window waits without a sign.
constexpr std::chrono::milliseconds kAtOnce{150};
constexpr std::chrono::milliseconds kRefresh{100};

} // namespace

LongWork::LongWork(QWidget* parent) : QFrame(parent), mLabel(new QLabel), mCancel(new QPushButton("Cancel")) {
    setObjectName("work");
    mCancel->setObjectName("cancel");
    auto* bar = new QProgressBar;
    bar->setRange(0, 0); // the number of steps is not known in advance
    bar->setFixedWidth(120);
    bar->setTextVisible(false);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(mLabel);
    layout->addWidget(bar);
    layout->addWidget(mCancel);
    connect(mCancel, &QPushButton::clicked, this, [this] { cancel(); });
    hide();
}

void LongWork::run(const std::function<void()>& work) {
    mIsRunning = true;
    mSteps = 0;
    QEventLoop loop;
    std::promise<void> promise;
    std::future<void> done = promise.get_future();
    std::thread thread([&] {
        work();
        promise.set_value();
        // A quit() that comes before exec() is delivered in exec().
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    if (done.wait_for(kAtOnce) != std::future_status::ready) {
        QGuiApplication::setOverrideCursor(Qt::BusyCursor);
        mCancel->setEnabled(true);
        showSteps();
        show();
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [this] { showSteps(); });
        timer.start(kRefresh);
        loop.exec();
        hide();
        QGuiApplication::restoreOverrideCursor();
    }
    thread.join();
    mIsRunning = false;
}

void LongWork::cancel() {
    if (!mIsRunning)
        return;
    mCancel->setEnabled(false);
    mLabel->setText("ending...");
    if (onCancel)
        onCancel();
}

void LongWork::showSteps() {
    if (mCancel->isEnabled())
        mLabel->setText(mSteps == 0
                            ? QString("working")
                            : "working, step " + QLocale(QLocale::English).toString(qulonglong{mSteps}));
}

} // namespace picker
