#include "app/MainWindow.h"

#include "app/AboutDialog.h"
#include "app/LevelMeterWidget.h"
#include "app/SettingsDialog.h"
#include "app/canvas/WaveformCanvas.h"
#include "app/effects/EffectsPanel.h"
#include "audio/ExportOptions.h"
#include "audio/Loudness.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QSplitter>
#include <QStatusBar>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <chrono>
#include <cmath>
#include <utility>

namespace sonvale {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

double steadySeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::vector<std::filesystem::path> localPaths(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> paths;
    for (const QUrl& url : urls)
        if (url.isLocalFile()) paths.emplace_back(url.toLocalFile().toStdString());
    return paths;
}

} // namespace

const char* const MainWindow::audioFilesFilter =
    "Audio files (*.wav *.aif *.aiff *.mp3 *.m4a *.aac *.flac *.ogg *.opus *.caf)";

// The sidebar: one row per track, reordered by dragging, and files or folders dropped on it
// are opened.
class TrackListWidget : public QListWidget {
public:
    using QListWidget::QListWidget;
    std::function<void(const QList<QUrl>&)> onFilesDropped;
    std::function<void()> onReordered;

protected:
    void dragEnterEvent(QDragEnterEvent* event) override {
        if (event->mimeData()->hasUrls())
            event->acceptProposedAction();
        else
            QListWidget::dragEnterEvent(event);
    }
    void dragMoveEvent(QDragMoveEvent* event) override {
        if (event->mimeData()->hasUrls())
            event->acceptProposedAction();
        else
            QListWidget::dragMoveEvent(event);
    }
    void dropEvent(QDropEvent* event) override {
        if (event->mimeData()->hasUrls()) {
            event->acceptProposedAction();
            if (onFilesDropped) onFilesDropped(event->mimeData()->urls());
            return;
        }
        QListWidget::dropEvent(event);
        if (onReordered) onReordered();
    }
};

// The format and range choices beside the export dialogs, bound to an ExportOptions.
static QWidget* makeExportAccessory(ExportOptions& options, bool offerRange, QWidget* parent) {
    auto* box = new QWidget(parent);
    box->setObjectName("exportAccessory");
    auto* form = new QFormLayout(box);
    auto* format = new QComboBox(box);
    format->setObjectName("exportFormat");
    for (ExportFormat f : allExportFormats)
        format->addItem(qs(std::string(title(f))), int(f));
    format->setCurrentIndex(format->findData(int(options.format())));
    QObject::connect(format, &QComboBox::currentIndexChanged, box, [&options, format](int) {
        options.setFormat(ExportFormat(format->currentData().toInt()));
    });
    form->addRow(qs(ExportOptions::formatLabel()), format);
    // Without a selection the whole track is the only range, and no row offers a choice.
    if (offerRange && options.hasSelection()) {
        auto* range = new QComboBox(box);
        range->setObjectName("exportRange");
        range->addItem("Selection", true);
        range->addItem("Entire track", false);
        range->setCurrentIndex(options.selectionOnly() ? 0 : 1);
        QObject::connect(range, &QComboBox::currentIndexChanged, box, [&options, range](int) {
            options.setSelectionOnly(range->currentData().toBool());
        });
        form->addRow(qs(ExportOptions::rangeLabel()), range);
    }
    auto* gain = new QLabel(qs(options.gainText()), box);
    gain->setObjectName("exportGain");
    form->addRow(qs(ExportOptions::gainLabel()), gain);
    return box;
}

QString MainWindow::durationText(double seconds) {
    seconds = std::max(0.0, seconds);
    const int64_t tenths = int64_t(std::floor(seconds * 10));
    const int64_t total = tenths / 10;
    const int h = int(total / 3600), m = int(total / 60 % 60), s = int(total % 60);
    if (h > 0) return QString::asprintf("%d:%02d:%02d.%d", h, m, s, int(tenths % 10));
    return QString::asprintf("%d:%02d.%d", m, s, int(tenths % 10));
}

