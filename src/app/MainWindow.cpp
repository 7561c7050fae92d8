#include "app/MainWindow.h"

#include "app/AboutDialog.h"
#include "app/Appearance.h"
#include "app/Features.h"
#include "app/InspectorPanel.h"
#include "app/MainMenus.h"
#include "app/MarkerPanel.h"
#include "app/QtText.h"
#include "app/SettingsDialog.h"
#include "app/ShortcutsDialog.h"
#include "app/StatusBar.h"
#include "app/TrackList.h"
#include "app/TranscriptPanel.h"
#include "app/TransportBar.h"
#include "app/canvas/WaveformCanvas.h"
#include "app/effects/EffectsPanel.h"
#include "app/timeline/MixerView.h"
#include "app/timeline/TimelineView.h"
#include "audio/ExportOptions.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDataStream>
#include <QDesktopServices>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabBar>
#include <QTabWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

namespace sonvale {

namespace {

// The format and range choices beside the export dialogs, bound to an ExportOptions.
QWidget* makeExportAccessory(ExportOptions& options, bool offerRange, QWidget* parent) {
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

// Gives every alert and question of the program room for a sentence or two per line: Qt's
// message boxes otherwise wrap short texts into a narrow column.
class MessageBoxWidth final : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Show) return false;
        auto* box = qobject_cast<QMessageBox*>(watched);
        if (!box) return false;
        const QScreen* screen = box->screen();
        for (const char* name : {"qt_msgbox_label", "qt_msgbox_informativelabel"}) {
            auto* label = box->findChild<QLabel*>(name);
            if (!label) continue;
            int width = label->fontMetrics().averageCharWidth() * 56;
            if (screen) width = std::min(width, screen->availableGeometry().width() / 2);
            label->setMinimumWidth(width);
        }
        return false;
    }
};

// Opens the file manager at `path`, with the file selected where the file manager can do that;
// the request doesn't hold up the window while a file manager starts.
void showInFileManager(const std::filesystem::path& path, QObject* context) {
    const QString file = QString::fromStdString(path.string());
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.FileManager1",
                                                       "/org/freedesktop/FileManager1",
                                                       "org.freedesktop.FileManager1", "ShowItems");
    call << QStringList{QUrl::fromLocalFile(file).toString()} << QString();
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, file] {
        watcher->deleteLater();
        if (!watcher->isError()) return;
        const QFileInfo info(file);
        QDesktopServices::openUrl(QUrl::fromLocalFile(info.isDir() ? file : info.absolutePath()));
    });
}

// The export dialogs choose the format in their accessory, so the dialog's own file type row
// would only repeat it; and they open wide enough for the file list's columns.
void fitExportDialog(QFileDialog* dialog, QWidget* window) {
    for (const char* name : {"fileTypeCombo", "fileTypeLabel"})
        if (auto* row = dialog->findChild<QWidget*>(name)) row->hide();
    dialog->setViewMode(QFileDialog::Detail);
    QSize size(920, 560);
    if (const QScreen* screen = window->screen())
        size = size.boundedTo(screen->availableGeometry().size() * 9 / 10);
    dialog->resize(size);
}

// The pages beside the track list, one at a time. Only the page that shows holds the window's
// minimum size: the mixer's height mustn't squeeze the effects panel under the waveform.
class ViewStack final : public QStackedWidget {
public:
    explicit ViewStack(QWidget* parent)
        : QStackedWidget(parent) {
        connect(this, &QStackedWidget::currentChanged, this, [this] { updateGeometry(); });
    }
    QSize minimumSizeHint() const override {
        return currentWidget()
                   ? currentWidget()->minimumSizeHint().expandedTo(currentWidget()->minimumSize())
                   : QSize();
    }
};

} // namespace

const char* const MainWindow::audioFilesFilter =
    "Audio files (*.wav *.aif *.aiff *.mp3 *.m4a *.aac *.flac *.ogg *.opus *.caf)";

