#pragma once

#include "app/SignalConnections.h"
#include "base/Uuid.h"
#include "timeline/TimelineTypes.h"

#include <QColor>
#include <QWidget>
#include <cstdint>
#include <map>
#include <optional>

class QPainter;
class QRegion;
class QScrollBar;
class QTimer;
class QToolButton;

namespace sonvale {

class EditorModel;
class LaneHeader;
class Timeline;

// The multitrack timeline: a ruler with the markers, the cursor, the selection and the
// playhead, and a row per lane with its header and its clips (waveform, name, fades and
// crossfades).
//
// A click on the ruler or an empty stretch puts the cursor there (a seek while the timeline
// plays); a drag there selects a range. A click on a clip selects it; dragging it moves it
// (onto another lane too), dragging its edges trims it and dragging the handles at its top
// corners sets its fades. Drags snap to the timeline start, the cursor, markers and clip
// edges while snapping is on (Shift does the opposite), with a guide line where they snap;
// each is one undo step. Tracks dragged from the list and audio files from the file manager
// land on the lane under the pointer. Ctrl+wheel zooms around the pointer, the wheel scrolls
// the lanes (Shift+wheel: time), and the view follows the playhead. All edits go through the
// Timeline and the EditorModel. Painting lives in TimelineView.cpp, the mouse in
// TimelineView+Mouse.cpp.
class TimelineView : public QWidget {
    Q_OBJECT
public:
    static constexpr int rulerHeight = 26;
    static constexpr int headerWidth = 210;
    static constexpr int laneHeight = 80;
    static constexpr int snapDistance = 8; // points
    static constexpr int edgeGrab = 5;     // points either side of a clip edge that trim it
    static constexpr int handleSize = 8;   // the fade handles' squares
    // The drag-and-drop type of a track dragged from the list: its id as text.
    static constexpr const char* trackMimeType = "application/x-sonvale-track";

    explicit TimelineView(EditorModel& model, QWidget* parent = nullptr);
    ~TimelineView() override;

    // The lane colour of palette index `index` (0 to 7).
    static QColor laneColor(int index);
    // The x of a timeline frame, and the frame at an x, at the current scale.
    double xOfFrame(double frame) const;
    int64_t frameAt(double x) const;
    // The top of a lane row, and the lane row at a y, if any.
    int laneTop(int row) const;
    std::optional<int> laneAt(double y) const;
    // The header of the lane with `laneID`.
    LaneHeader* header(const Uuid& laneID) const;
    // The button under the last lane that adds one.
    QToolButton* addButton() const { return addLaneButton; }
    // The lane the user last clicked, added or dropped on, else the selected clip's.
    std::optional<Uuid> currentLane() const;
    void removeCurrentLane();

    // What a change of the timeline repaints: all but the lane headers and the scroll bars.
    QRegion repaintRegion() const;

    void zoomBy(double factor, std::optional<double> aroundX = {});
    void zoomToFit();

protected:
    bool event(QEvent* event) override; // pinch to zoom
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    // What a press on a clip grabbed.
    enum class Grip { body, startEdge, endEdge, fadeIn, fadeOut };
    struct Drag {
        Uuid clipID;
        Grip grip = Grip::body;
        int64_t grabOffset = 0; // frames from the grabbed point of the clip to the pointer
        int64_t start = 0;      // a moved clip: where it would land
        int lane = 0;
        std::optional<int64_t> snappedTo;
        bool moved = false;
        double pressX = 0;
    };
    // A range being selected on the ruler or an empty stretch.
    struct RangeDrag {
        int64_t anchor = 0;
        double pressX = 0;
    };
    struct Hit {
        Uuid clipID;
        int row = 0;
        Grip grip = Grip::body;
    };

    void paintRuler(QPainter& painter) const;
    void paintLanes(QPainter& painter) const;
    void paintClip(QPainter& painter, const TimelineClip& clip, int row, QColor color,
                   int64_t start) const;
    // The square handle of a clip's fade-in or fade-out (the clip drawn from `start`).
    QRectF fadeHandle(const TimelineClip& clip, int row, bool in,
                      std::optional<int64_t> start = {}) const;
    void paintCrossfades(QPainter& painter, const TimelineLane& lane, int row) const;

    void repaintArea();
    void syncHeaders();
    void layoutHeaders();
    void syncScrollBars();
    void refreshMeters();
    void followPlayhead();

    std::optional<Hit> hitAt(double x, double y) const;
    bool snapping(Qt::KeyboardModifiers modifiers) const;
    // The snap target for `frame`, remembered as the guide line's place.
    int64_t snapped(int64_t frame, bool snap);
    void updateDrag(double x, double y, bool snap);
    void updateLaneDrag(double y);
    std::optional<Uuid> laneIDAt(double y) const;
    int laneRowOf(const Uuid& laneID) const;

    EditorModel& model;
    Timeline& timeline;
    SignalConnections connections;
    std::map<Uuid, LaneHeader*> headers;
    QScrollBar* vertical = nullptr;
    QScrollBar* horizontal = nullptr;
    QTimer* meterTimer = nullptr;
    QToolButton* addLaneButton = nullptr;
    int scrollY = 0;
    std::optional<Drag> drag;
    std::optional<RangeDrag> rangeDrag;
    std::optional<Uuid> reordering; // a lane dragged by its colour grip
    int reorderRow = 0;
    std::optional<int64_t> guide; // where the current drag snapped
    std::optional<int> dropRow;   // a drop would land on this lane row (-1: a new lane)
    std::optional<Uuid> lastLane;
    int idleMeterFrames = 0;
};

} // namespace sonvale
