#pragma once

#include "app/SignalConnections.h"

#include <QList>
#include <QListWidget>
#include <QUrl>

namespace sonvale {

class EditorModel;

// The sidebar: one row per track with its name, length or load state and whether it has
// edits that weren't exported. Selecting rows selects the tracks and dragging a row reorders
// them (or places a track on the multitrack timeline); files and folders dropped on it are reported
// to the window. Main thread only.
class TrackList final : public QListWidget {
    Q_OBJECT
public:
    explicit TrackList(EditorModel& model, QWidget* parent = nullptr);

Q_SIGNALS:
    void filesDropped(const QList<QUrl>& urls);

protected:
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void watchTracks();
    void refresh();

    EditorModel& model;
    bool refreshing = false;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
