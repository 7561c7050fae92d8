#pragma once

#include "app/ActionID.h"
#include "app/SignalConnections.h"

#include <QMainWindow>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QAction;
class QDockWidget;
class QFileDialog;
class QListWidget;
class QMessageBox;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTabWidget;
class QTreeWidget;
class QUrl;

namespace sonvale {

class EditorModel;
class EffectsPanel;
class ExportOptions;
class LevelMeterWidget;
class MainMenus;
class MarkerPanel;
class TranscriptPanel;
class MixerView;
class TrackList;
struct ClippingQuestion;
struct TrackRemovalQuestion;
class TimelineView;
class TransportBar;
class WaveformCanvas;

// Sonvale's editor window. It creates and arranges the parts a person sees, each of which
// follows the editor model itself: the menus, the transport bar across the top, the track list
// on the left, the views beside it (the single-track editor: the waveform canvas with the
// inspector and the marker list), the effects dock and the status bar. The window keeps what
// is its own: drops, the dialogs, the alerts, the questions asked before the session goes, and
// the title. Main thread only.
//
// The window is titled after the open session document and marked modified while the session
// has something to save. Closing it, starting a new session or opening another one asks first
// whenever the model says changes would be lost; no edit is dropped without that question.
class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(EditorModel& model, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens files and folders as new tracks (the command line, drops, the open dialog).
    void openFiles(const QStringList& paths);

    QAction* action(ActionID id) const;
    QListWidget* trackList() const;
    WaveformCanvas* canvas() const { return waveform; }
    TimelineView* multitrackView() const { return timelineView; }
    MixerView* mixerView() const { return mixer; }
    QTreeWidget* markerList() const;
    TranscriptPanel* transcriptPanel() const { return transcript; }
    QTabWidget* trackPanelTabs() const { return trackPanels; }
    // The export dialog or region folder chooser being shown, if any.
    QFileDialog* exportDialog() const { return currentExportDialog; }
    QMessageBox* alertBox() const { return currentAlertBox; }
    // The session open, save or locate dialog being shown, if any.
    QFileDialog* sessionDialog() const { return currentSessionDialog; }
    // The question being asked before the session is closed, replaced or reverted, or before
    // tracks whose clips play on the timeline are removed, if any.
    QMessageBox* sessionQuestion() const { return currentQuestion; }
    LevelMeterWidget* outputMeter() const;
    EffectsPanel* effectsPanel() const { return effects; }
    QDockWidget* effectsPanelDock() const { return effectsDock; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The open dialogs' filter for audio files.
    static const char* const audioFilesFilter;

    QWidget* buildSingleTrackEditor();
    // What the views show before any track is open: what to do, and the recent sessions.
    QWidget* buildStartPage();
    void refreshStartPage();
    void showCurrentView();
    // Shows the track list and the inspector as the View menu asks, stepping them aside
    // while the window is too narrow for them and a waveform that reads.
    void fitPanels();
    // The window's size, place, splitters and panels, kept in the preferences at close.
    void saveLayout();
    void restoreLayout();
    void showExportFinished(const std::filesystem::path& written, size_t count);
    void connectCommands();
    void observeModel();

    void openDropped(const QList<QUrl>& urls);
    void showAlert();
    void refreshTitle();
    void showLocateButton();
    void placeLocateButton();

    void presentOpenDialog();
    void presentExportPanel();
    void presentExportRegionsPanel();

    // Asks whether to save before the live session goes (`quitting`: the window closes), then
    // runs `proceed` once the session is saved or the user chose not to save; Cancel runs
    // nothing.
    void askToLeaveSession(bool quitting, std::function<void()> proceed);
    // Whether to remove the clips that play the tracks' audio with them.
    void askToRemoveTracks(const TrackRemovalQuestion& question);
    // Whether to limit the peaks or stop at the clean gain when a loudness target would clip.
    void askAboutClipping(const ClippingQuestion& question);
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
    MainMenus* menus = nullptr;
    TransportBar* transport = nullptr;
    TrackList* tracks = nullptr;
    // The views beside the track list; the window shows one at a time.
    QStackedWidget* views = nullptr;
    WaveformCanvas* waveform = nullptr;
    QSplitter* multitrackPage = nullptr;
    QWidget* startPage = nullptr;
    QWidget* recentSessions = nullptr; // the start page's list
    // The track list | the views; the waveform | the inspector above the markers.
    QSplitter* panes = nullptr;
    QSplitter* editorSplit = nullptr;
    QSplitter* sidePanel = nullptr;
    QPushButton* showExportButton = nullptr; // in the status bar after an export
    std::filesystem::path exported;
    bool effectsDockSized = false;
    TimelineView* timelineView = nullptr;
    MixerView* mixer = nullptr;
    MarkerPanel* markers = nullptr;
    TranscriptPanel* transcript = nullptr;
    QTabWidget* trackPanels = nullptr; // the markers, the transcript
    EffectsPanel* effects = nullptr;
    QDockWidget* effectsDock = nullptr;
    QPushButton* locateButton = nullptr;

    QFileDialog* currentExportDialog = nullptr;
    std::unique_ptr<ExportOptions> exportOptions;
    QMessageBox* currentAlertBox = nullptr;
    QFileDialog* currentSessionDialog = nullptr;
    QMessageBox* currentQuestion = nullptr;
    // The user chose to close without saving; the next close goes through.
    bool leavingConfirmed = false;
    // A close came while a save was running; the window closes when it has saved everything.
    bool closeAfterSave = false;

    SignalConnections modelConnections;
};

} // namespace sonvale
