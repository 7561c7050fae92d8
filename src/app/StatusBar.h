#pragma once

#include "app/SignalConnections.h"

#include <QStatusBar>

class QLabel;
class QProgressBar;
class QToolButton;

namespace sonvale {

class EditorModel;

// The window's bottom line: what is being loaded, exported or saved, with its progress, and
// the memory the audio takes (a click shows the details). Main thread only.
class StatusBar final : public QStatusBar {
public:
    explicit StatusBar(EditorModel& model, QWidget* parent = nullptr);

private:
    void watchTracks();
    void refreshStatus();
    void refreshMemory();
    void showMemoryDetails();

    EditorModel& model;
    QLabel* statusText = nullptr;
    QProgressBar* statusProgress = nullptr;
    QToolButton* memoryButton = nullptr;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
