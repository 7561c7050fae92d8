#include "app/LevelMeterWidget.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <chrono>

namespace sonvale {

LevelMeterWidget::LevelMeterWidget(QWidget* parent, Qt::Orientation orientation)
    : QWidget(parent)
    , orientation(orientation) {
    setMinimumSize(orientation == Qt::Horizontal ? QSize(100, 18) : QSize(10, 60));
    setToolTip("Output level (click to reset the clip light)");
}

double LevelMeterWidget::clockSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
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
    // Laid out lying down (along: from the floor to full scale, across: the channels); an
    // upright meter is the same turned a quarter to the left. Rectangles are turned rather
    // than the painter, so that every fill stays a plain copy of pixels.
    const bool upright = orientation == Qt::Vertical;
    const QSize lying = upright ? size().transposed() : size();
    auto place = [&](const QRectF& r) {
        return upright ? QRectF(r.y(), height() - r.right(), r.height(), r.width()) : r;
    };
    const int lightWidth = 10;
    const QRect bars = QRect(QPoint(0, 0), lying).adjusted(0, 0, -lightWidth - 3, 0);
    const QRectF barsPlaced = place(bars);
    p.fillRect(barsPlaced, QColor(30, 30, 30));
    const int channels = std::max<int>(1, int(ballistics.levels.size()));
    const double rowHeight = double(bars.height()) / channels;
    auto xFor = [&](float dB) {
        const double t = (dB - MeterBallistics::floorDB) / -MeterBallistics::floorDB;
        return bars.left() + std::clamp(t, 0.0, 1.0) * bars.width();
    };
    const double ratio = p.device()->devicePixelRatio();
    const QPixmap& scale = scaleColors(barsPlaced.size().toSize(), ratio);
    for (int c = 0; c < int(ballistics.levels.size()); ++c) {
        const auto& level = ballistics.levels[size_t(c)];
        const QRectF row(bars.left(), bars.top() + c * rowHeight + 1, 0, rowHeight - 2);
        QRectF bar = row;
        bar.setRight(xFor(level.peakDB));
        const QRectF target = place(bar);
        const QRectF source = target.translated(-barsPlaced.topLeft());
        p.drawPixmap(target, scale, QRectF(source.topLeft() * ratio, source.size() * ratio));
        if (level.holdDB > MeterBallistics::floorDB) {
            const double hold = xFor(level.holdDB);
            p.fillRect(place(QRectF(hold - 1, row.top(), 2, row.height())), Qt::white);
        }
    }
    const QRect light(lying.width() - lightWidth, 0, lightWidth, lying.height());
    p.fillRect(place(light), ballistics.clipped ? QColor(230, 40, 30) : QColor(70, 30, 30));
}

// The colours of the scale over the whole bar area, green to yellow to red, made once per size:
// a gradient filled afresh for every bar costs far more than copying from this.
const QPixmap& LevelMeterWidget::scaleColors(QSize size, double ratio) {
    if (scaleCache.size() == size * ratio && scaleCache.devicePixelRatio() == ratio)
        return scaleCache;
    scaleCache = QPixmap(size * ratio);
    scaleCache.setDevicePixelRatio(ratio);
    QPainter p(&scaleCache);
    const QRectF area(QPointF(0, 0), QSizeF(size));
    QLinearGradient gradient(area.bottomLeft(),
                             orientation == Qt::Vertical ? area.topLeft() : area.bottomRight());
    gradient.setColorAt(0, QColor(40, 170, 80));
    gradient.setColorAt(0.8, QColor(220, 200, 40));
    gradient.setColorAt(1, QColor(220, 50, 40));
    p.fillRect(area, gradient);
    return scaleCache;
}

} // namespace sonvale
