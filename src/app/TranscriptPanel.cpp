#include "app/TranscriptPanel.h"

#include "app/QtText.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace sonvale {

namespace {

constexpr const char* downloadingText = "Downloading the speech model (once per language)\u2026";

} // namespace

TranscriptPanel::TranscriptPanel(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);

    notice = new QLabel(this);
    notice->setObjectName("transcriptNotice");
    notice->setWordWrap(true);
    column->addWidget(notice);

    overview = new QWidget(this);
    overview->setObjectName("transcriptOverview");
    auto* overviewColumn = new QVBoxLayout(overview);
    overviewColumn->setContentsMargins(0, 0, 0, 4);
    titleLabel = new QLabel(overview);
    titleLabel->setObjectName("suggestedTitle");
    titleLabel->setWordWrap(true);
    titleLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont bold = titleLabel->font();
    bold.setBold(true);
    titleLabel->setFont(bold);
    summaryLabel = new QLabel(overview);
    summaryLabel->setObjectName("transcriptSummary");
    summaryLabel->setWordWrap(true);
    summaryLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    useTitleButton = new QPushButton(overview);
    useTitleButton->setObjectName("useSuggestedTitle");
    connect(useTitleButton, &QPushButton::clicked, this,
            [this] { this->model.renameToSuggestedTitle(this->model.activeTrack()); });
    auto* titleRow = new QHBoxLayout;
    titleRow->addWidget(titleLabel, 1);
    titleRow->addWidget(useTitleButton, 0, Qt::AlignTop);
    overviewColumn->addLayout(titleRow);
    overviewColumn->addWidget(summaryLabel);
    column->addWidget(overview);

    auto* working = new QHBoxLayout;
    progress = new QProgressBar(this);
    progress->setObjectName("transcriptProgress");
    progress->setRange(0, 1000);
    progress->setTextVisible(false);
    cancelButton = new QPushButton("Cancel", this);
    cancelButton->setObjectName("cancelTranscription");
    connect(cancelButton, &QPushButton::clicked, this, [this] {
        if (auto track = this->model.activeTrack()) this->model.cancelTranscription(*track);
    });
    working->addWidget(progress, 1);
    working->addWidget(cancelButton);
    column->addLayout(working);

    lines = new QTreeWidget(this);
    lines->setObjectName("transcriptLines");
    lines->setColumnCount(2);
    lines->setHeaderHidden(true);
    lines->setRootIsDecorated(false);
    // Long lines wrap rather than end in an ellipsis.
    lines->setWordWrap(true);
    lines->setTextElideMode(Qt::ElideNone);
    lines->setUniformRowHeights(false);
    lines->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    lines->header()->setStretchLastSection(true);
    lines->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    lines->setToolTip("Go to this point");
    connect(lines, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item, int) { goToLine(item); });
    lines->installEventFilter(this);
    lines->viewport()->installEventFilter(this);
    column->addWidget(lines, 1);

    emptyText = new QLabel(this);
    emptyText->setObjectName("transcriptEmpty");
    emptyText->setWordWrap(true);
    emptyText->setAlignment(Qt::AlignCenter);
    emptyText->setEnabled(false);
    column->addWidget(emptyText, 1);

    auto* buttons = new QHBoxLayout;
    transcribeButton = new QPushButton("Transcribe", this);
    transcribeButton->setObjectName("transcribeButton");
    transcribeButton->setToolTip(EditorModel::transcribeToolTip);
    connect(transcribeButton, &QPushButton::clicked, this,
            [this] { this->model.transcribe(this->model.activeTrack()); });
    copyButton = new QPushButton("Copy Transcript", this);
    copyButton->setObjectName("copyTranscript");
    connect(copyButton, &QPushButton::clicked, this, [this] {
        if (auto track = this->model.activeTrack()) this->model.copyTranscript(*track);
    });
    buttons->addWidget(transcribeButton);
    buttons->addWidget(copyButton);
    column->addLayout(buttons);

    // Stacked: side by side, their names don't fit a narrow panel.
    auto* aiButtons = new QVBoxLayout;
    suggestButton = new QPushButton("Suggest Title && Summary", this);
    suggestButton->setObjectName("suggestTitle");
    connect(suggestButton, &QPushButton::clicked, this,
            [this] { this->model.summarizeTranscript(this->model.activeTrack()); });
    topicsButton = new QPushButton("Create Regions from Topics", this);
    topicsButton->setObjectName("regionsFromTopics");
    connect(topicsButton, &QPushButton::clicked, this,
            [this] { this->model.createRegionsFromTopics(this->model.activeTrack()); });
    for (auto* button : {suggestButton, topicsButton}) {
        button->setToolTip(EditorModel::languageModelNote);
        aiButtons->addWidget(button);
    }
    column->addLayout(aiButtons);

    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    modelConnections.add(model.playheadChanged.connect([this] { refreshHeardLine(); }));
    modelConnections.add(
        model.preferences().changed.connect([this](Preferences::Setting) { refreshState(); }));
    watchActiveTrack();
}

