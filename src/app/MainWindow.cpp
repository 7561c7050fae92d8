#include "app/MainWindow.h"

#include "audio/AudioLoader.h"
#include "base/Executor.h"

#include <QFileInfo>
#include <QListWidget>
#include <QPointer>
#include <cmath>

namespace sonvale {

namespace {
QString durationText(double seconds) {
    const int total = int(std::floor(seconds));
    return QString::asprintf("%d:%02d.%01d", total / 60, total % 60,
                             int((seconds - total) * 10));
}
} // namespace

MainWindow::MainWindow(Executor& executor, QWidget* parent)
    : QMainWindow(parent), executor(executor), list(new QListWidget(this)) {
    setWindowTitle("Sonvale");
    setCentralWidget(list);
    resize(960, 600);
}

void MainWindow::openFiles(const QStringList& paths) {
    for (const QString& path : paths) {
        const QString name = QFileInfo(path).fileName();
        auto* item = new QListWidgetItem(name + QString::fromUtf8(" \u2014 loading\u2026"), list);
        QPointer<QListWidget> guard(list);
        // The task holds the executor, not the window: the window may close while it decodes.
        Executor& exec = executor;
        exec.runInBackground([&exec, guard, item, name, file = path.toStdString()] {
            QString text;
            try {
                auto audio = AudioLoader::load(file);
                text = name + QString::fromUtf8(" \u2014 ") + durationText(audio->duration());
            } catch (const std::exception& error) {
                text = name + QString::fromUtf8(" \u2014 ") + QString::fromUtf8(error.what());
            }
            exec.post([guard, item, text] {
                if (guard) item->setText(text);
            });
        });
    }
}

} // namespace sonvale
