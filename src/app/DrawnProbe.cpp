#include "app/DrawnProbe.h"

#include "editor/EditorModel.h"

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <fstream>
#include <string>

namespace sonvale {

namespace {
double residentMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
    return 0;
}
} // namespace

DrawnProbe::DrawnProbe(EditorModel& model, QWidget* canvas,
                       std::chrono::steady_clock::time_point started)
    : QObject(canvas)
    , model(model)
    , started(started) {
    canvas->installEventFilter(this);
}

bool DrawnProbe::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::Paint || done) return QObject::eventFilter(watched, event);
    const double now =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (firstPaint < 0) firstPaint = now;
    for (const auto& track : model.tracks())
        if (std::holds_alternative<AudioTrack::Loading>(track->state())) {
            // Paint again soon: the canvas may not repaint by itself while nothing changes.
            QTimer::singleShot(20, static_cast<QWidget*>(watched), qOverload<>(&QWidget::update));
            return QObject::eventFilter(watched, event);
        }
    done = true;
    // The paint under way completes first; the figures then include it.
    QTimer::singleShot(0, this, [this] {
        const double drawn =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        std::printf("first paint %.3f s, drawn %.3f s, resident %.1f MB\n", firstPaint, drawn,
                    residentMegabytes());
        for (const auto& track : model.tracks())
            std::printf("track %s: %lld frames\n", track->url().string().c_str(),
                        static_cast<long long>(track->frameCount()));
        std::fflush(stdout);
        QApplication::quit();
    });
    return QObject::eventFilter(watched, event);
}

} // namespace sonvale
