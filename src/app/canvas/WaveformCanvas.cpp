#include "app/canvas/WaveformCanvas.h"

#include "app/Features.h"
#include "app/SpectrogramControls.h"
#include "audio/AudioExporter.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDrag>
#include <QFormLayout>
#include <QFrame>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPaintEngine>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QStyleHints>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>
#include <QUrl>
#include <QWheelEvent>
#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <functional>
#include <future>
#include <limits>
#include <system_error>
#include <utility>

namespace sonvale {

namespace {

constexpr double markerGrabDistance = 5; // points either side of a marker line
constexpr double zoomStep = 2;           // the View menu's zoom in and out
constexpr float verticalZoomStep = 1.5f;
constexpr double wheelZoomBase = 0.8;    // one wheel notch with Ctrl zooms in by 20 %
constexpr double wheelScrollPoints = 60; // one wheel notch scrolls this far
constexpr int minimumTickSpacing = 90;   // points between labelled ruler ticks
constexpr double handleWidth = 28;       // the grip that drags the selection out
constexpr double handleHeight = 11;

// The line edit that renames a marker in place: Return keeps the name, Escape drops it.
class MarkerNameEdit : public QLineEdit {
public:
    using QLineEdit::QLineEdit;
    std::function<void()> onEscape;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape && onEscape) {
            onEscape();
            return;
        }
        QLineEdit::keyPressEvent(event);
    }
};

bool darkAppearance(const QWidget& widget) {
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    switch (QGuiApplication::styleHints()->colorScheme()) {
    case Qt::ColorScheme::Dark: return true;
    case Qt::ColorScheme::Light: return false;
    default: break;
    }
#endif
    return CanvasTheme::isDark(widget.palette());
}

// Major tick steps of the ruler in seconds, with the number of minor divisions of each.
struct TickStep {
    double seconds;
    int divisions;
};
TickStep tickStep(double minimumSeconds) {
    static constexpr TickStep large[] = {{1, 5},   {2, 4},    {5, 5},    {10, 5},  {15, 3},
                                         {30, 3},  {60, 4},   {120, 4},  {300, 5}, {600, 5},
                                         {900, 3}, {1800, 3}, {3600, 4}, {7200, 4}};
    if (minimumSeconds < 1) {
        for (double decade = 1e-6; decade < 1; decade *= 10)
            for (const TickStep step : {TickStep{1, 5}, TickStep{2, 4}, TickStep{5, 5}})
                if (step.seconds * decade >= minimumSeconds)
                    return {step.seconds * decade, step.divisions};
        return {1, 5};
    }
    for (const TickStep step : large)
        if (step.seconds >= minimumSeconds) return step;
    const double hours = std::ceil(minimumSeconds / 3600);
    return {hours * 3600, 4};
}

QString timeLabel(double seconds, double step) {
    const int decimals = step >= 1 ? 0 : std::min(6, int(std::ceil(-std::log10(step) - 1e-9)));
    const double scale = std::pow(10.0, decimals);
    const double rounded = std::round(seconds * scale) / scale;
    const int64_t whole = int64_t(std::floor(rounded));
    const int64_t hours = whole / 3600;
    const int64_t minutes = (whole / 60) % 60;
    const double secs = rounded - double(whole - whole % 60);
    const int width = decimals > 0 ? 3 + decimals : 2;
    const QString secText = QString("%1").arg(secs, width, 'f', decimals, QChar('0'));
    if (hours > 0)
        return QString("%1:%2:%3").arg(hours).arg(minutes, 2, 10, QChar('0')).arg(secText);
    return QString("%1:%2").arg(minutes).arg(secText);
}

} // namespace

WaveformCanvas::WaveformCanvas(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    setMinimumSize(320, 160);
    setMouseTracking(true); // for the grip's pointer
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_AcceptTouchEvents);

    scrollBar = new QScrollBar(Qt::Horizontal, this);
    scrollBar->setObjectName("canvasScrollBar");
    connect(scrollBar, &QScrollBar::valueChanged, this, &WaveformCanvas::scrollBarMoved);

    auto* editor = new MarkerNameEdit(this);
    editor->setObjectName("markerNameEditor");
    editor->onEscape = [this] { finishNameEditing(false); };
    editor->hide();
    nameEditor = editor;
    connect(nameEditor, &QLineEdit::editingFinished, this, [this] { finishNameEditing(true); });
    runSelectionDrag = [this](std::unique_ptr<QMimeData> data) {
        auto* drag = new QDrag(this);
        drag->setMimeData(data.release());
        drag->exec(Qt::CopyAction);
    };

    modelConnections.push_back(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    modelConnections.push_back(model.tracksChanged.connect([this] { watchActiveTrack(); }));
    modelConnections.push_back(model.playheadChanged.connect([this] { playheadMoved(); }));
    modelConnections.push_back(model.transportChanged.connect([this] { update(); }));

    viewToggle = new QToolButton(this);
    viewToggle->setObjectName("trackViewToggle");
    viewToggle->setCheckable(true);
    viewToggle->setAutoRaise(true);
    viewToggle->setToolTip(trackViewToolTip);
    viewToggle->setGeometry(2, 1, scaleWidth - 4, timeBandHeight - 2);
    viewToggle->setIconSize(QSize(28, 14));
    viewToggle->setVisible(features::spectrogram);
    connect(viewToggle, &QToolButton::clicked, this, [this](bool checked) {
        this->model.setTrackView(checked ? EditorModel::TrackView::spectrogram
                                         : EditorModel::TrackView::waveform);
    });
    spectrogramSettingsButton = new QToolButton(this);
    spectrogramSettingsButton->setObjectName("spectrogramSettingsButton");
    spectrogramSettingsButton->setAutoRaise(true);
    spectrogramSettingsButton->setText(QString::fromUtf8("Hz \u25be"));
    spectrogramSettingsButton->setToolTip(spectrogramSettingsToolTip);
    spectrogramSettingsButton->setGeometry(0, timeBandHeight, scaleWidth,
                                           rulerHeight - timeBandHeight - 1);
    spectrogramSettingsButton->hide();
    connect(spectrogramSettingsButton, &QToolButton::clicked, this,
            [this] { showSpectrogramPopover(); });
    progressTimer = new QTimer(this);
    progressTimer->setInterval(100);
    connect(progressTimer, &QTimer::timeout, this, [this] {
        if (!track || !this->model.spectrogramProgress(*track)) progressTimer->stop();
        update();
    });
    modelConnections.push_back(model.trackViewChanged.connect([this] { trackViewChanged(); }));
    modelConnections.push_back(model.spectrogramWorkChanged.connect([this] {
        if (track && this->model.spectrogramProgress(*track)) progressTimer->start();
        update();
    }));
    modelConnections.push_back(model.preferences().changed.connect([this](Preferences::Setting s) {
        using S = Preferences::Setting;
        if (s == S::canvasTheme || s == S::followsSystemAppearance || s == S::lightCanvasTheme ||
            s == S::darkCanvasTheme)
            updateTheme();
        if (s == S::spectrogramSettings) update();
    }));
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    connect(QGuiApplication::styleHints(), &QStyleHints::colorSchemeChanged, this,
            [this] { updateTheme(); });
#endif
    updateTheme();
    watchActiveTrack();
    trackViewChanged();
}