MainWindow::MainWindow(EditorModel& model, QWidget* parent)
    : QMainWindow(parent)
    , model(model) {
    setWindowIcon(applicationIcon());
    setAcceptDrops(true);
    resize(1200, 720);

    tracks = new TrackListWidget(this);
    tracks->setObjectName("trackList");
    tracks->setSelectionMode(QAbstractItemView::ExtendedSelection);
    tracks->setDragDropMode(QAbstractItemView::InternalMove);
    tracks->setDefaultDropAction(Qt::MoveAction);
    tracks->setAcceptDrops(true);
    tracks->setMinimumWidth(180);
    tracks->onFilesDropped = [this](const QList<QUrl>& urls) {
        this->model.open(localPaths(urls));
    };
    tracks->onReordered = [this] {
        std::vector<Uuid> order;
        for (int row = 0; row < tracks->count(); ++row)
            if (auto id =
                    Uuid::parse(tracks->item(row)->data(Qt::UserRole).toString().toStdString()))
                order.push_back(*id);
        this->model.reorderTracks(order);
    };
    connect(tracks, &QListWidget::itemSelectionChanged, this, [this] {
        if (refreshingTracks) return;
        std::set<Uuid> ids;
        for (QListWidgetItem* item : tracks->selectedItems())
            if (auto id = Uuid::parse(item->data(Qt::UserRole).toString().toStdString()))
                ids.insert(*id);
        this->model.setSelectedTrackIDs(std::move(ids));
    });

    waveform = new WaveformCanvas(model, this);
    waveform->setObjectName("waveformCanvas");
    waveform->setMinimumSize(400, 200);
    // Under the canvas's message for a track whose file has gone.
    locateButton = new QPushButton(QString::fromUtf8("Locate\u2026"), waveform);
    locateButton->setObjectName("locateButton");
    locateButton->setToolTip("Find the file; other missing files in its folder are found with it");
    locateButton->hide();
    connect(locateButton, &QPushButton::clicked, this, [this] { presentLocateDialog(); });
    waveform->installEventFilter(this);

    auto* right = new QSplitter(Qt::Vertical, this);
    right->addWidget(buildInspector());
    right->addWidget(buildMarkerPanel());
    right->setMinimumWidth(260);

    auto* split = new QSplitter(Qt::Horizontal, this);
    split->addWidget(tracks);
    split->addWidget(waveform);
    split->addWidget(right);
    split->setStretchFactor(1, 1);
    split->setSizes({220, 760, 280});
    // The transport bar spans the window above the list, the canvas and the side panels.
    auto* main = new QWidget(this);
    auto* column = new QVBoxLayout(main);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(buildTransportBar());
    column->addWidget(split, 1);
    setCentralWidget(main);

    // The effects panel docks beside the canvas while a chain is open.
    effects = new EffectsPanel(model, this);
    effects->setObjectName("effectsPanel");
    effectsDock = new QDockWidget("Effects", this);
    effectsDock->setObjectName("effectsDock");
    effectsDock->setWidget(effects);
    effectsDock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    addDockWidget(Qt::BottomDockWidgetArea, effectsDock);
    effectsDock->hide();
    connect(effects, &EffectsPanel::closed, effectsDock, &QWidget::hide);

    buildMenus();
    buildStatusBar();
    // Right-click on the list offers what applies to the selected tracks.
    tracks->setContextMenuPolicy(Qt::ActionsContextMenu);
    tracks->addAction(actions["locateMissing"]);
    tracks->addAction(actions["removeTracks"]);
    tracks->addAction(actions["export"]);
    observeModel();
    model.windowPicture = [this] { return windowPicture(); };
    preferencesConnection =
        model.preferences().changed.connect([this](Preferences::Setting setting) {
            if (setting == Preferences::Setting::recentSessions) rebuildRecentMenu();
        });

    auto* meterTimer = new QTimer(this);
    meterTimer->setInterval(33);
    connect(meterTimer, &QTimer::timeout, this, [this] { refreshMeter(); });
    meterTimer->start();
    auto* memoryTimer = new QTimer(this);
    memoryTimer->setInterval(2000);
    connect(memoryTimer, &QTimer::timeout, this, [this] { refreshMemory(); });
    memoryTimer->start();

    refreshTrackList();
    observeActiveTrack();
    refreshMemory();
    refreshTitle();
    refreshSessionActions();
    rebuildRecentMenu();
}

MainWindow::~MainWindow() {
    model.windowPicture = nullptr;
    preferencesConnection.disconnect();
    for (auto& c : modelConnections)
        c.disconnect();
    for (auto& c : trackConnections)
        c.disconnect();
    for (auto& c : activeConnections)
        c.disconnect();
}

QListWidget* MainWindow::trackList() const {
    return tracks;
}

QAction* MainWindow::action(const QString& name) const {
    auto found = actions.find(name);
    return found == actions.end() ? nullptr : found->second;
}

QAction* MainWindow::makeAction(const QString& name, const QString& text,
                                const QKeySequence& shortcut, std::function<void()> run) {
    auto* a = new QAction(text, this);
    a->setObjectName(name);
    if (!shortcut.isEmpty()) a->setShortcut(shortcut);
    a->setShortcutContext(Qt::WindowShortcut);
    connect(a, &QAction::triggered, this, [run = std::move(run)] { run(); });
    addAction(a);
    actions[name] = a;
    return a;
}

