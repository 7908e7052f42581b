// Runs work on a thread of its own. Work that takes long shows its progress, and can be cancelled.
#pragma once

#include <QFrame>
#include <QLabel>
#include <QPushButton>

#include <atomic>
#include <cstddef>
#include <functional>

namespace picker {

// A field of the status bar, which is visible while long work runs.
class LongWork : public QFrame {
public:
    explicit LongWork(QWidget* parent = nullptr);

    // Called when the user wants the work to end. The work may still come to its end.
    std::function<void()> onCancel;

    // Runs the work, and returns when it is done. The window is painted meanwhile and takes input, so the
    // caller has to refuse what must not happen then. Work that is done at once is not shown.
    void run(const std::function<void()>& work);
    bool isRunning() const { return mIsRunning; }
    void cancel();
    // Any thread may call it.
    void setSteps(std::size_t steps) { mSteps = steps; }

private:
    void showSteps();

    QLabel* mLabel;
    QPushButton* mCancel;
    std::atomic<std::size_t> mSteps{0};
    bool mIsRunning = false;
};

} // namespace picker
