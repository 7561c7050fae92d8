#include "app/SnapshotsDialog.h"

#include "app/QtText.h"
#include "editor/EditorModel.h"

#include <QDateTime>
#include <QDialogButtonBox>
#include <QImageReader>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <chrono>

namespace sonvale {

namespace {

const QSize thumbnailSize(176, 110);

QString counted(int64_t count, const char* singular, const char* plural) {
    return QString("%1 %2").arg(count).arg(count == 1 ? singular : plural);
}

// The window picture scaled into the thumbnail box and centred on a transparent canvas of the
// box's size, so that every row lines up whether or not it has a picture.
QPixmap thumbnail(const std::optional<std::filesystem::path>& file) {
    QPixmap canvas(thumbnailSize);
    canvas.fill(Qt::transparent);
    if (!file) return canvas;
    QImageReader reader(QString::fromStdString(file->string()));
    const QSize full = reader.size();
    if (full.isValid()) reader.setScaledSize(full.scaled(thumbnailSize, Qt::KeepAspectRatio));
    const QImage image = reader.read();
    if (image.isNull()) return canvas;
    QPainter painter(&canvas);
    const QPoint at((thumbnailSize.width() - image.width()) / 2,
                    (thumbnailSize.height() - image.height()) / 2);
    painter.drawImage(at, image);
    painter.setPen(QColor(0, 0, 0, 60));
    painter.drawRect(QRect(at, image.size()).adjusted(0, 0, -1, -1));
    return canvas;
}

} // namespace

QString SnapshotsDialog::dateText(SessionBundle::Clock::time_point date) {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    return QDateTime::fromMSecsSinceEpoch(ms.count()).toString("yyyy-MM-dd HH:mm:ss");
}

QString SnapshotsDialog::contentsText(const SessionBundle::Snapshot& snapshot) {
    return counted(snapshot.trackCount, "track", "tracks") + ", " +
           counted(snapshot.laneCount, "lane", "lanes") + ", " +
           counted(snapshot.clipCount, "clip", "clips");
}

SnapshotsDialog::SnapshotsDialog(EditorModel& model, QWidget* parent)
    : QDialog(parent)
    , model(model) {
    setObjectName("snapshotsDialog");
    setWindowTitle(QString::fromUtf8("Snapshots of \u201C%1\u201D").arg(qs(model.documentName())));
    resize(460, 520);
    auto* column = new QVBoxLayout(this);

    pages = new QStackedWidget(this);
    snapshots = new QListWidget(pages);
    snapshots->setObjectName("snapshotList");
    snapshots->setIconSize(thumbnailSize);
    snapshots->setSpacing(2);
    snapshots->setUniformItemSizes(true);
    pages->addWidget(snapshots);

    auto* empty = new QWidget(pages);
    auto* emptyColumn = new QVBoxLayout(empty);
    auto* emptyTitle = new QLabel("No Snapshots Yet", empty);
    emptyTitle->setObjectName("noSnapshotsTitle");
    QFont titleFont = emptyTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    emptyTitle->setFont(titleFont);
    auto* emptyText = new QLabel(
        QString("Every save keeps one, up to %1.").arg(SessionBundle::snapshotLimit), empty);
    emptyText->setObjectName("noSnapshotsText");
    for (QLabel* label : {emptyTitle, emptyText})
        label->setAlignment(Qt::AlignCenter);
    emptyColumn->addStretch(1);
    emptyColumn->addWidget(emptyTitle);
    emptyColumn->addWidget(emptyText);
    emptyColumn->addStretch(1);
    pages->addWidget(empty);
    column->addWidget(pages, 1);

    auto* footnote = new QLabel(QString("Each save keeps a snapshot; the oldest go after %1.")
                                    .arg(SessionBundle::snapshotLimit),
                                this);
    footnote->setObjectName("snapshotsFootnote");
    footnote->setWordWrap(true);
    column->addWidget(footnote);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    restoreButton =
        buttons->addButton(QString::fromUtf8("Restore\u2026"), QDialogButtonBox::ActionRole);
    restoreButton->setObjectName("restoreSnapshot");
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(restoreButton, &QPushButton::clicked, this, [this] {
        if (QListWidgetItem* item = snapshots->currentItem(); item && item->isSelected())
            askToRestore(item);
    });
    connect(snapshots, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { askToRestore(item); });
    connect(snapshots, &QListWidget::itemSelectionChanged, this,
            [this] { restoreButton->setEnabled(!snapshots->selectedItems().isEmpty()); });
    column->addWidget(buttons);

    auto kept = model.snapshots();
    for (auto it = kept.rbegin(); it != kept.rend(); ++it) {
        // The picture keeps its colours when its row is selected.
        QIcon icon(thumbnail(it->image));
        icon.addPixmap(icon.pixmap(thumbnailSize), QIcon::Selected);
        auto* item =
            new QListWidgetItem(icon, dateText(it->date) + "\n" + contentsText(*it), snapshots);
        item->setData(Qt::UserRole, qs(it->id));
        item->setData(Qt::UserRole + 1, dateText(it->date));
    }
    pages->setCurrentIndex(kept.empty() ? 1 : 0);
    footnote->setVisible(!kept.empty());
    if (!kept.empty()) snapshots->setCurrentRow(0);
    restoreButton->setEnabled(!kept.empty());
}

void SnapshotsDialog::askToRestore(QListWidgetItem* item) {
    const QString id = item->data(Qt::UserRole).toString();
    const QString date = item->data(Qt::UserRole + 1).toString();
    auto* box = new QMessageBox(QMessageBox::Question, "Restore Snapshot",
                                QString("Restore the snapshot of %1?").arg(date),
                                QMessageBox::NoButton, this);
    box->setObjectName("restoreSnapshotQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(
        QString::fromUtf8("Its tracks replace those of the session now open. \u201C%1\u201D stays "
                          "open, and Revert to Saved brings back what was saved last.")
            .arg(qs(model.documentName())));
    QPushButton* restore = box->addButton("Restore", QMessageBox::AcceptRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(restore);
    connect(box, &QMessageBox::finished, this, [this, box, restore, id] {
        if (box->clickedButton() != restore) return;
        model.restoreSnapshot(id.toStdString());
        accept();
    });
    box->open();
}

} // namespace sonvale
