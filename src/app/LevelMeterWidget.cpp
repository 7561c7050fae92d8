#include "app/LevelMeterWidget.h"

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>
#include <vector>

namespace sonvale {

namespace {

constexpr int lightWidth = 10;
constexpr int lightGap = 3;
constexpr int tickLength = 3;

QColor mix(const QColor& a, const QColor& b, double t) {
    return QColor::fromRgbF(float(a.redF() + (b.redF() - a.redF()) * t),
                            float(a.greenF() + (b.greenF() - a.greenF()) * t),
                            float(a.blueF() + (b.blueF() - a.blueF()) * t));
}

// The empty part of a bar: a step from the window's base towards its text, so that an idle
// meter still reads as one in a light or a dark theme.
QColor troughColour(const QPalette& palette) {
    return mix(palette.color(QPalette::Base), palette.color(QPalette::Text), 0.14);
}

const QColor clipColour(230, 40, 30);

QFont scaleFont(const QFont& font) {
    QFont small = font;
    small.setPointSizeF(std::max(6.0, font.pointSizeF() * 0.75));
    return small;
}

} // namespace

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

void LevelMeterWidget::setShowsScale(bool flag) {
    showsScale = flag && orientation == Qt::Horizontal;
    if (showsScale) setMinimumHeight(QFontMetrics(scaleFont(font())).height() + tickLength + 2 * 7);
    update();
}

void LevelMeterWidget::setChannelCount(int count) {
    if (count == channelCount) return;
    channelCount = count;
    update();
}

QString LevelMeterWidget::channelName(int channel, int count) {
    if (count == 1) return "M";
    if (count == 2) return channel == 0 ? "L" : "R";
    return QString::number(channel + 1);
}

int LevelMeterWidget::rowCount() const {
    return std::max({1, int(ballistics.levels.size()), channelCount});
}

LevelMeterWidget::Layout LevelMeterWidget::layout() const {
    const QSize lying = orientation == Qt::Vertical ? size().transposed() : size();
    Layout lay;
    int barsHeight = lying.height();
    if (showsScale) {
        const QFontMetrics metrics(scaleFont(font()));
        const int rows = rowCount();
        for (int c = 0; c < rows; ++c)
            lay.names = std::max(lay.names, metrics.horizontalAdvance(channelName(c, rows)));
        lay.names += 4;
        barsHeight = std::max(2, lying.height() - metrics.height() - tickLength);
    }
    lay.bars = QRect(lay.names, 0, std::max(1, lying.width() - lay.names - lightWidth - lightGap),
                     barsHeight);
    lay.light = QRect(lying.width() - lightWidth, 0, lightWidth, barsHeight);
    if (showsScale)
        lay.scale =
            QRect(lay.bars.left(), barsHeight, lay.bars.width(), lying.height() - barsHeight);
    return lay;
}

double LevelMeterWidget::positionOf(float dB) const {
    const QRect bars = layout().bars;
    const double t = (dB - MeterBallistics::floorDB) / -MeterBallistics::floorDB;
    const double along = bars.left() + std::clamp(t, 0.0, 1.0) * bars.width();
    return orientation == Qt::Vertical ? height() - along : along;
}

QRect LevelMeterWidget::clipLightRect() const {
    const QRect r = layout().light;
    return orientation == Qt::Vertical
               ? QRect(r.y(), height() - r.right() - 1, r.height(), r.width())
               : r;
}

bool LevelMeterWidget::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        if (clipLightRect().adjusted(-2, -2, 2, 2).contains(help->pos())) {
            QToolTip::showText(help->globalPos(),
                               ballistics.clipped
                                   ? "Clipped: the level reached 0 dBFS. Click to reset."
                                   : "Clip light: lights when the level reaches 0 dBFS. Click to "
                                     "reset.",
                               this);
            return true;
        }
    }
    return QWidget::event(event);
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
    auto place = [&](const QRectF& r) {
        return upright ? QRectF(r.y(), height() - r.right(), r.height(), r.width()) : r;
    };
    const Layout lay = layout();
    const double ratio = p.device()->devicePixelRatio();
    p.drawPixmap(0, 0, background(lay, ratio));
    const QRect& bars = lay.bars;
    const QRectF barsPlaced = place(bars);
    const double rowHeight = double(bars.height()) / rowCount();
    auto xFor = [&](float dB) {
        const double t = (dB - MeterBallistics::floorDB) / -MeterBallistics::floorDB;
        return bars.left() + std::clamp(t, 0.0, 1.0) * bars.width();
    };
    const QPixmap& scale = scaleColors(barsPlaced.size().toSize(), ratio);
    const QColor holdColour = palette().color(QPalette::Text);
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
            p.fillRect(place(QRectF(hold - 1, row.top(), 2, row.height())), holdColour);
        }
    }
    if (ballistics.clipped) p.fillRect(place(lay.light), clipColour);
}

