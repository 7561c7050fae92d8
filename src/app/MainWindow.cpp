#include "app/MainWindow.h"

#include "app/AboutDialog.h"
#include "app/InspectorPanel.h"
#include "app/MainMenus.h"
#include "app/MarkerPanel.h"
#include "app/SettingsDialog.h"
#include "app/StatusBar.h"
#include "app/TrackList.h"
#include "app/TransportBar.h"
#include "app/canvas/WaveformCanvas.h"
#include "app/effects/EffectsPanel.h"
#include "app/timeline/MixerView.h"
#include "app/timeline/TimelineView.h"
#include "audio/ExportOptions.h"
#include "editor/EditorModel.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <utility>

namespace sonvale {

namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

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

} // namespace

const char* const MainWindow::audioFilesFilter =
    "Audio files (*.wav *.aif *.aiff *.mp3 *.m4a *.aac *.flac *.ogg *.opus *.caf)";

MainWindow::MainWindow(EditorModel& model, QWidget* parent)
    : QMainWindow(parent)
    , model(model) {
    setWindowIcon(applicationIcon());
    setAcceptDrops(true);
    resize(1200, 720);

    // Made in the order of the focus chain: the list first, so it has the focus at the start.
    tracks = new TrackList(model, this);
    connect(tracks, &TrackList::filesDropped, this,
            [this](const QList<QUrl>& urls) { openDropped(urls); });
    // Another view (such as a multitrack timeline) becomes another page beside the editor.
    views = new QStackedWidget(this);
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
    transport = new TransportBar(model, this);
    connect(transport, &TransportBar::exportRequested, this, [this] { presentExportPanel(); });

    auto* split = new QSplitter(Qt::Horizontal, this);
    split->addWidget(tracks);
    split->addWidget(views);
    split->setStretchFactor(1, 1);
    split->setSizes({220, 1040 + split->handleWidth()});
    // The transport bar spans the window above the list and the views.
    auto* main = new QWidget(this);
    auto* column = new QVBoxLayout(main);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(transport);
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
    // "Effects", or "Effects: Bus 1" while the panel shows a bus's chain.
    connect(effects, &QWidget::windowTitleChanged, effectsDock, &QWidget::setWindowTitle);
    effectsDock->setWindowTitle(effects->windowTitle());

    menus = new MainMenus(model, *this, *effects->addMenu());
    connectCommands();
    setStatusBar(new StatusBar(model, this));
    // Right-click on the list offers what applies to the selected tracks.
    tracks->setContextMenuPolicy(Qt::ActionsContextMenu);
    for (ActionID id : {ActionID::locateMissing, ActionID::removeTracks, ActionID::exportAudio})
        tracks->addAction(action(id));
    observeModel();
    model.windowPicture = [this] { return windowPicture(); };
    refreshTitle();
}

MainWindow::~MainWindow() { model.windowPicture = nullptr; }

// The waveform canvas, with the inspector above the marker list beside it.
QWidget* MainWindow::buildSingleTrackEditor() {
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

    auto* side = new QSplitter(Qt::Vertical, this);
    side->addWidget(new InspectorPanel(model, side));
    markers = new MarkerPanel(model, side);
    connect(markers, &MarkerPanel::exportRegionsRequested, this,
            [this] { presentExportRegionsPanel(); });
    side->addWidget(markers);
    side->setMinimumWidth(260);

    auto* editor = new QSplitter(Qt::Horizontal, this);
    editor->setObjectName("singleTrackEditor");
    editor->addWidget(waveform);
    editor->addWidget(side);
    editor->setStretchFactor(0, 1);
    editor->setSizes({760, 280});
    return editor;
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
    modelConnections.add(model.effectChainChanged.connect(
        [this] { effectsDock->setVisible(model.effectChain() != nullptr); }));
    modelConnections.add(model.beepRequested.connect([] { QApplication::beep(); }));
    modelConnections.add(model.documentChanged.connect([this] {
        refreshTitle();
        if (closeAfterSave && !model.isSavingDocument()) {
            closeAfterSave = false;
            if (!model.needsSaving()) QTimer::singleShot(0, this, [this] { close(); });
        }
    }));
    auto showView = [this] {
        views->setCurrentWidget(model.isShowingTimeline() ? static_cast<QWidget*>(multitrackPage)
                                                          : views->widget(0));
    };
    modelConnections.add(model.timelineShowingChanged.connect(showView));
    showView();
    modelConnections.add(model.trackRemovalRequested.connect(
        [this](const TrackRemovalQuestion& question) { askToRemoveTracks(question); }));
    modelConnections.add(model.documentReplaceRequested.connect([this](std::filesystem::path url) {
        QPointer<MainWindow> self(this);
        askToLeaveSession(false, [self, url] {
            if (self) self->model.openDocumentNow(url);
        });
    }));
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