void MainWindow::buildMenus() {
    EditorModel& m = model;
    QMenu* file = menuBar()->addMenu("&File");
    file->addAction(
        makeAction("newSession", "New Session", QKeySequence::New, [this] { newSession(); }));
    file->addAction(
        makeAction("open", "Open…", QKeySequence::Open, [this] { presentOpenDialog(); }));
    file->addAction(
        makeAction("openSession", "Open Session…", {}, [this] { presentOpenSessionDialog(); }));
    recentMenu = file->addMenu("Open Recent");
    recentMenu->setObjectName("openRecentMenu");
    recentMenu->setToolTipsVisible(true);
    connect(recentMenu, &QMenu::aboutToShow, this, [this] { rebuildRecentMenu(); });
    file->addSeparator();
    file->addAction(
        makeAction("saveSession", "Save Session", QKeySequence::Save, [this] { saveSession(); }));
    file->addAction(makeAction("saveSessionAs", "Save Session As…", QKeySequence("Ctrl+Shift+S"),
                               [this] { presentSaveSessionDialog({}); }));
    file->addAction(makeAction("revertToSaved", "Revert to Saved", {}, [this] { askToRevert(); }));
    file->addAction(makeAction("snapshots", "Snapshots…", {}, [this] { presentSnapshots(); }));
    file->addSeparator();
    file->addAction(makeAction("export", "Export…", QKeySequence("Ctrl+Shift+E"),
                               [this] { presentExportPanel(); }));
    file->addAction(makeAction("exportRegions", "Export Regions…", {},
                               [this] { presentExportRegionsPanel(); }));
    file->addAction(makeAction("newTrackFromSelection", "New Track from Selection",
                               QKeySequence("Ctrl+Shift+N"), [&m] { m.newTrackFromSelection(); }));
    file->addSeparator();
    file->addAction(makeAction("removeTracks", "Remove from List", QKeySequence("Ctrl+Backspace"),
                               [this] { removeSelectedTracks(); }));
    // In the track list's context menu, for a track whose file has gone.
    makeAction("locateMissing", "Locate…", {}, [this] { presentLocateDialog(); });
    file->addSeparator();
    file->addAction(makeAction("settings", "Settings…", QKeySequence("Ctrl+,"), [this] {
        auto* dialog = new SettingsDialog(model.preferences(), this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    }));
    file->addAction(makeAction("quit", "Quit", QKeySequence::Quit, [this] { close(); }));

    QMenu* edit = menuBar()->addMenu("&Edit");
    edit->addAction(makeAction("undo", "Undo", QKeySequence::Undo, [&m] { m.undo(); }));
    edit->addAction(makeAction("redo", "Redo", QKeySequence("Ctrl+Shift+Z"), [&m] { m.redo(); }));
    edit->addSeparator();
    edit->addAction(makeAction("cut", "Cut", QKeySequence::Cut, [&m] { m.cutSelection(); }));
    edit->addAction(makeAction("copy", "Copy", QKeySequence::Copy, [&m] { m.copySelection(); }));
    edit->addAction(makeAction("paste", "Paste", QKeySequence::Paste, [&m] { m.paste(); }));
    edit->addAction(
        makeAction("delete", "Delete", QKeySequence::Delete, [&m] { m.deleteSelection(); }));
    edit->addSeparator();
    edit->addAction(makeAction("trimToSelection", "Trim to Selection", QKeySequence("Ctrl+T"),
                               [&m] { m.trimToSelection(); }));
    edit->addAction(makeAction("trimSilence", "Trim Silence", QKeySequence("Ctrl+Shift+T"),
                               [&m] { m.trimSilence(); }));
    edit->addSeparator();
    edit->addAction(
        makeAction("selectAll", "Select All", QKeySequence::SelectAll, [this] { selectAll(); }));

    QMenu* view = menuBar()->addMenu("&View");
    QAction* zoomIn =
        makeAction("zoomIn", "Zoom In", QKeySequence("Ctrl+="), [this] { waveform->zoomIn(); });
    // Ctrl+= and Ctrl++ both zoom in, whether or not the layout needs Shift for "+".
    zoomIn->setShortcuts({QKeySequence("Ctrl+="), QKeySequence("Ctrl++")});
    view->addAction(zoomIn);
    view->addAction(
        makeAction("zoomOut", "Zoom Out", QKeySequence("Ctrl+-"), [this] { waveform->zoomOut(); }));
    view->addAction(makeAction("zoomToSelection", "Zoom to Selection", QKeySequence("Ctrl+Shift+F"),
                               [this] { waveform->zoomToSelection(); }));
    view->addAction(makeAction("zoomToFit", "Zoom to Fit", QKeySequence("Ctrl+0"),
                               [this] { waveform->zoomToFit(); }));
    view->addSeparator();
    view->addAction(makeAction("verticalZoomIn", "Vertical Zoom In", QKeySequence("Ctrl+Alt+="),
                               [this] { waveform->verticalZoomIn(); }));
    view->addAction(makeAction("verticalZoomOut", "Vertical Zoom Out", QKeySequence("Ctrl+Alt+-"),
                               [this] { waveform->verticalZoomOut(); }));

    QMenu* markerMenu = menuBar()->addMenu("&Markers");
    markerMenu->addAction(makeAction("addMarker", "Add Marker at Playhead", QKeySequence("M"),
                                     [&m] { m.addMarker(); }));
    markerMenu->addAction(makeAction("previousMarker", "Previous Marker", QKeySequence("Alt+Left"),
                                     [&m] { m.jumpToMarker(-1); }));
    markerMenu->addAction(makeAction("nextMarker", "Next Marker", QKeySequence("Alt+Right"),
                                     [&m] { m.jumpToMarker(1); }));
    markerMenu->addSeparator();
    markerMenu->addAction(
        makeAction("removeAllMarkers", "Remove All Markers", {}, [&m] { m.removeAllMarkers(); }));

    QMenu* playback = menuBar()->addMenu("&Playback");
    playback->addAction(
        makeAction("play", "Play", QKeySequence(Qt::Key_Space), [&m] { m.togglePlayback(); }));
    QAction* loop =
        makeAction("loop", "Loop Playback", QKeySequence("Ctrl+L"), [&m] { m.loopPlayback(); });
    loop->setCheckable(true);
    playback->addAction(loop);
    playback->addSeparator();
    playback->addAction(
        makeAction("slower", "Slower", QKeySequence("Ctrl+["), [&m] { m.changePlaybackRate(-1); }));
    playback->addAction(
        makeAction("faster", "Faster", QKeySequence("Ctrl+]"), [&m] { m.changePlaybackRate(1); }));
    playback->addSeparator();
    playback->addAction(makeAction("normalizePeak", "Peak to 0 dBFS", QKeySequence("Ctrl+Alt+N"),
                                   [&m] { m.normalizePeak(); }));
    playback->addSeparator();
    playback->addAction(makeAction("previousTrack", "Previous Track", QKeySequence("Alt+Up"),
                                   [&m] { m.selectAdjacentTrack(-1); }));
    playback->addAction(makeAction("nextTrack", "Next Track", QKeySequence("Alt+Down"),
                                   [&m] { m.selectAdjacentTrack(1); }));

    QMenu* effectsMenu = menuBar()->addMenu("Effec&ts");
    QMenu* addEffect = effectsMenu->addMenu("Add Effect");
    addEffect->setObjectName("addEffectMenu");
    for (QAction* kindAction : effects->addMenu()->actions())
        addEffect->addAction(kindAction);
    effectsMenu->addAction(
        makeAction("showEffects", "Show Effects", QKeySequence("Ctrl+E"), [this] {
            effectsDock->show();
            effectsDock->raise();
        }));
    effectsMenu->addSeparator();
    effectsMenu->addAction(
        makeAction("applyEffects", "Apply to Selection", {}, [&m] { m.applyEffects(); }));
    effectsMenu->addAction(
        makeAction("closeEffects", "Close Effects", {}, [&m] { m.closeEffects(); }));

    QMenu* help = menuBar()->addMenu("&Help");
    help->addAction(makeAction("about", "About Sonvale", {}, [this] {
        auto* dialog = new AboutDialog(this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    }));
}

QWidget* MainWindow::buildTransportBar() {
    auto* bar = new QWidget(this);
    bar->setObjectName("transportBar");
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(8, 4, 8, 4);

    playButton = new QToolButton(bar);
    playButton->setObjectName("playButton");
    playButton->setText(QString::fromUtf8("\u25B6"));
    playButton->setToolTip("Play or stop (Space)");
    connect(playButton, &QToolButton::clicked, this, [this] { model.togglePlayback(); });
    row->addWidget(playButton);

    loopButton = new QToolButton(bar);
    loopButton->setObjectName("loopButton");
    loopButton->setText(QString::fromUtf8("\u21BB"));
    loopButton->setCheckable(true);
    loopButton->setToolTip(EditorModel::loopPlaybackToolTip);
    connect(loopButton, &QToolButton::clicked, this, [this] { model.loopPlayback(); });
    row->addWidget(loopButton);

    auto* slower = new QToolButton(bar);
    slower->setText(QString::fromUtf8("\u2212"));
    slower->setToolTip(EditorModel::playbackRateToolTip);
    connect(slower, &QToolButton::clicked, this, [this] { model.changePlaybackRate(-1); });
    rateLabel = new QLabel(bar);
    rateLabel->setObjectName("playbackRate");
    rateLabel->setToolTip(EditorModel::playbackRateToolTip);
    auto* faster = new QToolButton(bar);
    faster->setText("+");
    faster->setToolTip(EditorModel::playbackRateToolTip);
    connect(faster, &QToolButton::clicked, this, [this] { model.changePlaybackRate(1); });
    row->addWidget(slower);
    row->addWidget(rateLabel);
    row->addWidget(faster);
    row->addSpacing(12);

    timeLabel = new QLabel(bar);
    timeLabel->setObjectName("timeDisplay");
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    timeLabel->setFont(mono);
    timeLabel->setToolTip("Playhead; below it the selection's start, end and length");
    timeLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    timeLabel->setMinimumWidth(210);
    row->addWidget(timeLabel);
    row->addStretch(1);

    gainSlider = new QSlider(Qt::Horizontal, bar);
    gainSlider->setObjectName("gain");
    gainSlider->setRange(-300, 300);
    gainSlider->setFixedWidth(110);
    gainSlider->setToolTip("Gain applied on playback and export");
    connect(gainSlider, &QSlider::valueChanged, this, [this](int tenths) {
        if (auto track = model.activeTrack()) track->setGainDB(float(tenths) / 10.0f);
    });
    gainLabel = new QLabel(bar);
    gainLabel->setObjectName("gainText");
    gainLabel->setMinimumWidth(100);
    row->addWidget(gainSlider);
    row->addWidget(gainLabel);

    normalizeButton = new QToolButton(bar);
    normalizeButton->setObjectName("normalizeButton");
    normalizeButton->setText("Normalize");
    normalizeButton->setPopupMode(QToolButton::MenuButtonPopup);
    normalizeButton->setToolTip(
        "Normalize: click for peak to 0 dBFS (Ctrl+Alt+N), or pick a loudness target");
    auto* normalizeMenu = new QMenu(normalizeButton);
    normalizeMenu->setObjectName("normalizeMenu");
    connect(normalizeMenu, &QMenu::aboutToShow, this, [this, normalizeMenu] {
        normalizeMenu->clear();
        QAction* peak =
            normalizeMenu->addAction("Peak to 0 dBFS", this, [this] { model.normalizePeak(); });
        peak->setEnabled(model.canNormalize());
        normalizeMenu->addSeparator();
        for (const LoudnessTarget& target : model.loudnessTargets()) {
            QAction* a =
                normalizeMenu->addAction(qs(loudnessMenuTitle(target)), this,
                                         [this, target] { model.normalizeLoudness(target); });
            a->setEnabled(model.canNormalizeToLoudness());
        }
    });
    normalizeButton->setMenu(normalizeMenu);
    connect(normalizeButton, &QToolButton::clicked, this, [this] { model.normalizePeak(); });
    row->addWidget(normalizeButton);
    row->addSpacing(12);

    meter = new LevelMeterWidget(bar);
    meter->setObjectName("outputMeter");
    row->addWidget(meter);
    row->addSpacing(8);

    exportButton = new QToolButton(bar);
    exportButton->setObjectName("exportButton");
    exportButton->setText(QString::fromUtf8("Export\u2026"));
    exportButton->setToolTip("Export selection or track with gain applied (Ctrl+Shift+E)");
    connect(exportButton, &QToolButton::clicked, this, [this] { presentExportPanel(); });
    row->addWidget(exportButton);
    return bar;
}

QWidget* MainWindow::buildInspector() {
    auto* box = new QWidget(this);
    box->setObjectName("inspector");
    auto* form = new QFormLayout(box);
    auto add = [&](const char* label, QLabel*& field, const char* name) {
        field = new QLabel(box);
        field->setObjectName(name);
        field->setTextInteractionFlags(Qt::TextSelectableByMouse);
        field->setWordWrap(true);
        form->addRow(label, field);
    };
    add("File:", fileLabel, "inspectorFile");
    add("Format:", formatLabel, "inspectorFormat");
    add("Duration:", durationLabel, "inspectorDuration");
    add("Sample rate:", rateInfoLabel, "inspectorSampleRate");
    add("Channels:", channelsLabel, "inspectorChannels");
    add("Peak:", peakLabel, "inspectorPeak");
    add("Loudness:", loudnessLabel, "inspectorLoudness");
    add("Gain:", inspectorGainLabel, "inspectorGain");
    return box;
}

QWidget* MainWindow::buildMarkerPanel() {
    auto* box = new QWidget(this);
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(4, 4, 4, 4);
    markers = new QTreeWidget(box);
    markers->setObjectName("markerList");
    markers->setColumnCount(3);
    markers->setHeaderLabels({"Name", "Start", "End"});
    markers->setRootIsDecorated(false);
    markers->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    markers->header()->setStretchLastSection(false);
    markers->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    markers->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    markers->header()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    connect(markers, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int column) {
        if (refreshingMarkers || column != 0) return;
        auto track = model.activeTrack();
        auto id = Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString());
        if (track && id) track->renameMarker(*id, item->text(0).toStdString());
        refreshMarkers();
    });
    connect(markers, &QTreeWidget::itemSelectionChanged, this, [this] { refreshActions(); });
    // Delete in the list removes the selected markers rather than the audio selection.
    markers->installEventFilter(this);
    connect(markers, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item, int) {
        auto track = model.activeTrack();
        auto id = Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString());
        if (!track || !id) return;
        for (const Marker& marker : track->markers())
            if (marker.id == *id) model.scrub(marker.start);
    });
    column->addWidget(markers, 1);

    auto* buttons = new QGridLayout;
    auto* remove = new QPushButton("Delete", box);
    remove->setObjectName("deleteMarker");
    connect(remove, &QPushButton::clicked, this, [this] { removeSelectedMarkers(); });
    auto* removeAll = new QPushButton("Remove All Markers", box);
    removeAll->setObjectName("removeAllMarkersButton");
    connect(removeAll, &QPushButton::clicked, this, [this] { model.removeAllMarkers(); });
    auto* exportRegions = new QPushButton("Export Regions", box);
    exportRegions->setObjectName("exportRegionsButton");
    connect(exportRegions, &QPushButton::clicked, this, [this] { presentExportRegionsPanel(); });
    buttons->addWidget(remove, 0, 0);
    buttons->addWidget(exportRegions, 0, 1);
    buttons->addWidget(removeAll, 1, 0, 1, 2);
    column->addLayout(buttons);
    return box;
}

