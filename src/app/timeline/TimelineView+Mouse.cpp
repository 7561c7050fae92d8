#include "app/timeline/LaneHeader.h"
#include "app/timeline/TimelineView.h"
#include "editor/EditorModel.h"
#include "timeline/Timeline.h"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QScrollBar>
#include <QWheelEvent>
#include <cmath>

namespace sonvale {

namespace {

const char* actionName(int grip) {
    static const char* names[] = {"Move Clip", "Trim Clip", "Trim Clip", "Fade In", "Fade Out"};
    return names[grip];
}

} // namespace

std::optional<TimelineView::Hit> TimelineView::hitAt(double x, double y) const {
    const auto row = laneAt(y);
    if (!row || x < headerWidth) return std::nullopt;
    const auto& clips = timeline.lanes()[size_t(*row)].clips;
    // The topmost (last drawn) clip under the pointer; its handles and edges before its body.
    for (auto it = clips.rbegin(); it != clips.rend(); ++it) {
        const double x0 = xOfFrame(double(it->start)), x1 = xOfFrame(double(it->end()));
        if (x < x0 - edgeGrab || x > x1 + edgeGrab) continue;
        const bool roomy = x1 - x0 >= 3 * handleSize;
        const QPointF at(x, y);
        if (roomy && fadeHandle(*it, *row, true).adjusted(-2, -2, 2, 2).contains(at))
            return Hit{it->id, *row, Grip::fadeIn};
        if (roomy && fadeHandle(*it, *row, false).adjusted(-2, -2, 2, 2).contains(at))
            return Hit{it->id, *row, Grip::fadeOut};
        const double grab = std::min<double>(edgeGrab, (x1 - x0) / 3);
        if (std::fabs(x - x0) <= grab) return Hit{it->id, *row, Grip::startEdge};
        if (std::fabs(x - x1) <= grab) return Hit{it->id, *row, Grip::endEdge};
        if (x >= x0 && x < x1) return Hit{it->id, *row, Grip::body};
    }
    return std::nullopt;
}

bool TimelineView::snapping(Qt::KeyboardModifiers modifiers) const {
    return model.snapsClips() != bool(modifiers & Qt::ShiftModifier);
}

int64_t TimelineView::snapped(int64_t frame, bool snap) {
    if (!snap) return frame;
    const int64_t within = std::llround(snapDistance * timeline.scale().framesPerPoint);
    const auto target =
        timeline.snapTarget(frame, within, drag ? std::optional(drag->clipID) : std::nullopt);
    if (target) guide = *target;
    return target.value_or(frame);
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    const QPointF at = event->position();
    if (at.x() < headerWidth) return;
    guide.reset();
    if (const auto hit = hitAt(at.x(), at.y()); hit && at.y() >= rulerHeight) {
        lastLane = timeline.lanes()[size_t(hit->row)].id;
        timeline.selectClip(hit->clipID);
        const TimelineClip clip = timeline.clip(hit->clipID)->first;
        const int64_t grabbed[] = {clip.start, clip.start, clip.end(), clip.start + clip.fadeIn,
                                   clip.end() - clip.fadeOut};
        drag = Drag{hit->clipID, hit->grip, frameAt(at.x()) - grabbed[int(hit->grip)],
                    clip.start,  hit->row,  std::nullopt,
                    false,       at.x()};
        return;
    }
    if (const auto lane = laneIDAt(at.y())) lastLane = lane;
    timeline.selectClip(std::nullopt);
    timeline.setSelection(std::nullopt);
    const int64_t frame = frameAt(at.x());
    rangeDrag = RangeDrag{frame, at.x()};
    if (model.isPlayingTimeline())
        model.seek(frame);
    else
        timeline.setCursor(frame);
}

void TimelineView::updateDrag(double x, double y, bool snap) {
    guide.reset();
    const auto found = timeline.clip(drag->clipID);
    if (!found) return;
    const TimelineClip& clip = found->first;
    const int64_t frame = frameAt(x) - drag->grabOffset;
    switch (drag->grip) {
    case Grip::body: {
        // Either edge of the clip may snap; the nearer wins.
        int64_t start = std::max<int64_t>(frame, 0);
        if (snap) {
            const int64_t within = std::llround(snapDistance * timeline.scale().framesPerPoint);
            const auto atStart = timeline.snapTarget(start, within, clip.id);
            const auto atEnd = timeline.snapTarget(start + clip.length, within, clip.id);
            if (atStart && (!atEnd || std::llabs(*atStart - start) <=
                                          std::llabs(*atEnd - start - clip.length)))
                guide = start = *atStart;
            else if (atEnd) {
                guide = *atEnd;
                start = std::max<int64_t>(*atEnd - clip.length, 0);
            }
        }
        drag->start = start;
        const int last = int(timeline.lanes().size()) - 1;
        if (const auto row =
                laneAt(std::clamp(y, double(laneTop(0)), double(laneTop(last) + laneHeight - 1))))
            drag->lane = *row;
        break;
    }
    case Grip::startEdge:
    case Grip::endEdge:
        timeline.trimClip(clip.id, drag->grip == Grip::startEdge ? ClipEdge::start : ClipEdge::end,
                          snapped(frame, snap), actionName(int(drag->grip)));
        break;
    case Grip::fadeIn:
    case Grip::fadeOut:
        timeline.setFade(clip.id, drag->grip == Grip::fadeIn ? ClipEdge::start : ClipEdge::end,
                         snapped(frame, snap), actionName(int(drag->grip)));
        break;
    }
}

void TimelineView::updateLaneDrag(double y) {
    const int count = int(timeline.lanes().size());
    reorderRow = std::clamp(int(std::floor((y - rulerHeight + scrollY) / laneHeight)), 0,
                            std::max(count - 1, 0));
    repaintArea();
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
    const QPointF at = event->position();
    if (reordering) return updateLaneDrag(at.y());
    if (rangeDrag && (event->buttons() & Qt::LeftButton)) {
        if (std::fabs(at.x() - rangeDrag->pressX) < 3) return;
        const int64_t frame = frameAt(at.x());
        timeline.setSelection(
            std::pair(std::min(frame, rangeDrag->anchor), std::max(frame, rangeDrag->anchor)));
        return;
    }
    if (!drag) {
        // The pointer shows what a press would grab.
        const auto hit = at.y() >= rulerHeight ? hitAt(at.x(), at.y()) : std::nullopt;
        static const Qt::CursorShape shapes[] = {Qt::OpenHandCursor, Qt::SizeHorCursor,
                                                 Qt::SizeHorCursor, Qt::PointingHandCursor,
                                                 Qt::PointingHandCursor};
        setCursor(hit ? shapes[int(hit->grip)] : Qt::ArrowCursor);
        return;
    }
    if (!drag->moved) {
        if (std::fabs(at.x() - drag->pressX) < 3) return;
        drag->moved = true;
        // A trim or fade changes the clip as the mouse goes: one undo step for the whole drag.
        if (drag->grip != Grip::body) timeline.undoStack().beginGroup(actionName(int(drag->grip)));
    }
    updateDrag(at.x(), at.y(), snapping(event->modifiers()));
    repaintArea();
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    rangeDrag.reset();
    guide.reset();
    if (reordering) {
        const Uuid lane = *reordering;
        reordering.reset();
        releaseMouse();
        timeline.moveLane(lane, reorderRow);
        repaintArea();
        return;
    }
    if (!drag) return;
    const Drag done = *drag;
    drag.reset();
    if (done.moved && done.grip == Grip::body && done.lane < int(timeline.lanes().size()))
        timeline.moveClip(done.clipID, done.start, timeline.lanes()[size_t(done.lane)].id);
    else if (done.moved && done.grip != Grip::body)
        timeline.undoStack().endGroup();
    repaintArea();
}

bool TimelineView::event(QEvent* event) {
    if (event->type() == QEvent::NativeGesture) {
        const auto* gesture = static_cast<QNativeGestureEvent*>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture) {
            zoomBy(1.0 / (1.0 + gesture->value()), mapFromGlobal(gesture->globalPosition()).x());
            return true;
        }
    }
    return QWidget::event(event);
}

