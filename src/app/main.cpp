#include "app/DrawnProbe.h"
#include "app/MainWindow.h"
#include "app/MprisService.h"
#include "app/QtExecutor.h"
#include "app/canvas/WaveformCanvas.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QApplication>
#include <chrono>
#include <cstdlib>

int main(int argc, char** argv) {
    const auto started = std::chrono::steady_clock::now();
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
        QObject::connect(&mpris, &sonvale::MprisService::raiseRequested, &window, [&window] {
            window.showNormal();
            window.raise();
            window.activateWindow();
        });
        QStringList files = QApplication::arguments().mid(1);
        files.removeAll("--no-session");
        window.openFiles(files);
        if (std::getenv("SONVALE_EXIT_WHEN_DRAWN"))
            new sonvale::DrawnProbe(model, window.canvas(), started);
        window.show();
        status = QApplication::exec();
        if (model.isPlaying()) model.stop();
        executor.waitForBackground();
    }
    return status;
}
