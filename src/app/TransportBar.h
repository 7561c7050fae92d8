#pragma once

#include "app/SignalConnections.h"

#include <QWidget>

class QLabel;
class QSlider;
class QToolButton;

namespace sonvale {

class EditorModel;
class LevelMeterWidget;

// The bar across the top of the window: play and loop, the playback rate, the time display
// (the playhead, and the selection below it), the active track's gain with the Normalize
// button, the output meter and Export. It follows the model and the active track and calls
// the model's operations; Export is reported to the window, which shows the dialog. Main
// thread only.
class TransportBar final : public QWidget {
    Q_OBJECT
public:
    explicit TransportBar(EditorModel& model, QWidget* parent = nullptr);

    LevelMeterWidget* meter() const { return outputMeter; }

Q_SIGNALS:
    void exportRequested();

private:
    void watchActiveTrack();
    void refresh();
    void refreshMeter();

    EditorModel& model;
    QToolButton* playButton = nullptr;
    QToolButton* loopButton = nullptr;
    QLabel* rateLabel = nullptr;
    QLabel* timeLabel = nullptr;
    QSlider* gainSlider = nullptr;
    QLabel* gainLabel = nullptr;
    QToolButton* normalizeButton = nullptr;
    LevelMeterWidget* outputMeter = nullptr;
    QToolButton* exportButton = nullptr;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
