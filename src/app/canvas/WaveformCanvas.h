#pragma once

#include "app/canvas/CanvasTheme.h"
#include "app/canvas/SpectrogramLayer.h"
#include "audio/AudioTrack.h"
#include "base/Uuid.h"

#include <QImage>
#include <QTemporaryDir>
#include <QWidget>
#include <algorithm>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <sigc++/connection.h>
#include <vector>

class QFrame;
class QLineEdit;
class QTimer;
class QToolButton;
class QMimeData;
class QScrollBar;

namespace sonvale {

class EditorModel;

// Draws the active track of the editor and turns mouse, wheel and keys on it into calls on
// the model (selection, cursor, markers, zoom and scroll of the track's viewport).
// The top strip is the time ruler: time labels above, markers and regions in a band of their
// own below. Under it one lane per channel, each with its name and a dB scale in a strip on
// the left; a horizontal scroll bar shows under the lanes while the view is zoomed in.
// Main thread only.
class WaveformCanvas : public QWidget {
    Q_OBJECT
public:
    explicit WaveformCanvas(EditorModel& model, QWidget* parent = nullptr);
    ~WaveformCanvas() override;

    static constexpr int timeBandHeight = 18; // the ruler's time labels
    static constexpr int rulerHeight = 34;    // with the marker band under the time labels
    static constexpr int scaleWidth = 40;     // the channel names and dB scales on the left
    static constexpr float minVerticalZoom = 1.0f;
    static constexpr float maxVerticalZoom = 64.0f;

    const CanvasTheme& theme() const { return colours; }
    CanvasThemeID themeID() const { return currentThemeID; }
    // The frame under an x position in points (fractional), and back.
    double frameAt(double x) const;
    double xOfFrame(double frame) const;
    // The area the waveform lanes take (below the ruler, right of the scales, above the
    // scroll bar). The track's viewport is as wide as this.
    QRect waveArea() const;
    // The texts on the ruler where they are drawn: the time labels, then the marker names
    // (elided to the room before the next marker, left out when there is none).
    struct RulerLabel {
        QRectF rect;
        QString text;
        bool isMarker = false;
    };
    std::vector<RulerLabel> rulerLabels() const;
    // The grip at the top of the selection that drags it out; empty without a visible one.
    QRectF selectionHandleRect() const;
    static constexpr const char* selectionHandleToolTip = "Drag the selection out as a file";
    static constexpr const char* trackViewToolTip = "Waveform (Ctrl+1) or spectrogram (Ctrl+2)";
    static constexpr const char* spectrogramSettingsToolTip = "Spectrogram settings";
    // Runs the drag of the selection out of the canvas with its data (a QDrag by default);
    // tests put their own here to see a drag start without entering the drag loop.
    std::function<void(std::unique_ptr<QMimeData>)> runSelectionDrag;
    // The selection written as a 24-bit WAV into a temporary folder and offered as a file
    // URL; null without a selection or when the file can't be written. Dragging the
    // selection out of the canvas carries this.
    QMimeData* selectionMimeData();
    QLineEdit* markerNameEditor() const { return nameEditor; }

public Q_SLOTS:
    void zoomIn();
    void zoomOut();
    void zoomToSelection();
    void zoomToFit();
    void verticalZoomIn();
    void verticalZoomOut();

Q_SIGNALS:
    void themeChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    bool event(QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    enum class MarkerPart { start, end };
    struct MarkerHit {
        Uuid id;
        MarkerPart part = MarkerPart::start;
    };
    struct MarkerDrag {
        Uuid id;
        MarkerPart part;
        double grabFrame = 0; // where the mouse went down
        int64_t start = 0;    // the marker as it was
        std::optional<int64_t> end;
        int64_t shownStart = 0; // where it is drawn while dragged
        std::optional<int64_t> shownEnd;
    };

    void watchActiveTrack();
    void unwatchTrack();
    void updateTheme();
    void syncScrollBar();
    void scrollBarMoved(int value);
    void playheadMoved();
    void showNameEditor();
    void finishNameEditing(bool commit);
    std::optional<MarkerHit> markerAt(QPointF position) const;
    // A marker as the ruler shows it: where it grabs and where its name goes.
    struct MarkerLabel {
        Uuid id;
        QRectF grab; // the flag and name of a point, the bar of a region
        QRectF text;
        QString name; // elided to fit `text`
        bool isRegion = false;
    };
    std::vector<MarkerLabel> markerLabels() const; // in the order of their starts
    std::vector<RulerLabel> timeLabels() const;
    QFont rulerFont() const;
    double waveWidth() const { return std::max(0, width() - scaleWidth); }
    double zoomAnchor() const; // the cursor's x in the view, the middle when it is out of view
    void startSelectionDrag();
    void updateHoverCursor(QPointF position);

    void drawRuler(QPainter& painter, const Viewport& view);
    void drawCursorAndPlayhead(QPainter& painter);
    // The spectrogram view: the active track's spectrogram (or its progress) and the
    // frequency scale in the strip on the left.
    bool showsSpectrogram() const;
    void drawSpectrogramView(QPainter& painter, const Viewport& view, int64_t frames);
    void drawFrequencyScale(QPainter& painter);
    void trackViewChanged();
    void showSpectrogramPopover();
    // The corner toggle's pictures: a wave for the waveform, stacked bands for the spectrogram.
    static QIcon trackViewIcon(const QColor& ink);
    SpectrogramLayer spectrogramLayer;
    QToolButton* viewToggle = nullptr;
    QToolButton* spectrogramSettingsButton = nullptr;
    QFrame* spectrogramPopover = nullptr;
    QTimer* progressTimer = nullptr;
    // While a recording shows, the view it is drawn in (the track's own has no audio to fit).
    std::optional<Viewport> liveView;
    const Viewport& shownView() const; // the live view, else the track's
    double shownRate() const;          // of the audio shown, live or not; 0 without any
    void drawLane(QPainter& painter, WaveSource data, int64_t frames, QRectF lane,
                  const Viewport& view, float verticalZoom);
    void drawScale(QPainter& painter, QRectF lane, int channel, int channels, float verticalZoom);
    void drawMarkers(QPainter& painter);
    void drawSelectionHandle(QPainter& painter);

    EditorModel& model;
    AudioTrackPtr track; // the track being shown and watched
    std::vector<sigc::connection> trackConnections;
    std::vector<sigc::connection> modelConnections;

    QScrollBar* scrollBar = nullptr;
    double scrollUnit = 1; // frames per scroll bar step
    bool syncingScrollBar = false;
    QLineEdit* nameEditor = nullptr;
    std::optional<Uuid> editedMarker;

    CanvasTheme colours;
    CanvasThemeID currentThemeID = CanvasThemeID::classic;

    // Mouse gestures in progress.
    std::optional<double> selectionAnchor; // frame the drag selects from
    QPointF pressPosition;
    bool pressMoved = false;
    bool pendingSelectionDrag = false; // pressed on the selection's grip, or Alt inside it
    std::optional<MarkerDrag> markerDrag;
    std::unique_ptr<QTemporaryDir> dragFolder;
    // The dragged selection's file being written (an error text when it failed). Declared
    // after the folder so that it waits for the writing before the folder goes.
    std::shared_future<std::string> dragWriting;

    // One device-pixel column of a lane: its extent and RMS extent in points.
    struct ColumnShape {
        int column;
        float top, bottom, rmsTop, rmsBottom;
        bool selected;
    };
    // Reused between repaints so drawing does not allocate per frame.
    std::vector<ColumnShape> columnScratch;
    QImage laneImage;
    std::vector<QPointF> pointScratch;
};

} // namespace sonvale
