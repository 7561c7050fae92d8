#include "app/TransportBar.h"

#include "app/ChannelControls.h"
#include "app/DurationText.h"
#include "app/Features.h"
#include "app/LevelMeterWidget.h"
#include "app/QtText.h"
#include "audio/Loudness.h"
#include "editor/EditorModel.h"

#include <QEvent>
#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSlider>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>

namespace sonvale {

// A time that can be typed: Enter hands the time on (text that isn't a time stays, with a
// hint), Escape or leaving the field puts the shown time back.
class TimeField final : public QLineEdit {
public:
    static constexpr const char* hint = "Type a time like 1:02.500 or 62.5";

    explicit TimeField(QWidget* parent)
        : QLineEdit(parent) {
        setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        setAlignment(Qt::AlignRight);
        setFixedWidth(fontMetrics().horizontalAdvance("0:00:00.000") + 10);
    }
    std::function<void(double)> entered;
    std::function<void()> cancelled;

    // Shows `text` unless the field holds something being typed.
    void showTime(const QString& text) {
        if (hasFocus() && isModified()) return;
        if (text != this->text()) setText(text);
        setModified(false);
    }

protected:
    bool event(QEvent* event) override {
        // Enter and Escape belong to the field while it has the focus, not to shortcuts.
        if (event->type() == QEvent::ShortcutOverride) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Escape || key == Qt::Key_Return || key == Qt::Key_Enter) {
                event->accept();
                return true;
            }
        }
        return QLineEdit::event(event);
    }
    void keyPressEvent(QKeyEvent* event) override {
        switch (event->key()) {
        case Qt::Key_Escape:
            setModified(false);
            cancelled();
            clearFocus();
            return;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (const auto seconds = parseTimeText(text())) {
                setModified(false);
                entered(*seconds);
                selectAll();
            } else {
                QToolTip::showText(mapToGlobal(QPoint(0, height())), hint, this);
            }
            return;
        default: QLineEdit::keyPressEvent(event);
        }
    }
    void focusOutEvent(QFocusEvent* event) override {
        QLineEdit::focusOutEvent(event);
        setModified(false);
        cancelled();
    }
};

namespace {

enum class Glyph { toStart, play, pause, stop, toEnd, loop, record };

// The transport's symbols, drawn in the palette's button text colour so that they read in
// light and dark themes alike (a font need not have them).
QIcon transportIcon(Glyph glyph, const QColor& colour) {
    QPixmap pixmap(QSize(16, 16) * 3);
    pixmap.setDevicePixelRatio(3);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    auto triangle = [&](QPointF a, QPointF b, QPointF c) { p.drawPolygon(QPolygonF({a, b, c})); };
    switch (glyph) {
    case Glyph::toStart:
        p.drawRect(QRectF(3, 3, 2, 10));
        triangle({13, 3}, {13, 13}, {5.5, 8});
        break;
    case Glyph::play: triangle({4, 2.5}, {4, 13.5}, {13.5, 8}); break;
    case Glyph::pause:
        p.drawRect(QRectF(4, 3, 3, 10));
        p.drawRect(QRectF(9, 3, 3, 10));
        break;
    case Glyph::stop: p.drawRect(QRectF(3.5, 3.5, 9, 9)); break;
    case Glyph::record: p.drawEllipse(QRectF(3, 3, 10, 10)); break;
    case Glyph::toEnd:
        triangle({3, 3}, {3, 13}, {10.5, 8});
        p.drawRect(QRectF(11, 3, 2, 10));
        break;
    case Glyph::loop: {
        p.setPen(QPen(colour, 1.6, Qt::SolidLine, Qt::FlatCap));
        p.setBrush(Qt::NoBrush);
        p.drawArc(QRectF(3, 3, 10, 10), 100 * 16, 290 * 16);
        p.setPen(Qt::NoPen);
        p.setBrush(colour);
        triangle({7.5, 0.8}, {7.5, 6.2}, {11, 3.5});
        break;
    }
    }
    return QIcon(pixmap);
}

// What the selection fields show and set: the timeline while it shows, else the active track.
struct Shown {
    double rate = 0;
    int64_t frames = 0;
    std::optional<FrameRange> selection;
    int64_t cursor = 0;
};

Shown shownRange(const EditorModel& model) {
    if (model.isShowingTimeline()) {
        const Timeline& t = *model.timeline();
        Shown s{t.sampleRate(), t.frameCount(), std::nullopt, t.cursor()};
        if (const auto& range = t.selection())
            s.selection = FrameRange{range->first, range->second};
        return s;
    }
    const auto track = model.activeTrack();
    if (!track || !track->audio()) return {};
    return {track->sampleRate(), track->frameCount(), track->selection(), track->cursor()};
}

} // namespace