MainWindow::MainWindow(EditorModel& model, QWidget* parent)
    : QMainWindow(parent)
    , model(model) {
    setWindowIcon(applicationIcon());
    qApp->installEventFilter(new MessageBoxWidth(this));
    appearance::apply(model.preferences());
    setAcceptDrops(true);
    resize(1200, 720);

    // Made in the order of the focus chain: the list first, so it has the focus at the start.
    tracks = new TrackList(model, this);
    connect(tracks, &TrackList::filesDropped, this,
            [this](const QList<QUrl>& urls) { openDropped(urls); });
    // Another view (such as a multitrack timeline) becomes another page beside the editor.
    views = new ViewStack(this);
    views->setObjectName("views");
    views->addWidget(buildSingleTrackEditor());
    // The multitrack page: the timeline above, the mixer below.
    multitrackPage = new QSplitter(Qt::Vertical, this);
    multitrackPage->setObjectName("multitrackPage");
    timelineView = new TimelineView(model, multitrackPage);
    multitrackPage->addWidget(timelineView);
    mixer = new MixerView(model, multitrackPage);
    multitrackPage->addWidget(mixer);
    multitrackPage->setStretchFactor(0, 1);
    views->addWidget(multitrackPage);
    views->addWidget(buildStartPage());
    transport = new TransportBar(model, this);
    connect(transport, &TransportBar::exportRequested, this, [this] { presentExportPanel(); });

    panes = new QSplitter(Qt::Horizontal, this);
    panes->setObjectName("panes");
    panes->setChildrenCollapsible(false);
    panes->addWidget(tracks);
    panes->addWidget(views);
    panes->setStretchFactor(1, 1);
    panes->setSizes({220, 1040 + panes->handleWidth()});
    // The transport bar spans the window above the list and the views.
    auto* main = new QWidget(this);
    auto* column = new QVBoxLayout(main);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(transport);
    column->addWidget(panes, 1);
    setCentralWidget(main);

    // The effects panel docks under the views while a chain is open. It scrolls inside the
    // dock rather than growing it, so the window keeps its size whatever effect shows.
    effects = new EffectsPanel(model, this);
    effects->setObjectName("effectsPanel");
    effectsDock = new QDockWidget("Effects", this);
    effectsDock->setObjectName("effectsDock");
    auto* effectsScroller = new QScrollArea(effectsDock);
    effectsScroller->setObjectName("effectsScroller");
    effectsScroller->setWidgetResizable(true);
    effectsScroller->setFrameShape(QFrame::NoFrame);
    effectsScroller->setWidget(effects);
    effectsScroller->setMinimumHeight(120);
    effectsDock->setWidget(effectsScroller);
    effectsDock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    addDockWidget(Qt::BottomDockWidgetArea, effectsDock);
    effectsDock->hide();
    connect(effects, &EffectsPanel::closed, effectsDock, &QWidget::hide);
    // "Effects", or "Effects: Bus 1" while the panel shows a bus's chain.
    connect(effects, &QWidget::windowTitleChanged, effectsDock, &QWidget::setWindowTitle);
    effectsDock->setWindowTitle(effects->windowTitle());

    menus = new MainMenus(model, *this, *effects->addMenu());
    connectCommands();
    setStatusBar(new StatusBar(model, this));
    showExportButton = new QPushButton("Show in Folder", this);
    showExportButton->setObjectName("showExported");
    showExportButton->setFlat(true);
    showExportButton->hide();
    statusBar()->addPermanentWidget(showExportButton);
    connect(showExportButton, &QPushButton::clicked, this,
            [this] { showInFileManager(exported, this); });
    connect(statusBar(), &QStatusBar::messageChanged, this, [this](const QString& text) {
        if (text.isEmpty()) showExportButton->hide();
    });
    // Right-click on the list offers what applies to the selected tracks.
    tracks->setContextMenuPolicy(Qt::ActionsContextMenu);
    for (ActionID id : {ActionID::locateMissing, ActionID::removeTracks, ActionID::exportAudio})
        tracks->addAction(action(id));
    observeModel();
    model.windowPicture = [this] { return windowPicture(); };
    for (ActionID id : {ActionID::showTrackList, ActionID::showInspector})
        connect(action(id), &QAction::toggled, this, [this] { fitPanels(); });
    restoreLayout();
    refreshTitle();
}

