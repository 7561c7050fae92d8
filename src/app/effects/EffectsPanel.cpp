#include "app/effects/EffectsPanel.h"

#include "app/effects/EffectDisplays.h"
#include "app/effects/EffectEditors.h"
#include "app/effects/ParameterControl.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"

#include <QAbstractItemModel>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace sonvale {

namespace {
constexpr int displayIntervalMs = 16; // about 60 display frames a second

QString qs(std::string_view text) { return QString::fromUtf8(text.data(), qsizetype(text.size())); }
} // namespace

EffectsPanel::EffectsPanel(EditorModel& editor, QWidget* parent)
    : QWidget(parent)
    , model(editor) {
    setObjectName("effectsPanel");
    auto* root = new QVBoxLayout(this);

    // ---- the bar: add, bypass all, and the transport and apply buttons
    auto* bar = new QHBoxLayout;
    addButton = new QToolButton(this);
    addButton->setObjectName("addEffect");
    addButton->setText("Add Effect");
    addButton->setToolTip("Add an effect at the end of the chain");
    addButton->setIcon(style()->standardIcon(QStyle::SP_FileDialogNewFolder));
    addButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    addButton->setPopupMode(QToolButton::InstantPopup);
    addEffectMenu = new QMenu(addButton);
    for (EffectCategory group : allEffectCategories) {
        addEffectMenu->addSection(qs(title(group)));
        for (EffectKind kind : kinds(group)) {
            QAction* action = addEffectMenu->addAction(effectIcon(kind), qs(title(kind)));
            action->setToolTip(qs(summary(kind)));
            action->setStatusTip(qs(summary(kind)));
            action->setData(qs(rawValue(kind)));
            connect(action, &QAction::triggered, this, [this, kind] { model.addEffect(kind); });
        }
    }
    addEffectMenu->setToolTipsVisible(true);
    addButton->setMenu(addEffectMenu);
    bar->addWidget(addButton);

    bypassAll = new QToolButton(this);
    bypassAll->setObjectName("bypassAll");
    bypassAll->setText("Bypass All");
    bypassAll->setCheckable(true);
    bypassAll->setToolTip("Hear the audio without any of the effects");
    connect(bypassAll, &QToolButton::toggled, this,
            [this](bool on) { model.setEffectsBypassed(on); });
    bar->addWidget(bypassAll);
    bar->addStretch();

    play = new QPushButton(style()->standardIcon(QStyle::SP_MediaPlay), "Play", this);
    play->setObjectName("playWithEffects");
    play->setToolTip("Play with the effects (Space); loop the selection to adjust as it plays");
    connect(play, &QPushButton::clicked, this, [this] { model.togglePlayback(); });
    apply = new QPushButton("Apply to Selection", this);
    apply->setObjectName("applyEffects");
    apply->setToolTip("Write the effects into the audio, in chain order (undoable)");
    connect(apply, &QPushButton::clicked, this, [this] { model.applyEffects(); });
    close = new QPushButton("Close", this);
    close->setObjectName("closeEffects");
    close->setToolTip("Close without changing the audio");
    connect(close, &QPushButton::clicked, this, [this] { model.closeEffects(); });
    bar->addWidget(play);
    bar->addWidget(apply);
    bar->addWidget(close);
    root->addLayout(bar);

    progress = new QProgressBar(this);
    progress->setRange(0, 1000);
    progress->setTextVisible(false);
    progress->setMaximumHeight(6);
    progress->hide();
    root->addWidget(progress);

    // ---- the chain beside the selected effect's editor
    auto* body = new QHBoxLayout;
    auto* side = new QVBoxLayout;
    chain = new QListWidget(this);
    chain->setObjectName("effectChain");
    chain->setDragDropMode(QAbstractItemView::InternalMove);
    chain->setDefaultDropAction(Qt::MoveAction);
    chain->setFixedWidth(190);
    chain->setIconSize(QSize(20, 20));
    chain->setToolTip("Effects in the order the audio passes through them; drag to reorder, "
                      "untick to bypass");
    side->addWidget(chain);
    removeButton = new QToolButton(this);
    removeButton->setObjectName("removeEffect");
    removeButton->setText("Remove");
    removeButton->setToolTip("Remove the selected effect from the chain");
    removeButton->setIcon(style()->standardIcon(QStyle::SP_TrashIcon));
    removeButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    connect(removeButton, &QToolButton::clicked, this, [this] {
        if (shown) model.removeEffect(shown->id());
    });
    side->addWidget(removeButton);
    body->addLayout(side);

    editorArea = new QWidget(this);
    auto* areaLayout = new QVBoxLayout(editorArea);
    areaLayout->setContentsMargins(0, 0, 0, 0);
    body->addWidget(editorArea, 1);
    root->addLayout(body, 1);

    connect(chain, &QListWidget::currentRowChanged, this, [this](int row) {
        if (updatingList || !observed || row < 0 || size_t(row) >= observed->effects().size())
            return;
        observed->select(observed->effects()[size_t(row)]->id());
    });
    connect(chain, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        if (updatingList || !observed) return;
        if (auto id = Uuid::parse(item->data(Qt::UserRole).toString().toStdString()))
            if (auto session = observed->session(*id))
                session->setBypassed(item->checkState() != Qt::Checked);
    });
    connect(chain->model(), &QAbstractItemModel::rowsMoved, this, [this] { listRowsMoved(); });

    displayTimer = new QTimer(this);
    displayTimer->setInterval(displayIntervalMs);
    connect(displayTimer, &QTimer::timeout, this, [this] { refreshDisplays(); });

    modelConnections.push_back(model.effectChainChanged.connect([this] { chainOpenedOrClosed(); }));
    modelConnections.push_back(
        model.effectsApplyProgressChanged.connect([this] { syncButtons(); }));
    modelConnections.push_back(model.transportChanged.connect([this] { syncButtons(); }));
    modelConnections.push_back(model.selectionChanged.connect([this] { syncButtons(); }));
    // A renamed bus renames the panel showing its chain.
    modelConnections.push_back(model.timeline()->contentChanged.connect(
        [this] { setWindowTitle(qs(model.effectsTitle())); }));
    chainOpenedOrClosed();
}

