#pragma once

#include "app/SignalConnections.h"

#include <QWidget>
#include <vector>

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QSlider;
class QToolButton;

namespace sonvale {

class EditorModel;
class LevelMeterWidget;
class TimeField;

// The bar across the top of the window: go to start, play/pause, stop, go to end and loop,
// the playback speed, the playhead, the selection's start, end and length (typed to set
// them), the active track's gain with the Normalize button, the output meter and Export. It
// follows the model and the active track (the timeline while it shows) and calls the model's
// operations; Export is reported to the window, which shows the dialog. Main thread only.
class TransportBar final : public QWidget {
    Q_OBJECT
public:
    explicit TransportBar(EditorModel& model, QWidget* parent = nullptr);

    LevelMeterWidget* meter() const { return outputMeter; }
    // The selection fields: start (the cursor without a selection), end and length.
    QLineEdit* selectionField(int index) const;

    // The groups that didn't fit the bar's width and wait behind its "»" button.
    QWidget* overflowPanel() const { return overflow; }
    // As narrow as the buttons, the meter and Export with the » button: the other groups
    // step aside rather than hold the window wide.
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void exportRequested();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void watchActiveTrack();
    void refresh();
    void refreshMeter();
    void refreshIcons();
    void enterSelection(int field, double seconds);
    // Moves the groups that don't fit into the overflow panel, least needed first, and back
    // when there is room; the bar keeps its order and height.
    void fitGroups();

    // A captioned group; `rank` orders which steps aside first (higher first).
    struct Group {
        QWidget* box;     // in the bar, hidden while the content is in the panel
        QWidget* content; // the caption above the controls
        int rank;
    };
    std::vector<Group> groups;
    QHBoxLayout* row = nullptr;
    QToolButton* moreButton = nullptr;
    QWidget* overflow = nullptr;

    EditorModel& model;
    QToolButton* startButton = nullptr;
    QToolButton* playButton = nullptr;
    QToolButton* stopButton = nullptr;
    QToolButton* endButton = nullptr;
    QToolButton* loopButton = nullptr;
    QToolButton* recordButton = nullptr;
    QLabel* rateLabel = nullptr;
    QLabel* timeLabel = nullptr;
    QLabel* positionCaption = nullptr;
    TimeField* fields[3] = {};
    QLabel* startCaption = nullptr;
    QSlider* gainSlider = nullptr;
    QLabel* gainLabel = nullptr;
    QToolButton* normalizeButton = nullptr;
    LevelMeterWidget* outputMeter = nullptr;
    QToolButton* exportButton = nullptr;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