MainWindow::~MainWindow() { model.windowPicture = nullptr; }

// The waveform canvas, with the inspector above the marker list beside it.
QWidget* MainWindow::buildSingleTrackEditor() {
    waveform = new WaveformCanvas(model, this);
    waveform->setObjectName("waveformCanvas");
    waveform->setMinimumSize(320, 200);
    // Under the canvas's message for a track whose file has gone.
    locateButton = new QPushButton(QString::fromUtf8("Locate\u2026"), waveform);
    locateButton->setObjectName("locateButton");
    locateButton->setToolTip("Find the file; other missing files in its folder are found with it");
    locateButton->hide();
    connect(locateButton, &QPushButton::clicked, this, [this] { presentLocateDialog(); });
    waveform->installEventFilter(this);

    sidePanel = new QSplitter(Qt::Vertical, this);
    sidePanel->setObjectName("inspectorAndMarkers");
    sidePanel->addWidget(new InspectorPanel(model, sidePanel));
    markers = new MarkerPanel(model, sidePanel);
    connect(markers, &MarkerPanel::exportRegionsRequested, this,
            [this] { presentExportRegionsPanel(); });
    trackPanels = new QTabWidget(sidePanel);
    trackPanels->setObjectName("trackPanels");
    trackPanels->setDocumentMode(true);
    trackPanels->addTab(markers, "Markers");
    if (features::transcription) {
        transcript = new TranscriptPanel(model, trackPanels);
        trackPanels->addTab(transcript, "Transcript");
    }
    trackPanels->tabBar()->setVisible(trackPanels->count() > 1);
    sidePanel->addWidget(trackPanels);
    sidePanel->setMinimumWidth(220);

    editorSplit = new QSplitter(Qt::Horizontal, this);
    editorSplit->setObjectName("singleTrackEditor");
    editorSplit->setChildrenCollapsible(false);
    editorSplit->addWidget(waveform);
    editorSplit->addWidget(sidePanel);
    editorSplit->setStretchFactor(0, 1);
    editorSplit->setSizes({760, 280});
    return editorSplit;
}

// The commands whose work is the window's: its dialogs and questions, quitting, the effects
// dock, and zooming the view.
void MainWindow::connectCommands() {
    using ID = ActionID;
    // A command of the multitrack view while it shows, else of the waveform canvas.
    auto inView = [this](std::function<void()> timeline, std::function<void()> canvas) {
        return [this, timeline, canvas] { model.isShowingTimeline() ? timeline() : canvas(); };
    };
    const std::pair<ActionID, std::function<void()>> commands[] = {
        {ID::newSession, [this] { newSession(); }},
        {ID::open, [this] { presentOpenDialog(); }},
        {ID::openSession, [this] { presentOpenSessionDialog(); }},
        {ID::saveSession, [this] { saveSession(); }},
        {ID::saveSessionAs, [this] { presentSaveSessionDialog({}); }},
        {ID::revertToSaved, [this] { askToRevert(); }},
        {ID::snapshots, [this] { presentSnapshots(); }},
        {ID::exportAudio, [this] { presentExportPanel(); }},
        {ID::exportRegions, [this] { presentExportRegionsPanel(); }},
        {ID::locateMissing, [this] { presentLocateDialog(); }},
        {ID::settings,
         [this] {
             auto* dialog = new SettingsDialog(model.preferences(), this);
             dialog->setAttribute(Qt::WA_DeleteOnClose);
             dialog->setTranscriptionLanguages(model.transcriber().languages(),
                                               qs(model.transcriber().engineSummary()));
             dialog->showModels(model);
             dialog->show();
         }},
        {ID::quit, [this] { close(); }},
        {ID::zoomIn, inView([this] { timelineView->zoomBy(0.5); }, [this] { waveform->zoomIn(); })},
        {ID::zoomOut, inView([this] { timelineView->zoomBy(2); }, [this] { waveform->zoomOut(); })},
        {ID::zoomToSelection, [this] { waveform->zoomToSelection(); }},
        {ID::zoomToFit,
         inView([this] { timelineView->zoomToFit(); }, [this] { waveform->zoomToFit(); })},
        {ID::removeLane, [this] { timelineView->removeCurrentLane(); }},
        {ID::verticalZoomIn, [this] { waveform->verticalZoomIn(); }},
        {ID::verticalZoomOut, [this] { waveform->verticalZoomOut(); }},
        {ID::showEffects,
         [this] {
             effectsDock->show();
             effectsDock->raise();
         }},
        {ID::keyboardShortcuts,
         [this] {
             auto* dialog = new ShortcutsDialog(*menuBar(), this);
             dialog->setAttribute(Qt::WA_DeleteOnClose);
             dialog->show();
         }},
        {ID::about,
         [this] {
             auto* dialog = new AboutDialog(this);
             dialog->setAttribute(Qt::WA_DeleteOnClose);
             dialog->show();
         }},
    };
    for (const auto& [id, run] : commands)
        connect(action(id), &QAction::triggered, this, run);
    connect(menus, &MainMenus::recentSessionChosen, this,
            [this](const QString& path) { openSession(path.toStdString()); });
    // The button under the canvas offers Locate whenever the command applies.
    connect(action(ID::locateMissing), &QAction::changed, this, [this] { showLocateButton(); });
    showLocateButton();
}

