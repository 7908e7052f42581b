// The window: the drawing, the table of the current set, the sets, and the command line.
#pragma once

#include "examples/picker/window/HighlightBook.h"
#include "examples/picker/window/Workbench.h"

#include <QMainWindow>

#include <functional>
#include <string>
#include <vector>

class QItemSelectionModel;
class QLabel;
class QTableView;

namespace picker {

class Canvas;
class CommandBar;
class LongWork;
class SetModel;
class SetsPanel;

class MainWindow : public QMainWindow {
public:
    MainWindow();
    ~MainWindow() override;

    // Runs a command line, and returns whether it succeeded. Does nothing while another command runs.
    bool run(const std::string& line);
    // Runs the lines of a file, up to the first that fails.
    bool runScript(const std::string& file);

    Workbench& workbench() { return mWorkbench; }
    HighlightBook& highlights() { return mHighlights; }
    Canvas& canvas() { return *mCanvas; }
    QTableView& table() { return *mTable; }
    SetsPanel& sets() { return *mSets; }
    CommandBar& commands() { return *mCommands; }
    LongWork& work() { return *mWork; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    using Task = std::function<Workbench::Report()>;

    void makeDocks();
    void makeActions();
    void connectParts();
    Workbench::Report perform(const Task& task);
    void report(const Workbench::Report& report);
    void pick(const Area& area, Change change);
    void removeChosen();
    void showRow(int row);
    void chooseRow(int row);
    void markChosen();
    std::vector<int> chosenRows() const;

    // First, since it must be there before any entity is highlighted, and after the last set is gone.
    HighlightBook mHighlights;
    Workbench mWorkbench;
    bool mIsChoosing = false; // the program chooses rows, not the user

    Canvas* mCanvas;
    SetModel* mModel;
    QTableView* mTable;
    SetsPanel* mSets;
    CommandBar* mCommands;
    LongWork* mWork;
    QLabel* mHover;
};

} // namespace picker
