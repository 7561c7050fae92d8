#include "app/TransportBar.h"

#include "app/ChannelControls.h"
#include "app/DurationText.h"
#include "app/LevelMeterWidget.h"
#include "audio/Loudness.h"
#include "editor/EditorModel.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QSlider>
#include <QTimer>
#include <QToolButton>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

} // namespace

TransportBar::TransportBar(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    setObjectName("transportBar");
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(8, 4, 8, 4);

    playButton = new QToolButton(this);
    playButton->setObjectName("playButton");
    playButton->setText(QString::fromUtf8("\u25B6"));
    playButton->setToolTip("Play or stop (Space)");
    connect(playButton, &QToolButton::clicked, this, [this] { this->model.togglePlayback(); });
    row->addWidget(playButton);

    loopButton = new QToolButton(this);
    loopButton->setObjectName("loopButton");
    loopButton->setText(QString::fromUtf8("\u21BB"));
    loopButton->setCheckable(true);
    loopButton->setToolTip(EditorModel::loopPlaybackToolTip);
    connect(loopButton, &QToolButton::clicked, this, [this] { this->model.loopPlayback(); });
    row->addWidget(loopButton);

    auto* slower = new QToolButton(this);
    slower->setText(QString::fromUtf8("\u2212"));
    slower->setToolTip(EditorModel::playbackRateToolTip);
    connect(slower, &QToolButton::clicked, this, [this] { this->model.changePlaybackRate(-1); });
    rateLabel = new QLabel(this);
    rateLabel->setObjectName("playbackRate");
    rateLabel->setToolTip(EditorModel::playbackRateToolTip);
    auto* faster = new QToolButton(this);
    faster->setText("+");
    faster->setToolTip(EditorModel::playbackRateToolTip);
    connect(faster, &QToolButton::clicked, this, [this] { this->model.changePlaybackRate(1); });
    row->addWidget(slower);
    row->addWidget(rateLabel);
    row->addWidget(faster);
    row->addSpacing(12);

    timeLabel = new QLabel(this);
    timeLabel->setObjectName("timeDisplay");
    timeLabel->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    timeLabel->setToolTip("Playhead; below it the selection's start, end and length");
    timeLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    timeLabel->setMinimumWidth(210);
    row->addWidget(timeLabel);
    row->addStretch(1);

    gainSlider = new QSlider(Qt::Horizontal, this);
    gainSlider->setObjectName("gain");
    gainSlider->setRange(-300, 300);
    gainSlider->setFixedWidth(110);
    gainSlider->setToolTip("Gain applied on playback and export");
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
    gainLabel->setMinimumWidth(100);
    makeGainControl(gainSlider, gainLabel); // Shift, wheel, double-click 0 dB, typed value
    row->addWidget(gainSlider);
    row->addWidget(gainLabel);

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
    row->addWidget(normalizeButton);
    row->addSpacing(12);

    outputMeter = new LevelMeterWidget(this);
    outputMeter->setObjectName("outputMeter");
    row->addWidget(outputMeter);
    row->addSpacing(8);

    exportButton = new QToolButton(this);
    exportButton->setObjectName("exportButton");
    exportButton->setText(QString::fromUtf8("Export\u2026"));
    exportButton->setToolTip("Export selection or track with gain applied (Ctrl+Shift+E)");
    connect(exportButton, &QToolButton::clicked, this, &TransportBar::exportRequested);
    row->addWidget(exportButton);

    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    for (auto* signal : {&model.tracksChanged, &model.exportProgressChanged,
                         &model.transportChanged, &model.playheadChanged})
        modelConnections.add(signal->connect([this] { refresh(); }));

    auto* meterTimer = new QTimer(this);
    meterTimer->setInterval(33);
    connect(meterTimer, &QTimer::timeout, this, [this] { refreshMeter(); });
    meterTimer->start();
    watchActiveTrack();
}

void TransportBar::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack())
        for (auto* signal : {&track->stateChanged, &track->audioChanged, &track->selectionChanged,
                             &track->cursorChanged, &track->gainChanged, &track->recordingChanged})
            trackConnections.add(signal->connect([this] { refresh(); }));
    refresh();
}

void TransportBar::refresh() {
    const auto track = model.activeTrack();
    const bool playing = model.isPlaying();
    playButton->setText(playing ? QString::fromUtf8("\u25A0") : QString::fromUtf8("\u25B6"));
    playButton->setEnabled(model.canPlay() || playing);
    loopButton->setChecked(model.isLooping());
    rateLabel->setText(qs(model.playbackRateText()));
    QString time = "-:--.-";
    if (track && track->audio()) {
        const double rate = track->sampleRate();
        time = durationText(double(model.playheadPosition()) / rate);
        if (auto sel = track->selection())
            time += QString::fromUtf8("\n%1\u2013%2 (%3)")
                        .arg(durationText(double(sel->lower) / rate),
                             durationText(double(sel->upper) / rate),
                             durationText(double(sel->length()) / rate));
    }
    timeLabel->setText(time);
    const float gain = track ? track->gainDB() : 0.0f;
    if (!gainSlider->isSliderDown()) {
        QSignalBlocker block(gainSlider);
        gainSlider->setValue(int(std::lround(gain * 10)));
    }
    gainSlider->setEnabled(track && track->audio());
    gainLabel->setText(QString::asprintf("%+.1f dB applied", gain));
    normalizeButton->setEnabled(model.canNormalize());
    exportButton->setEnabled(model.canExport());
}

// While the audio plays the meter follows the playhead; afterwards it falls back to the floor.
void TransportBar::refreshMeter() {
    const double now = LevelMeterWidget::clockSeconds();
    auto& b = outputMeter->ballistics;
    const bool idle = b.isResting();
    if (model.isPlaying()) {
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
