#include "examples/picker/window/MainWindow.h"

#include "examples/picker/window/Canvas.h"
#include "examples/picker/window/CommandBar.h"
#include "examples/picker/window/LongWork.h"
#include "examples/picker/window/SetModel.h"
#include "examples/picker/window/SetsPanel.h"

#include <QAction>
#include <QCloseEvent>
#include <QDockWidget>
#include <QHeaderView>
#include <QLabel>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>

#include <algorithm>
#include <fstream>
#include <utility>

namespace picker {
namespace {

constexpr std::size_t kMostMarked = 1000; // rows that are marked in the drawing at once

// Returns the box around what a path leads to, with some of what is around it.
Box surroundings(const PlacedContent& placed) {
    Box box = placed.placement(placed.content->box());
    const Point size = box.high - box.low;
    const double margin = std::max({size.x, size.y, 1e-6});
    box.add(box.low - Point{margin, margin});
    box.add(box.high + Point{margin, margin});
    return box;
}

} // namespace

MainWindow::MainWindow()
    : mCanvas(new Canvas(mHighlights)), mModel(new SetModel(mWorkbench.session(), this)),
      mTable(new QTableView), mSets(new SetsPanel(mWorkbench.session())), mCommands(new CommandBar),
      mWork(new LongWork), mHover(new QLabel) {
    setWindowTitle("picker");
    resize(1280, 860);
    mHover->setObjectName("hover");
    statusBar()->addWidget(mHover, 1);
    statusBar()->addPermanentWidget(mWork);
    mTable->setObjectName("items");
    mTable->setModel(mModel);
    mTable->setSelectionBehavior(QTableView::SelectRows);
    mTable->verticalHeader()->hide();
    mTable->verticalHeader()->setDefaultSectionSize(mTable->fontMetrics().height() + 6);
    mTable->horizontalHeader()->setStretchLastSection(true);
    mTable->setWordWrap(false);
    const int character = mTable->fontMetrics().averageCharWidth();
    mTable->setColumnWidth(SetModel::kPosition, 6 * character);
    mTable->setColumnWidth(SetModel::kMain, 15 * character);
    mTable->setColumnWidth(SetModel::kSub, 15 * character);
    mTable->setColumnWidth(SetModel::kMarker, 9 * character);
    mTable->setColumnWidth(SetModel::kPath, 40 * character);
    setCentralWidget(mCanvas);
    makeDocks();
    makeActions();
    connectParts();
    mCanvas->setFocus();
}

// The canvas uses the drawing, which the workbench is about to destroy.
MainWindow::~MainWindow() {
    mCanvas->beginWork();
    mModel->beginEdit();
}

void MainWindow::makeDocks() {
    const auto addDock = [this](const char* title, QWidget* widget, Qt::DockWidgetArea area) {
        auto* dock = new QDockWidget(title);
        dock->setObjectName(QString("dock ") + title);
        dock->setWidget(widget);
        addDockWidget(area, dock);
        return dock;
    };
    QDockWidget* const items = addDock("Items of the current set", mTable, Qt::RightDockWidgetArea);
    QDockWidget* const sets = addDock("Sets", mSets, Qt::RightDockWidgetArea);
    QDockWidget* const commands = addDock("Commands", mCommands, Qt::BottomDockWidgetArea);
    resizeDocks({items}, {460}, Qt::Horizontal);
    resizeDocks({items, sets}, {500, 200}, Qt::Vertical);
    resizeDocks({commands}, {190}, Qt::Vertical);
    setCorner(Qt::BottomRightCorner, Qt::RightDockWidgetArea);
}

void MainWindow::makeActions() {
    QToolBar* const bar = addToolBar("Edit");
    bar->setObjectName("bar");
    const auto add = [&](const char* text, const QKeySequence& key, const char* help,
                         const std::function<void()>& act) {
        QAction* const action = bar->addAction(text);
        action->setShortcut(key);
        action->setToolTip(help);
        connect(action, &QAction::triggered, this, act);
    };
    add("Undo", QKeySequence::Undo, "take the last edit back", [this] { run("undo"); });
    add("Redo", QKeySequence::Redo, "do it again", [this] { run("redo"); });
    bar->addSeparator();
    add("Fence (F)", {}, "click points, end with Enter", [this] { mCanvas->beginFence(); });
    add("All", {}, "add everything", [this] { run("all"); });
    add("Clear (Esc)", {}, "empty the set", [this] { run("clear"); });
    add("Remove rows", {}, "take out the items that are chosen in the table", [this] { removeChosen(); });
    bar->addSeparator();
    add("Show all", {}, "the whole drawing", [this] { mCanvas->showAll(); });
}

void MainWindow::connectParts() {
    mCanvas->onPick = [this](const Area& area, Change change) { pick(area, change); };
    mCanvas->onClear = [this] { run("clear"); };
    mCanvas->onHover = [this](const std::string& text) { mHover->setText(QString::fromStdString(text)); };
    mSets->onCommand = [this](const std::string& line) { run(line); };
    mCommands->onCommand = [this](const std::string& line) { run(line); };
    mCommands->completionOf = [this](const std::string& line) {
        return mWork->isRunning() ? Completion() : picker::completionOf(mWorkbench.session(), line);
    };
    Interrupt& interrupt = mWorkbench.session().interrupt();
    interrupt.setProgress([this](std::size_t steps) { mWork->setSteps(steps); });
    mWork->onCancel = [&interrupt] { interrupt.request(); };
    connect(mTable->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!mIsChoosing)
            markChosen();
    });
    connect(mTable, &QTableView::doubleClicked, this,
            [this](const QModelIndex& index) { showRow(index.row()); });
}