void TransportBar::fitGroups() {
    auto* spare = static_cast<QHBoxLayout*>(overflow->layout());
    // Start from every group in its place in the bar, then step aside by rank until the rest
    // fits. A group's box keeps its place while its content visits the panel.
    for (const Group& group : groups) {
        if (group.content->parentWidget() != group.box) {
            group.box->layout()->addWidget(group.content);
            group.content->show();
        }
        group.box->show();
    }
    std::vector<const Group*> byRank;
    for (const Group& group : groups)
        byRank.push_back(&group);
    std::stable_sort(byRank.begin(), byRank.end(),
                     [](const Group* a, const Group* b) { return a->rank > b->rank; });
    int needed = row->minimumSize().width();
    bool moved = false;
    for (const Group* group : byRank) {
        if (needed <= width()) break;
        needed -= group->box->minimumSizeHint().width() + row->spacing();
        if (!moved) needed += moreButton->sizeHint().width() + row->spacing();
        moved = true;
        group->box->hide();
    }
    // The panel shows its groups in the bar's order.
    for (const Group& group : groups)
        if (group.box->isHidden()) {
            spare->addWidget(group.content);
            group.content->show();
        }
    moreButton->setVisible(moved);
    if (!moved) overflow->hide();
}

QSize TransportBar::minimumSizeHint() const {
    QSize size = row->minimumSize();
    for (const Group& group : groups)
        if (!group.box->isHidden())
            size.rwidth() -= group.box->minimumSizeHint().width() + row->spacing();
    if (moreButton->isHidden()) size.rwidth() += moreButton->sizeHint().width() + row->spacing();
    return size;
}

void TransportBar::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    fitGroups();
}

