#include "app/timeline/TimelineView.h"

#include "app/DurationText.h"
#include "editor/EditorModel.h"
#include "timeline/Timeline.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

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
    setMinimumSize(400, 200);
    auto repaint = [this] { update(); };
    for (auto* signal : {&timeline.contentChanged, &timeline.selectionChanged,
                         &timeline.viewChanged, &model.playheadChanged, &model.transportChanged})
        connections.add(signal->connect(repaint));
}

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

std::optional<int> TimelineView::laneAt(double y) const {
    if (y < rulerHeight) return std::nullopt;
    const int row = int((y - rulerHeight) / laneHeight);
    if (row >= int(timeline.lanes().size())) return std::nullopt;
    return row;
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
    if (drag && drag->snappedTo) {
        painter.setPen(QPen(QColor(250, 190, 40), 1, Qt::DashLine));
        const double x = std::round(xOfFrame(double(*drag->snappedTo))) + 0.5;
        painter.drawLine(QPointF(x, rulerHeight), QPointF(x, height()));
    }
    painter.setClipping(false);

    if (timeline.lanes().empty()) {
        painter.setPen(palette().placeholderText().color());
        painter.drawText(rect().adjusted(headerWidth, rulerHeight, -20, 0),
                         Qt::AlignCenter | Qt::TextWordWrap,
                         "The timeline is empty.\nSelect a track and choose Multitrack \u203A Add "
                         "to Timeline (Ctrl+Shift+A) to place it on a lane of its own.");
    }
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
    for (int row = 0; row < int(lanes.size()); ++row) {
        const TimelineLane& lane = lanes[size_t(row)];
        const int top = rulerHeight + row * laneHeight;
        const QColor color = laneColor(lane.colorIndex);
        painter.setPen(palette().mid().color());
        painter.drawLine(0, top + laneHeight - 1, width(), top + laneHeight - 1);
        // Clips first, clipped to the lane area; the header covers their left.
        painter.save();
        painter.setClipRect(headerWidth, top, width() - headerWidth, laneHeight - 1);
        for (const TimelineClip& clip : lane.clips)
            if (!(drag && drag->moved && clip.id == drag->clipID))
                paintClip(painter, clip, row, lane.isMuted ? color.darker(160) : color, clip.start);
        painter.restore();

        const QRect header(0, top, headerWidth, laneHeight - 1);
        painter.fillRect(header, palette().window());
        painter.fillRect(QRect(0, top, 5, laneHeight - 1), color);
        painter.setPen(palette().windowText().color());
        QFont bold = font();
        bold.setBold(true);
        painter.setFont(bold);
        painter.drawText(
            header.adjusted(12, 6, -6, 0), Qt::AlignTop | Qt::AlignLeft,
            painter.fontMetrics().elidedText(qs(lane.name), Qt::ElideRight, headerWidth - 18));
        painter.setFont(font());
        QString details = QString::asprintf("%+.1f dB", double(lane.gainDB));
        if (lane.pan != 0)
            details += QString::asprintf("  %s %d", lane.pan < 0 ? "L" : "R",
                                         int(std::lround(std::fabs(lane.pan) * 100)));
        if (const TimelineBus* bus = timeline.bus(lane.output))
            details += QString::fromUtf8("  \u2192 ") + qs(bus->name);
        painter.drawText(header.adjusted(12, 26, -6, 0), Qt::AlignTop | Qt::AlignLeft, details);
        if (lane.isMuted) {
            painter.setPen(palette().placeholderText().color());
            painter.drawText(header.adjusted(12, 46, -6, 0), Qt::AlignTop | Qt::AlignLeft, "Off");
        }
        painter.setPen(palette().mid().color());
        painter.drawLine(headerWidth - 1, top, headerWidth - 1, top + laneHeight - 1);
    }
    // The clip being dragged, where it would land.
    if (drag && drag->moved)
        if (const auto found = timeline.clip(drag->clipID)) {
            const TimelineLane* lane =
                drag->lane < int(lanes.size()) ? &lanes[size_t(drag->lane)] : nullptr;
            painter.save();
            painter.setClipRect(headerWidth, rulerHeight, width() - headerWidth, height());
            painter.setOpacity(0.8);
            paintClip(painter, found->first, drag->lane, laneColor(lane ? lane->colorIndex : 0),
                      drag->start);
            painter.restore();
        }
}

