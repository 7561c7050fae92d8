#pragma once

#include "app/SignalConnections.h"

#include <QWidget>

class QPushButton;
class QTreeWidget;

namespace sonvale {

class EditorModel;

// The active track's markers and regions: renamed in place, a click moves the playhead to
// one, Delete (the key or the button) removes the selected ones, and Remove All Markers all
// of them. Export Regions is reported to the window, which asks for the folder. Main thread
// only.
class MarkerPanel final : public QWidget {
    Q_OBJECT
public:
    explicit MarkerPanel(EditorModel& model, QWidget* parent = nullptr);

    QTreeWidget* list() const { return markers; }

Q_SIGNALS:
    void exportRegionsRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void watchActiveTrack();
    void refreshList();
    void refreshButtons();
    void removeSelectedMarkers();

    EditorModel& model;
    QTreeWidget* markers = nullptr;
    QPushButton* deleteButton = nullptr;
    QPushButton* removeAllButton = nullptr;
    QPushButton* exportRegionsButton = nullptr;
    bool refreshing = false;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
