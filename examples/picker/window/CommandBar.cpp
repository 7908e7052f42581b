#include "examples/picker/window/CommandBar.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include <algorithm>

namespace picker {
namespace {

constexpr int kMostLines = 5000;       // older lines are forgotten
constexpr qsizetype kMostOfLine = 400; // characters that are shown of a long command

std::string commonBeginning(const std::vector<std::string>& words) {
    std::string common = words.front();
    for (const std::string& word : words) {
        const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end());
        common.erase(end.first, common.end());
    }
    return common;
}

// Returns whether a word goes on: a directory, or an open quote.
bool isOpen(const std::string& word) {
    return word.back() == '/' || std::count(word.begin(), word.end(), '"') % 2 != 0;
}

} // namespace

CommandBar::CommandBar(QWidget* parent) : QWidget(parent), mSaid(new QPlainTextEdit), mField(new QLineEdit) {
    mSaid->setObjectName("said");
    mSaid->setReadOnly(true);
    mSaid->setMaximumBlockCount(kMostLines);
    mSaid->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    mSaid->setLineWrapMode(QPlainTextEdit::NoWrap);
    mSaid->setFocusPolicy(Qt::ClickFocus);
    mField->setObjectName("command");
    mField->setPlaceholderText("command; help lists them");
    mField->setFont(mSaid->font());
    mField->installEventFilter(this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 0, 4, 4);
    layout->setSpacing(2);
    layout->addWidget(mSaid);
    layout->addWidget(mField);
    connect(mField, &QLineEdit::returnPressed, this, [this] { enter(); });
}

void CommandBar::addCommand(const std::string& line) {
    const QString text = QString::fromStdString(line);
    const bool isLong = text.size() > kMostOfLine;
    mSaid->appendPlainText("picker> " + text.left(kMostOfLine) + (isLong ? "..." : ""));
    if (mHistory.isEmpty() || mHistory.last() != text)
        mHistory.append(text);
    mRecalled = mHistory.size();
}

void CommandBar::addText(const std::string& text, bool isError) {
    QString shown = QString::fromStdString(text);
    while (shown.endsWith('\n'))
        shown.chop(1);
    if (shown.isEmpty())
        return;
    if (isError)
        mSaid->appendHtml("<span style=\"color:#d0342c\">" + shown.toHtmlEscaped() + "</span>");
    else
        mSaid->appendPlainText(shown);
}

void CommandBar::enter() {
    const QString line = mField->text();
    mField->clear();
    if (!line.trimmed().isEmpty() && onCommand)
        onCommand(line.toStdString());
}

bool CommandBar::eventFilter(QObject* watched, QEvent* event) {
    if (watched != mField || event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    switch (static_cast<QKeyEvent*>(event)->key()) {
    case Qt::Key_Up:
        recall(-1);
        return true;
    case Qt::Key_Down:
        recall(1);
        return true;
    case Qt::Key_Tab:
        return complete();
    default:
        return QWidget::eventFilter(watched, event);
    }
}

void CommandBar::recall(int step) {
    mRecalled = std::clamp<qsizetype>(mRecalled + step, 0, mHistory.size());
    mField->setText(mRecalled < mHistory.size() ? mHistory[mRecalled] : QString());
}

// Completes the last word as far as it is certain. If there are several continuations, lists them. Returns
// false for an empty line, where Tab leaves the field.
bool CommandBar::complete() {
    const std::string line = mField->text().toStdString();
    if (line.empty() || !completionOf)
        return false;
    const Completion completion = completionOf(line);
    if (completion.words.empty())
        return true;
    const std::string beginning = line.substr(0, completion.begin);
    const std::string common = commonBeginning(completion.words);
    const bool isWhole = completion.words.size() == 1 && !isOpen(common);
    if (isWhole || common.size() > line.size() - completion.begin)
        mField->setText(QString::fromStdString(beginning + common + (isWhole ? " " : "")));
    else
        for (const std::string& word : completion.words)
            mSaid->appendPlainText("  " + QString::fromStdString(word));
    return true;
}

} // namespace picker
