#include "app/MarkerPanel.h"

#include "app/DurationText.h"
#include "app/QtText.h"
#include "editor/EditorModel.h"

#include <QGridLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace sonvale {

namespace {

std::optional<Uuid> markerID(const QTreeWidgetItem* item) {
    return Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString());
}

} // namespace

MarkerPanel::MarkerPanel(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    markers = new QTreeWidget(this);
    markers->setObjectName("markerList");
    markers->setColumnCount(3);
    markers->setHeaderLabels({"Name", "Start", "End"});
    markers->setRootIsDecorated(false);
    markers->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    // The times keep their width and the name takes what is left, so End stays in view.
    markers->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    markers->header()->setMinimumSectionSize(40);
    markers->header()->setStretchLastSection(false);
    markers->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    markers->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    markers->header()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    connect(markers, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int column) {
        if (refreshing || column != 0) return;
        auto track = this->model.activeTrack();
        auto id = markerID(item);
        if (track && id) track->renameMarker(*id, item->text(0).toStdString());
        refreshList();
    });
    connect(markers, &QTreeWidget::itemSelectionChanged, this, [this] { refreshButtons(); });
    // Delete in the list removes the selected markers rather than the audio selection.
    markers->installEventFilter(this);
    connect(markers, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item, int) {
        auto track = this->model.activeTrack();
        auto id = markerID(item);
        if (!track || !id) return;
        for (const Marker& marker : track->markers())
            if (marker.id == *id) this->model.scrub(marker.start);
    });
    column->addWidget(markers, 1);

    auto* buttons = new QGridLayout;
    deleteButton = new QPushButton("Delete", this);
    deleteButton->setObjectName("deleteMarker");
    connect(deleteButton, &QPushButton::clicked, this, [this] { removeSelectedMarkers(); });
    removeAllButton = new QPushButton("Remove All Markers", this);
    removeAllButton->setObjectName("removeAllMarkersButton");
    connect(removeAllButton, &QPushButton::clicked, this,
            [this] { this->model.removeAllMarkers(); });
    exportRegionsButton = new QPushButton("Export Regions", this);
    exportRegionsButton->setObjectName("exportRegionsButton");
    connect(exportRegionsButton, &QPushButton::clicked, this, &MarkerPanel::exportRegionsRequested);
    buttons->addWidget(deleteButton, 0, 0);
    buttons->addWidget(exportRegionsButton, 0, 1);
    buttons->addWidget(removeAllButton, 1, 0, 1, 2);
    column->addLayout(buttons);

    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    // Export Regions waits while another export runs.
    for (auto* signal : {&model.tracksChanged, &model.exportProgressChanged})
        modelConnections.add(signal->connect([this] { refreshButtons(); }));
    watchActiveTrack();
}

void MarkerPanel::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack()) {
        for (auto* signal : {&track->stateChanged, &track->audioChanged, &track->markersChanged})
            trackConnections.add(signal->connect([this] { refreshList(); }));
        trackConnections.add(track->recordingChanged.connect([this] { refreshButtons(); }));
    }
    refreshList();
}

void MarkerPanel::refreshList() {
    refreshing = true;
    markers->clear();
    if (auto track = model.activeTrack(); track && track->sampleRate() > 0) {
        const double rate = track->sampleRate();
        for (const Marker& marker : track->markers()) {
            auto* item = new QTreeWidgetItem(markers);
            item->setText(0, qs(marker.name));
            item->setText(1, durationText(double(marker.start) / rate));
            item->setText(2, marker.end ? durationText(double(*marker.end) / rate) : QString());
            item->setData(0, Qt::UserRole, qs(marker.id.text()));
            item->setToolTip(0, marker.isRegion() ? "Region" : "Marker");
            item->setFlags(item->flags() | Qt::ItemIsEditable);
        }
    }
    refreshing = false;
    refreshButtons();
}

void MarkerPanel::refreshButtons() {
    removeAllButton->setEnabled(model.hasMarkers());
    exportRegionsButton->setEnabled(model.canExportRegions());
    deleteButton->setEnabled(model.hasMarkers() && !markers->selectedItems().isEmpty());
}

void MarkerPanel::removeSelectedMarkers() {
    auto track = model.activeTrack();
    if (!track) return;
    std::vector<Uuid> ids;
    for (QTreeWidgetItem* item : markers->selectedItems())
        if (auto id = markerID(item)) ids.push_back(*id);
    for (const Uuid& id : ids)
        track->removeMarker(id);
}

bool MarkerPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == markers &&
        (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress)) {
        auto* key = static_cast<QKeyEvent*>(event);
        if ((key->key() == Qt::Key_Delete || key->key() == Qt::Key_Backspace) &&
            key->modifiers() == Qt::NoModifier && !markers->selectedItems().isEmpty()) {
            event->accept();
            if (event->type() == QEvent::KeyPress) removeSelectedMarkers();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace sonvale