EffectsPanel::~EffectsPanel() {
    for (auto& c : modelConnections)
        c.disconnect();
    for (auto& c : chainConnections)
        c.disconnect();
    for (auto& c : sessionConnections)
        c.disconnect();
}

void EffectsPanel::chainOpenedOrClosed() {
    const bool wasOpen = observed != nullptr;
    for (auto& c : chainConnections)
        c.disconnect();
    chainConnections.clear();
    observed = model.effectChain();
    if (observed) {
        chainConnections.push_back(observed->effectsChanged.connect([this] {
            rebuildList();
            rebuildEditor();
        }));
        // The list is not rebuilt here: this may run inside the list's own click handling.
        chainConnections.push_back(observed->selectionChanged.connect([this] {
            syncListSelection();
            rebuildEditor();
        }));
        chainConnections.push_back(observed->bypassChanged.connect([this] { syncButtons(); }));
        chainConnections.push_back(observed->applyingChanged.connect([this] { syncButtons(); }));
    }
    setWindowTitle(qs(model.effectsTitle()));
    rebuildList();
    rebuildEditor();
    if (wasOpen && !observed) Q_EMIT closed();
}

void EffectsPanel::rebuildList() {
    updatingList = true;
    chain->clear();
    int selectedRow = -1;
    if (observed) {
        for (const auto& session : observed->effects()) {
            auto* item =
                new QListWidgetItem(effectIcon(session->kind()), qs(title(session->kind())));
            item->setData(Qt::UserRole, QString::fromStdString(session->id().text()));
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable |
                           Qt::ItemIsDragEnabled);
            item->setCheckState(session->isBypassed() ? Qt::Unchecked : Qt::Checked);
            item->setToolTip(qs(summary(session->kind())));
            if (observed->selectedID() == session->id()) selectedRow = chain->count();
            chain->addItem(item);
        }
    }
    chain->setCurrentRow(selectedRow);
    updatingList = false;
    syncButtons();
}

