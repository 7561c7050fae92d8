#include "app/timeline/TimelineView.h"

#include "app/DurationText.h"
#include "app/LevelMeterWidget.h"
#include "app/QtText.h"
#include "app/timeline/LaneHeader.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "timeline/Timeline.h"

#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTimer>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <vector>

namespace sonvale {

namespace {

// Ruler steps in seconds; the first that leaves at least 80 points between labels is used.
constexpr double rulerSteps[] = {0.01, 0.05, 0.1, 0.5, 1,   2,   5,    10,
                                 15,   30,   60,  120, 300, 600, 1800, 3600};

} // namespace

TimelineView::TimelineView(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model)
    , timeline(*model.timeline()) {
    setObjectName("timelineView");
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAcceptDrops(true);
    setMinimumSize(400, 200);

    vertical = new QScrollBar(Qt::Vertical, this);
    horizontal = new QScrollBar(Qt::Horizontal, this);
    connect(vertical, &QScrollBar::valueChanged, this, [this](int value) {
        scrollY = value;
        layoutHeaders();
        repaintArea();
    });
    connect(horizontal, &QScrollBar::valueChanged, this, [this](int value) {
        const TimelineScale scale = timeline.scale();
        const double start = double(value) * scale.framesPerPoint;
        if (std::fabs(start - scale.start) >= scale.framesPerPoint)
            timeline.update(TimelineScale{start, scale.framesPerPoint}, width() - headerWidth);
    });
    addLaneButton = new QToolButton(this);
    addLaneButton->setText("+ Add Lane");
    addLaneButton->setAutoRaise(true);
    addLaneButton->setToolTip("Add an empty lane (Ctrl+Shift+L)");
    connect(addLaneButton, &QToolButton::clicked, this,
            [this] { lastLane = timeline.addLane(timeline.nextLaneName()).id; });
    meterTimer = new QTimer(this);
    meterTimer->setInterval(33);
    connect(meterTimer, &QTimer::timeout, this, [this] { refreshMeters(); });

    auto repaint = [this] { repaintArea(); };
    for (auto* signal : {&timeline.selectionChanged, &model.transportChanged})
        connections.add(signal->connect(repaint));
    connections.add(timeline.contentChanged.connect([this] {
        syncHeaders();
        syncScrollBars();
        repaintArea();
    }));
    connections.add(timeline.viewChanged.connect([this] {
        syncScrollBars();
        repaintArea();
    }));
    connections.add(model.playheadChanged.connect([this] {
        followPlayhead();
        repaintArea();
    }));
    connections.add(model.transportChanged.connect([this] {
        if (this->model.isPlayingTimeline()) meterTimer->start();
    }));
    syncHeaders();
}

TimelineView::~TimelineView() = default;

// The lane headers and the scroll bars draw themselves: a change of the timeline repaints the
// ruler and the clips.
QRegion TimelineView::repaintRegion() const {
    QRegion region = QRegion(headerWidth, 0, width() - headerWidth, height()) +
                     QRegion(0, 0, headerWidth, rulerHeight);
    for (const QScrollBar* bar : {vertical, horizontal})
        if (bar->isVisible()) region -= bar->geometry();
    return region;
}

void TimelineView::repaintArea() { update(repaintRegion()); }

QColor TimelineView::laneColor(int index) {
    static const int hues[] = {210, 28, 140, 340, 48, 265, 185, 0};
    return QColor::fromHsv(hues[std::clamp(index, 0, 7)], 150, 205);
}

double TimelineView::xOfFrame(double frame) const {
    const TimelineScale scale = timeline.scale();
    return headerWidth + (frame - scale.start) / std::max(scale.framesPerPoint, 1e-9);
}

int64_t TimelineView::frameAt(double x) const {
    const TimelineScale scale = timeline.scale();
    return std::max<int64_t>(
        0, int64_t(std::llround(scale.start + (x - headerWidth) * scale.framesPerPoint)));
}

int TimelineView::laneTop(int row) const { return rulerHeight + row * laneHeight - scrollY; }

std::optional<int> TimelineView::laneAt(double y) const {
    if (y < rulerHeight) return std::nullopt;
    const int row = int(std::floor((y - rulerHeight + scrollY) / laneHeight));
    if (row < 0 || row >= int(timeline.lanes().size())) return std::nullopt;
    return row;
}

std::optional<Uuid> TimelineView::laneIDAt(double y) const {
    const auto row = laneAt(y);
    if (!row) return std::nullopt;
    return timeline.lanes()[size_t(*row)].id;
}

LaneHeader* TimelineView::header(const Uuid& laneID) const {
    const auto it = headers.find(laneID);
    return it == headers.end() ? nullptr : it->second;
}

std::optional<Uuid> TimelineView::currentLane() const {
    if (timeline.lane(lastLane)) return lastLane;
    if (const auto selected = timeline.selectedClip()) return selected->second;
    if (!timeline.lanes().empty()) return timeline.lanes().back().id;
    return std::nullopt;
}

void TimelineView::removeCurrentLane() {
    if (const auto lane = currentLane()) timeline.removeLane(*lane);
}

// One header widget per lane, made and dropped as lanes come and go.
void TimelineView::syncHeaders() {
    const auto& lanes = timeline.lanes();
    for (auto it = headers.begin(); it != headers.end();)
        if (!timeline.lane(it->first)) {
            it->second->deleteLater();
            it->second->hide();
            it = headers.erase(it);
        } else {
            ++it;
        }
    for (const TimelineLane& lane : lanes) {
        LaneHeader*& header = headers[lane.id];
        if (!header) {
            header = new LaneHeader(timeline, lane.id, this);
            connect(header, &LaneHeader::reorderStarted, this, [this](const Uuid& laneID) {
                reordering = laneID;
                lastLane = laneID;
                for (int row = 0; row < int(timeline.lanes().size()); ++row)
                    if (timeline.lanes()[size_t(row)].id == laneID) reorderRow = row;
                grabMouse(Qt::ClosedHandCursor);
            });
            header->show();
        }
        header->sync(lane);
    }
    vertical->raise();
    horizontal->raise();
    layoutHeaders();
}

void TimelineView::layoutHeaders() {
    const auto& lanes = timeline.lanes();
    const int bottom = height() - (horizontal->isVisible() ? horizontal->height() : 0);
    for (int row = 0; row < int(lanes.size()); ++row) {
        LaneHeader* header = headers[lanes[size_t(row)].id];
        const int top = laneTop(row);
        header->setGeometry(0, top, headerWidth, laneHeight - 1);
        // Headers scrolled under the ruler or the bottom edge hide instead of overlapping it.
        header->setVisible(top >= rulerHeight - laneHeight / 2 && top < bottom);
    }
    const int below = laneTop(int(lanes.size())) + 4;
    addLaneButton->setGeometry(8, below, headerWidth - 16, 24);
    addLaneButton->setVisible(!lanes.empty() && below >= rulerHeight && below + 24 < bottom);
}

// Scroll bars show only while there is something to scroll to.
void TimelineView::syncScrollBars() {
    const int extent = std::max(vertical->sizeHint().width(), 12);
    const int content = int(timeline.lanes().size()) * laneHeight;
    const TimelineScale scale = timeline.scale();
    const double viewFrames = (width() - headerWidth) * scale.framesPerPoint;
    const double endFrames =
        std::max(double(timeline.frameCount()) * 1.1, scale.start + viewFrames);
    const bool wide = scale.start > 0 || double(timeline.frameCount()) > viewFrames;
    horizontal->setVisible(wide);
    const int laneArea = height() - rulerHeight - (wide ? extent : 0);
    const bool tall = content > laneArea;
    vertical->setVisible(tall);
    vertical->setGeometry(width() - extent, rulerHeight, extent, laneArea);
    horizontal->setGeometry(headerWidth, height() - extent, width() - headerWidth, extent);
    {
        const QSignalBlocker block(vertical);
        vertical->setRange(0, std::max(0, content - laneArea));
        vertical->setPageStep(std::max(laneArea, 1));
        vertical->setSingleStep(laneHeight / 4);
        scrollY = std::clamp(scrollY, 0, vertical->maximum());
        vertical->setValue(scrollY);
    }
    {
        const QSignalBlocker block(horizontal);
        const double perPoint = std::max(scale.framesPerPoint, 1e-9);
        horizontal->setRange(0, int(std::min(2e9, (endFrames - viewFrames) / perPoint)));
        horizontal->setPageStep(std::max(1, width() - headerWidth));
        horizontal->setSingleStep(20);
        horizontal->setValue(int(std::min(2e9, scale.start / perPoint)));
    }
    layoutHeaders();
}

// While the timeline plays, each lane header's meter follows its lane; afterwards the meters
// fall to the floor and the timer stops.
void TimelineView::refreshMeters() {
    const double now = LevelMeterWidget::clockSeconds();
    const int64_t latency = model.isPlaying() ? model.player().latencyFrames() : 0;
    const int64_t heardBy = timeline.meters()->mixedFrames() - latency;
    const auto& lanes = timeline.lanes();
    for (int row = 0; row < int(lanes.size()); ++row)
        headers[lanes[size_t(row)].id]->refreshMeter(row, heardBy, now);
    if (!model.isPlayingTimeline() && ++idleMeterFrames > 60) meterTimer->stop();
    if (model.isPlayingTimeline()) idleMeterFrames = 0;
}

// Pages the view on when the heard playhead leaves it.
void TimelineView::followPlayhead() {
    const auto heard = model.timelinePlayhead();
    if (!heard || drag || rangeDrag) return;
    const TimelineScale scale = timeline.scale();
    const double x = xOfFrame(double(*heard));
    if (x >= headerWidth && x <= width() - 20) return;
    const double start = std::max(0.0, double(*heard) - 20 * scale.framesPerPoint);
    timeline.update(TimelineScale{start, scale.framesPerPoint}, width() - headerWidth);
}

void TimelineView::zoomBy(double factor, std::optional<double> aroundX) {
    const TimelineScale scale = timeline.scale();
    const double x = aroundX.value_or(headerWidth + (width() - headerWidth) / 2.0);
    const double anchor = scale.start + (x - headerWidth) * scale.framesPerPoint;
    // From a hundredth of a frame per point to a whole day in view.
    const double framesPerPoint =
        std::clamp(scale.framesPerPoint * factor, 0.01, timeline.sampleRate() * 86400 / 100);
    const double start = std::max(0.0, anchor - (x - headerWidth) * framesPerPoint);
    timeline.update(TimelineScale{start, framesPerPoint}, width() - headerWidth);
}

void TimelineView::zoomToFit() { timeline.update(std::nullopt, width() - headerWidth); }

void TimelineView::resizeEvent(QResizeEvent*) {
    timeline.update(timeline.zoom(), width() - headerWidth);
    syncScrollBars();
}

// ---- painting --------------------------------------------------------------------------------

void TimelineView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().base());
    paintLanes(painter);
    paintRuler(painter);

    // The selection, the cursor and the playhead run over the ruler and the lanes.
    painter.setClipRect(headerWidth, 0, width() - headerWidth, height());
    if (const auto& selection = timeline.selection()) {
        QColor shade = palette().highlight().color();
        shade.setAlpha(50);
        const double x0 = xOfFrame(double(selection->first)),
                     x1 = xOfFrame(double(selection->second));
        painter.fillRect(QRectF(x0, 0, x1 - x0, height()), shade);
    }
    painter.setPen(QPen(palette().text().color(), 1));
    const double cursorX = std::round(xOfFrame(double(timeline.cursor()))) + 0.5;
    painter.drawLine(QPointF(cursorX, 0), QPointF(cursorX, height()));
    if (const auto heard = model.timelinePlayhead()) {
        painter.setPen(QPen(QColor(230, 60, 50), 2));
        const double x = xOfFrame(double(*heard));
        painter.drawLine(QPointF(x, 0), QPointF(x, height()));
    }
    if (guide) {
        painter.setPen(QPen(QColor(250, 190, 40), 1, Qt::DashLine));
        const double x = std::round(xOfFrame(double(*guide))) + 0.5;
        painter.drawLine(QPointF(x, rulerHeight), QPointF(x, height()));
    }
    painter.setClipping(false);

    // Where a lane being reordered or a drop would land.
    const int count = int(timeline.lanes().size());
    auto markRow = [&](int row) {
        painter.setPen(QPen(palette().highlight().color(), 2));
        const int y = std::clamp(laneTop(row), rulerHeight, height() - 1);
        painter.drawLine(0, y, width(), y);
    };
    if (reordering) markRow(reorderRow > laneRowOf(*reordering) ? reorderRow + 1 : reorderRow);
    if (dropRow) {
        if (*dropRow >= 0) {
            QColor shade = palette().highlight().color();
            shade.setAlpha(40);
            painter.fillRect(QRect(0, laneTop(*dropRow), width(), laneHeight), shade);
        } else {
            markRow(count);
        }
    }

    if (timeline.lanes().empty()) {
        painter.setPen(palette().placeholderText().color());
        painter.drawText(rect().adjusted(headerWidth, rulerHeight, -20, 0),
                         Qt::AlignCenter | Qt::TextWordWrap,
                         "The timeline is empty.\nSelect a track and choose Multitrack \u203A Add "
                         "to Timeline (Ctrl+Shift+A), or drag tracks or audio files here.");
    }
}

