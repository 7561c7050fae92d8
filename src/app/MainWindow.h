#pragma once

#include "audio/AudioTrack.h"
#include "engine/LevelMeter.h"

#include <QMainWindow>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sigc++/connection.h>
#include <vector>

class QAction;
class QDockWidget;
class QFileDialog;
class QLabel;
class QListWidget;
class QMenu;
class QMessageBox;
class QProgressBar;
class QPushButton;
class QSlider;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace sonvale {

class EditorModel;
class EffectsPanel;
class ExportOptions;
class LevelMeterWidget;
class TrackListWidget;
class WaveformCanvas;

// Sonvale's single-track editor window: the track list, the waveform canvas, the transport
// bar, the inspector, the marker list, menus and the status bar. It observes the editor model
// and calls its operations; the editing itself happens in the model. Main thread only.
//
// The window is titled after the open session document and marked modified while the session
// has something to save. Closing it, starting a new session or opening another one asks first
// whenever the model says changes would be lost; no edit is dropped without that question.
//
// Actions carry object names ("cut", "undo", "export" ...) so tests and accessibility tools
// can find them.
class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(EditorModel& model, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens files and folders as new tracks (the command line, drops, the open dialog).
    void openFiles(const QStringList& paths);

    QListWidget* trackList() const;
    QAction* action(const QString& name) const;
    WaveformCanvas* canvas() const { return waveform; }
    QTreeWidget* markerList() const { return markers; }
    // The export dialog or region folder chooser being shown, if any.
    QFileDialog* exportDialog() const { return currentExportDialog; }
    QMessageBox* alertBox() const { return currentAlertBox; }
    // The session open, save or locate dialog being shown, if any.
    QFileDialog* sessionDialog() const { return currentSessionDialog; }
    // The question being asked before the session is closed, replaced or reverted, if any.
    QMessageBox* sessionQuestion() const { return currentQuestion; }
    LevelMeterWidget* outputMeter() const { return meter; }
    EffectsPanel* effectsPanel() const { return effects; }
    QDockWidget* effectsPanelDock() const { return effectsDock; }

    // Formats a duration for the track list and the time display: "m:ss.t" or "h:mm:ss.t".
    static QString durationText(double seconds);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The open dialogs' filter for audio files.
    static const char* const audioFilesFilter;

    QAction* makeAction(const QString& name, const QString& text, const QKeySequence& shortcut,
                        std::function<void()> run);
    void buildMenus();
    QWidget* buildTransportBar();
    QWidget* buildInspector();
    QWidget* buildMarkerPanel();
    void buildStatusBar();

    void observeModel();
    void observeActiveTrack();
    void watchTrackItems();

    void refreshTrackList();
    void refreshActions();
    void removeSelectedMarkers();
    void refreshTransport();
    void refreshInspector();
    void refreshMarkers();
    void refreshStatus();
    void refreshMemory();
    void refreshMeter();
    void showAlert();
    void refreshTitle();
    void refreshSessionActions();
    void rebuildRecentMenu();
    void placeLocateButton();

    void presentOpenDialog();
    void presentExportPanel();
    void presentExportRegionsPanel();
    void showMemoryDetails();
    void removeSelectedTracks();
    void selectAll();

    // Asks whether to save before the live session goes (`quitting`: the window closes), then
    // runs `proceed` once the session is saved or the user chose not to save; Cancel runs
    // nothing.
    void askToLeaveSession(bool quitting, std::function<void()> proceed);
    // Saves the open document, or asks where first when there is none; `then` runs after a
    // save that succeeded.
    void saveSession(std::function<void()> then = {});
    void presentSaveSessionDialog(std::function<void()> then);
    void presentOpenSessionDialog();
    void openSession(const std::filesystem::path& url);
    void newSession();
    void askToRevert();
    void confirmKeepingNewFiles(std::function<void()> proceed);
    void presentSnapshots();
    void presentLocateDialog();
    std::optional<std::vector<uint8_t>> windowPicture();

    EditorModel& model;
    TrackListWidget* tracks = nullptr;
    WaveformCanvas* waveform = nullptr;
    EffectsPanel* effects = nullptr;
    QDockWidget* effectsDock = nullptr;
    QTreeWidget* markers = nullptr;
    std::map<QString, QAction*> actions;

    QToolButton* playButton = nullptr;
    QToolButton* loopButton = nullptr;
    QLabel* rateLabel = nullptr;
    QLabel* timeLabel = nullptr;
    QSlider* gainSlider = nullptr;
    QLabel* gainLabel = nullptr;
    QToolButton* normalizeButton = nullptr;
    LevelMeterWidget* meter = nullptr;
    QToolButton* exportButton = nullptr;

    QLabel* fileLabel = nullptr;
    QLabel* formatLabel = nullptr;
    QLabel* durationLabel = nullptr;
    QLabel* rateInfoLabel = nullptr;
    QLabel* channelsLabel = nullptr;
    QLabel* peakLabel = nullptr;
    QLabel* loudnessLabel = nullptr;
    QLabel* inspectorGainLabel = nullptr;

    QLabel* statusText = nullptr;
    QProgressBar* statusProgress = nullptr;
    QToolButton* memoryButton = nullptr;

    QFileDialog* currentExportDialog = nullptr;
    std::unique_ptr<ExportOptions> exportOptions;
    QMessageBox* currentAlertBox = nullptr;
    QMenu* recentMenu = nullptr;
    QPushButton* locateButton = nullptr;
    QFileDialog* currentSessionDialog = nullptr;
    QMessageBox* currentQuestion = nullptr;
    // The user chose to close without saving; the next close goes through.
    bool leavingConfirmed = false;
    // A close came while a save was running; the window closes when it has saved everything.
    bool closeAfterSave = false;

    bool refreshingMarkers = false;
    bool refreshingTracks = false;
    std::vector<sigc::connection> modelConnections;
    std::vector<sigc::connection> trackConnections;
    std::vector<sigc::connection> activeConnections;
    sigc::connection preferencesConnection;
};

} // namespace sonvale
