#pragma once

#include "base/Uuid.h"
#include "engine/LevelMeters.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QSlider;

namespace sonvale {

class ChannelSwitch;
class LevelMeterWidget;
class Timeline;
struct TimelineLane;

// The head of one lane in the timeline: its colour (a grip to drag the lane up or down), its
// name (edited in place), the on/off switch (Alt-click: hear only this lane), gain, pan, the
// output and the lane's level. Every change goes through the Timeline as one undo step; a
// slider drag is one step when the mouse is let go.
class LaneHeader : public QWidget {
    Q_OBJECT
public:
    LaneHeader(Timeline& timeline, const Uuid& laneID, QWidget* parent);

    const Uuid& laneID() const { return id; }
    // Shows the lane as it now is; a name being typed is left alone.
    void sync(const TimelineLane& lane);
    // One meter frame: the lane's peaks heard by `heardBy` (its `row` is its meter slot).
    void refreshMeter(int row, int64_t heardBy, double now);

    ChannelSwitch* switchButton() const { return onOff; }
    QSlider* gainSlider() const { return gain; }
    QSlider* panSlider() const { return pan; }
    QComboBox* outputBox() const { return output; }
    QLineEdit* nameField() const { return name; }

Q_SIGNALS:
    // The colour grip was pressed: the view drags the lane to reorder it.
    void reorderStarted(const Uuid& laneID);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void fillOutputs(const TimelineLane& lane);

    Timeline& timeline;
    Uuid id;
    int colorIndex = 0;
    QLineEdit* name = nullptr;
    ChannelSwitch* onOff = nullptr;
    QSlider* gain = nullptr;
    QLabel* gainLabel = nullptr;
    QSlider* pan = nullptr;
    QComboBox* output = nullptr;
    LevelMeterWidget* meter = nullptr;
    LevelMeters::Reader reader;
};

} // namespace sonvale