QRectF TimelineView::fadeHandle(const TimelineClip& clip, int row, bool in,
                                std::optional<int64_t> start) const {
    const int64_t at = start.value_or(clip.start);
    const double x0 = xOfFrame(double(at)), x1 = xOfFrame(double(at + clip.length));
    const double x = xOfFrame(double(in ? at + clip.fadeIn : at + clip.length - clip.fadeOut));
    const double half = handleSize / 2.0;
    const double centre = std::clamp(x, x0 + half, std::max(x0 + half, x1 - half));
    return QRectF(centre - half, laneTop(row) + 3, handleSize, handleSize);
}

int TimelineView::laneRowOf(const Uuid& laneID) const {
    const auto& lanes = timeline.lanes();
    for (int row = 0; row < int(lanes.size()); ++row)
        if (lanes[size_t(row)].id == laneID) return row;
    return -1;
}

void TimelineView::paintRuler(QPainter& painter) const {
    const QRect band(0, 0, width(), rulerHeight);
    painter.fillRect(band, palette().window());
    painter.setPen(palette().mid().color());
    painter.drawLine(0, rulerHeight - 1, width(), rulerHeight - 1);
    const double rate = timeline.sampleRate();
    const double pointsPerSecond = rate / std::max(timeline.scale().framesPerPoint, 1e-9);
    double step = rulerSteps[std::size(rulerSteps) - 1];
    for (double s : rulerSteps)
        if (s * pointsPerSecond >= 80) {
            step = s;
            break;
        }
    const double first = std::floor(double(frameAt(headerWidth)) / rate / step) * step;
    painter.setPen(palette().windowText().color());
    for (double t = first; xOfFrame(t * rate) < width(); t += step) {
        const double x = std::round(xOfFrame(t * rate)) + 0.5;
        if (x < headerWidth) continue;
        painter.drawLine(QPointF(x, rulerHeight - 8), QPointF(x, rulerHeight - 1));
        painter.drawText(QPointF(x + 3, rulerHeight - 10), durationText(t));
    }
    // Markers: a flag on the ruler, a region as a band.
    for (const Marker& marker : timeline.markers()) {
        const double x = xOfFrame(double(marker.start));
        if (marker.end) {
            QColor band(250, 190, 40, 70);
            painter.fillRect(QRectF(x, 0, xOfFrame(double(*marker.end)) - x, 6), band);
        }
        painter.setPen(QColor(220, 150, 20));
        painter.drawLine(QPointF(x, 0), QPointF(x, rulerHeight));
        painter.drawText(QPointF(x + 3, 10), qs(marker.name));
    }
    painter.fillRect(QRect(0, 0, headerWidth, rulerHeight), palette().window());
    painter.setPen(palette().windowText().color());
    painter.drawText(QRect(8, 0, headerWidth - 8, rulerHeight), Qt::AlignVCenter,
                     durationText(double(timeline.cursor()) / rate));
}

