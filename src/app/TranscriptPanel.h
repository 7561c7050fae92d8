#pragma once

#include "app/SignalConnections.h"
#include "audio/Transcript.h"

#include <QWidget>

#include <optional>
#include <vector>

class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace sonvale {

class EditorModel;

// The active track's transcript: its lines with their clock times, the one being heard marked
// during playback, a click or Enter on a line goes there. Transcribe (or Transcribe Again)
// with its progress and Cancel, Copy Transcript, and the notice when the audio was edited
// after transcribing; with AI features on, Suggest Title & Summary (shown above the lines,
// with a button that names the track after the title) and Create Regions from Topics. Main
// thread only.
class TranscriptPanel final : public QWidget {
    Q_OBJECT
public:
    explicit TranscriptPanel(EditorModel& model, QWidget* parent = nullptr);

    QTreeWidget* list() const { return lines; }
    // The line marked as being heard, if any.
    std::optional<int> heardLine() const { return heard; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void watchActiveTrack();
    void refreshLines();
    void fitRowHeights();
    void refreshState();
    void refreshHeardLine();
    void goToLine(QTreeWidgetItem* item);

    EditorModel& model;
    QLabel* notice = nullptr;
    QTreeWidget* lines = nullptr;
    QLabel* emptyText = nullptr;
    QProgressBar* progress = nullptr;
    QPushButton* cancelButton = nullptr;
    QPushButton* transcribeButton = nullptr;
    QPushButton* copyButton = nullptr;
    QWidget* overview = nullptr;
    QLabel* titleLabel = nullptr;
    QLabel* summaryLabel = nullptr;
    QPushButton* useTitleButton = nullptr;
    QPushButton* suggestButton = nullptr;
    QPushButton* topicsButton = nullptr;
    std::optional<int> heard;
    const void* shownTrack = nullptr; // whose lines the list holds
    std::optional<std::vector<TranscriptSegment>> shownSegments;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