// ---- commands

bool MainWindow::run(const std::string& line) {
    if (mWork->isRunning())
        return false;
    const Workbench::Report done = perform([&] { return mWorkbench.run(line); });
    if (done.isFinished)
        close();
    return !done.isError;
}

bool MainWindow::runScript(const std::string& file) {
    std::ifstream in(file);
    if (!in) {
        report({"", file + ": cannot be read", true});
        return false;
    }
    for (std::string line; std::getline(in, line);) {
        if (!run(line))
            return false;
    }
    return true;
}

void MainWindow::pick(const Area& area, Change change) {
    if (mWork->isRunning())
        return;
    const Pick* const candidate = mCanvas->candidate();
    const std::vector<GxDbObjectId> path = candidate ? candidate->path : std::vector<GxDbObjectId>();
    perform([&] { return mWorkbench.pick(area, change); });
    if (area.kind == Area::Kind::point && !path.empty())
        chooseRow(mWorkbench.positionOf(path));
}

void MainWindow::removeChosen() {
    const std::vector<int> rows = chosenRows();
    if (!rows.empty() && !mWork->isRunning())
        perform([&] { return mWorkbench.removeAt(rows); });
}

// While the task runs on another thread, the parts of the window do not touch the session.
Workbench::Report MainWindow::perform(const Task& task) {
    const Drawing* const before = mWorkbench.drawing();
    mCanvas->beginWork();
    mModel->beginEdit();
    Workbench::Report done;
    mWork->run([&] { done = task(); });
    mIsChoosing = true;
    mModel->endEdit();
    mIsChoosing = false;
    if (mWorkbench.drawing() != before) {
        mHighlights.clear();
        setWindowTitle(QString::fromStdString(mWorkbench.session().drawing().name()) + " - picker");
    }
    mCanvas->endWork(mWorkbench.drawing());
    mCanvas->refreshHighlights();
    mSets->refresh();
    report(done);
    return done;
}

void MainWindow::report(const Workbench::Report& report) {
    if (!report.command.empty())
        mCommands->addCommand(report.command);
    mCommands->addText(report.text, report.isError);
}

// ---- the table

std::vector<int> MainWindow::chosenRows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : mTable->selectionModel()->selectedRows())
        rows.push_back(index.row());
    return rows;
}

void MainWindow::chooseRow(int row) {
    if (row < 0)
        return mTable->clearSelection();
    mIsChoosing = true; // the drawing shows the entity already, under the mouse
    mTable->selectRow(row);
    mIsChoosing = false;
    mTable->scrollTo(mModel->index(row, 0));
}

void MainWindow::markChosen() {
    std::vector<std::vector<GxDbObjectId>> paths;
    for (const int row : chosenRows()) {
        const GxapSelectSet::ConstIterator it = mWorkbench.session().set().iteratorAt(row);
        if (!it.isDone() && paths.size() < kMostMarked)
            paths.push_back(pathOf(*it.get()));
    }
    mCanvas->mark(std::move(paths));
}

void MainWindow::showRow(int row) {
    const GxapSelectSet::ConstIterator it = mWorkbench.session().set().iteratorAt(row);
    const std::optional<PlacedContent> placed =
        it.isDone() ? std::nullopt : placedAt(*mWorkbench.drawing(), pathOf(*it.get()));
    if (placed)
        mCanvas->showBox(surroundings(*placed));
}

void MainWindow::closeEvent(QCloseEvent* event) {
    mWork->cancel(); // the work ends first
    event->setAccepted(!mWork->isRunning());
}

} // namespace picker