void TimelineView::paintLanes(QPainter& painter) const {
    const auto& lanes = timeline.lanes();
    painter.save();
    painter.setClipRect(0, rulerHeight, width(), height() - rulerHeight);
    for (int row = 0; row < int(lanes.size()); ++row) {
        const TimelineLane& lane = lanes[size_t(row)];
        const int top = laneTop(row);
        if (top + laneHeight < rulerHeight || top > height()) continue;
        const QColor color = laneColor(lane.colorIndex);
        painter.setPen(palette().mid().color());
        painter.drawLine(0, top + laneHeight - 1, width(), top + laneHeight - 1);
        painter.save();
        painter.setClipRect(
            QRect(headerWidth, std::max(top, rulerHeight), width() - headerWidth, laneHeight - 1)
                .intersected(QRect(0, rulerHeight, width(), height())));
        for (const TimelineClip& clip : lane.clips)
            if (!(drag && drag->grip == Grip::body && drag->moved && clip.id == drag->clipID))
                paintClip(painter, clip, row, lane.isMuted ? color.darker(160) : color, clip.start);
        paintCrossfades(painter, lane, row);
        painter.restore();
    }
    // The clip being moved, where it would land.
    if (drag && drag->grip == Grip::body && drag->moved)
        if (const auto found = timeline.clip(drag->clipID)) {
            const TimelineLane* lane =
                drag->lane < int(lanes.size()) ? &lanes[size_t(drag->lane)] : nullptr;
            painter.setClipRect(headerWidth, rulerHeight, width() - headerWidth, height());
            painter.setOpacity(0.8);
            paintClip(painter, found->first, drag->lane, laneColor(lane ? lane->colorIndex : 0),
                      drag->start);
        }
    painter.restore();
}

