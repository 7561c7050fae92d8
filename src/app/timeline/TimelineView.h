#pragma once

#include "app/SignalConnections.h"
#include "base/Uuid.h"
#include "timeline/TimelineTypes.h"

#include <QColor>
#include <QWidget>
#include <cstdint>
#include <optional>

class QPainter;

namespace sonvale {

class EditorModel;
class Timeline;

// The multitrack timeline: a ruler with the cursor, the selection and the playhead, and a
// row per lane with its header and its clips (waveform, name, fades). A click on the ruler
// or an empty stretch puts the cursor there, a click on a clip selects it, and dragging a
// clip moves it (onto another lane too), snapping to the cursor, markers and clip edges
// unless Shift is held; the move is one undo step when the mouse is let go. Ctrl+wheel
// zooms around the pointer, the wheel scrolls. All edits go through the Timeline.
class TimelineView : public QWidget {
    Q_OBJECT
public:
    static constexpr int rulerHeight = 26;
    static constexpr int headerWidth = 160;
    static constexpr int laneHeight = 78;
    static constexpr int snapDistance = 8; // points

    explicit TimelineView(EditorModel& model, QWidget* parent = nullptr);

    // The lane colour of palette index `index` (0 to 7).
    static QColor laneColor(int index);
    // The x of a timeline frame, and the frame at an x, at the current scale.
    double xOfFrame(double frame) const;
    int64_t frameAt(double x) const;
    // The lane row at a y, if any.
    std::optional<int> laneAt(double y) const;

    void zoomBy(double factor, std::optional<double> aroundX = {});
    void zoomToFit();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Drag {
        Uuid clipID;
        int64_t grabOffset = 0; // frames from the clip's start to the pointer
        int64_t start = 0;      // where the clip would land
        int lane = 0;
        std::optional<int64_t> snappedTo;
        bool moved = false;
        double pressX = 0;
    };
    void paintRuler(QPainter& painter) const;
    void paintLanes(QPainter& painter) const;
    void paintClip(QPainter& painter, const TimelineClip& clip, int row, QColor color,
                   int64_t start) const;
    void updateDrag(double x, double y, bool snap);
    std::optional<std::pair<Uuid, int>> clipAt(double x, double y) const;

    EditorModel& model;
    Timeline& timeline;
    SignalConnections connections;
    std::optional<Drag> drag;
};

} // namespace sonvale
