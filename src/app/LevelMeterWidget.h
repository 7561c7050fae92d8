#pragma once

#include "engine/LevelMeter.h"

#include <QPixmap>
#include <QWidget>

namespace sonvale {

// A level meter (the transport bar's output, the mixer's strips): a bar per channel with its
// held peak, and a clip light that stays lit until the meter is clicked. Horizontal bars
// grow to the right with the light at the right end; vertical ones grow upwards with the
// light on top. Its owner feeds `ballistics` and asks for a repaint. Main thread only.
class LevelMeterWidget : public QWidget {
public:
    explicit LevelMeterWidget(QWidget* parent = nullptr,
                              Qt::Orientation orientation = Qt::Horizontal);
    MeterBallistics ballistics;

    // Puts out the clip light and drops the held peaks (a click does this).
    void reset();
    // Now, in seconds on the steady clock the meters' ballistics run on.
    static double clockSeconds();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    const QPixmap& scaleColors(QSize size, double ratio);

    Qt::Orientation orientation;
    QPixmap scaleCache;
};

} // namespace sonvale
