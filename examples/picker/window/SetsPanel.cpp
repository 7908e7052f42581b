#include "examples/picker/window/SetsPanel.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace picker {
namespace {

constexpr const char* kScratch = "_"; // holds what an intersection leaves over; not shown

QPushButton* addButton(QHBoxLayout& row, const char* name, const char* text, const char* help) {
    auto* button = new QPushButton(text);
    button->setObjectName(name);
    button->setToolTip(help);
    button->setFocusPolicy(Qt::NoFocus);
    row.addWidget(button);
    return button;
}

} // namespace

SetsPanel::SetsPanel(const Session& session, QWidget* parent)
    : QWidget(parent), mSession(session), mList(new QListWidget), mName(new QLineEdit) {
    mList->setObjectName("sets");
    mName->setObjectName("setName");
    mName->setPlaceholderText("name of a set");
    auto* naming = new QHBoxLayout;
    naming->addWidget(mName);
    connect(addButton(*naming, "useSet", "Use", "make this set current, or a new one of this name"),
            &QPushButton::clicked, this, [this] { use(mName->text().toStdString()); });
    connect(addButton(*naming, "copySet", "Copy to", "copy the current set to this name"),
            &QPushButton::clicked, this, [this] { copyTo(mName->text().toStdString()); });
    auto* algebra = new QHBoxLayout;
    connect(addButton(*algebra, "unite", "Union", "add the items of the chosen set to the current one"),
            &QPushButton::clicked, this, [this] { combine('+'); });
    connect(addButton(*algebra, "intersect", "Intersect", "keep what the chosen set has, too"),
            &QPushButton::clicked, this, [this] { intersect(); });
    connect(addButton(*algebra, "subtract", "Subtract", "take out what the chosen set has"),
            &QPushButton::clicked, this, [this] { combine('-'); });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 0);
    layout->addWidget(mList);
    layout->addLayout(naming);
    layout->addLayout(algebra);
    connect(mList, &QListWidget::itemDoubleClicked, this, [this] { use(chosen()); });
    connect(mList, &QListWidget::currentRowChanged, this,
            [this] { mName->setText(QString::fromStdString(chosen())); });
    refresh();
}

void SetsPanel::refresh() {
    const std::string before = chosen();
    const QSignalBlocker quiet(mList);
    mCurrent = mSession.currentName();
    mList->clear();
    for (const auto& [name, set] : mSession.sets()) {
        if (name == kScratch)
            continue;
        const bool isCurrent = name == mCurrent;
        const std::string count = std::to_string(itemCount(set)) + (itemCount(set) == 1 ? " item" : " items");
        auto* row =
            new QListWidgetItem(QString::fromStdString(name + ": " + count + (isCurrent ? ", current" : "")));
        row->setData(Qt::UserRole, QString::fromStdString(name));
        QFont font = row->font();
        font.setBold(isCurrent);
        row->setFont(font);
        mList->addItem(row);
        if (name == before)
            mList->setCurrentItem(row);
    }
}

std::string SetsPanel::chosen() const {
    const QListWidgetItem* row = mList->currentItem();
    return row ? row->data(Qt::UserRole).toString().toStdString() : "";
}

void SetsPanel::run(const std::string& line) {
    if (onCommand)
        onCommand(line);
}

void SetsPanel::use(const std::string& name) {
    if (!name.empty())
        run("use " + name);
}

void SetsPanel::copyTo(const std::string& name) {
    if (!name.empty())
        run("copy " + name);
}

void SetsPanel::combine(char operation) {
    const std::string other = chosen();
    if (!other.empty())
        run(mCurrent + " = " + mCurrent + ' ' + operation + ' ' + other);
}

// A and B is A without what A has alone.
void SetsPanel::intersect() {
    const std::string other = chosen();
    if (other.empty())
        return;
    run(std::string(kScratch) + " = " + mCurrent + " - " + other);
    run(mCurrent + " = " + mCurrent + " - " + kScratch);
}

} // namespace picker