void TimelineView::wheelEvent(QWheelEvent* event) {
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        zoomBy(std::pow(0.8, delta.y() / 120.0), event->position().x());
    } else if (vertical->isVisible() && delta.x() == 0 &&
               !(event->modifiers() & Qt::ShiftModifier)) {
        vertical->setValue(vertical->value() - delta.y() * laneHeight / 240);
    } else {
        const double steps = (delta.x() != 0 ? delta.x() : delta.y()) / 120.0;
        const TimelineScale scale = timeline.scale();
        const double shift = -steps * (width() - headerWidth) * 0.1 * scale.framesPerPoint;
        timeline.update(TimelineScale{std::max(0.0, scale.start + shift), scale.framesPerPoint},
                        width() - headerWidth);
    }
    event->accept();
}

// ---- dropping tracks and files -----------------------------------------------------------

void TimelineView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasFormat(trackMimeType) || event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void TimelineView::dragMoveEvent(QDragMoveEvent* event) {
    const double y = event->position().y();
    dropRow = y < rulerHeight ? std::nullopt : std::optional(laneAt(y).value_or(-1));
    if (dropRow)
        event->acceptProposedAction();
    else
        event->ignore();
    repaintArea();
}

void TimelineView::dragLeaveEvent(QDragLeaveEvent*) {
    dropRow.reset();
    repaintArea();
}

void TimelineView::dropEvent(QDropEvent* event) {
    dropRow.reset();
    const QPointF at = event->position();
    const std::optional<Uuid> lane = laneIDAt(at.y());
    const int64_t frame = frameAt(std::max(at.x(), double(headerWidth)));
    if (lane) lastLane = lane;
    const QMimeData* data = event->mimeData();
    if (data->hasFormat(trackMimeType)) {
        // "<track id>" or "<track id> <first frame> <end frame>" for a part of it.
        const QStringList words = QString::fromUtf8(data->data(trackMimeType)).split(' ');
        std::optional<FrameRange> range;
        if (words.size() == 3) range = FrameRange{words[1].toLongLong(), words[2].toLongLong()};
        if (const auto id = Uuid::parse(words.value(0).toStdString()))
            model.placeTrack(*id, range, lane, frame);
        // A copy: the list the track came from keeps its row.
        event->setDropAction(Qt::CopyAction);
        event->accept();
        repaintArea();
        return;
    } else {
        std::vector<std::filesystem::path> paths;
        for (const QUrl& url : data->urls())
            if (url.isLocalFile()) paths.emplace_back(url.toLocalFile().toStdString());
        if (!paths.empty()) model.openOntoLane(paths, lane, frame);
    }
    event->acceptProposedAction();
    repaintArea();
}

} // namespace sonvale