TransportBar::TransportBar(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    setObjectName("transportBar");
    row = new QHBoxLayout(this);
    // The bar's minimum is minimumSizeHint(), not the sum of every group.
    row->setSizeConstraint(QLayout::SetNoConstraint);
    row->setContentsMargins(8, 2, 8, 4);
    row->setSpacing(4);
    // A group of controls with its name in small type above it. Groups with a rank step into
    // the overflow panel when the bar is too narrow, the highest rank first.
    int rank = 0;
    auto captioned = [this, &rank](const QString& caption, std::initializer_list<QWidget*> widgets,
                                   const QString& tip) {
        auto* box = new QWidget(this);
        auto* holder = new QVBoxLayout(box);
        holder->setContentsMargins(0, 0, 0, 0);
        auto* content = new QWidget(box);
        holder->addWidget(content);
        auto* column = new QVBoxLayout(content);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(0);
        auto* label = new QLabel(caption, content);
        QFont small = label->font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        label->setFont(small);
        label->setToolTip(tip);
        label->setForegroundRole(QPalette::PlaceholderText);
        column->addWidget(label);
        auto* line = new QHBoxLayout;
        line->setSpacing(2);
        for (QWidget* w : widgets)
            line->addWidget(w);
        column->addLayout(line);
        row->addWidget(box);
        if (rank > 0) groups.push_back({box, content, rank});
        return label;
    };

    auto button = [this](const char* name, const QString& tip, auto run) {
        auto* b = new QToolButton(this);
        b->setObjectName(name);
        b->setToolTip(tip);
        b->setAutoRaise(true);
        connect(b, &QToolButton::clicked, this, run);
        b->setIconSize(QSize(18, 18));
        return b;
    };
    const auto withKey = [](const char* text, const char* key) {
        return QString("%1 (%2)").arg(text, QKeySequence(key).toString(QKeySequence::NativeText));
    };
    startButton = button("goToStartButton", withKey("Go to start", EditorModel::goToStartShortcut),
                         [this] { this->model.goToStart(); });
    playButton = button("playButton", {}, [this] {
        if (this->model.isPlaying())
            this->model.pause();
        else
            this->model.play();
    });
    stopButton = button("stopButton", withKey("Stop and go back", EditorModel::stopShortcut),
                        [this] { this->model.stopAndReturn(); });
    endButton = button("goToEndButton", withKey("Go to end", EditorModel::goToEndShortcut),
                       [this] { this->model.goToEnd(); });
    loopButton = button("loopButton", EditorModel::loopPlaybackToolTip,
                        [this] { this->model.loopPlayback(); });
    loopButton->setCheckable(true);
    recordButton = button("recordButton", EditorModel::recordToolTip,
                          [this] { this->model.toggleRecording(); });
    recordButton->setVisible(features::recording);
    captioned(" ", {startButton, playButton, stopButton, endButton, loopButton, recordButton}, {});
    row->addSpacing(10);

    auto* slower = new QToolButton(this);
    slower->setText(QString::fromUtf8("\u2212"));
    slower->setToolTip(EditorModel::playbackRateToolTip);
    connect(slower, &QToolButton::clicked, this, [this] { this->model.changePlaybackRate(-1); });
    rateLabel = new QLabel(this);
    rateLabel->setObjectName("playbackRate");
    rateLabel->setToolTip(EditorModel::playbackRateToolTip);
    rateLabel->setAlignment(Qt::AlignCenter);
    rateLabel->setMinimumWidth(rateLabel->fontMetrics().horizontalAdvance("0.75×") + 4);
    auto* faster = new QToolButton(this);
    faster->setText("+");
    faster->setToolTip(EditorModel::playbackRateToolTip);
    connect(faster, &QToolButton::clicked, this, [this] { this->model.changePlaybackRate(1); });
    rank = 4;
    captioned("Speed", {slower, rateLabel, faster}, EditorModel::playbackRateToolTip);
    row->addSpacing(10);

    timeLabel = new QLabel(this);
    timeLabel->setObjectName("timeDisplay");
    QFont clock = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    clock.setPointSizeF(clock.pointSizeF() * 1.2);
    clock.setBold(true);
    timeLabel->setFont(clock);
    timeLabel->setToolTip("Playhead");
    timeLabel->setMinimumWidth(QFontMetrics(clock).horizontalAdvance("0:00:00.000") + 4);
    rank = 1;
    positionCaption = captioned("Position", {timeLabel}, timeLabel->toolTip());
    row->addSpacing(8);

    static constexpr const char* captions[] = {"Start", "End", "Length"};
    static constexpr const char* names[] = {"selectionStart", "selectionEnd", "selectionLength"};
    static constexpr const char* tips[] = {"Selection start (the cursor without a selection)",
                                           "Selection end", "Selection length"};
    for (int i = 0; i < 3; ++i) {
        auto* field = fields[i] = new TimeField(this);
        field->setObjectName(names[i]);
        field->setToolTip(QString("%1: %2, then Enter").arg(tips[i], TimeField::hint));
        field->entered = [this, i](double seconds) { enterSelection(i, seconds); };
        field->cancelled = [this] { refresh(); };
        rank = 7 - i; // Length goes first, Start last
        QLabel* caption = captioned(captions[i], {field}, field->toolTip());
        caption->setBuddy(field);
        if (i == 0) startCaption = caption;
    }
    row->addStretch(1);

    gainSlider = new QSlider(Qt::Horizontal, this);
    gainSlider->setObjectName("gain");
    gainSlider->setRange(-300, 300);
    gainSlider->setFixedWidth(110);
    gainSlider->setToolTip("The track's gain: heard in playback and applied on export; the audio "
                           "itself is not changed");
    connect(gainSlider, &QSlider::valueChanged, this, [this](int tenths) {
        if (auto track = this->model.activeTrack())
            track->changeGain(float(tenths) / 10.0f, "Gain");
    });
    // A drag is one undo step in the active track's history.
    new DragStep(gainSlider, [this]() -> std::shared_ptr<UndoStack> {
        const auto track = this->model.activeTrack();
        return track ? std::shared_ptr<UndoStack>(track, &track->undoStack()) : nullptr;
    });
    gainLabel = new QLabel(this);
    gainLabel->setObjectName("gainText");
    gainLabel->setMinimumWidth(gainLabel->fontMetrics().horizontalAdvance("+30.0 dB applied") + 4);
    gainLabel->setToolTip(gainSlider->toolTip());
    makeGainControl(gainSlider, gainLabel); // Shift, wheel, double-click 0 dB, typed value
    rank = 3;
    captioned("Gain", {gainSlider, gainLabel}, gainSlider->toolTip());

    normalizeButton = new QToolButton(this);
    normalizeButton->setObjectName("normalizeButton");
    normalizeButton->setText("Normalize");
    normalizeButton->setPopupMode(QToolButton::MenuButtonPopup);
    normalizeButton->setToolTip(
        "Normalize: click for peak to 0 dBFS (Ctrl+Alt+N), or pick a loudness target");
    auto* normalizeMenu = new QMenu(normalizeButton);
    normalizeMenu->setObjectName("normalizeMenu");
    connect(normalizeMenu, &QMenu::aboutToShow, this, [this, normalizeMenu] {
        EditorModel& m = this->model;
        normalizeMenu->clear();
        QAction* peak =
            normalizeMenu->addAction("Peak to 0 dBFS", this, [&m] { m.normalizePeak(); });
        peak->setEnabled(m.canNormalize());
        normalizeMenu->addSeparator();
        for (const LoudnessTarget& target : m.loudnessTargets()) {
            QAction* a = normalizeMenu->addAction(qs(loudnessMenuTitle(target)), this,
                                                  [&m, target] { m.normalizeLoudness(target); });
            a->setEnabled(m.canNormalizeToLoudness());
        }
    });
    normalizeButton->setMenu(normalizeMenu);
    connect(normalizeButton, &QToolButton::clicked, this, [this] { this->model.normalizePeak(); });
    rank = 2;
    captioned(" ", {normalizeButton}, {});
    rank = 0;
    // Holds what doesn't fit; the » button shows it under the bar.
    moreButton = new QToolButton(this);
    moreButton->setObjectName("moreButton");
    moreButton->setText(QString::fromUtf8("\u00bb"));
    moreButton->setToolTip("More of the transport bar");
    moreButton->setAutoRaise(true);
    moreButton->hide();
    overflow = new QFrame(this, Qt::Popup);
    overflow->setObjectName("transportOverflow");
    static_cast<QFrame*>(overflow)->setFrameShape(QFrame::StyledPanel);
    auto* overflowRow = new QHBoxLayout(overflow);
    overflowRow->setContentsMargins(8, 4, 8, 6);
    connect(moreButton, &QToolButton::clicked, this, [this] {
        overflow->adjustSize();
        const QPoint below =
            moreButton->mapToGlobal(QPoint(moreButton->width(), moreButton->height()));
        overflow->move(below.x() - overflow->width(), below.y());
        overflow->show();
    });
    row->addWidget(moreButton);
    row->addSpacing(10);

    outputMeter = new LevelMeterWidget(this);
    outputMeter->setObjectName("outputMeter");
    outputMeter->setFixedWidth(170);
    outputMeter->setShowsScale(true);
    outputMeter->setToolTip("Output level in dBFS (click to reset the clip light)");
    row->addWidget(outputMeter);
    row->addSpacing(8);

    exportButton = new QToolButton(this);
    exportButton->setObjectName("exportButton");
    exportButton->setText(QString::fromUtf8("Export\u2026"));
    exportButton->setToolTip("Export selection or track with gain applied (Ctrl+Shift+E)");
    connect(exportButton, &QToolButton::clicked, this, &TransportBar::exportRequested);
    captioned(" ", {exportButton}, {});

    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    for (auto* signal :
         {&model.tracksChanged, &model.exportProgressChanged, &model.transportChanged,
          &model.playheadChanged, &model.timelineShowingChanged,
          &model.timeline()->selectionChanged, &model.timeline()->contentChanged,
          &model.recordingChanged, &model.inputLevelChanged})
        modelConnections.add(signal->connect([this] { refresh(); }));

    auto* meterTimer = new QTimer(this);
    meterTimer->setInterval(33);
    connect(meterTimer, &QTimer::timeout, this, [this] { refreshMeter(); });
    meterTimer->start();
    refreshIcons();
    watchActiveTrack();
}