void MainWindow::buildStatusBar() {
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
    statusBar()->addWidget(statusText, 1);
    statusBar()->addPermanentWidget(statusProgress);
    statusBar()->addPermanentWidget(memoryButton);
}

void MainWindow::observeModel() {
    modelConnections.push_back(model.tracksChanged.connect([this] {
        watchTrackItems();
        refreshMemory();
        refreshTrackList();
        refreshActions();
        refreshStatus();
    }));
    modelConnections.push_back(model.selectionChanged.connect([this] {
        refreshTrackList();
        observeActiveTrack();
    }));
    modelConnections.push_back(model.clipboardChanged.connect([this] {
        refreshActions();
        refreshMemory();
    }));
    modelConnections.push_back(model.exportProgressChanged.connect([this] {
        refreshActions();
        refreshStatus();
    }));
    modelConnections.push_back(model.alertChanged.connect([this] { showAlert(); }));
    modelConnections.push_back(model.effectChainChanged.connect([this] {
        if (model.effectChain())
            effectsDock->show();
        else
            effectsDock->hide();
        refreshActions();
    }));
    modelConnections.push_back(
        model.effectsApplyProgressChanged.connect([this] { refreshActions(); }));
    modelConnections.push_back(model.transportChanged.connect([this] {
        refreshTransport();
        refreshActions();
    }));
    modelConnections.push_back(model.playheadChanged.connect([this] { refreshTransport(); }));
    modelConnections.push_back(model.beepRequested.connect([] { QApplication::beep(); }));
    modelConnections.push_back(model.documentChanged.connect([this] {
        refreshTitle();
        refreshSessionActions();
        refreshStatus();
        if (closeAfterSave && !model.isSavingDocument()) {
            closeAfterSave = false;
            if (!model.needsSaving()) QTimer::singleShot(0, this, [this] { close(); });
        }
    }));
    modelConnections.push_back(
        model.documentReplaceRequested.connect([this](std::filesystem::path url) {
            QPointer<MainWindow> self(this);
            askToLeaveSession(false, [self, url] {
                if (self) self->model.openDocumentNow(url);
            });
        }));
}