WaveformCanvas::~WaveformCanvas() {
    unwatchTrack();
    for (auto& connection : modelConnections)
        connection.disconnect();
}

// ---- the track being shown ---------------------------------------------------------------

void WaveformCanvas::unwatchTrack() {
    for (auto& connection : trackConnections)
        connection.disconnect();
    trackConnections.clear();
}

void WaveformCanvas::watchActiveTrack() {
    AudioTrackPtr active = model.activeTrack();
    if (active == track) return;
    unwatchTrack();
    if (editedMarker) {
        editedMarker.reset();
        nameEditor->hide();
    }
    selectionAnchor.reset();
    markerDrag.reset();
    pendingSelectionDrag = false;
    track = std::move(active);
    if (track) {
        auto repaint = [this] { update(); };
        auto viewChanged = [this] {
            syncScrollBar();
            update();
        };
        trackConnections.push_back(track->audioChanged.connect([this] {
            if (waveWidth() > 0) track->updateWidth(waveWidth());
            syncScrollBar();
            update();
        }));
        trackConnections.push_back(track->stateChanged.connect([this] {
            trackViewChanged();
            update();
        }));
        trackConnections.push_back(track->cachesChanged.connect(repaint));
        trackConnections.push_back(track->recordingChanged.connect(repaint));
        trackConnections.push_back(track->liveAudioChanged.connect(repaint));
        trackConnections.push_back(track->selectionChanged.connect(repaint));
        trackConnections.push_back(track->cursorChanged.connect(repaint));
        trackConnections.push_back(track->viewportChanged.connect(viewChanged));
        trackConnections.push_back(track->markersChanged.connect(repaint));
        trackConnections.push_back(
            track->renamingMarkerChanged.connect([this] { showNameEditor(); }));
        if (waveWidth() > 0) track->updateWidth(waveWidth());
    }
    syncScrollBar();
    showNameEditor();
    trackViewChanged();
    if (track && model.spectrogramProgress(*track)) progressTimer->start();
    update();
}

void WaveformCanvas::playheadMoved() {
    if (!track) return;
    if (model.isPlaying() && model.playingTrackID() == track->id())
        track->follow(model.playheadPosition());
    update();
}

// ---- geometry ----------------------------------------------------------------------------

QRect WaveformCanvas::waveArea() const {
    const int bar = scrollBar->isHidden() ? 0 : scrollBar->sizeHint().height();
    return QRect(scaleWidth, rulerHeight, int(waveWidth()),
                 std::max(0, height() - rulerHeight - bar));
}

double WaveformCanvas::frameAt(double x) const {
    if (!track) return 0;
    const Viewport& v = track->viewport();
    return v.start + (x - scaleWidth) * v.samplesPerPoint;
}

const Viewport& WaveformCanvas::shownView() const {
    return liveView ? *liveView : track->viewport();
}

double WaveformCanvas::shownRate() const {
    if (track->audio()) return track->sampleRate();
    return track->liveAudio() ? track->liveAudio()->sampleRate : 0;
}

double WaveformCanvas::xOfFrame(double frame) const {
    if (!track) return scaleWidth;
    const Viewport& v = shownView();
    return scaleWidth + (v.samplesPerPoint > 0 ? (frame - v.start) / v.samplesPerPoint : 0);
}

void WaveformCanvas::resizeEvent(QResizeEvent*) {
    const int bar = scrollBar->sizeHint().height();
    scrollBar->setGeometry(scaleWidth, height() - bar, int(waveWidth()), bar);
    if (track && waveWidth() > 0) track->updateWidth(waveWidth());
    syncScrollBar();
    showNameEditor();
}

void WaveformCanvas::syncScrollBar() {
    syncingScrollBar = true;
    const double frames = track ? double(track->frameCount()) : 0;
    if (!track || frames <= 0) {
        scrollBar->setRange(0, 0);
        scrollBar->setEnabled(false);
    } else {
        const Viewport& v = track->viewport();
        // Scroll bars count in int; long tracks step in several frames.
        scrollUnit = std::max(1.0, frames / 1e9);
        const double hidden = std::max(0.0, frames - v.visibleSpan());
        scrollBar->setRange(0, int(std::ceil(hidden / scrollUnit)));
        scrollBar->setPageStep(std::max(1, int(v.visibleSpan() / scrollUnit)));
        scrollBar->setSingleStep(std::max(1, int(v.visibleSpan() / scrollUnit / 20)));
        scrollBar->setValue(int(std::lround(v.start / scrollUnit)));
        scrollBar->setEnabled(hidden > 0.5); // not for a rounding error of the fitted view
    }
    // Only a zoomed-in view has anywhere to scroll to.
    const bool shown = scrollBar->isEnabled();
    if (shown == scrollBar->isHidden()) {
        scrollBar->setVisible(shown);
        update();
    }
    syncingScrollBar = false;
}

void WaveformCanvas::scrollBarMoved(int value) {
    if (syncingScrollBar || !track) return;
    track->scrollToStart(double(value) * scrollUnit);
}

// ---- zoom --------------------------------------------------------------------------------

double WaveformCanvas::zoomAnchor() const {
    const bool playing = model.isPlaying() && model.playingTrackID() == track->id();
    const int64_t at = playing ? model.playheadPosition() : track->cursor();
    const double x = xOfFrame(double(at)) - scaleWidth;
    return x >= 0 && x <= waveWidth() ? x : waveWidth() / 2;
}

void WaveformCanvas::zoomIn() {
    if (track) track->zoom(1 / zoomStep, zoomAnchor());
}

void WaveformCanvas::zoomOut() {
    if (track) track->zoom(zoomStep, zoomAnchor());
}

void WaveformCanvas::zoomToSelection() {
    if (track && track->selection())
        track->show(double(track->selection()->lower), double(track->selection()->upper));
}

void WaveformCanvas::zoomToFit() {
    if (track && track->frameCount() > 0) track->show(0, double(track->frameCount()));
}

void WaveformCanvas::verticalZoomIn() {
    if (track)
        track->setVerticalZoom(std::min(maxVerticalZoom, track->verticalZoom() * verticalZoomStep));
}

void WaveformCanvas::verticalZoomOut() {
    if (track)
        track->setVerticalZoom(std::max(minVerticalZoom, track->verticalZoom() / verticalZoomStep));
}

