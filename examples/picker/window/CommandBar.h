// The command line of the window: what was said so far, and a field for the next command.
#pragma once

#include "examples/picker/Completion.h"

#include <QStringList>
#include <QWidget>

#include <functional>
#include <string>

class QLineEdit;
class QPlainTextEdit;

namespace picker {

class CommandBar : public QWidget {
public:
    explicit CommandBar(QWidget* parent = nullptr);

    std::function<void(const std::string&)> onCommand;
    // Returns what the last word of a line may become.
    std::function<Completion(const std::string&)> completionOf;

    // Shows a command as if it had been typed, so that it can be called back with the arrow keys.
    void addCommand(const std::string& line);
    void addText(const std::string& text, bool isError);
    QLineEdit& field() { return *mField; }

protected:
    // Up and Down call back earlier lines, Tab completes a word.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void enter();
    void recall(int step);
    bool complete();

    QPlainTextEdit* mSaid;
    QLineEdit* mField;
    QStringList mHistory;
    qsizetype mRecalled = 0; // index in the history; its size: the line that is being typed
};

} // namespace picker
