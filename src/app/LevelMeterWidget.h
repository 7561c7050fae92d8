#pragma once

#include "engine/LevelMeter.h"

#include <QWidget>

namespace sonvale {

// The output level in the transport bar: a bar per channel with its held peak, and a clip
// light that stays lit until the meter is clicked. The window feeds `ballistics` and asks
// for a repaint. Main thread only.
class LevelMeterWidget : public QWidget {
public:
    explicit LevelMeterWidget(QWidget* parent = nullptr);
    MeterBallistics ballistics;

    // Puts out the clip light and drops the held peaks (a click does this).
    void reset();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
};

} // namespace sonvale