// Every track's row follows its name, load state, audio and revisions.
void MainWindow::watchTrackItems() {
    for (auto& c : trackConnections)
        c.disconnect();
    trackConnections.clear();
    for (const auto& track : model.tracks()) {
        auto refresh = [this] {
            refreshTrackList();
            refreshMemory();
            refreshStatus();
        };
        trackConnections.push_back(track->stateChanged.connect(refresh));
        trackConnections.push_back(track->urlChanged.connect(refresh));
        trackConnections.push_back(track->audioChanged.connect(refresh));
        trackConnections.push_back(track->revisionsChanged.connect(refresh));
    }
}

void MainWindow::observeActiveTrack() {
    for (auto& c : activeConnections)
        c.disconnect();
    activeConnections.clear();
    if (auto track = model.activeTrack()) {
        auto all = [this] {
            refreshActions();
            refreshTransport();
            refreshInspector();
            refreshMarkers();
        };
        activeConnections.push_back(track->stateChanged.connect(all));
        activeConnections.push_back(track->audioChanged.connect(all));
        activeConnections.push_back(track->selectionChanged.connect([this] {
            refreshActions();
            refreshTransport();
        }));
        activeConnections.push_back(track->cursorChanged.connect([this] { refreshTransport(); }));
        activeConnections.push_back(track->markersChanged.connect([this] {
            refreshMarkers();
            refreshActions();
        }));
        activeConnections.push_back(track->gainChanged.connect([this] {
            refreshTransport();
            refreshInspector();
        }));
        activeConnections.push_back(track->revisionsChanged.connect([this] { refreshActions(); }));
        activeConnections.push_back(
            track->undoStack().changed.connect([this] { refreshActions(); }));
        activeConnections.push_back(track->cachesChanged.connect([this] {
            refreshInspector();
            refreshActions();
        }));
        activeConnections.push_back(track->recordingChanged.connect([this] { refreshActions(); }));
        if (track->isReady()) model.measureLoudness(track);
    }
    refreshActions();
    refreshTransport();
    refreshInspector();
    refreshMarkers();
}