void TimelineView::paintClip(QPainter& painter, const TimelineClip& clip, int row, QColor color,
                             int64_t start) const {
    const double top = rulerHeight + row * laneHeight + 3, height = laneHeight - 7;
    const double x0 = xOfFrame(double(start)), x1 = xOfFrame(double(start + clip.length));
    if (x1 < headerWidth || x0 > width()) return;
    const QRectF box(x0, top, std::max(x1 - x0, 1.0), height);
    QColor fill = color;
    fill.setAlpha(70);
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setBrush(fill);
    const bool selected = timeline.selectedClipID() == clip.id;
    painter.setPen(
        QPen(selected ? palette().highlight().color() : color.darker(130), selected ? 2 : 1));
    painter.drawRoundedRect(box, 3, 3);
    painter.setRenderHint(QPainter::Antialiasing, false);

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
        painter.setPen(color.darker(150));
        for (size_t i = 0; i < wave.size(); ++i) {
            const double x = std::floor(visible0) + double(i) + 0.5;
            painter.drawLine(QPointF(x, middle - wave[i].max * half),
                             QPointF(x, middle - wave[i].min * half));
        }
    }
    // Fades as the quarter-sine curves the mixer plays.
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(QPen(palette().text().color(), 1.2));
    painter.setBrush(Qt::NoBrush);
    auto fadeCurve = [&](int64_t frames, bool in) {
        if (frames <= 0) return;
        QPainterPath path;
        const double span = xOfFrame(double(start + frames)) - x0;
        const double from = in ? x0 : x1 - span;
        const int steps = std::clamp(int(span / 3), 2, 64);
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

    painter.setPen(palette().text().color());
    painter.drawText(
        box.adjusted(6, 2, -4, 0), Qt::AlignTop | Qt::AlignLeft,
        painter.fontMetrics().elidedText(qs(clip.name), Qt::ElideRight, int(box.width()) - 10));
}

// ---- the mouse and the keys ------------------------------------------------------------------

std::optional<std::pair<Uuid, int>> TimelineView::clipAt(double x, double y) const {
    const auto row = laneAt(y);
    if (!row || x < headerWidth) return std::nullopt;
    const int64_t frame = frameAt(x);
    const auto& clips = timeline.lanes()[size_t(*row)].clips;
    // The topmost (last drawn) clip under the pointer.
    for (auto it = clips.rbegin(); it != clips.rend(); ++it)
        if (frame >= it->start && frame < it->end()) return std::pair(it->id, *row);
    return std::nullopt;
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    const QPointF at = event->position();
    if (at.x() < headerWidth) return;
    if (const auto hit = clipAt(at.x(), at.y())) {
        timeline.selectClip(hit->first);
        const auto clip = timeline.clip(hit->first);
        drag = Drag{hit->first,
                    frameAt(at.x()) - clip->first.start,
                    clip->first.start,
                    hit->second,
                    std::nullopt,
                    false,
                    at.x()};
        return;
    }
    timeline.selectClip(std::nullopt);
    timeline.setSelection(std::nullopt);
    timeline.setCursor(frameAt(at.x()));
}

void TimelineView::updateDrag(double x, double y, bool snap) {
    int64_t start = std::max<int64_t>(frameAt(x) - drag->grabOffset, 0);
    drag->snappedTo.reset();
    if (snap) {
        const auto clip = timeline.clip(drag->clipID);
        const int64_t within = std::llround(snapDistance * timeline.scale().framesPerPoint);
        // Either edge of the clip may snap; the nearer wins.
        const auto atStart = timeline.snapTarget(start, within, drag->clipID);
        const auto atEnd =
            clip ? timeline.snapTarget(start + clip->first.length, within, drag->clipID)
                 : std::nullopt;
        if (atStart && (!atEnd || std::llabs(*atStart - start) <=
                                      std::llabs(*atEnd - start - clip->first.length))) {
            start = *atStart;
            drag->snappedTo = *atStart;
        } else if (atEnd) {
            start = std::max<int64_t>(*atEnd - clip->first.length, 0);
            drag->snappedTo = *atEnd;
        }
    }
    drag->start = start;
    if (const auto row =
            laneAt(std::clamp(y, double(rulerHeight),
                              double(rulerHeight + laneHeight * int(timeline.lanes().size()) - 1))))
        drag->lane = *row;
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
    if (!drag) return;
    const QPointF at = event->position();
    if (!drag->moved && std::fabs(at.x() - drag->pressX) < 3) return;
    drag->moved = true;
    updateDrag(at.x(), at.y(), !(event->modifiers() & Qt::ShiftModifier));
    update();
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event) {
    if (!drag || event->button() != Qt::LeftButton) return;
    const Drag done = *drag;
    drag.reset();
    if (done.moved && done.lane < int(timeline.lanes().size()))
        timeline.moveClip(done.clipID, done.start, timeline.lanes()[size_t(done.lane)].id);
    update();
}

void TimelineView::wheelEvent(QWheelEvent* event) {
    const double steps = event->angleDelta().y() / 120.0;
    if (event->modifiers() & Qt::ControlModifier) {
        zoomBy(std::pow(0.8, steps), event->position().x());
    } else {
        const TimelineScale scale = timeline.scale();
        const double shift = -steps * (width() - headerWidth) * 0.1 * scale.framesPerPoint;
        timeline.update(TimelineScale{std::max(0.0, scale.start + shift), scale.framesPerPoint},
                        width() - headerWidth);
    }
    event->accept();
}

void TimelineView::keyPressEvent(QKeyEvent* event) {
    if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) &&
        timeline.selectedClipID()) {
        timeline.removeClip(*timeline.selectedClipID());
        return;
    }
    QWidget::keyPressEvent(event);
}

} // namespace sonvale