void WaveformCanvas::wheelEvent(QWheelEvent* event) {
    if (!track) return;
    const QPoint angle = event->angleDelta();
    const double notches = (angle.y() != 0 ? angle.y() : angle.x()) / 120.0;
    if (event->modifiers() & Qt::ControlModifier) {
        track->zoom(std::pow(wheelZoomBase, notches), event->position().x() - scaleWidth);
    } else if (event->modifiers() & Qt::AltModifier) {
        const float factor = std::pow(verticalZoomStep, float(notches));
        track->setVerticalZoom(
            std::clamp(track->verticalZoom() * factor, minVerticalZoom, maxVerticalZoom));
    } else {
        // Trackpads report pixels; a horizontal swipe or Shift+wheel also scrolls.
        const QPoint pixels = event->pixelDelta();
        double points;
        if (!pixels.isNull())
            points = -(pixels.x() != 0 ? pixels.x() : pixels.y());
        else
            points = -notches * wheelScrollPoints;
        track->pan(points);
    }
    event->accept();
}

bool WaveformCanvas::event(QEvent* event) {
    if (event->type() == QEvent::NativeGesture) {
        auto* gesture = static_cast<QNativeGestureEvent*>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture && track) {
            // value() is the change in magnification since the last event.
            const double magnification = 1 + gesture->value();
            if (magnification > 0)
                track->zoom(1 / magnification, gesture->position().x() - scaleWidth);
            return true;
        }
    }
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        const QRectF handle = selectionHandleRect();
        if (handle.contains(help->pos()))
            QToolTip::showText(help->globalPos(), selectionHandleToolTip, this,
                               handle.toAlignedRect());
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

void WaveformCanvas::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange)
        updateTheme();
    QWidget::changeEvent(event);
}

void WaveformCanvas::updateTheme() {
    const CanvasThemeID id = CanvasTheme::chosen(model.preferences(), darkAppearance(*this));
    CanvasTheme next = CanvasTheme::make(id, palette());
    const bool changed =
        id != currentThemeID || next.background != colours.background || next.wave != colours.wave;
    currentThemeID = id;
    colours = next;
    viewToggle->setIcon(trackViewIcon(colours.rulerText));
    update();
    if (changed) Q_EMIT themeChanged();
}

// ---- mouse -------------------------------------------------------------------------------

std::optional<WaveformCanvas::MarkerHit> WaveformCanvas::markerAt(QPointF position) const {
    if (!track || position.y() >= rulerHeight || position.x() < scaleWidth) return std::nullopt;
    std::optional<MarkerHit> best;
    double bestDistance = markerGrabDistance;
    for (const Marker& marker : track->markers()) {
        const double xs = xOfFrame(double(marker.start));
        double d = std::abs(position.x() - xs);
        if (d <= bestDistance) {
            best = MarkerHit{marker.id, MarkerPart::start};
            bestDistance = d;
        }
        if (marker.end) {
            const double xe = xOfFrame(double(*marker.end));
            d = std::abs(position.x() - xe);
            if (d <= bestDistance) {
                best = MarkerHit{marker.id, MarkerPart::end};
                bestDistance = d;
            }
        }
    }
    if (best) return best;
    // The flag and name of a point, or the bar of a region, grabs the marker as a whole; of
    // overlapping ones, the later.
    const std::vector<MarkerLabel> labels = markerLabels();
    for (auto it = labels.rbegin(); it != labels.rend(); ++it)
        if (it->grab.contains(position)) return MarkerHit{it->id, MarkerPart::start};
    return std::nullopt;
}

QFont WaveformCanvas::rulerFont() const {
    QFont small = font();
    if (small.pointSizeF() > 0) small.setPointSizeF(std::max(6.0, small.pointSizeF() * 0.8));
    return small;
}

std::vector<WaveformCanvas::MarkerLabel> WaveformCanvas::markerLabels() const {
    std::vector<MarkerLabel> labels;
    if (!track) return labels;
    std::vector<Marker> shown = track->markers();
    for (Marker& m : shown)
        if (markerDrag && markerDrag->id == m.id) {
            m.start = markerDrag->shownStart;
            m.end = markerDrag->shownEnd;
        }
    std::stable_sort(shown.begin(), shown.end(),
                     [](const Marker& a, const Marker& b) { return a.start < b.start; });
    const QFontMetricsF metrics(rulerFont());
    const double top = timeBandHeight, bottom = rulerHeight;
    const double minimumName = metrics.horizontalAdvance(QString::fromUtf8("W…"));
    for (size_t i = 0; i < shown.size(); ++i) {
        const Marker& m = shown[i];
        const double xs = xOfFrame(double(m.start));
        // A name reaches no further than the next marker (and a region's own end).
        double limit = width();
        if (i + 1 < shown.size()) limit = std::min(limit, xOfFrame(double(shown[i + 1].start)) - 3);
        if (m.end) limit = std::min(limit, xOfFrame(double(*m.end)) - 2);
        // A region scrolled partly out of view keeps its name in view.
        const double left = m.end ? std::max(xs, double(scaleWidth)) + 4 : xs + 9;
        const QString name = QString::fromStdString(m.name);
        const double room = limit - left;
        const double wanted = metrics.horizontalAdvance(name);
        MarkerLabel label{m.id, {}, {}, {}, m.end.has_value()};
        if (room >= std::min(wanted, minimumName)) {
            label.name = metrics.elidedText(name, Qt::ElideRight, room);
            label.text = QRectF(left, top, metrics.horizontalAdvance(label.name), bottom - top);
        }
        label.grab =
            m.end ? QRectF(QPointF(xs, top), QPointF(xOfFrame(double(*m.end)), bottom))
                  : QRectF(QPointF(xs, top), QPointF(std::max(xs + 8, label.text.right()), bottom));
        labels.push_back(std::move(label));
    }
    return labels;
}

