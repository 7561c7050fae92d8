#include "app/DrawnProbe.h"
#include "app/MainWindow.h"
#include "app/MprisService.h"
#include "app/QtExecutor.h"
#include "app/canvas/WaveformCanvas.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "persistence/SessionStore.h"

#include <QApplication>
#include <chrono>
#include <cstdlib>
#include <memory>

int main(int argc, char** argv) {
    const auto started = std::chrono::steady_clock::now();
    QApplication app(argc, argv);
    QApplication::setApplicationName("Sonvale");
    // Window titles name the session; the platform adds " — Sonvale" after it.
    QApplication::setApplicationDisplayName("Sonvale");
    QApplication::setApplicationVersion(SONVALE_VERSION);
    QApplication::setDesktopFileName("sonvale");

    sonvale::QtExecutor executor;
    int status = 0;
    {
        sonvale::Preferences preferences(sonvale::Preferences::standardStorePath());
        preferences.deferWrites(executor);
        sonvale::EditorModel model(executor, preferences);
        auto store =
            std::make_shared<sonvale::SessionStore>(sonvale::SessionStore::standardFolder());
        model.attachSessionStore(store);
        sonvale::MainWindow window(model);
        sonvale::MprisService mpris(model);
        QObject::connect(&mpris, &sonvale::MprisService::raiseRequested, &window, [&window] {
            window.showNormal();
            window.raise();
            window.activateWindow();
        });
        QStringList files = QApplication::arguments().mid(1);
        // Incognito: start empty and save nothing, leaving the last session for next time.
        const bool incognito =
            files.removeAll("--no-session") > 0 ||
            QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ShiftModifier);
        if (std::getenv("SONVALE_EXIT_WHEN_DRAWN"))
            new sonvale::DrawnProbe(model, window.canvas(), started);
        window.show();
        // Files on the command line join the restored session (a session document replaces it,
        // asking first when that would lose changes).
        model.restoreLastSession(incognito);
        window.openFiles(files);
        status = QApplication::exec();
        if (model.isPlaying()) model.stop();
        // The last word of the automatic store, on disk before the background pool is drained.
        model.saveSession();
        store->flush();
        preferences.flush();
        executor.waitForBackground();
    }
    return status;
}
