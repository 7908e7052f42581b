// The working sets, and what can be made of two of them.
#pragma once

#include "examples/picker/Session.h"

#include <QWidget>

#include <functional>
#include <string>

class QLineEdit;
class QListWidget;

namespace picker {

// Runs everything as commands. The set that is chosen in the list is the other operand; the current one takes
// the result.
class SetsPanel : public QWidget {
public:
    explicit SetsPanel(const Session& session, QWidget* parent = nullptr);

    std::function<void(const std::string&)> onCommand;

    // Fills the list anew. Between two calls, the panel does not touch the session.
    void refresh();

private:
    std::string chosen() const;
    void run(const std::string& line);
    void use(const std::string& name);
    void copyTo(const std::string& name);
    void combine(char operation);
    void intersect();

    const Session& mSession;
    std::string mCurrent; // the current set when the list was filled
    QListWidget* mList;
    QLineEdit* mName;
};

} // namespace picker
