#pragma once

#include <QDialog>

class QMenuBar;
class QLineEdit;
class QTreeWidget;

namespace sonvale {

// Help › Keyboard Shortcuts: every command of the menus that has a key, under its menu, read
// from the actions themselves when the window opens, with a field that filters the list by
// command or key.
class ShortcutsDialog final : public QDialog {
public:
    ShortcutsDialog(const QMenuBar& menus, QWidget* parent = nullptr);

    QTreeWidget* list() const { return tree; }

private:
    void filter(const QString& text);

    QLineEdit* search = nullptr;
    QTreeWidget* tree = nullptr;
};

} // namespace sonvale
