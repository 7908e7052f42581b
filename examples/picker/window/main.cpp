// The window as a program of its own, which `picker --window` starts.
#include "examples/picker/window/MainWindow.h"

#include <QApplication>
#include <QTimer>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

// Does what the arguments say, in their order. Returns false if an option is wrong or a command fails.
bool runArguments(picker::MainWindow& window, const QStringList& arguments) {
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const std::string word = arguments[i].toStdString();
        const bool isScript = word == "-f" || word == "--script";
        const bool isCommand = word == "-c" || word == "--command";
        if (!isScript && !isCommand) {
            if (!window.run("load \"" + word + "\""))
                return false;
            continue;
        }
        if (++i == arguments.size())
            return false;
        const std::string next = arguments[i].toStdString();
        if (!(isScript ? window.runScript(next) : window.run(next)))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    picker::MainWindow window;
    window.show();
    // What fails is said in the window's command line.
    QTimer::singleShot(0, &window, [&] { runArguments(window, QApplication::arguments()); });
    return QApplication::exec();
}
