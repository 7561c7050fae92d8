#include "app/LevelMeterWidget.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>

namespace sonvale {

LevelMeterWidget::LevelMeterWidget(QWidget* parent, Qt::Orientation orientation)
    : QWidget(parent)
    , orientation(orientation) {
    setMinimumSize(orientation == Qt::Horizontal ? QSize(100, 18) : QSize(10, 60));
    setToolTip("Output level (click to reset the clip light)");
}

void LevelMeterWidget::reset() {
    ballistics.resetClip();
    for (auto& level : ballistics.levels)
        level.holdDB = MeterBallistics::floorDB;
    update();
}

void LevelMeterWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) reset();
}

void LevelMeterWidget::paintEvent(QPaintEvent*) {
    QPainter p(this);
    // Drawn lying down: a vertical meter is the horizontal one turned a quarter to the left.
    QSize size = this->size();
    if (orientation == Qt::Vertical) {
        size.transpose();
        p.translate(0, height());
        p.rotate(-90);
    }
    const int lightWidth = 10;
    const QRect bars = QRect(QPoint(0, 0), size).adjusted(0, 0, -lightWidth - 3, 0);
    p.fillRect(bars, QColor(30, 30, 30));
    const int channels = std::max<int>(1, int(ballistics.levels.size()));
    const double rowHeight = double(bars.height()) / channels;
    auto xFor = [&](float dB) {
        const double t = (dB - MeterBallistics::floorDB) / -MeterBallistics::floorDB;
        return bars.left() + std::clamp(t, 0.0, 1.0) * bars.width();
    };
    QLinearGradient gradient(bars.topLeft(), bars.topRight());
    gradient.setColorAt(0, QColor(40, 170, 80));
    gradient.setColorAt(0.8, QColor(220, 200, 40));
    gradient.setColorAt(1, QColor(220, 50, 40));
    for (int c = 0; c < int(ballistics.levels.size()); ++c) {
        const auto& level = ballistics.levels[size_t(c)];
        const QRectF row(bars.left(), bars.top() + c * rowHeight + 1, 0, rowHeight - 2);
        QRectF bar = row;
        bar.setRight(xFor(level.peakDB));
        p.fillRect(bar, gradient);
        if (level.holdDB > MeterBallistics::floorDB) {
            const double hold = xFor(level.holdDB);
            p.fillRect(QRectF(hold - 1, row.top(), 2, row.height()), Qt::white);
        }
    }
    const QRect light(size.width() - lightWidth, 0, lightWidth, size.height());
    p.fillRect(light, ballistics.clipped ? QColor(230, 40, 30) : QColor(70, 30, 30));
}

} // namespace sonvale
