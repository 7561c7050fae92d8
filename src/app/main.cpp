#include "app/MainWindow.h"
#include "app/QtExecutor.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Sonvale");
    QApplication::setApplicationVersion(SONVALE_VERSION);
    QApplication::setDesktopFileName("sonvale");

    sonvale::QtExecutor executor;
    sonvale::MainWindow window(executor);
    QStringList files = QApplication::arguments().mid(1);
    window.openFiles(files);
    window.show();
    int status = QApplication::exec();
    executor.waitForBackground();
    return status;
}