// What doesn't move: the troughs, the unlit clip light and, with the scale, the channel names,
// the marks and their decibels. Made again when the size, the rows or the palette change.
const QPixmap& LevelMeterWidget::background(const Layout& lay, double ratio) {
    const int rows = rowCount();
    const QString key = QString("%1x%2@%3 %4 %5 %6")
                            .arg(width())
                            .arg(height())
                            .arg(ratio)
                            .arg(rows)
                            .arg(showsScale)
                            .arg(palette().cacheKey());
    if (key == backgroundKey && !backgroundCache.isNull()) return backgroundCache;
    backgroundKey = key;
    backgroundCache = QPixmap(size() * ratio);
    backgroundCache.setDevicePixelRatio(ratio);
    backgroundCache.fill(Qt::transparent);
    QPainter p(&backgroundCache);
    const bool upright = orientation == Qt::Vertical;
    auto place = [&](const QRectF& r) {
        return upright ? QRectF(r.y(), height() - r.right(), r.height(), r.width()) : r;
    };
    const QColor trough = troughColour(palette());
    const QColor text = palette().color(QPalette::WindowText);
    const double rowHeight = double(lay.bars.height()) / rows;
    for (int c = 0; c < rows; ++c)
        p.fillRect(place(QRectF(lay.bars.left(), lay.bars.top() + c * rowHeight + 1,
                                lay.bars.width(), rowHeight - 2)),
                   trough);
    const QRectF light = place(lay.light);
    p.fillRect(light, mix(trough, clipColour, 0.12));
    p.setPen(QPen(mix(trough, clipColour, 0.45), 0));
    p.drawRect(light.adjusted(0.5, 0.5, -0.5, -0.5));
    if (!showsScale) return backgroundCache;

    p.setFont(scaleFont(font()));
    const QFontMetrics metrics(p.font());
    p.setPen(text);
    for (int c = 0; c < rows; ++c) {
        const QRectF row(0, lay.bars.top() + c * rowHeight, lay.names - 3, rowHeight);
        p.drawText(row, Qt::AlignRight | Qt::AlignVCenter, channelName(c, rows));
    }
    // 0 dBFS and the floor are always numbered; a mark between them only where its number
    // keeps clear of those already drawn.
    const QColor faint = mix(palette().color(QPalette::Window), text, 0.7);
    std::vector<std::pair<double, double>> taken;
    const float first = scaleMarks[std::size(scaleMarks) - 1], second = scaleMarks[0];
    std::vector<float> marks = {first, second};
    marks.insert(marks.end(), std::rbegin(scaleMarks) + 1, std::rend(scaleMarks) - 1);
    p.setPen(faint);
    for (const float mark : marks) {
        const double x = std::round(positionOf(mark));
        p.fillRect(QRectF(std::min(x, double(lay.bars.right())), lay.scale.top(), 1, tickLength),
                   faint);
        const QString label =
            mark == 0 ? QString("0") : QString::fromUtf8("\u2212%1").arg(int(-mark));
        const int w = metrics.horizontalAdvance(label);
        const double left =
            std::clamp(x - w / 2.0, double(lay.bars.left()), double(lay.bars.right() + 1 - w));
        const bool clear = std::all_of(taken.begin(), taken.end(), [&](const auto& span) {
            return left + w + 3 <= span.first || left >= span.second + 3;
        });
        if (!clear) continue;
        taken.emplace_back(left, left + w);
        p.drawText(QPointF(left, lay.scale.top() + tickLength + metrics.ascent()), label);
    }
    return backgroundCache;
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
