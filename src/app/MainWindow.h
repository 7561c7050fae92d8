#pragma once

#include "audio/AudioTrack.h"
#include "engine/LevelMeter.h"

#include <QMainWindow>
#include <QStringList>
#include <map>
#include <memory>
#include <sigc++/connection.h>
#include <vector>

class QAction;
class QDockWidget;
class QFileDialog;
class QLabel;
class QListWidget;
class QMessageBox;
class QProgressBar;
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

    void presentOpenDialog();
    void presentExportPanel();
    void presentExportRegionsPanel();
    void showMemoryDetails();
    void removeSelectedTracks();
    void selectAll();

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

    bool refreshingMarkers = false;
    bool refreshingTracks = false;
    std::vector<sigc::connection> modelConnections;
    std::vector<sigc::connection> trackConnections;
    std::vector<sigc::connection> activeConnections;
};

} // namespace sonvale
