#include "app/TrackList.h"

#include "app/DurationText.h"
#include "app/timeline/TimelineView.h"
#include "editor/EditorModel.h"

#include <QDrag>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <cmath>
#include <set>

namespace sonvale {

namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

std::optional<Uuid> trackID(const QListWidgetItem* item) {
    return Uuid::parse(item->data(Qt::UserRole).toString().toStdString());
}

} // namespace

TrackList::TrackList(EditorModel& model, QWidget* parent)
    : QListWidget(parent)
    , model(model) {
    setObjectName("trackList");
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setDragDropMode(QAbstractItemView::InternalMove);
    setDefaultDropAction(Qt::MoveAction);
    setAcceptDrops(true);
    setMinimumWidth(180);
    connect(this, &QListWidget::itemSelectionChanged, this, [this] {
        if (refreshing) return;
        std::set<Uuid> ids;
        for (QListWidgetItem* item : selectedItems())
            if (auto id = trackID(item)) ids.insert(*id);
        this->model.setSelectedTrackIDs(std::move(ids));
    });
    modelConnections.add(model.tracksChanged.connect([this] {
        watchTracks();
        refresh();
    }));
    modelConnections.add(model.selectionChanged.connect([this] { refresh(); }));
    watchTracks();
    refresh();
}

// A row dragged out carries its track (and the track's selection) so that the multitrack view
// can place it on a lane; dropped back on the list it reorders the rows.
void TrackList::startDrag(Qt::DropActions) {
    const auto id = trackID(currentItem());
    const auto track = id ? model.track(*id) : nullptr;
    if (!track) return;
    QMimeData* data = mimeData(selectedItems());
    std::string text = track->id().text();
    if (const auto selection = track->selection())
        text += " " + std::to_string(selection->lower) + " " + std::to_string(selection->upper);
    data->setData(TimelineView::trackMimeType, QByteArray::fromStdString(text));
    auto* drag = new QDrag(this);
    drag->setMimeData(data);
    drag->exec(Qt::MoveAction | Qt::CopyAction, Qt::MoveAction);
}

void TrackList::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
    else
        QListWidget::dragEnterEvent(event);
}

void TrackList::dragMoveEvent(QDragMoveEvent* event) {
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
    else
        QListWidget::dragMoveEvent(event);
}

void TrackList::dropEvent(QDropEvent* event) {
    if (event->mimeData()->hasUrls()) {
        event->acceptProposedAction();
        Q_EMIT filesDropped(event->mimeData()->urls());
        return;
    }
    QListWidget::dropEvent(event);
    // A row was dragged to another place.
    std::vector<Uuid> order;
    for (int row = 0; row < count(); ++row)
        if (auto id = trackID(item(row))) order.push_back(*id);
    model.reorderTracks(order);
}

// Every track's row follows its name, load state, audio and revisions.
void TrackList::watchTracks() {
    trackConnections.clear();
    for (const auto& track : model.tracks()) {
        auto refresh = [this] { this->refresh(); };
        trackConnections.add(track->stateChanged.connect(refresh));
        trackConnections.add(track->urlChanged.connect(refresh));
        trackConnections.add(track->audioChanged.connect(refresh));
        trackConnections.add(track->revisionsChanged.connect(refresh));
    }
}

void TrackList::refresh() {
    refreshing = true;
    const auto& list = model.tracks();
    while (count() > int(list.size()))
        delete takeItem(count() - 1);
    while (count() < int(list.size())) {
        auto* item = new QListWidgetItem(this);
        item->setFlags(item->flags() | Qt::ItemIsDragEnabled);
    }
    for (size_t row = 0; row < list.size(); ++row) {
        const AudioTrack& track = *list[row];
        QListWidgetItem* item = this->item(int(row));
        item->setData(Qt::UserRole, qs(track.id().text()));
        QString detail;
        QString tip;
        QColor colour = palette().color(QPalette::Text);
        if (auto* loading = std::get_if<AudioTrack::Loading>(&track.state())) {
            detail = QString::asprintf("Loading %d%%", int(std::lround(loading->progress * 100)));
        } else if (auto* failed = std::get_if<AudioTrack::Failed>(&track.state())) {
            detail = qs(failed->message);
            tip = detail;
            colour = QColor(200, 60, 50);
        } else {
            detail = durationText(track.audio() ? track.audio()->duration() : 0);
        }
        QString mark;
        if (track.audioEditDepth() != 0) {
            const bool exported = track.editRevision() == track.exportedRevision();
            mark = exported ? QString::fromUtf8("\u25CB ") : QString::fromUtf8("\u25CF ");
            tip = exported ? "Edited and exported" : "Edited, not exported";
        }
        item->setText(mark + qs(track.name()) + "\n" + detail);
        item->setToolTip(tip);
        item->setForeground(colour);
        item->setSelected(model.selectedTrackIDs().count(track.id()) > 0);
    }
    refreshing = false;
}

} // namespace sonvale