void WaveformCanvas::mousePressEvent(QMouseEvent* event) {
    if (!track || !track->audio() || event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    pressPosition = event->position();
    pressMoved = false;
    if (event->position().x() < scaleWidth) return;
    const double frame = frameAt(event->position().x());
    if (const auto hit = markerAt(event->position())) {
        const auto& markers = track->markers();
        const auto found = std::find_if(markers.begin(), markers.end(),
                                        [&](const Marker& m) { return m.id == hit->id; });
        markerDrag = MarkerDrag{hit->id,    hit->part,    frame,     found->start,
                                found->end, found->start, found->end};
        return;
    }
    const auto& selection = track->selection();
    const bool shift = event->modifiers() & Qt::ShiftModifier;
    const bool alt = event->modifiers() & Qt::AltModifier;
    const bool inside =
        selection && frame >= double(selection->lower) && frame < double(selection->upper);
    // Dragging the selection out takes a deliberate start: its grip, or Alt inside it.
    if (selection && !shift &&
        (selectionHandleRect().contains(event->position()) || (alt && inside))) {
        pendingSelectionDrag = true;
        return;
    }
    const bool snap = model.preferences().snapToZeroCrossings();
    if (shift) {
        // Extend from the edge farther from the click; without a selection, from the cursor.
        double anchor = double(track->cursor());
        if (selection)
            anchor = std::abs(frame - double(selection->lower)) <
                             std::abs(frame - double(selection->upper))
                         ? double(selection->upper)
                         : double(selection->lower);
        selectionAnchor = anchor;
        track->select(anchor, frame, snap);
    } else {
        selectionAnchor = frame;
        track->select(frame, frame, snap);
    }
}

void WaveformCanvas::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton)) {
        updateHoverCursor(event->position());
        return;
    }
    if (!track) return;
    if ((event->position() - pressPosition).manhattanLength() >= QApplication::startDragDistance())
        pressMoved = true;
    const double frame = frameAt(event->position().x());
    if (markerDrag) {
        const int64_t delta = int64_t(std::llround(frame - markerDrag->grabFrame));
        const int64_t frames = track->frameCount();
        if (markerDrag->part == MarkerPart::end) {
            markerDrag->shownEnd =
                std::clamp<int64_t>(*markerDrag->end + delta, markerDrag->start + 1, frames);
        } else {
            // A region moves as a whole and keeps its length.
            const int64_t length = markerDrag->end ? *markerDrag->end - markerDrag->start : 0;
            markerDrag->shownStart =
                std::clamp<int64_t>(markerDrag->start + delta, 0, frames - length);
            if (markerDrag->end) markerDrag->shownEnd = markerDrag->shownStart + length;
        }
        update();
        return;
    }
    if (pendingSelectionDrag) {
        if (pressMoved) {
            pendingSelectionDrag = false;
            startSelectionDrag();
        }
        return;
    }
    if (selectionAnchor) {
        // Past the edges the view scrolls along with the drag.
        const double x = event->position().x();
        if (x < scaleWidth) track->pan((x - scaleWidth) / 4);
        if (x > width()) track->pan((x - width()) / 4);
        track->select(*selectionAnchor, frameAt(x), model.preferences().snapToZeroCrossings());
    }
}

void WaveformCanvas::mouseReleaseEvent(QMouseEvent* event) {
    if (!track) return;
    if (markerDrag) {
        const MarkerDrag drag = *markerDrag;
        markerDrag.reset();
        if (drag.shownStart != drag.start || drag.shownEnd != drag.end)
            track->moveMarker(drag.id, drag.shownStart, drag.shownEnd);
        update();
        return;
    }
    const double frame = frameAt(event->position().x());
    pendingSelectionDrag = false; // a click on the grip alone changes nothing
    if (selectionAnchor && !pressMoved && model.isPlaying() &&
        !(event->modifiers() & Qt::ShiftModifier))
        model.seek(int64_t(std::llround(std::clamp(frame, 0.0, double(track->frameCount())))));
    selectionAnchor.reset();
}