void EffectsPanel::syncListSelection() {
    int row = -1;
    if (observed)
        for (size_t i = 0; i < observed->effects().size(); ++i)
            if (observed->selectedID() == observed->effects()[i]->id()) row = int(i);
    if (chain->currentRow() == row) return;
    updatingList = true;
    chain->setCurrentRow(row);
    updatingList = false;
}

void EffectsPanel::listRowsMoved() {
    if (updatingList || !observed) return;
    std::vector<Uuid> order;
    for (int row = 0; row < chain->count(); ++row)
        if (auto id = Uuid::parse(chain->item(row)->data(Qt::UserRole).toString().toStdString()))
            order.push_back(*id);
    // Deferred: the list is still inside its drop handling.
    QTimer::singleShot(0, this, [this, order] {
        if (!observed) return;
        for (size_t i = 0; i < order.size(); ++i)
            observed->move(order[i], int(i));
        rebuildList();
    });
}

void EffectsPanel::rebuildEditor() {
    for (auto& c : sessionConnections)
        c.disconnect();
    sessionConnections.clear();
    controlWidgets.clear();
    parts = {};
    presets = nullptr;
    // Each editor is built on a page of its own, and a new page replaces the old one whole:
    // no display of the previous effect (the compressor's curve and reduction meter sit two
    // layouts deep) can stay on show, however its editor nests its layouts. The old page is
    // hidden now and deleted once the current event is done with it.
    if (editorPage) {
        editorPage->hide();
        editorPage->deleteLater();
    }
    editorPage = new QWidget(editorArea);
    editorPage->setObjectName("effectEditor");
    editorLayout = new QVBoxLayout(editorPage);
    editorLayout->setContentsMargins(0, 0, 0, 0);
    editorArea->layout()->addWidget(editorPage);
    shown = observed ? observed->selected() : nullptr;
    if (!shown) {
        auto* hint = new QLabel(observed ? "Select an effect in the chain."
                                         : "Add an effect to hear it while the audio plays.",
                                editorPage);
        hint->setAlignment(Qt::AlignCenter);
        hint->setEnabled(false);
        editorLayout->addWidget(hint, 1);
        displayTimer->stop();
        syncButtons();
        return;
    }
    const EffectKind kind = shown->kind();
    const auto& params = parameters(kind);

    auto* header = new QHBoxLayout;
    auto* heading = new QLabel(editorPage);
    heading->setText("<b>" + qs(title(kind)).toHtmlEscaped() + "</b>");
    heading->setToolTip(qs(summary(kind)));
    header->addWidget(heading);
    header->addStretch();
    presets = new QComboBox(editorPage);
    presets->setObjectName("presets");
    presets->setPlaceholderText("Custom");
    presets->setToolTip("Presets");
    presets->setMinimumWidth(160);
    for (const auto& preset : sonvale::presets(kind))
        presets->addItem(QString::fromStdString(preset.name));
    connect(presets, &QComboBox::activated, this, [this](int index) {
        if (!shown || index < 0) return;
        const auto& list = sonvale::presets(shown->kind());
        if (size_t(index) < list.size())
            shown->setValues(list[size_t(index)].valuesFor(parameters(shown->kind())));
    });
    header->addWidget(presets);
    auto* reset = new QToolButton(editorPage);
    reset->setText("Reset");
    reset->setToolTip("Return every knob to its default");
    connect(reset, &QToolButton::clicked, this, [this] {
        if (shown) shown->resetToDefaults();
    });
    header->addWidget(reset);
    editorLayout->addLayout(header);

    const auto track = model.activeTrack();
    double rate = track && track->audio() ? track->audio()->sampleRate : 48000;
    if (model.mixerEffectsChannel()) rate = model.timeline()->sampleRate();
    parts = buildEffectEditor(shown, rate, editorPage, editorLayout);

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(4);
    for (const auto& param : params) {
        ParameterControl* control = makeParameterControl(param, editorPage);
        control->setValue(shown->values()[size_t(param.index)]);
        QSizePolicy policy = control->sizePolicy();
        policy.setRetainSizeWhenHidden(true);
        control->setSizePolicy(policy);
        connect(control, &ParameterControl::valueEdited, this,
                [this, index = param.index](double value) {
                    if (shown) shown->setValue(index, value);
                });
        const int position = int(controlWidgets.size());
        grid->addWidget(control, position / parts.controlColumns, position % parts.controlColumns);
        controlWidgets.push_back(control);
    }
    if (parts.labelControls) parts.labelControls(controlWidgets);
    editorLayout->addLayout(grid);
    // The controls stay at the top unless a display takes the spare height.
    if (!parts.equalizerGraph && !parts.spectrumDisplay) editorLayout->addStretch();

    sessionConnections.push_back(shown->valuesChanged.connect([this] { syncEditor(); }));
    syncEditor();
    if (parts.reductionMeter || parts.spectrumDisplay)
        displayTimer->start();
    else
        displayTimer->stop();
    syncButtons();
}