QLineEdit* TransportBar::selectionField(int index) const { return fields[index]; }

void TransportBar::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange && startButton) refreshIcons();
    QWidget::changeEvent(event);
}

void TransportBar::refreshIcons() {
    const QColor ink = palette().color(QPalette::ButtonText);
    startButton->setIcon(transportIcon(Glyph::toStart, ink));
    playButton->setIcon(transportIcon(model.isPlaying() ? Glyph::pause : Glyph::play, ink));
    stopButton->setIcon(transportIcon(Glyph::stop, ink));
    endButton->setIcon(transportIcon(Glyph::toEnd, ink));
    loopButton->setIcon(transportIcon(Glyph::loop, ink));
    // Red, the colour of recording everywhere; a square stops a recording under way.
    const QColor red(220, 40, 40);
    recordButton->setIcon(transportIcon(model.isRecording() ? Glyph::stop : Glyph::record, red));
}

void TransportBar::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack())
        for (auto* signal : {&track->stateChanged, &track->audioChanged, &track->selectionChanged,
                             &track->cursorChanged, &track->gainChanged, &track->recordingChanged})
            trackConnections.add(signal->connect([this] { refresh(); }));
    refresh();
}

// Typed times set the selection as a drag on the canvas would (the cursor goes to its start);
// the start field without a selection moves the cursor.
void TransportBar::enterSelection(int field, double seconds) {
    const Shown shown = shownRange(model);
    if (!(shown.rate > 0)) return;
    const int64_t frame = std::clamp<int64_t>(std::llround(seconds * shown.rate), 0, shown.frames);
    FrameRange range = shown.selection.value_or(FrameRange{shown.cursor, shown.cursor});
    const int64_t length = range.length();
    if (field == 0 && !shown.selection) {
        if (model.isShowingTimeline())
            model.timeline()->setCursor(frame);
        else
            model.activeTrack()->setCursor(frame);
        refresh();
        return;
    }
    if (field == 0) {
        range.lower = frame;
        if (range.upper < frame) range.upper = std::min(shown.frames, frame + length);
    } else if (field == 1) {
        range.upper = frame;
    } else {
        range.upper = std::min(shown.frames, range.lower + frame);
    }
    const int64_t lower = std::min(range.lower, range.upper);
    const int64_t upper = std::max(range.lower, range.upper);
    if (model.isShowingTimeline()) {
        model.timeline()->setSelection(std::pair{lower, upper});
        model.timeline()->setCursor(lower);
    } else {
        model.activeTrack()->select(double(lower), double(upper), false);
    }
    refresh();
}