void MainWindow::refreshTrackList() {
    refreshingTracks = true;
    const auto& list = model.tracks();
    while (tracks->count() > int(list.size()))
        delete tracks->takeItem(tracks->count() - 1);
    while (tracks->count() < int(list.size())) {
        auto* item = new QListWidgetItem(tracks);
        item->setFlags(item->flags() | Qt::ItemIsDragEnabled);
    }
    for (size_t row = 0; row < list.size(); ++row) {
        const AudioTrack& track = *list[row];
        QListWidgetItem* item = tracks->item(int(row));
        item->setData(Qt::UserRole, qs(track.id().text()));
        QString detail;
        QString tip;
        QColor colour = tracks->palette().color(QPalette::Text);
        if (auto* loading = std::get_if<AudioTrack::Loading>(&track.state())) {
            detail = QString::asprintf("Loading %d%%", int(std::lround(loading->progress * 100)));
        } else if (auto* failed = std::get_if<AudioTrack::Failed>(&track.state())) {
            detail = qs(failed->message);
            tip = detail;
            colour = QColor(200, 60, 50);
        } else {
            detail = durationText(track.audio() ? track.audio()->duration() : 0);
        }
        QString mark;
        if (track.audioEditDepth() != 0) {
            const bool exported = track.editRevision() == track.exportedRevision();
            mark = exported ? QString::fromUtf8("\u25CB ") : QString::fromUtf8("\u25CF ");
            tip = exported ? "Edited and exported" : "Edited, not exported";
        }
        item->setText(mark + qs(track.name()) + "\n" + detail);
        item->setToolTip(tip);
        item->setForeground(colour);
        item->setSelected(model.selectedTrackIDs().count(track.id()) > 0);
    }
    refreshingTracks = false;
}