void EffectsPanel::syncEditor() {
    if (!shown) return;
    const auto& values = shown->values();
    for (ParameterControl* control : controlWidgets)
        control->setValue(values[size_t(control->parameter().index)]);
    if (parts.syncControls) parts.syncControls(controlWidgets, values);
    if (parts.equalizerGraph) parts.equalizerGraph->update();
    if (parts.compressorCurve) parts.compressorCurve->update();
    // A new style or scale, even while the bands rest.
    if (parts.spectrumDisplay) parts.spectrumDisplay->update();
    syncPresetName();
}

void EffectsPanel::syncPresetName() {
    if (!presets || !shown) return;
    const EffectPreset* match = presetMatching(shown->kind(), shown->values());
    int index = -1;
    if (match) index = int(match - sonvale::presets(shown->kind()).data());
    presets->setCurrentIndex(index);
}

void EffectsPanel::syncButtons() {
    const bool open = observed != nullptr;
    const bool applying = open && observed->isApplying();
    addButton->setEnabled(model.canAddEffect());
    bypassAll->setEnabled(open && !applying);
    {
        const QSignalBlocker blocker(bypassAll);
        bypassAll->setChecked(open && observed->isBypassed());
    }
    removeButton->setEnabled(open && shown && !applying);
    chain->setEnabled(open && !applying);
    // A mixer channel's effects play in the mix; there is nothing to write them into.
    const bool mixer = model.mixerEffectsChannel().has_value();
    apply->setVisible(!mixer);
    apply->setEnabled(open && !mixer && !applying && !observed->activeEffects().empty() &&
                      model.activeTrack());
    close->setEnabled(open && !applying);
    close->setToolTip(mixer ? "Close the panel; the effects go on playing in the mix"
                            : "Close without changing the audio");
    play->setText(model.isPlaying() ? "Stop" : "Play");
    play->setIcon(
        style()->standardIcon(model.isPlaying() ? QStyle::SP_MediaStop : QStyle::SP_MediaPlay));
    const auto& fraction = model.effectsApplyProgress();
    progress->setVisible(fraction.has_value());
    if (fraction) progress->setValue(int(*fraction * 1000));
    if (editorArea) editorArea->setEnabled(!applying);
}

QWidget* EffectsPanel::compressorDisplay() const { return parts.compressorCurve; }

int64_t EffectsPanel::heardBehind() const {
    // The output latency: what is heard now was processed this many frames ago.
    return model.isPlaying() ? model.player().latencyFrames() : 0;
}

void EffectsPanel::refreshDisplays() {
    if (!shown) return;
    // Nothing heard, no gain change: the needle rests once playback stops.
    if (parts.reductionMeter)
        parts.reductionMeter->setValue(model.isPlaying() ? shown->bank()->readout(heardBehind())
                                                         : 0);
    if (parts.spectrumDisplay)
        parts.spectrumDisplay->refresh(heardBehind(), SpectrumAnalysis::Clock::now());
}

} // namespace sonvale