void TranscriptPanel::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack()) {
        trackConnections.add(track->transcriptChanged.connect([this] { refreshLines(); }));
        for (auto* signal : {&track->stateChanged, &track->audioChanged, &track->revisionsChanged,
                             &track->recordingChanged})
            trackConnections.add(signal->connect([this] { refreshState(); }));
        trackConnections.add(track->cursorChanged.connect([this] { refreshHeardLine(); }));
        trackConnections.add(track->urlChanged.connect([this] { refreshState(); }));
    }
    refreshLines();
}

void TranscriptPanel::refreshLines() {
    const auto track = model.activeTrack();
    // Progress reports come through the same signal: the list is rebuilt only when its lines
    // changed, so its scroll position and current line stay put while a job runs.
    std::optional<std::vector<TranscriptSegment>> segments;
    if (track && track->transcript()) segments = track->transcript()->segments;
    if (track.get() == shownTrack && segments == shownSegments) {
        refreshState();
        return;
    }
    shownTrack = track.get();
    shownSegments = std::move(segments);
    lines->clear();
    heard.reset();
    if (track && track->transcript()) {
        int index = 0;
        for (const auto& segment : track->transcript()->segments) {
            auto* item = new QTreeWidgetItem(lines);
            item->setText(0, qs(Transcript::clock(segment.start)));
            item->setText(1, qs(segment.text));
            item->setData(0, Qt::UserRole, index++);
            item->setTextAlignment(0, Qt::AlignRight | Qt::AlignTop);
            item->setForeground(0, palette().brush(QPalette::Disabled, QPalette::Text));
        }
    }
    fitRowHeights();
    refreshState();
    refreshHeardLine();
}

// The tree lays rows out at one line each; each takes the height of its text wrapped at the
// text column's width instead.
void TranscriptPanel::fitRowHeights() {
    const int width = lines->columnWidth(1) - 8;
    if (width <= 0) return;
    const QFontMetrics metrics(lines->font());
    for (int i = 0; i < lines->topLevelItemCount(); ++i) {
        QTreeWidgetItem* item = lines->topLevelItem(i);
        const QRect text =
            metrics.boundingRect(QRect(0, 0, width, 100000), Qt::TextWordWrap, item->text(1));
        item->setSizeHint(1, QSize(width, text.height() + 4));
    }
}

