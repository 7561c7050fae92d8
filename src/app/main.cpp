#include "app/MainWindow.h"
#include "app/MprisService.h"
#include "app/QtExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Sonvale");
    QApplication::setApplicationVersion(SONVALE_VERSION);
    QApplication::setDesktopFileName("sonvale");

    sonvale::QtExecutor executor;
    int status = 0;
    {
        sonvale::Preferences preferences(sonvale::Preferences::standardStorePath());
        sonvale::EditorModel model(executor, preferences);
        sonvale::MainWindow window(model);
        sonvale::MprisService mpris(model);
        QStringList files = QApplication::arguments().mid(1);
        files.removeAll("--no-session");
        window.openFiles(files);
        window.show();
        status = QApplication::exec();
        if (model.isPlaying()) model.stop();
        executor.waitForBackground();
    }
    return status;
}
