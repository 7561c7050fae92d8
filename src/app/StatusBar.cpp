#include "app/StatusBar.h"

#include "analysis/Spectrogram.h"
#include "editor/EditorModel.h"

#include <QGridLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QTimer>
#include <QToolButton>

namespace sonvale {

namespace {

AudioMemory measureMemory(const EditorModel& model) {
    AudioMemory::Accumulator accumulator;
    for (const auto& track : model.tracks()) {
        accumulator.addAudio(track->audio());
        if (const auto& spectrogram = track->spectrogram())
            accumulator.addSpectrogramBytes(spectrogram->memoryBytes());
        if (const auto& live = track->liveAudio())
            accumulator.result.samples += live->memoryBytes();
    }
    accumulator.setClipboard(model.clipboard() ? &*model.clipboard() : nullptr);
    return accumulator.result;
}

} // namespace

StatusBar::StatusBar(EditorModel& model, QWidget* parent)
    : QStatusBar(parent)
    , model(model) {
    statusText = new QLabel(this);
    statusText->setObjectName("statusText");
    statusProgress = new QProgressBar(this);
    statusProgress->setObjectName("statusProgress");
    statusProgress->setRange(0, 1000);
    statusProgress->setMaximumWidth(200);
    statusProgress->setTextVisible(false);
    statusProgress->hide();
    memoryButton = new QToolButton(this);
    memoryButton->setObjectName("memoryButton");
    memoryButton->setAutoRaise(true);
    memoryButton->setToolTip(QString::fromUtf8("Memory used by audio \u2013 click for details"));
    connect(memoryButton, &QToolButton::clicked, this, [this] { showMemoryDetails(); });
    addWidget(statusText, 1);
    addPermanentWidget(statusProgress);
    addPermanentWidget(memoryButton);

    modelConnections.add(model.tracksChanged.connect([this] {
        watchTracks();
        refreshMemory();
        refreshStatus();
    }));
    modelConnections.add(model.clipboardChanged.connect([this] { refreshMemory(); }));
    for (auto* signal :
         {&model.exportProgressChanged, &model.documentChanged, &model.mixdownProgressChanged})
        modelConnections.add(signal->connect([this] { refreshStatus(); }));
    auto* memoryTimer = new QTimer(this);
    memoryTimer->setInterval(2000);
    connect(memoryTimer, &QTimer::timeout, this, [this] { refreshMemory(); });
    memoryTimer->start();
    watchTracks();
    refreshMemory();
    refreshStatus();
}

// Every track's loading and audio count, whichever track is active.
void StatusBar::watchTracks() {
    trackConnections.clear();
    for (const auto& track : model.tracks())
        for (auto* signal : {&track->stateChanged, &track->urlChanged, &track->audioChanged,
                             &track->revisionsChanged, &track->recordingChanged,
                             &track->liveAudioChanged, &track->cachesChanged})
            trackConnections.add(signal->connect([this] {
                refreshMemory();
                refreshStatus();
            }));
}

// Loading, export, mixdown and save progress show here, where the eye goes after a command.
void StatusBar::refreshStatus() {
    if (const auto& progress = model.documentSaveProgress()) {
        statusText->setText(QString::fromUtf8("Saving Session\u2026"));
        statusProgress->setValue(int(*progress * 1000));
        statusProgress->show();
        return;
    }
    if (const auto& progress = model.exportProgress()) {
        statusText->setText(QString::fromUtf8("Exporting\u2026"));
        statusProgress->setValue(int(*progress * 1000));
        statusProgress->show();
        return;
    }
    if (const auto& progress = model.mixdownProgress()) {
        statusText->setText(QString::fromUtf8("Mixing Down\u2026"));
        statusProgress->setValue(int(*progress * 1000));
        statusProgress->show();
        return;
    }
    int loading = 0;
    double sum = 0;
    for (const auto& track : model.tracks())
        if (auto* l = std::get_if<AudioTrack::Loading>(&track->state());
            l && !track->isRecording()) {
            ++loading;
            sum += l->progress;
        }
    if (loading > 0) {
        statusText->setText(loading == 1
                                ? QString::fromUtf8("Loading 1 file\u2026")
                                : QString::fromUtf8("Loading %1 files\u2026").arg(loading));
        statusProgress->setValue(int(sum / loading * 1000));
        statusProgress->show();
        return;
    }
    statusText->clear();
    statusProgress->hide();
}

void StatusBar::refreshMemory() {
    const AudioMemory memory = measureMemory(model);
    memoryButton->setText("Memory: " + QLocale().formattedDataSize(memory.total()));
}

void StatusBar::showMemoryDetails() {
    const AudioMemory memory = measureMemory(model);
    auto* popup = new QFrame(this, Qt::Popup);
    popup->setObjectName("memoryDetails");
    popup->setAttribute(Qt::WA_DeleteOnClose);
    popup->setFrameShape(QFrame::StyledPanel);
    auto* grid = new QGridLayout(popup);
    auto* title = new QLabel("<b>Memory Used by Audio</b>", popup);
    grid->addWidget(title, 0, 0, 1, 2);
    int row = 1;
    auto add = [&](const QString& name, int64_t bytes) {
        grid->addWidget(new QLabel(name, popup), row, 0);
        auto* value = new QLabel(QLocale().formattedDataSize(bytes), popup);
        value->setAlignment(Qt::AlignRight);
        grid->addWidget(value, row++, 1);
    };
    add("Samples", memory.samples);
    add("Waveform overview", memory.levels);
    if (memory.spectrograms) add("Spectrograms", memory.spectrograms);
    if (memory.clipboard) add("Clipboard", memory.clipboard);
    add("Total", memory.total());
    add("Whole app", AudioMemory::processFootprint());
    grid->addWidget(new QLabel("Undo history isn't included.", popup), row, 0, 1, 2);
    // While it stays open the numbers are measured again every minute.
    auto* again = new QTimer(popup);
    again->setInterval(60000);
    connect(again, &QTimer::timeout, popup, [this, popup] {
        popup->close();
        showMemoryDetails();
    });
    again->start();
    popup->adjustSize();
    const QPoint corner = memoryButton->mapToGlobal(QPoint(memoryButton->width(), 0));
    popup->move(corner - QPoint(popup->width(), popup->height()));
    popup->show();
}

} // namespace sonvale