// Where two clips of a lane overlap, the stretch they fade across is shaded and crossed by
// the two fade curves.
void TimelineView::paintCrossfades(QPainter& painter, const TimelineLane& lane, int row) const {
    const double top = laneTop(row) + 3, height = laneHeight - 7;
    for (size_t i = 0; i < lane.clips.size(); ++i)
        for (size_t j = 0; j < lane.clips.size(); ++j) {
            const TimelineClip &a = lane.clips[i], &b = lane.clips[j];
            if (!(a.start < b.start && a.end() < b.end() && a.end() > b.start)) continue;
            const double x0 = xOfFrame(double(b.start)), x1 = xOfFrame(double(a.end()));
            if (x1 < headerWidth || x0 > width()) continue;
            QColor shade = palette().text().color();
            shade.setAlpha(35);
            painter.fillRect(QRectF(x0, top, x1 - x0, height), QBrush(shade, Qt::BDiagPattern));
        }
}

void TimelineView::paintClip(QPainter& painter, const TimelineClip& clip, int row, QColor color,
                             int64_t start) const {
    const double top = laneTop(row) + 3, height = laneHeight - 7;
    const double x0 = xOfFrame(double(start)), x1 = xOfFrame(double(start + clip.length));
    if (x1 < headerWidth || x0 > width()) return;
    const QRectF box(x0, top, std::max(x1 - x0, 1.0), height);
    // Square corners without antialiasing: the fast path when hundreds of clips show.
    QColor fill = color;
    fill.setAlpha(70);
    const QRect outline = box.toAlignedRect();
    painter.fillRect(outline, fill);
    const bool selected = timeline.selectedClipID() == clip.id;
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(selected ? palette().highlight().color() : color.darker(130), 0));
    painter.drawRect(outline.adjusted(0, 0, -1, -1));
    if (selected) painter.drawRect(outline.adjusted(1, 1, -2, -2));

    // The waveform of the visible part, from the audio's level summaries.
    const double visible0 = std::max(x0, double(headerWidth)),
                 visible1 = std::min(x1, double(width()));
    const int columns = int(visible1 - visible0);
    if (clip.audio && columns > 0) {
        const double perPoint = double(clip.length) / std::max(x1 - x0, 1e-9);
        const int64_t from = clip.sourceStart + int64_t(std::llround((visible0 - x0) * perPoint));
        const int64_t to = std::min(clip.sourceStart + clip.length,
                                    from + int64_t(std::llround(columns * perPoint)));
        const auto wave = clip.audio->waveColumns({from, std::max(to, from + 1)}, columns);
        const double middle = top + 16 + (height - 16) / 2, half = (height - 18) / 2;
        // One column per point, as one-point-wide rectangles filled in one call.
        thread_local std::vector<QRectF> columns;
        columns.resize(wave.size());
        for (size_t i = 0; i < wave.size(); ++i) {
            const double x = std::floor(visible0) + double(i);
            const double y0 = std::floor(middle - wave[i].max * half);
            columns[i] =
                QRectF(x, y0, 1, std::max(1.0, std::ceil(middle - wave[i].min * half) - y0));
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(color.darker(150));
        painter.drawRects(columns.data(), int(columns.size()));
        painter.setBrush(Qt::NoBrush);
    }
    // Fades as the quarter-sine curves the mixer plays.
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(QPen(palette().text().color(), 1));
    painter.setBrush(Qt::NoBrush);
    auto fadeCurve = [&](int64_t frames, bool in) {
        if (frames <= 0) return;
        QPainterPath path;
        const double span = xOfFrame(double(start + frames)) - x0;
        const double from = in ? x0 : x1 - span;
        const int steps = std::clamp(int(span / 4), 2, 48);
        for (int i = 0; i <= steps; ++i) {
            const double t = double(i) / steps;
            const double gain = std::sin((in ? t : 1 - t) * M_PI / 2);
            const QPointF point(from + t * span, top + height - gain * (height - 2));
            i == 0 ? path.moveTo(point) : path.lineTo(point);
        }
        painter.drawPath(path);
    };
    fadeCurve(clip.fadeIn, true);
    fadeCurve(clip.fadeOut, false);
    painter.setRenderHint(QPainter::Antialiasing, false);
    // The fade handles: small squares at the top where each fade ends.
    if (x1 - x0 >= 3 * handleSize) {
        painter.setPen(color.darker(170));
        painter.setBrush(palette().base());
        for (bool in : {true, false})
            painter.drawRect(fadeHandle(clip, row, in, start));
        painter.setBrush(Qt::NoBrush);
    }
    painter.setPen(palette().text().color());
    painter.drawText(
        box.adjusted(handleSize + 4, 1, -handleSize - 2, 0), Qt::AlignTop | Qt::AlignLeft,
        painter.fontMetrics().elidedText(qs(clip.name), Qt::ElideRight, int(box.width()) - 10));
}

} // namespace sonvale