void MainWindow::observeModel() {
    modelConnections.add(model.alertChanged.connect([this] { showAlert(); }));
    modelConnections.add(model.effectChainChanged.connect([this] {
        effectsDock->setVisible(model.effectChain() != nullptr);
        // Half the window at first; after that the height the user gave it.
        if (effectsDock->isVisible() && !std::exchange(effectsDockSized, true))
            resizeDocks({effectsDock}, {std::max(240, height() / 2)}, Qt::Vertical);
    }));
    modelConnections.add(model.beepRequested.connect([] { QApplication::beep(); }));
    modelConnections.add(model.textCopied.connect(
        [](const std::string& text) { QGuiApplication::clipboard()->setText(qs(text)); }));
    // New topic regions are shown where they can be seen: the marker list's tab.
    modelConnections.add(model.markerListShown.connect([this] {
        if (trackPanels) trackPanels->setCurrentIndex(0);
    }));
    modelConnections.add(model.documentChanged.connect([this] {
        refreshTitle();
        if (closeAfterSave && !model.isSavingDocument()) {
            closeAfterSave = false;
            if (!model.needsSaving()) QTimer::singleShot(0, this, [this] { close(); });
        }
    }));
    modelConnections.add(model.timelineShowingChanged.connect([this] {
        showCurrentView();
        refreshTitle();
    }));
    modelConnections.add(model.tracksChanged.connect([this] {
        showCurrentView();
        refreshTitle();
    }));
    modelConnections.add(model.selectionChanged.connect([this] { refreshTitle(); }));
    modelConnections.add(model.preferences().changed.connect([this](Preferences::Setting setting) {
        using S = Preferences::Setting;
        if (setting == S::recentSessions) refreshStartPage();
        if (setting == S::canvasTheme || setting == S::followsSystemAppearance)
            appearance::apply(model.preferences());
    }));
    modelConnections.add(
        model.exportFinished.connect([this](const std::filesystem::path& written, size_t count) {
            showExportFinished(written, count);
        }));
    showCurrentView();
    modelConnections.add(model.clippingQuestionRequested.connect(
        [this](const ClippingQuestion& question) { askAboutClipping(question); }));
    modelConnections.add(model.trackRemovalRequested.connect(
        [this](const TrackRemovalQuestion& question) { askToRemoveTracks(question); }));
    modelConnections.add(model.documentReplaceRequested.connect([this](std::filesystem::path url) {
        QPointer<MainWindow> self(this);
        askToLeaveSession(false, [self, url] {
            if (self) self->model.openDocumentNow(url);
        });
    }));
}

void MainWindow::showCurrentView() {
    QWidget* page = views->widget(0);
    if (model.isShowingTimeline())
        page = multitrackPage;
    else if (model.tracks().empty())
        page = startPage;
    views->setCurrentWidget(page);
}

