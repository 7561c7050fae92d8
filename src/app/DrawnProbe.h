#pragma once

#include <QObject>

#include <chrono>

namespace sonvale {

class EditorModel;

// For start-up measurements (bench/window.sh): watches the canvas's paint events and, at the
// first one after every opened track has finished loading, prints how long the program took
// to get there, its resident memory and each track's file and length, then quits the
// application. Enabled by the environment variable SONVALE_EXIT_WHEN_DRAWN.
class DrawnProbe : public QObject {
    Q_OBJECT
public:
    DrawnProbe(EditorModel& model, QWidget* canvas, std::chrono::steady_clock::time_point started);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    EditorModel& model;
    std::chrono::steady_clock::time_point started;
    double firstPaint = -1;
    bool done = false;
};

} // namespace sonvale