void WaveformCanvas::mouseDoubleClickEvent(QMouseEvent* event) {
    if (!track) return;
    if (const auto hit = markerAt(event->position())) {
        markerDrag.reset();
        track->setRenamingMarker(hit->id);
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}

// ---- renaming markers in place -------------------------------------------------------------

void WaveformCanvas::showNameEditor() {
    const std::optional<Uuid> id = track ? track->renamingMarker() : std::nullopt;
    const Marker* marker = nullptr;
    if (id)
        for (const Marker& m : track->markers())
            if (m.id == *id) marker = &m;
    if (!marker) {
        if (editedMarker) {
            editedMarker.reset();
            nameEditor->hide();
        }
        return;
    }
    const bool starting = editedMarker != marker->id;
    editedMarker = marker->id;
    const double left = xOfFrame(double(marker->start)) + (marker->end ? 0 : 6);
    const int editorWidth = 140;
    const int x = std::clamp(int(left), scaleWidth, std::max(scaleWidth, width() - editorWidth));
    // Bottom-aligned on the marker band; a field taller than the band covers the time labels.
    const int editorHeight =
        std::max(rulerHeight - timeBandHeight, nameEditor->sizeHint().height());
    nameEditor->setGeometry(x, rulerHeight - editorHeight, editorWidth, editorHeight);
    if (starting) {
        nameEditor->setText(QString::fromStdString(marker->name));
        nameEditor->selectAll();
    }
    nameEditor->show();
    nameEditor->setFocus();
}

void WaveformCanvas::finishNameEditing(bool commit) {
    if (!editedMarker) return;
    const Uuid id = *editedMarker;
    editedMarker.reset(); // hiding the editor ends its editing a second time
    nameEditor->hide();
    if (!track) return;
    if (commit)
        track->renameMarker(id, nameEditor->text().toStdString());
    else
        track->setRenamingMarker(std::nullopt);
    setFocus();
}

// ---- dragging the selection out ----------------------------------------------------------

namespace {

// The dragged selection as a file. It is written on a thread of its own from the moment the
// drag starts, so a long selection never holds up the window; a drop target that asks for
// the file waits only for what is left of the writing.
class SelectionDragData final : public QMimeData {
public:
    SelectionDragData(QString path, std::shared_future<std::string> writing,
                      std::function<void(const std::string&)> failed)
        : path(std::move(path))
        , writing(std::move(writing))
        , failed(std::move(failed)) {}

    QStringList formats() const override { return {uriList}; }
    bool hasFormat(const QString& type) const override { return type == uriList; }

protected:
    QVariant retrieveData(const QString& type, QMetaType) const override {
        if (type != uriList) return {};
        const std::string& error = writing.get();
        if (!error.empty()) {
            if (failed) std::exchange(failed, nullptr)(error); // one alert per drag
            return {};
        }
        return QVariantList{QUrl::fromLocalFile(path)};
    }

private:
    static constexpr const char* uriList = "text/uri-list";
    QString path;
    std::shared_future<std::string> writing;
    mutable std::function<void(const std::string&)> failed;
};

} // namespace

QMimeData* WaveformCanvas::selectionMimeData() {
    if (!track || !track->audio() || !track->selection()) return nullptr;
    // Each drag gets a fresh folder; the previous one (and its file) goes when it is replaced,
    // once its writing is over.
    if (dragWriting.valid()) dragWriting.wait();
    dragFolder = std::make_unique<QTemporaryDir>(QDir::tempPath() + "/sonvale-drag-XXXXXX");
    if (!dragFolder->isValid()) {
        model.showAlert(
            {"Export failed", "Couldn't create a temporary folder for the dragged audio."});
        return nullptr;
    }
    const QString path =
        dragFolder->filePath(QString::fromStdString(track->name()) + " (selection).wav");
    auto write = [audio = track->audio(), range = *track->selection(),
                  gain = track->gainBox()->load(), file = path.toStdString()]() -> std::string {
        try {
            AudioExporter::exportAudio(*audio, range, gain, ExportFormat::wav24, file);
            return {};
        } catch (const std::exception& error) {
            return error.what();
        }
    };
    try {
        dragWriting = std::async(std::launch::async, write).share();
    } catch (const std::system_error&) {
        // No thread to be had: written here and now.
        std::promise<std::string> done;
        done.set_value(write());
        dragWriting = done.get_future().share();
    }
    return new SelectionDragData(path, dragWriting, [&model = model](const std::string& error) {
        model.showAlert({"Export failed", error});
    });
}

void WaveformCanvas::startSelectionDrag() {
    if (QMimeData* data = selectionMimeData()) runSelectionDrag(std::unique_ptr<QMimeData>(data));
}

QRectF WaveformCanvas::selectionHandleRect() const {
    if (!track || !track->audio() || !track->selection()) return {};
    const double left = std::max(double(scaleWidth), xOfFrame(double(track->selection()->lower)));
    const double right = std::min(double(width()), xOfFrame(double(track->selection()->upper)));
    if (right < left) return {};
    const double centre =
        std::clamp((left + right) / 2, scaleWidth + handleWidth / 2, width() - handleWidth / 2);
    return QRectF(centre - handleWidth / 2, rulerHeight, handleWidth, handleHeight);
}

void WaveformCanvas::updateHoverCursor(QPointF position) {
    if (selectionHandleRect().contains(position))
        setCursor(Qt::OpenHandCursor);
    else
        unsetCursor();
}

// ---- drawing -----------------------------------------------------------------------------

void WaveformCanvas::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), colours.background);
    painter.fillRect(QRect(0, 0, width(), rulerHeight), colours.rulerBackground);
    painter.fillRect(QRect(0, 0, scaleWidth, height()), colours.rulerBackground);
    if (!track) return;

    const AudioDataPtr& audio = track->audio();
    const LiveAudio* live = audio ? nullptr : track->liveAudio().get();
    liveView.reset();
    if (live && waveWidth() > 0) {
        // A recording is shown whole, in a view at least ten seconds wide that widens ahead of
        // the growing end.
        const double span = std::max(10 * live->sampleRate, double(live->frameCount()) * 1.1);
        liveView = Viewport{0, span / waveWidth(), waveWidth()};
    }
    const Viewport& view = liveView ? *liveView : track->viewport();
    const QRect area = waveArea();
    if ((!audio && !(live && live->frameCount() > 0)) || !(view.samplesPerPoint > 0)) {
        QString text;
        if (const auto* loading = std::get_if<AudioTrack::Loading>(&track->state()))
            text = QString("Loading… %1%").arg(int(loading->progress * 100));
        else if (const auto* failed = std::get_if<AudioTrack::Failed>(&track->state()))
            text = QString::fromStdString(failed->message);
        painter.setPen(colours.rulerText);
        painter.drawText(area, Qt::AlignCenter | Qt::TextWordWrap, text);
        return;
    }

    // The spectrogram is opaque: regions and the selection tint it from above.
    const bool spectrogram = showsSpectrogram();
    const int64_t frames = audio ? audio->frameCount : live->frameCount();
    painter.setClipRect(area);
    if (spectrogram) drawSpectrogramView(painter, view, frames);

    // Regions tint the lanes behind everything else.
    for (const Marker& marker : track->markers()) {
        if (!marker.end) continue;
        int64_t start = marker.start, end = *marker.end;
        if (markerDrag && markerDrag->id == marker.id) {
            start = markerDrag->shownStart;
            end = markerDrag->shownEnd.value_or(end);
        }
        QColor tint = colours.region;
        tint.setAlpha(36);
        painter.fillRect(QRectF(QPointF(xOfFrame(double(start)), area.top()),
                                QPointF(xOfFrame(double(end)), area.bottom() + 1)),
                         tint);
    }
    if (const auto& selection = track->selection()) {
        const QRectF selected(QPointF(xOfFrame(double(selection->lower)), area.top()),
                              QPointF(xOfFrame(double(selection->upper)), area.bottom() + 1));
        if (spectrogram) {
            // A veil over the selected frames, edged so that it reads on any colour map.
            painter.fillRect(selected, QColor(255, 255, 255, 56));
            painter.setPen(QPen(QColor(255, 255, 255, 160), 0));
            painter.drawLine(selected.topLeft(), selected.bottomLeft());
            painter.drawLine(selected.topRight(), selected.bottomRight());
        } else {
            painter.fillRect(selected, colours.selection);
        }
    }

    const int lanes = audio ? audio->channelCount() : live->channelCount;
    if (spectrogram) {
        painter.setClipping(false);
        drawFrequencyScale(painter);
        drawRuler(painter, view);
        drawMarkers(painter);
        drawSelectionHandle(painter);
        drawCursorAndPlayhead(painter);
        return;
    }
    // Lanes start on whole points, so each zero line falls on the same pixel rows.
    auto laneTop = [&](int channel) {
        return area.top() + int(std::lround(double(area.height()) * channel / std::max(1, lanes)));
    };
    for (int channel = 0; channel < lanes; ++channel) {
        const QRectF lane(area.left(), laneTop(channel), area.width(),
                          laneTop(channel + 1) - laneTop(channel));
        painter.setClipRect(area);
        const WaveSource source =
            audio ? WaveSource{audio->samples(channel), &audio->channels[size_t(channel)]->levels()}
                  : live->source(channel);
        drawLane(painter, source, frames, lane, view, track->verticalZoom());
        painter.setClipping(false);
        if (channel > 0) {
            painter.setPen(QPen(colours.grid, 0));
            painter.drawLine(QPointF(0, lane.top()), QPointF(lane.right(), lane.top()));
        }
        drawScale(painter, lane, channel, lanes, track->verticalZoom());
    }

    drawRuler(painter, view);
    drawMarkers(painter);
    drawSelectionHandle(painter);
    drawCursorAndPlayhead(painter);
}

void WaveformCanvas::drawCursorAndPlayhead(QPainter& painter) {
    const QRect area = waveArea();
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setClipRect(QRect(scaleWidth, 0, width() - scaleWidth, area.bottom() + 1));
    const double cursorX = xOfFrame(double(track->cursor()));
    painter.setPen(QPen(colours.cursor, 0));
    painter.drawLine(QPointF(cursorX, area.top()), QPointF(cursorX, area.bottom()));
    if (model.isPlaying() && model.playingTrackID() == track->id()) {
        const double x = xOfFrame(double(model.playheadPosition()));
        painter.setPen(QPen(colours.playhead, 1));
        painter.drawLine(QPointF(x, 0), QPointF(x, area.bottom()));
    }
}

