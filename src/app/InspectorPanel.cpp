#include "app/InspectorPanel.h"

#include "app/DurationText.h"
#include "editor/EditorModel.h"
#include "engine/LevelMeter.h"

#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QLocale>
#include <QToolButton>
#include <variant>

namespace sonvale {

namespace {

QString channelsText(int count) {
    if (count == 1) return "Mono";
    if (count == 2) return "Stereo";
    return QString::number(count);
}

} // namespace

InspectorPanel::InspectorPanel(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    setObjectName("inspector");
    form = new QFormLayout(this);
    auto add = [&](const char* label, QLabel*& field, const char* name) {
        field = new QLabel(this);
        field->setObjectName(name);
        field->setTextInteractionFlags(Qt::TextSelectableByMouse);
        field->setWordWrap(true);
        form->addRow(label, field);
    };
    add("File:", fileLabel, "inspectorFile");
    add("Format:", formatLabel, "inspectorFormat");
    add("Duration:", durationLabel, "inspectorDuration");
    add("Sample rate:", rateLabel, "inspectorSampleRate");
    add("Channels:", channelsLabel, "inspectorChannels");
    add("Peak:", peakLabel, "inspectorPeak");
    add("Loudness:", loudnessLabel, "inspectorLoudness");
    add("Gain:", gainLabel, "inspectorGain");
    add("Problem:", problemLabel, "inspectorProblem");
    detailsButton = new QToolButton(this);
    detailsButton->setObjectName("inspectorDetailsButton");
    detailsButton->setText("Details");
    detailsButton->setCheckable(true);
    detailsButton->setArrowType(Qt::RightArrow);
    detailsButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    detailsButton->setAutoRaise(true);
    form->addRow(detailsButton);
    detailsLabel = new QLabel(this);
    detailsLabel->setObjectName("inspectorDetails");
    detailsLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    detailsLabel->setWordWrap(true);
    form->addRow(detailsLabel);
    connect(detailsButton, &QToolButton::toggled, this, [this](bool shown) {
        detailsButton->setArrowType(shown ? Qt::DownArrow : Qt::RightArrow);
        detailsLabel->setVisible(shown);
    });
    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    watchActiveTrack();
}

void InspectorPanel::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack()) {
        for (auto* signal : {&track->stateChanged, &track->audioChanged, &track->gainChanged,
                             &track->cachesChanged})
            trackConnections.add(signal->connect([this] { refresh(); }));
        if (track->isReady()) model.measureLoudness(track);
    }
    refresh();
}

void InspectorPanel::refresh() {
    const auto track = model.activeTrack();
    const auto audio = track ? track->audio() : nullptr;
    const QString none = QString::fromUtf8("\u2014");
    const QString path = track ? QString::fromStdString(track->url().string()) : QString();
    fileLabel->setText(track ? QFileInfo(path).fileName() : none);
    fileLabel->setToolTip(path);
    formatLabel->setText(track ? QFileInfo(path).suffix().toUpper() : none);
    durationLabel->setText(audio ? durationText(audio->duration()) : none);
    rateLabel->setText(audio ? QLocale().toString(audio->sampleRate, 'f', 0) + " Hz" : none);
    channelsLabel->setText(audio ? channelsText(audio->channelCount()) : none);
    peakLabel->setText(audio ? QString::asprintf("%.1f dBFS", double(levelDB(audio->peak, -120)))
                             : none);
    if (!audio)
        loudnessLabel->setText(none);
    else if (auto lufs = track->currentLoudness())
        loudnessLabel->setText(QString::asprintf("%.1f LUFS", *lufs));
    else if (!track->isLoudnessMeasured())
        loudnessLabel->setText(QString::fromUtf8("Measuring\u2026"));
    else // measured without a result: too short to gate, or all below the absolute gate
        loudnessLabel->setText(audio->duration() < 0.4 ? "Too short to measure" : "Silent");
    gainLabel->setText(track ? QString::asprintf("%+.1f dB", double(track->gainDB())) : none);

    const auto* failed = track ? std::get_if<AudioTrack::Failed>(&track->state()) : nullptr;
    problemLabel->setText(failed ? QString::fromStdString(failed->message) : QString());
    form->setRowVisible(problemLabel, failed != nullptr);
    const bool hasDetails = failed && !failed->details.empty();
    detailsLabel->setText(hasDetails ? QString::fromStdString(failed->details) : QString());
    problemLabel->setToolTip(detailsLabel->text());
    detailsButton->setVisible(hasDetails);
    if (!hasDetails) detailsButton->setChecked(false);
    detailsLabel->setVisible(hasDetails && detailsButton->isChecked());
}

} // namespace sonvale
