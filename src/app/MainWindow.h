#pragma once

#include "audio/AudioData.h"

#include <QMainWindow>
#include <QStringList>

class QListWidget;
class QListWidgetItem;

namespace sonvale {

class Executor;

// Sonvale's main window: for now the list of opened files with their load state.
class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(Executor& executor, QWidget* parent = nullptr);
    void openFiles(const QStringList& paths);
    QListWidget* trackList() const { return list; }

private:
    Executor& executor;
    QListWidget* list;
};

} // namespace sonvale