void WaveformCanvas::drawLane(QPainter& painter, WaveSource data, int64_t frames, QRectF lane,
                              const Viewport& view, float verticalZoom) {
    // The device really painted on: the window's backing store, or an image given to render().
    const QPaintDevice* device =
        painter.paintEngine() ? painter.paintEngine()->paintDevice() : nullptr;
    const double dpr = device ? device->devicePixelRatioF() : devicePixelRatioF();
    const double centre = lane.center().y();
    const double half = lane.height() / 2 - 1;
    const double scale = half * double(verticalZoom);
    const double top = lane.top(), bottom = lane.bottom();
    auto yOf = [&](double value) { return std::clamp(centre - value * scale, top, bottom); };

    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colours.grid, 0));
    painter.drawLine(QPointF(lane.left(), centre), QPointF(lane.right(), centre));

    const float* samples = data.samples;
    const auto& selection = track->selection();
    const double framesPerColumn = view.samplesPerPoint / dpr; // one column per device pixel

    if (framesPerColumn < 1) {
        // Deep zoom: a line through the samples themselves, with a dot on each when far apart.
        const int64_t first = std::max<int64_t>(0, int64_t(std::floor(view.start)) - 1);
        const int64_t last =
            std::min<int64_t>(frames - 1, int64_t(std::ceil(view.start + view.visibleSpan())) + 1);
        pointScratch.clear();
        for (int64_t i = first; i <= last; ++i)
            pointScratch.emplace_back(xOfFrame(double(i)), yOf(samples[i]));
        painter.setRenderHint(QPainter::Antialiasing, true);
        painter.setPen(QPen(colours.wave, 1.0));
        painter.drawPolyline(pointScratch.data(), int(pointScratch.size()));
        if (view.samplesPerPoint < 1.0 / 6) {
            painter.setBrush(colours.wave);
            painter.setPen(Qt::NoPen);
            for (const QPointF& p : pointScratch)
                painter.drawEllipse(p, 2.0, 2.0);
            painter.setBrush(Qt::NoBrush);
        }
        painter.setRenderHint(QPainter::Antialiasing, false);
        return;
    }

    // The coarsest pyramid level whose blocks still fit in one column; raw samples below it.
    const PeakLevel* level = nullptr;
    for (const PeakLevel& candidate : *data.levels)
        if (double(candidate.blockSize) <= framesPerColumn && candidate.count > 0 &&
            (!level || candidate.blockSize > level->blockSize))
            level = &candidate;

    const int columns = int(std::ceil(lane.width() * dpr));
    columnScratch.clear();
    columnScratch.reserve(size_t(columns));
    for (int c = 0; c < columns; ++c) {
        const double f0 = view.start + c * framesPerColumn;
        const int64_t i0 = int64_t(f0);
        if (i0 >= frames) break;
        const int64_t i1 = std::min(frames, std::max(i0 + 1, int64_t(f0 + framesPerColumn)));
        float mn = std::numeric_limits<float>::infinity(), mx = -mn;
        double energy = 0;
        int64_t counted = 0;
        auto addSamples = [&](int64_t from, int64_t to) {
            for (int64_t i = from; i < to; ++i) {
                mn = std::min(mn, samples[i]);
                mx = std::max(mx, samples[i]);
                energy += double(samples[i]) * samples[i];
            }
            counted += std::max<int64_t>(0, to - from);
        };
        if (level) {
            const int64_t B = level->blockSize;
            const int64_t b0 = i0 / B, b1 = std::min(level->count - 1, (i1 - 1) / B);
            const float* pairs = level->buffer.data();
            const float* sums = level->energy.data();
            for (int64_t b = b0; b <= b1; ++b) {
                mn = std::min(mn, pairs[2 * b]);
                mx = std::max(mx, pairs[2 * b + 1]);
                energy += sums[b];
            }
            if (b1 >= b0) counted = std::min(frames, (b1 + 1) * B) - b0 * B;
            // A recording still growing has samples past the level's last whole block.
            if (i1 > level->count * B) addSamples(std::max(i0, level->count * B), i1);
        } else {
            addSamples(i0, i1);
        }
        // Digital silence shows as the zero line alone.
        if (!(mn <= mx) || (mn == 0 && mx == 0)) continue;
        const float rms = counted > 0 ? float(std::sqrt(energy / double(counted))) : 0.0f;
        double y0 = yOf(mx), y1 = yOf(mn);
        if (y1 - y0 < 1 / dpr) y1 = y0; // drawn one device pixel high
        const double r0 = std::max(y0, yOf(std::min(rms, mx)));
        const double r1 = std::max(r0, std::min(y1, yOf(std::max(-rms, mn))));
        const bool selected = selection && i0 >= selection->lower && i0 < selection->upper;
        columnScratch.push_back({c, float(y0), float(y1), float(r0), float(r1), selected});
    }

    // The columns are written straight into an image of the lane at device resolution, one
    // vertical span each, then drawn in one go: far cheaper than a line or polygon per column.
    const QSize pixels(columns, std::max(1, int(std::ceil(lane.height() * dpr))));
    if (laneImage.size() != pixels) laneImage = QImage(pixels, QImage::Format_ARGB32_Premultiplied);
    laneImage.fill(Qt::transparent);
    laneImage.setDevicePixelRatio(dpr);
    const QRgb wave = colours.wave.rgba(), selectedWave = colours.selectedWave.rgba(),
               rmsColour = colours.waveRMS.rgba();
    // Inside the selection the RMS body leans towards the selection colour, so the selected
    // stretch reads as one block.
    const QRgb selectedRMS = qRgb((qRed(selectedWave) + qRed(colours.selection.rgb())) / 2,
                                  (qGreen(selectedWave) + qGreen(colours.selection.rgb())) / 2,
                                  (qBlue(selectedWave) + qBlue(colours.selection.rgb())) / 2);
    const int rows = pixels.height();
    const auto bytesPerLine = laneImage.bytesPerLine();
    uchar* bits = laneImage.bits();
    auto row = [&](double y) { return std::clamp(int((y - lane.top()) * dpr), 0, rows - 1); };
    for (const ColumnShape& shape : columnScratch) {
        const int top = row(shape.top);
        const int bottom = std::max(top, row(shape.bottom - 0.5 / dpr));
        const int rmsTop = row(shape.rmsTop);
        const int rmsBottom =
            shape.rmsBottom > shape.rmsTop ? row(shape.rmsBottom - 0.5 / dpr) : -1;
        const QRgb outline = shape.selected ? selectedWave : wave;
        const QRgb body = shape.selected ? selectedRMS : rmsColour;
        uchar* column = bits + size_t(shape.column) * sizeof(QRgb);
        for (int y = top; y <= bottom; ++y) {
            QRgb* pixel = reinterpret_cast<QRgb*>(column + size_t(y) * size_t(bytesPerLine));
            *pixel = y >= rmsTop && y <= rmsBottom ? body : outline;
        }
    }
    painter.drawImage(lane.topLeft(), laneImage);
}