QWidget* MainWindow::buildStartPage() {
    startPage = new QWidget(this);
    startPage->setObjectName("startPage");
    startPage->setAcceptDrops(false); // drops reach the window, which opens them
    auto* outer = new QVBoxLayout(startPage);
    outer->addStretch(2);
    auto* box = new QWidget(startPage);
    auto* column = new QVBoxLayout(box);
    column->setSpacing(10);
    auto* heading = new QLabel("Drop audio files here", box);
    QFont big = heading->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    heading->setFont(big);
    heading->setAlignment(Qt::AlignCenter);
    column->addWidget(heading);
    auto* hint = new QLabel(QString::fromUtf8("WAV, AIFF, FLAC, MP3, AAC, Ogg and Opus; a folder "
                                              "opens the audio files inside it."),
                            box);
    hint->setAlignment(Qt::AlignCenter);
    hint->setWordWrap(true);
    column->addWidget(hint);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    for (auto [id, text] : {std::pair{ActionID::open, "Open Audio Files\u2026"},
                            std::pair{ActionID::openSession, "Open Session\u2026"}}) {
        auto* button = new QPushButton(QString::fromUtf8(text), box);
        button->setObjectName(id == ActionID::open ? "startOpen" : "startOpenSession");
        connect(button, &QPushButton::clicked, this, [this, id] { action(id)->trigger(); });
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    column->addLayout(buttons);
    auto* keys = new QLabel(QString::fromUtf8("Ctrl+O opens files \u00b7 Space plays \u00b7 "
                                              "Ctrl+/ lists every shortcut"),
                            box);
    keys->setAlignment(Qt::AlignCenter);
    keys->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(keys);
    recentSessions = new QWidget(box);
    recentSessions->setObjectName("startRecent");
    new QVBoxLayout(recentSessions);
    column->addSpacing(12);
    column->addWidget(recentSessions);
    box->setMaximumWidth(520);
    outer->addWidget(box, 0, Qt::AlignHCenter);
    outer->addStretch(3);
    refreshStartPage();
    return startPage;
}

void MainWindow::refreshStartPage() {
    auto* list = static_cast<QVBoxLayout*>(recentSessions->layout());
    while (QLayoutItem* item = list->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto& recents = model.preferences().recentSessions();
    recentSessions->setVisible(!recents.empty());
    if (recents.empty()) return;
    auto* title = new QLabel("<b>Recent sessions</b>", recentSessions);
    title->setAlignment(Qt::AlignCenter);
    list->addWidget(title);
    for (size_t i = 0; i < std::min<size_t>(recents.size(), 5); ++i) {
        const QString path = qs(recents[i]);
        auto* button = new QPushButton(QFileInfo(path).completeBaseName(), recentSessions);
        button->setFlat(true);
        button->setToolTip(path);
        connect(button, &QPushButton::clicked, this,
                [this, path] { openSession(path.toStdString()); });
        list->addWidget(button);
    }
}

void MainWindow::fitPanels() {
    if (!menus) return; // a resize while the window is being made
    // The waveform keeps most of the width: below these widths the inspector, then the list,
    // step aside until the window is wide again.
    constexpr int roomForInspector = 1000, roomForList = 720;
    const int width = this->width();
    tracks->setVisible(action(ActionID::showTrackList)->isChecked() && width >= roomForList);
    sidePanel->setVisible(action(ActionID::showInspector)->isChecked() &&
                          width >= roomForInspector);
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    fitPanels();
}

namespace {
constexpr quint32 layoutVersion = 1;
}

void MainWindow::saveLayout() {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << layoutVersion << saveGeometry() << saveState() << panes->saveState()
        << editorSplit->saveState() << sidePanel->saveState() << multitrackPage->saveState()
        << action(ActionID::showTrackList)->isChecked()
        << action(ActionID::showInspector)->isChecked();
    model.preferences().setWindowLayout(std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

void MainWindow::restoreLayout() {
    const auto& saved = model.preferences().windowLayout();
    if (!saved) return;
    const QByteArray bytes(reinterpret_cast<const char*>(saved->data()), qsizetype(saved->size()));
    QDataStream in(bytes);
    quint32 version = 0;
    QByteArray geometry, state, panesState, editorState, sideState, multitrackState;
    bool listShown = true, inspectorShown = true;
    in >> version >> geometry >> state >> panesState >> editorState >> sideState >>
        multitrackState >> listShown >> inspectorShown;
    if (version != layoutVersion || in.status() != QDataStream::Ok) return;
    restoreGeometry(geometry);
    restoreState(state);
    panes->restoreState(panesState);
    editorSplit->restoreState(editorState);
    sidePanel->restoreState(sideState);
    multitrackPage->restoreState(multitrackState);
    action(ActionID::showTrackList)->setChecked(listShown);
    action(ActionID::showInspector)->setChecked(inspectorShown);
    // The dock's height comes back; whether it shows is the open chain's to say.
    effectsDock->setVisible(model.effectChain() != nullptr);
    effectsDockSized = true;
    fitPanels();
}

void MainWindow::showExportFinished(const std::filesystem::path& written, size_t count) {
    exported = written;
    const QString where = qs(written.string());
    const QString text =
        count == 1 ? QString("Exported \u201c%1\u201d to %2")
                         .arg(QFileInfo(where).fileName(), QFileInfo(where).absolutePath())
                   : QString("Exported %1 files to %2").arg(count).arg(where);
    statusBar()->showMessage(text, 30000);
    showExportButton->show();
}

QAction* MainWindow::action(ActionID id) const { return menus->action(id); }

QListWidget* MainWindow::trackList() const { return tracks; }

QTreeWidget* MainWindow::markerList() const { return markers->list(); }

LevelMeterWidget* MainWindow::outputMeter() const { return transport->meter(); }

void MainWindow::showLocateButton() {
    const bool missing = action(ActionID::locateMissing)->isVisible();
    locateButton->setVisible(missing);
    if (missing) placeLocateButton();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == waveform && event->type() == QEvent::Resize) placeLocateButton();
    return QMainWindow::eventFilter(watched, event);
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
        connect(currentAlertBox, &QMessageBox::finished, this, [this, box = currentAlertBox] {
            const QAbstractButton* clicked = box->clickedButton();
            currentAlertBox = nullptr;
            if (clicked && clicked->objectName() == "alertAction")
                model.performAlertAction();
            else
                model.dismissAlert();
        });
        currentAlertBox->open();
    }
    currentAlertBox->setWindowTitle(qs(alert->title));
    currentAlertBox->setText(qs(alert->title));
    currentAlertBox->setInformativeText(qs(alert->message));
    currentAlertBox->setDetailedText(qs(alert->details));
    // The alert's own action, when it has one, sits beside OK; a box reused for the next
    // alert gets that alert's button.
    auto* action = currentAlertBox->findChild<QPushButton*>("alertAction");
    if (action && action->text() != qs(alert->actionTitle)) {
        currentAlertBox->removeButton(action);
        action->deleteLater();
        action = nullptr;
    }
    if (!action && !alert->actionTitle.empty()) {
        action = currentAlertBox->addButton(qs(alert->actionTitle), QMessageBox::ActionRole);
        action->setObjectName("alertAction"); // the box's finished() runs the action
    }
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
    fitExportDialog(dialog, this);
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
    fitExportDialog(dialog, this);
    currentExportDialog = dialog;
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& folder) {
        model.exportRegions(folder.toStdString(), exportOptions->format());
    });
    connect(dialog, &QObject::destroyed, this, [this] { currentExportDialog = nullptr; });
    dialog->open();
}

void MainWindow::openDropped(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> paths;
    for (const QUrl& url : urls)
        if (url.isLocalFile()) paths.emplace_back(url.toLocalFile().toStdString());
    model.open(paths);
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    if (!event->mimeData()->hasUrls()) return;
    event->acceptProposedAction();
    openDropped(event->mimeData()->urls());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // A recording is finished and kept, never thrown away with the window.
    if (model.isRecording()) model.stopRecording();
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
    saveLayout();
    QMainWindow::closeEvent(event);
}

} // namespace sonvale
