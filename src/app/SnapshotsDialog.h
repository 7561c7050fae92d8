#pragma once

#include "persistence/SessionBundle.h"

#include <QDialog>

class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QStackedWidget;

namespace sonvale {

class EditorModel;

// The snapshots the open session document keeps, newest first, each with the picture of the
// window at that save, its date and what it held. Restoring one asks first and then puts its
// tracks in place of the live ones; the document stays open, so Revert to Saved undoes it.
// The list is read when the dialog is made; it is meant to be shown window-modal.
class SnapshotsDialog final : public QDialog {
    Q_OBJECT
public:
    explicit SnapshotsDialog(EditorModel& model, QWidget* parent = nullptr);

    QListWidget* list() const { return snapshots; }

    // "2026-11-25 14:03" in local time, whatever the locale.
    static QString dateText(SessionBundle::Clock::time_point date);
    // "3 tracks, 1 lane, 0 clips".
    static QString contentsText(const SessionBundle::Snapshot& snapshot);

private:
    void askToRestore(QListWidgetItem* item);

    EditorModel& model;
    QStackedWidget* pages = nullptr;
    QListWidget* snapshots = nullptr;
    QPushButton* restoreButton = nullptr;
};

} // namespace sonvale