// Labelled ticks at round levels in dB, as many as fit the lane's height, mirrored about its
// zero line, beside the lane's channel name.
void WaveformCanvas::drawScale(QPainter& painter, QRectF lane, int channel, int channels,
                               float verticalZoom) {
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colours.grid, 0));
    painter.drawLine(QPointF(scaleWidth - 0.5, lane.top()),
                     QPointF(scaleWidth - 0.5, lane.bottom()));
    const QFont small = rulerFont();
    const QFontMetricsF metrics(small);
    const double textHeight = metrics.height();
    if (lane.height() < textHeight * 1.5) return;

    QString name;
    if (channels == 2)
        name = channel == 0 ? "L" : "R";
    else if (channels > 2)
        name = QString::number(channel + 1);
    if (!name.isEmpty()) {
        QFont bold = small;
        bold.setBold(true);
        painter.setFont(bold);
        painter.setPen(colours.rulerText);
        painter.drawText(QRectF(4, lane.top() + 1, scaleWidth - 4, textHeight),
                         Qt::AlignLeft | Qt::AlignVCenter, name);
    }
    painter.setFont(small);

    // Distances from the zero line, largest first: the multiples of 6 dB, then those of 3.
    const double centre = lane.center().y();
    const double half = lane.height() / 2 - 1;
    const double spacing = textHeight + 8;
    std::array<std::pair<int, double>, 16> chosen;
    size_t count = 0;
    auto consider = [&](int dB) {
        const double offset = half * double(verticalZoom) * std::pow(10.0, dB / 20.0);
        if (offset > half || offset < spacing || count == chosen.size()) return;
        for (size_t i = 0; i < count; ++i)
            if (std::abs(chosen[i].second - offset) < spacing) return;
        chosen[count++] = {dB, offset};
    };
    for (int dB = 0; dB >= -72; dB -= 6)
        consider(dB);
    for (int dB = -3; dB >= -69; dB -= 6)
        consider(dB);

    const double tickLeft = scaleWidth - 5;
    auto mark = [&](double y, const QString& text) {
        painter.setPen(QPen(colours.grid, 0));
        painter.drawLine(QPointF(tickLeft, y), QPointF(scaleWidth, y));
        const double top = std::clamp(y - textHeight / 2, lane.top(), lane.bottom() - textHeight);
        painter.setPen(colours.rulerText);
        painter.drawText(QRectF(0, top, tickLeft - 2, textHeight),
                         Qt::AlignRight | Qt::AlignVCenter, text);
    };
    const QString minus = QString::fromUtf8("\u2212");
    for (size_t i = 0; i < count; ++i) {
        const QString text = chosen[i].first == 0 ? "0" : minus + QString::number(-chosen[i].first);
        mark(centre - chosen[i].second, text);
        mark(centre + chosen[i].second, text);
    }
    mark(centre, minus + QString::fromUtf8("\u221e"));
}

std::vector<WaveformCanvas::RulerLabel> WaveformCanvas::timeLabels() const {
    std::vector<RulerLabel> labels;
    if (!track) return labels;
    const Viewport& view = shownView();
    const double rate = shownRate();
    if (!(rate > 0) || !(view.samplesPerPoint > 0)) return labels;
    const TickStep step = tickStep(minimumTickSpacing * view.samplesPerPoint / rate);
    const QFontMetricsF metrics(rulerFont());
    const auto first = int64_t(std::ceil(view.start / rate / step.seconds));
    const auto last = int64_t(std::floor((view.start + view.visibleSpan()) / rate / step.seconds));
    double previousRight = -std::numeric_limits<double>::infinity();
    for (int64_t i = first; i <= last; ++i) {
        const double seconds = double(i) * step.seconds;
        const double x = std::round(xOfFrame(seconds * rate)) + 0.5;
        const QString text = timeLabel(seconds, step.seconds);
        const QRectF rect(x + 3, 1, metrics.horizontalAdvance(text), timeBandHeight - 3);
        if (rect.left() < previousRight + 6 || rect.right() > width()) continue;
        labels.push_back({rect, text, false});
        previousRight = rect.right();
    }
    return labels;
}

std::vector<WaveformCanvas::RulerLabel> WaveformCanvas::rulerLabels() const {
    std::vector<RulerLabel> labels = timeLabels();
    for (const MarkerLabel& marker : markerLabels())
        if (!marker.name.isEmpty()) labels.push_back({marker.text, marker.name, true});
    return labels;
}

void WaveformCanvas::drawRuler(QPainter& painter, const Viewport& view) {
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colours.grid, 0));
    painter.drawLine(QPointF(scaleWidth, timeBandHeight - 0.5),
                     QPointF(width(), timeBandHeight - 0.5));
    painter.drawLine(QPointF(0, rulerHeight - 0.5), QPointF(width(), rulerHeight - 0.5));
    painter.setFont(rulerFont());
    painter.setPen(colours.rulerText);
    // The spectrogram's settings button takes the unit's place.
    if (!showsSpectrogram())
        painter.drawText(QRectF(0, timeBandHeight, scaleWidth - 7, rulerHeight - timeBandHeight),
                         Qt::AlignRight | Qt::AlignVCenter, "dB");

    const double rate = shownRate();
    if (!(rate > 0)) return;
    const TickStep step = tickStep(minimumTickSpacing * view.samplesPerPoint / rate);
    const double minor = step.seconds / step.divisions;
    const auto firstTick = int64_t(std::ceil(view.start / rate / minor));
    const auto lastTick = int64_t(std::floor((view.start + view.visibleSpan()) / rate / minor));
    painter.setPen(QPen(colours.grid, 0));
    for (int64_t tick = firstTick; tick <= lastTick; ++tick) {
        const double x = std::round(xOfFrame(double(tick) * minor * rate)) + 0.5;
        const bool major = tick % step.divisions == 0;
        painter.drawLine(QPointF(x, major ? 2 : timeBandHeight - 5), QPointF(x, timeBandHeight));
    }
    painter.setPen(colours.rulerText);
    for (const RulerLabel& label : timeLabels())
        painter.drawText(label.rect, Qt::AlignLeft | Qt::AlignVCenter, label.text);
}

