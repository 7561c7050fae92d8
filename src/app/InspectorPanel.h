#pragma once

#include "app/SignalConnections.h"

#include <QWidget>

class QFormLayout;
class QLabel;
class QToolButton;

namespace sonvale {

class EditorModel;

// The active track's file, format, length, sample rate, channels, peak, integrated loudness
// and gain. It has the loudness measured when a track with audio becomes active. Main thread
// only.
class InspectorPanel final : public QWidget {
public:
    explicit InspectorPanel(EditorModel& model, QWidget* parent = nullptr);

private:
    void watchActiveTrack();
    void refresh();

    EditorModel& model;
    QLabel* fileLabel = nullptr;
    QLabel* formatLabel = nullptr;
    QLabel* durationLabel = nullptr;
    QLabel* rateLabel = nullptr;
    QLabel* channelsLabel = nullptr;
    QLabel* peakLabel = nullptr;
    QLabel* loudnessLabel = nullptr;
    QLabel* gainLabel = nullptr;
    QFormLayout* form = nullptr;
    QLabel* problemLabel = nullptr;
    QToolButton* detailsButton = nullptr;
    QLabel* detailsLabel = nullptr;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
