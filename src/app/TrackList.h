#pragma once

#include "app/SignalConnections.h"

#include <QList>
#include <QListWidget>
#include <QUrl>

namespace sonvale {

class EditorModel;

// The sidebar: one row per track with its file name on the first line and its length, rate
// and channels (or load state) on the second, a mark for edits that weren't exported, and the
// track the editor shows in bold with an accent. Selecting rows selects the tracks and
// dragging a row reorders them (or places a track on the multitrack timeline); the button
// above sorts the rows by name or length without changing the tracks' order. Files and
// folders dropped on it are reported to the window. Main thread only.
class TrackList final : public QListWidget {
    Q_OBJECT
public:
    explicit TrackList(EditorModel& model, QWidget* parent = nullptr);

    enum class SortOrder { opened, name, duration };
    SortOrder sortOrder() const { return order; }
    void setSortOrder(SortOrder sortOrder);
    // Set on the row of the track the editor shows.
    static constexpr int activeRole = Qt::UserRole + 1;

Q_SIGNALS:
    void filesDropped(const QList<QUrl>& urls);

protected:
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void watchTracks();
    void refresh();

    EditorModel& model;
    SortOrder order = SortOrder::opened;
    QWidget* header = nullptr;
    bool refreshing = false;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