void WaveformCanvas::drawMarkers(QPainter& painter) {
    const QRect area = waveArea();
    const std::vector<MarkerLabel> labels = markerLabels();
    if (labels.empty()) return;
    painter.setClipRect(QRect(scaleWidth, 0, width() - scaleWidth, area.bottom() + 1));
    painter.setFont(rulerFont());
    const double top = timeBandHeight, bottom = rulerHeight;
    // Regions first, so that points inside them stay in view.
    for (const bool regions : {true, false})
        for (const MarkerLabel& label : labels) {
            if (label.isRegion != regions) continue;
            const QColor colour = regions ? colours.region : colours.marker;
            const double xs = label.grab.left();
            painter.setRenderHint(QPainter::Antialiasing, false);
            painter.setPen(QPen(colour, 0, Qt::DashLine));
            painter.drawLine(QPointF(xs, bottom), QPointF(xs, area.bottom()));
            if (regions) {
                const double xe = label.grab.right();
                painter.drawLine(QPointF(xe, bottom), QPointF(xe, area.bottom()));
                QColor fill = colour;
                fill.setAlpha(150);
                painter.fillRect(label.grab.adjusted(0, 1, 0, -1), fill);
            } else {
                painter.setRenderHint(QPainter::Antialiasing, true);
                const QPointF flag[] = {{xs, top + 1}, {xs + 7, (top + bottom) / 2}, {xs, bottom}};
                painter.setPen(Qt::NoPen);
                painter.setBrush(colour);
                painter.drawPolygon(flag, 3);
                painter.setBrush(Qt::NoBrush);
            }
            if (!label.name.isEmpty()) {
                painter.setPen(colours.markerText);
                painter.drawText(label.text, Qt::AlignLeft | Qt::AlignVCenter, label.name);
            }
        }
    painter.setClipping(false);
}

void WaveformCanvas::drawSelectionHandle(QPainter& painter) {
    const QRectF handle = selectionHandleRect();
    if (handle.isEmpty()) return;
    // A tab hanging from the ruler: its top corners are hidden under the clip.
    painter.setClipRect(waveArea());
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colours.selectedWave);
    painter.drawRoundedRect(handle.adjusted(0, -4, 0, 0), 3, 3);
    painter.setBrush(Qt::NoBrush);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colours.background, 1));
    for (const double dx : {-4.0, 0.0, 4.0}) {
        const double x = std::round(handle.center().x() + dx) + 0.5;
        painter.drawLine(QPointF(x, handle.top() + 3), QPointF(x, handle.bottom() - 3));
    }
    painter.setClipping(false);
}

// ---- the spectrogram view -----------------------------------------------------------------

QIcon WaveformCanvas::trackViewIcon(const QColor& ink) {
    QIcon icon;
    for (bool spectrogram : {false, true}) {
        QPixmap pixmap(QSize(28, 14) * 2);
        pixmap.setDevicePixelRatio(2);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        if (spectrogram) {
            for (int band = 0; band < 4; ++band) {
                QColor c = ink;
                c.setAlphaF(0.35f + 0.2f * float(band));
                p.fillRect(QRectF(6, 2 + band * 2.6, 16, 2), c);
            }
        } else {
            QPainterPath path(QPointF(5, 7));
            for (int x = 0; x <= 18; ++x)
                path.lineTo(5 + x, 7 - 4.5 * std::sin(x * 0.7) * std::exp(-x / 14.0));
            p.setPen(QPen(ink, 1.4));
            p.drawPath(path);
        }
        p.end();
        icon.addPixmap(pixmap, QIcon::Normal, spectrogram ? QIcon::On : QIcon::Off);
    }
    return icon;
}

bool WaveformCanvas::showsSpectrogram() const {
    return features::spectrogram && track && track->audio() &&
           model.trackView() == EditorModel::TrackView::spectrogram;
}

void WaveformCanvas::trackViewChanged() {
    const bool spectrogram = model.trackView() == EditorModel::TrackView::spectrogram;
    viewToggle->setChecked(spectrogram);
    spectrogramSettingsButton->setVisible(showsSpectrogram());
    if (spectrogramPopover && !spectrogram) spectrogramPopover->hide();
    update();
}

void WaveformCanvas::showSpectrogramPopover() {
    if (!spectrogramPopover) {
        spectrogramPopover = new QFrame(this, Qt::Popup);
        spectrogramPopover->setObjectName("spectrogramPopover");
        spectrogramPopover->setFrameShape(QFrame::StyledPanel);
        auto* controls = new SpectrogramControls(model.preferences(), spectrogramPopover);
        auto* form = new QFormLayout(spectrogramPopover);
        form->addRow("FFT size:", controls->fftSize);
        form->addRow("Colours:", controls->colorMap);
        form->addRow(controls->logFrequency);
    }
    spectrogramPopover->adjustSize();
    spectrogramPopover->move(mapToGlobal(spectrogramSettingsButton->geometry().bottomLeft()));
    spectrogramPopover->show();
}

void WaveformCanvas::drawSpectrogramView(QPainter& painter, const Viewport& view, int64_t frames) {
    const QRect area = waveArea();
    const SpectrogramSettings& settings = model.preferences().spectrogramSettings();
    const QPaintDevice* device =
        painter.paintEngine() ? painter.paintEngine()->paintDevice() : nullptr;
    const double dpr = device ? device->devicePixelRatioF() : devicePixelRatioF();
    // One computed for this audio at another FFT size shows until the new one is there.
    const auto& spectrogram = track->spectrogram();
    const bool shown = spectrogram && spectrogram->source.lock() == track->audio();
    if (shown)
        spectrogramLayer.draw(painter, area, view, *spectrogram, frames, settings, dpr);
    else
        SpectrogramLayer::drawEmpty(painter, area, settings);

    const auto progress = model.spectrogramProgress(*track);
    if (!progress) return;
    const QString text =
        QString::fromUtf8("Computing the spectrogram\u2026 %1%").arg(int(*progress * 100));
    painter.setFont(rulerFont());
    const QFontMetricsF metrics(painter.font());
    QRectF box = metrics.boundingRect(text).adjusted(-8, -3, 8, 3);
    if (shown) // out of the way, in the top right corner
        box.moveTopRight(QPointF(area.right() - 6, area.top() + 6));
    else
        box.moveCenter(QRectF(area).center());
    painter.fillRect(box, QColor(0, 0, 0, 150));
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
}

void WaveformCanvas::drawFrequencyScale(QPainter& painter) {
    const QRect area = waveArea();
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colours.grid, 0));
    painter.drawLine(QPointF(scaleWidth - 0.5, area.top()),
                     QPointF(scaleWidth - 0.5, area.bottom()));
    const QFont small = rulerFont();
    painter.setFont(small);
    const double textHeight = QFontMetricsF(small).height();
    const FrequencyAxis axis{track->audio()->sampleRate / 2,
                             model.preferences().spectrogramSettings().logFrequency};
    const double tickLeft = scaleWidth - 5;
    for (const auto& tick : SpectrogramLayer::scaleTicks(axis, area.height(), textHeight * 2)) {
        const double y = area.top() + tick.y;
        painter.setPen(QPen(colours.grid, 0));
        painter.drawLine(QPointF(tickLeft, y), QPointF(scaleWidth, y));
        const double top =
            std::clamp(y - textHeight / 2, double(area.top()), area.bottom() - textHeight);
        painter.setPen(colours.rulerText);
        painter.drawText(QRectF(0, top, tickLeft - 2, textHeight),
                         Qt::AlignRight | Qt::AlignVCenter, tick.label);
    }
}

} // namespace sonvale