void TransportBar::refresh() {
    const auto track = model.activeTrack();
    const bool playing = model.isPlaying();
    const bool wasPlaying = playButton->property("playing").toBool();
    if (playing != wasPlaying || playButton->toolTip().isEmpty()) {
        playButton->setProperty("playing", playing);
        playButton->setToolTip(playing ? QString("Pause (%1)").arg(EditorModel::pauseShortcut)
                                       : QString("Play (Space)"));
        refreshIcons();
    }
    const bool recording = model.isRecording();
    if (recording != recordButton->property("recording").toBool() ||
        recordButton->toolTip().isEmpty()) {
        recordButton->setProperty("recording", recording);
        recordButton->setToolTip(recording ? EditorModel::stopRecordingToolTip
                                           : EditorModel::recordToolTip);
        outputMeter->setToolTip(recording ? "Input level in dBFS (click to reset the clip light)"
                                          : "Output level in dBFS (click to reset the clip light)");
        timeLabel->setStyleSheet(recording ? "color: rgb(220, 40, 40);" : QString());
        positionCaption->setText(recording ? "Recording" : "Position");
        refreshIcons();
    }
    playButton->setEnabled(model.canPlay() || playing);
    stopButton->setEnabled(playing);
    startButton->setEnabled(model.canPlay() || playing);
    endButton->setEnabled(model.canPlay() || playing);
    loopButton->setChecked(model.isLooping());
    rateLabel->setText(qs(model.playbackRateText()));

    const Shown shown = shownRange(model);
    const bool timed = shown.rate > 0;
    QString time = "-:--.---";
    if (timed) {
        int64_t heard = shown.cursor;
        if (model.isShowingTimeline())
            heard = model.timelinePlayhead().value_or(shown.cursor);
        else
            heard = model.playheadPosition();
        time = preciseTimeText(double(heard) / shown.rate);
    }
    // While recording, the clock shows how long the recording is.
    if (recording) time = preciseTimeText(model.recordedSeconds());
    timeLabel->setText(time);
    auto text = [&](int64_t frame) { return preciseTimeText(double(frame) / shown.rate); };
    startCaption->setText(timed && !shown.selection ? "Cursor" : "Start");
    fields[0]->showTime(!timed ? QString()
                               : text(shown.selection ? shown.selection->lower : shown.cursor));
    fields[1]->showTime(timed && shown.selection ? text(shown.selection->upper) : QString());
    fields[2]->showTime(timed && shown.selection ? text(shown.selection->length()) : QString());
    for (TimeField* field : fields) {
        field->setEnabled(timed);
        field->setPlaceholderText(timed ? QString::fromUtf8("\u2013") : QString());
    }

    const float gain = track ? track->gainDB() : 0.0f;
    if (!gainSlider->isSliderDown()) {
        QSignalBlocker block(gainSlider);
        gainSlider->setValue(int(std::lround(gain * 10)));
    }
    gainSlider->setEnabled(track && track->audio());
    gainLabel->setText(QString::asprintf("%+.1f dB applied", gain));
    normalizeButton->setEnabled(model.canNormalize());
    outputMeter->setChannelCount(recording                 ? int(model.inputLevel().peaksDB.size())
                                 : track && track->audio() ? track->audio()->channelCount()
                                                           : 0);
    exportButton->setEnabled(model.canExport());
}

// While the audio plays the meter follows the playhead; afterwards it falls back to the floor.
void TransportBar::refreshMeter() {
    const double now = LevelMeterWidget::clockSeconds();
    auto& b = outputMeter->ballistics;
    const bool idle = b.isResting();
    if (model.isRecording()) {
        // The meter shows the input while recording.
        std::vector<float> peaks;
        for (float db : model.inputLevel().peaksDB)
            peaks.push_back(std::pow(10.0f, db / 20.0f));
        if (peaks.empty()) return;
        b.lastFrame.reset();
        b.update(std::span<const float>(peaks), now);
        outputMeter->update();
    } else if (model.isPlaying()) {
        auto track = model.activeTrack();
        if (track && track->audio()) {
            b.update(model.playheadPosition(), *track->audio(), track->gainBox()->load(), now);
            outputMeter->update();
            refresh();
        }
    } else if (!idle) {
        std::vector<float> silence(b.levels.size(), 0.0f);
        b.lastFrame.reset();
        b.update(std::span<const float>(silence), now);
        outputMeter->update();
    }
}

} // namespace sonvale