void TranscriptPanel::refreshState() {
    const auto track = model.activeTrack();
    const auto& work = track ? track->transcriptWork() : std::nullopt;
    const bool hasLines = track && track->transcript() && !track->transcript()->segments.empty();

    QString status;
    if (work) {
        std::visit(
            [&](const auto& w) {
                using W = std::decay_t<decltype(w)>;
                if constexpr (std::is_same_v<W, AudioTrack::Transcribing>) {
                    status = QString::fromUtf8("Transcribing\u2026 %1%")
                                 .arg(int(std::lround(w.progress * 100)));
                    progress->setValue(int(std::lround(w.progress * 1000)));
                } else if constexpr (std::is_same_v<W, AudioTrack::Thinking>) {
                    status = qs(w.status);
                    progress->setValue(0);
                } else {
                    status = QString::fromUtf8(downloadingText);
                    progress->setValue(0);
                }
            },
            *work);
        // Downloading and thinking have no measure of their own: the bar just moves.
        progress->setRange(0, std::holds_alternative<AudioTrack::Transcribing>(*work) ? 1000 : 0);
    } else if (track && track->isTranscriptStale()) {
        status = EditorModel::staleTranscriptNotice;
    }
    notice->setText(status);
    notice->setVisible(!status.isEmpty());
    progress->setVisible(work.has_value());
    cancelButton->setVisible(work.has_value());

    lines->setVisible(hasLines);
    emptyText->setVisible(!hasLines);
    if (!track || !track->audio())
        emptyText->setText("Transcripts of speech show here, line by line.");
    else if (!model.transcriber().isAvailable())
        emptyText->setText("Speech transcription isn't available on this computer.");
    else if (!work)
        emptyText->setText(qs(std::string(EditorModel::transcribeToolTip)));
    else
        emptyText->setText({});

    transcribeButton->setText(qs(track ? EditorModel::transcribeTitle(*track) : "Transcribe"));
    transcribeButton->setEnabled(track && model.canTranscribe(*track) &&
                                 model.transcriber().isAvailable());
    copyButton->setEnabled(hasLines);

    const auto* transcript = track ? &track->transcript() : nullptr;
    const bool titled = transcript && *transcript && (*transcript)->suggestedTitle;
    overview->setVisible(titled);
    if (titled) {
        titleLabel->setText(qs(*(*transcript)->suggestedTitle));
        summaryLabel->setText(qs((*transcript)->summary.value_or("")));
        const auto name = model.suggestedFileName(*track);
        useTitleButton->setText("Use as Name");
        useTitleButton->setToolTip(name ? qs("Rename “" + track->url().filename().string() +
                                             "” to “" + *name + track->url().extension().string() +
                                             "”")
                                        : QString());
        useTitleButton->setEnabled(name.has_value() && !track->isRecording());
    }
    const bool ai = model.preferences().showsAIFeatures();
    suggestButton->setVisible(ai);
    topicsButton->setVisible(ai);
    suggestButton->setEnabled(track && model.canSummarize(*track));
    topicsButton->setEnabled(track && model.canCreateRegionsFromTopics(*track));
}

void TranscriptPanel::refreshHeardLine() {
    const auto track = model.activeTrack();
    std::optional<int> now;
    if (track && track->transcript() && track->sampleRate() > 0)
        if (auto line =
                track->transcript()->lineAt(double(model.playheadPosition()) / track->sampleRate()))
            now = int(*line);
    if (now == heard) return;
    for (auto index : {heard, now}) {
        if (!index) continue;
        QTreeWidgetItem* item = lines->topLevelItem(*index);
        if (!item) continue;
        QFont font = item->font(1);
        font.setBold(index == now);
        item->setFont(1, font);
        item->setBackground(1, index == now ? palette().brush(QPalette::AlternateBase) : QBrush());
    }
    heard = now;
    if (heard && model.isPlaying())
        if (QTreeWidgetItem* item = lines->topLevelItem(*heard)) lines->scrollToItem(item);
}

void TranscriptPanel::goToLine(QTreeWidgetItem* item) {
    const auto track = model.activeTrack();
    if (!item || !track || !track->transcript()) return;
    const auto index = size_t(item->data(0, Qt::UserRole).toInt());
    if (index < track->transcript()->segments.size())
        model.go(track->transcript()->segments[index], track);
}

bool TranscriptPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == lines->viewport() && event->type() == QEvent::Resize) fitRowHeights();
    if (watched == lines &&
        (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress)) {
        auto* key = static_cast<QKeyEvent*>(event);
        if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) && lines->currentItem()) {
            event->accept();
            if (event->type() == QEvent::KeyPress) goToLine(lines->currentItem());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace sonvale
