#include "app/TrackList.h"

#include "app/DurationText.h"
#include "app/QtText.h"
#include "app/timeline/TimelineView.h"
#include "editor/EditorModel.h"

#include <QActionGroup>
#include <QCollator>
#include <QDrag>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>

namespace sonvale {

namespace {

std::optional<Uuid> trackID(const QListWidgetItem* item) {
    return Uuid::parse(item->data(Qt::UserRole).toString().toStdString());
}

QString channelsText(int count) {
    if (count == 1) return "Mono";
    if (count == 2) return "Stereo";
    return QString("%1 channels").arg(count);
}

QString rateText(double rate) {
    return QString("%1 kHz").arg(QLocale().toString(rate / 1000, 'g', 4));
}

// Rows a little apart with a line between them, and an accent beside the track the editor
// shows.
class RowDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        QStyleOptionViewItem shifted = option;
        shifted.rect.adjust(6, 0, 0, 0);
        QStyledItemDelegate::paint(painter, shifted, index);
        const QPalette& palette = option.palette;
        painter->fillRect(
            QRect(option.rect.left() + 4, option.rect.bottom(), option.rect.width() - 8, 1),
            palette.color(QPalette::Mid));
        // On a selected row the accent takes the selection's text colour to stand out.
        const bool selected = option.state & QStyle::State_Selected;
        if (index.data(TrackList::activeRole).toBool())
            painter->fillRect(
                QRect(option.rect.left() + 1, option.rect.top() + 3, 4, option.rect.height() - 6),
                palette.color(selected ? QPalette::HighlightedText : QPalette::Highlight));
    }
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        return QStyledItemDelegate::sizeHint(option, index) + QSize(6, 8);
    }
};

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
    setItemDelegate(new RowDelegate(this));
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTextElideMode(Qt::ElideMiddle);

    // The title and the sort button sit in a margin above the rows.
    header = new QWidget(this);
    auto* headerRow = new QHBoxLayout(header);
    headerRow->setContentsMargins(6, 2, 2, 2);
    auto* title = new QLabel("Tracks", header);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    headerRow->addWidget(title, 1);
    auto* sortButton = new QToolButton(header);
    sortButton->setObjectName("trackSortButton");
    sortButton->setText("Sort");
    sortButton->setAutoRaise(true);
    sortButton->setPopupMode(QToolButton::InstantPopup);
    sortButton->setToolTip("Sort the list by name, length or the order the files were opened");
    auto* sortMenu = new QMenu(sortButton);
    auto* group = new QActionGroup(sortMenu);
    for (auto [sort, name, text] : {std::tuple{SortOrder::opened, "sortByOpened", "Order Opened"},
                                    std::tuple{SortOrder::name, "sortByName", "Name"},
                                    std::tuple{SortOrder::duration, "sortByDuration", "Length"}}) {
        QAction* a = sortMenu->addAction(text, this, [this, sort = sort] { setSortOrder(sort); });
        a->setObjectName(name);
        a->setCheckable(true);
        a->setChecked(sort == order);
        group->addAction(a);
    }
    sortButton->setMenu(sortMenu);
    headerRow->addWidget(sortButton);
    setViewportMargins(0, header->sizeHint().height(), 0, 0);
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

void TrackList::setSortOrder(SortOrder sortOrder) {
    if (sortOrder == order) return;
    order = sortOrder;
    // Dragging rows reorders the tracks only in the order they were opened.
    setDragDropMode(order == SortOrder::opened ? QAbstractItemView::InternalMove
                                               : QAbstractItemView::DragOnly);
    for (QAction* a : header->findChildren<QAction*>())
        if (a->isCheckable())
            a->setChecked(a->objectName() == (order == SortOrder::opened ? "sortByOpened"
                                              : order == SortOrder::name ? "sortByName"
                                                                         : "sortByDuration"));
    refresh();
}

void TrackList::resizeEvent(QResizeEvent* event) {
    QListWidget::resizeEvent(event);
    const QRect inside = contentsRect();
    header->setGeometry(inside.left(), inside.top(), inside.width(), header->sizeHint().height());
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
    if (order != SortOrder::opened) {
        event->ignore();
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
        trackConnections.add(track->recordingChanged.connect(refresh));
    }
}

void TrackList::refresh() {
    refreshing = true;
    std::vector<AudioTrackPtr> list = model.tracks();
    if (order == SortOrder::name) {
        QCollator collator;
        collator.setNumericMode(true);
        collator.setCaseSensitivity(Qt::CaseInsensitive);
        std::stable_sort(list.begin(), list.end(), [&](const auto& a, const auto& b) {
            return collator.compare(qs(a->url().filename().string()),
                                    qs(b->url().filename().string())) < 0;
        });
    } else if (order == SortOrder::duration) {
        auto seconds = [](const AudioTrackPtr& t) {
            return t->audio() ? t->audio()->duration() : 0;
        };
        std::stable_sort(list.begin(), list.end(),
                         [&](const auto& a, const auto& b) { return seconds(a) < seconds(b); });
    }
    while (count() > int(list.size()))
        delete takeItem(count() - 1);
    while (count() < int(list.size())) {
        auto* item = new QListWidgetItem(this);
        item->setFlags(item->flags() | Qt::ItemIsDragEnabled);
    }
    const auto active = model.activeTrack();
    for (size_t row = 0; row < list.size(); ++row) {
        const AudioTrack& track = *list[row];
        QListWidgetItem* item = this->item(int(row));
        item->setData(Qt::UserRole, qs(track.id().text()));
        QString detail;
        QString tip;
        QColor colour = palette().color(QPalette::Text);
        if (track.isRecording()) {
            detail = QString::fromUtf8("Recording\u2026");
            colour = QColor(220, 40, 40);
        } else if (auto* loading = std::get_if<AudioTrack::Loading>(&track.state())) {
            detail = QString::asprintf("Loading %d%%", int(std::lround(loading->progress * 100)));
        } else if (auto* failed = std::get_if<AudioTrack::Failed>(&track.state())) {
            detail = qs(failed->message);
            tip = detail;
            colour = QColor(200, 60, 50);
        } else if (const auto& audio = track.audio()) {
            detail = durationText(audio->duration()) + QString::fromUtf8(" · ") +
                     rateText(audio->sampleRate) + QString::fromUtf8(" · ") +
                     channelsText(audio->channelCount());
        } else {
            detail = durationText(0);
        }
        QString mark;
        if (track.audioEditDepth() != 0) {
            const bool exported = track.editRevision() == track.exportedRevision();
            mark = exported ? QString::fromUtf8("\u25CB ") : QString::fromUtf8("\u25CF ");
            tip = exported ? "Edited and exported" : "Edited, not exported";
        }
        const std::string fileName = track.url().filename().string();
        item->setText(mark + qs(fileName.empty() ? track.name() : fileName) + "\n" + detail);
        item->setToolTip(tip);
        item->setForeground(colour);
        const bool shown = active && active->id() == track.id();
        QFont font = this->font();
        font.setBold(shown);
        item->setFont(font);
        item->setData(activeRole, shown);
        item->setSelected(model.selectedTrackIDs().count(track.id()) > 0);
    }
    refreshing = false;
}

} // namespace sonvale
