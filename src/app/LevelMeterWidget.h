#pragma once

#include "engine/LevelMeter.h"

#include <QPixmap>
#include <QWidget>

namespace sonvale {

// A level meter (the transport bar's output, the lane headers, the mixer's strips): a bar per
// channel with its held peak, and a clip light that stays lit until the meter is clicked.
// Horizontal bars grow to the right with the light at the right end; vertical ones grow
// upwards with the light on top. With its scale shown (horizontal only) the channels are
// named on the left and the decibels from the floor to 0 dBFS are marked below. Its owner
// feeds `ballistics` and asks for a repaint. Main thread only.
class LevelMeterWidget : public QWidget {
public:
    explicit LevelMeterWidget(QWidget* parent = nullptr,
                              Qt::Orientation orientation = Qt::Horizontal);
    MeterBallistics ballistics;

    // Puts out the clip light and drops the held peaks (a click does this).
    void reset();
    // Now, in seconds on the steady clock the meters' ballistics run on.
    static double clockSeconds();

    void setShowsScale(bool flag);
    // The rows drawn while no level has come in yet (the channels of what would play).
    void setChannelCount(int count);
    // "M" for one channel, "L" and "R" for two, else numbers from 1.
    static QString channelName(int channel, int count);
    // The horizontal position of `dB` on the bars, and the area of the clip light.
    double positionOf(float dB) const;
    QRect clipLightRect() const;
    // The decibels marked on the scale.
    static constexpr float scaleMarks[] = {-60, -50, -40, -30, -20, -10, -6, 0};

protected:
    bool event(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    struct Layout {
        QRect bars;  // lying down: from the floor on the left to 0 dBFS on the right
        QRect light; // lying down
        int names = 0;
        QRect scale; // below the bars, with the scale shown
    };
    Layout layout() const;
    int rowCount() const;
    const QPixmap& scaleColors(QSize size, double ratio);
    const QPixmap& background(const Layout& lay, double ratio);

    Qt::Orientation orientation;
    bool showsScale = false;
    int channelCount = 0;
    QPixmap scaleCache;
    QPixmap backgroundCache;
    QString backgroundKey;
};

} // namespace sonvale