void MainWindow::removeSelectedMarkers() {
    auto track = model.activeTrack();
    if (!track) return;
    std::vector<Uuid> ids;
    for (QTreeWidgetItem* item : markers->selectedItems())
        if (auto id = Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString()))
            ids.push_back(*id);
    for (const Uuid& id : ids)
        track->removeMarker(id);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == waveform && event->type() == QEvent::Resize) placeLocateButton();
    if (watched == markers &&
        (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress)) {
        auto* key = static_cast<QKeyEvent*>(event);
        if ((key->key() == Qt::Key_Delete || key->key() == Qt::Key_Backspace) &&
            key->modifiers() == Qt::NoModifier && !markers->selectedItems().isEmpty()) {
            event->accept();
            if (event->type() == QEvent::KeyPress) removeSelectedMarkers();
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::refreshActions() {
    EditorModel& m = model;
    auto set = [this](const char* name, bool enabled) { actions[name]->setEnabled(enabled); };
    const auto track = m.activeTrack();
    set("export", m.canExport());
    set("exportRegions", m.canExportRegions());
    set("newTrackFromSelection", m.canEdit());
    set("removeTracks", !m.selectedTrackIDs().empty());
    set("undo", m.canUndo());
    set("redo", m.canRedo());
    actions["undo"]->setText(qs(m.undoMenuTitle()));
    actions["redo"]->setText(qs(m.redoMenuTitle()));
    set("cut", m.canEdit());
    set("copy", m.canCopy());
    set("paste", m.canPaste());
    set("delete", m.canEdit());
    set("trimToSelection", m.canEdit());
    const bool editableAudio = track && track->audio() && !track->isRecording();
    set("trimSilence", editableAudio);
    set("selectAll", track && track->audio());
    for (const char* name : {"zoomIn", "zoomOut", "zoomToFit", "verticalZoomIn", "verticalZoomOut"})
        set(name, track && track->audio());
    set("zoomToSelection", track && track->selection().has_value());
    set("addMarker", m.canAddMarker());
    actions["addMarker"]->setText(qs(m.addMarkerTitle()));
    set("previousMarker", m.hasMarkers());
    set("nextMarker", m.hasMarkers());
    set("removeAllMarkers", m.hasMarkers());
    set("play", m.canPlay() || m.isPlaying());
    set("loop", m.canPlay() || m.isPlaying());
    set("slower", m.playbackRate() > PlaybackEngine::playbackRates.front());
    set("faster", m.playbackRate() < PlaybackEngine::playbackRates.back());
    set("normalizePeak", m.canNormalize());
    set("showEffects", m.effectChain() != nullptr);
    set("applyEffects", m.effectChain() != nullptr && !m.effectsApplyProgress());
    set("closeEffects", m.effectChain() != nullptr && !m.effectsApplyProgress());
    findChild<QMenu*>("addEffectMenu")->setEnabled(m.canAddEffect());
    set("previousTrack", !m.tracks().empty());
    set("nextTrack", !m.tracks().empty());
    const bool missing = track && EditorModel::isMissing(*track);
    set("locateMissing", missing);
    actions["locateMissing"]->setVisible(missing);
    locateButton->setVisible(missing);
    if (missing) placeLocateButton();
    normalizeButton->setEnabled(m.canNormalize());
    exportButton->setEnabled(m.canExport());
    gainSlider->setEnabled(track && track->audio());
    playButton->setEnabled(m.canPlay() || m.isPlaying());
    if (auto* b = findChild<QPushButton*>("removeAllMarkersButton")) b->setEnabled(m.hasMarkers());
    if (auto* b = findChild<QPushButton*>("exportRegionsButton"))
        b->setEnabled(m.canExportRegions());
    if (auto* b = findChild<QPushButton*>("deleteMarker"))
        b->setEnabled(m.hasMarkers() && !markers->selectedItems().isEmpty());
}

void MainWindow::refreshTransport() {
    const auto track = model.activeTrack();
    const bool playing = model.isPlaying();
    playButton->setText(playing ? QString::fromUtf8("\u25A0") : QString::fromUtf8("\u25B6"));
    actions["play"]->setText(playing ? "Stop" : "Play");
    loopButton->setChecked(model.isLooping());
    actions["loop"]->setChecked(model.isLooping());
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
    gainLabel->setText(QString::asprintf("%+.1f dB applied", gain));
}

void MainWindow::refreshInspector() {
    const auto track = model.activeTrack();
    const auto audio = track ? track->audio() : nullptr;
    const QString none = QString::fromUtf8("\u2014");
    fileLabel->setText(track ? QFileInfo(QString::fromStdString(track->url().string())).fileName()
                             : none);
    fileLabel->setToolTip(track ? QString::fromStdString(track->url().string()) : QString());
    formatLabel->setText(
        track ? QFileInfo(QString::fromStdString(track->url().string())).suffix().toUpper() : none);
    durationLabel->setText(audio ? durationText(audio->duration()) : none);
    rateInfoLabel->setText(audio ? QLocale().toString(audio->sampleRate, 'f', 0) + " Hz" : none);
    channelsLabel->setText(audio ? (audio->channelCount() == 1 ? QString("Mono")
                                    : audio->channelCount() == 2
                                        ? QString("Stereo")
                                        : QString::number(audio->channelCount()))
                                 : none);
    peakLabel->setText(audio ? QString::asprintf("%.1f dBFS", double(levelDB(audio->peak, -120)))
                             : none);
    if (!audio)
        loudnessLabel->setText(none);
    else if (auto lufs = track->currentLoudness())
        loudnessLabel->setText(QString::asprintf("%.1f LUFS", *lufs));
    else
        loudnessLabel->setText(QString::fromUtf8("Measuring\u2026"));
    inspectorGainLabel->setText(track ? QString::asprintf("%+.1f dB", double(track->gainDB()))
                                      : none);
}

void MainWindow::refreshMarkers() {
    refreshingMarkers = true;
    markers->clear();
    if (auto track = model.activeTrack(); track && track->sampleRate() > 0) {
        const double rate = track->sampleRate();
        for (const Marker& marker : track->markers()) {
            auto* item = new QTreeWidgetItem(markers);
            item->setText(0, qs(marker.name));
            item->setText(1, durationText(double(marker.start) / rate));
            item->setText(2, marker.end ? durationText(double(*marker.end) / rate) : QString());
            item->setData(0, Qt::UserRole, qs(marker.id.text()));
            item->setToolTip(0, marker.isRegion() ? "Region" : "Marker");
            item->setFlags(item->flags() | Qt::ItemIsEditable);
        }
    }
    refreshingMarkers = false;
}

// Loading and export progress show in the status bar, where the eye goes after a command.
void MainWindow::refreshStatus() {
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
    int loading = 0;
    double sum = 0;
    for (const auto& track : model.tracks())
        if (auto* l = std::get_if<AudioTrack::Loading>(&track->state())) {
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

namespace {
AudioMemory measureMemory(const EditorModel& model) {
    AudioMemory::Accumulator accumulator;
    for (const auto& track : model.tracks()) {
        accumulator.addAudio(track->audio());
        accumulator.addAudio(track->liveAudio());
    }
    accumulator.setClipboard(model.clipboard() ? &*model.clipboard() : nullptr);
    return accumulator.result;
}
} // namespace

void MainWindow::refreshMemory() {
    const AudioMemory memory = measureMemory(model);
    memoryButton->setText(QLocale().formattedDataSize(memory.total()));
}

void MainWindow::showMemoryDetails() {
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

void MainWindow::refreshMeter() {
    const double now = steadySeconds();
    auto& b = meter->ballistics;
    const bool idle = std::all_of(b.levels.begin(), b.levels.end(), [](const auto& l) {
        return l.peakDB <= MeterBallistics::floorDB && l.holdDB <= MeterBallistics::floorDB;
    });
    if (model.isPlaying()) {
        auto track = model.activeTrack();
        if (track && track->audio()) {
            b.update(model.playheadPosition(), *track->audio(), track->gainBox()->load(), now);
            meter->update();
            refreshTransport();
        }
    } else if (!idle) {
        std::vector<float> silence(b.levels.size(), 0.0f);
        b.lastFrame.reset();
        b.update(std::span<const float>(silence), now);
        meter->update();
    }
}

void MainWindow::showAlert() {
    const auto& alert = model.alert();
    if (!alert) {
        if (currentAlertBox) currentAlertBox->close();
        return;
    }
    if (!currentAlertBox) {
        currentAlertBox = new QMessageBox(QMessageBox::Warning, qs(alert->title), qs(alert->title),
                                          QMessageBox::Ok, this);
        currentAlertBox->setObjectName("alert");
        currentAlertBox->setAttribute(Qt::WA_DeleteOnClose);
        connect(currentAlertBox, &QMessageBox::finished, this, [this] {
            currentAlertBox = nullptr;
            model.dismissAlert();
        });
        currentAlertBox->open();
    }
    currentAlertBox->setWindowTitle(qs(alert->title));
    currentAlertBox->setText(qs(alert->title));
    currentAlertBox->setInformativeText(qs(alert->message));
}

void MainWindow::openFiles(const QStringList& paths) {
    std::vector<std::filesystem::path> urls;
    for (const QString& path : paths)
        urls.emplace_back(QFileInfo(path).absoluteFilePath().toStdString());
    if (!urls.empty()) model.open(urls);
}

void MainWindow::presentOpenDialog() {
    auto* dialog = new QFileDialog(this, "Open Audio Files");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters({audioFilesFilter, "All files (*)"});
    connect(dialog, &QFileDialog::filesSelected, this,
            [this](const QStringList& files) { openFiles(files); });
    dialog->open();
}

void MainWindow::presentExportPanel() {
    if (!model.canExport() || currentExportDialog) return;
    auto track = model.activeTrack();
    const ExportFormat format = ExportFormat::wav16;
    exportOptions = model.makeExportOptions(format);
    auto* dialog = new QFileDialog(this, "Export Audio");
    dialog->setObjectName("exportDialog");
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setLabelText(QFileDialog::Accept, "Export");
    dialog->setDirectory(QString::fromStdString(track->url().parent_path().string()));
    auto applyFormat = [dialog, this](ExportFormat f) {
        const QString extension = qs(std::string(fileExtension(f)));
        dialog->setNameFilter(qs(std::string(title(f))) + " (*." + extension + ")");
        dialog->setDefaultSuffix(extension);
        dialog->selectFile(qs(model.proposedExportFileName(f)));
    };
    applyFormat(format);
    exportOptions->onFormatChange = applyFormat;
    if (auto* grid = qobject_cast<QGridLayout*>(dialog->layout()))
        grid->addWidget(makeExportAccessory(*exportOptions, true, dialog), grid->rowCount(), 0, 1,
                        -1);
    currentExportDialog = dialog;
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& file) {
        model.exportActiveTrack(file.toStdString(), exportOptions->format(),
                                exportOptions->selectionOnly());
    });
    connect(dialog, &QObject::destroyed, this, [this] { currentExportDialog = nullptr; });
    dialog->open();
}

void MainWindow::presentExportRegionsPanel() {
    if (!model.canExportRegions() || currentExportDialog) return;
    auto track = model.activeTrack();
    exportOptions = model.makeExportOptions(ExportFormat::wav16);
    auto* dialog = new QFileDialog(this, "Export Regions");
    dialog->setObjectName("exportRegionsDialog");
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setLabelText(QFileDialog::Accept, "Export");
    dialog->setDirectory(QString::fromStdString(track->url().parent_path().string()));
    if (auto* grid = qobject_cast<QGridLayout*>(dialog->layout())) {
        auto* message = new QLabel(qs(model.exportRegionsMessage()), dialog);
        message->setObjectName("exportRegionsMessage");
        grid->addWidget(message, grid->rowCount(), 0, 1, -1);
        grid->addWidget(makeExportAccessory(*exportOptions, false, dialog), grid->rowCount(), 0, 1,
                        -1);
    }
    currentExportDialog = dialog;
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& folder) {
        model.exportRegions(folder.toStdString(), exportOptions->format());
    });
    connect(dialog, &QObject::destroyed, this, [this] { currentExportDialog = nullptr; });
    dialog->open();
}

void MainWindow::removeSelectedTracks() {
    if (!model.selectedTrackIDs().empty()) model.removeTracks(model.selectedTrackIDs());
}

void MainWindow::selectAll() {
    if (auto track = model.activeTrack(); track && track->audio())
        track->setSelection(FrameRange{0, track->frameCount()});
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    if (!event->mimeData()->hasUrls()) return;
    event->acceptProposedAction();
    model.open(localPaths(event->mimeData()->urls()));
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (!std::exchange(leavingConfirmed, false)) {
        if (model.isSavingDocument()) {
            closeAfterSave = true;
            event->ignore();
            return;
        }
        if (model.needsSaving()) {
            event->ignore();
            QPointer<MainWindow> self(this);
            askToLeaveSession(true, [self] {
                if (!self) return;
                self->leavingConfirmed = true;
                self->close();
            });
            return;
        }
    }
    if (model.isPlaying()) model.stop();
    QMainWindow::closeEvent(event);
}

} // namespace sonvale
