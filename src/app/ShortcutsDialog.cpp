#include "app/ShortcutsDialog.h"

#include <QAction>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace sonvale {

namespace {

// The menu's own title without its mnemonic ("&Edit" → "Edit").
QString plainTitle(const QString& title) {
    QString text = title;
    return text.remove('&');
}

// Adds the keyed commands of `menu` and its submenus under `group`.
void addCommands(QTreeWidgetItem* group, const QMenu& menu, const QString& prefix) {
    for (QAction* action : menu.actions()) {
        if (action->isSeparator()) continue;
        if (QMenu* sub = action->menu()) {
            addCommands(group, *sub,
                        prefix + plainTitle(sub->title()) + QString::fromUtf8(" \u203a "));
            continue;
        }
        QStringList keys;
        for (const QKeySequence& key : action->shortcuts())
            keys << key.toString(QKeySequence::NativeText);
        if (keys.isEmpty()) continue;
        auto* item = new QTreeWidgetItem(group);
        item->setText(0, prefix + plainTitle(action->text()));
        item->setText(1, keys.join(QString::fromUtf8(", ")));
        item->setData(1, Qt::UserRole, keys);
    }
}

} // namespace

ShortcutsDialog::ShortcutsDialog(const QMenuBar& menus, QWidget* parent)
    : QDialog(parent) {
    setObjectName("keyboardShortcuts");
    setWindowTitle("Keyboard Shortcuts");
    search = new QLineEdit(this);
    search->setObjectName("shortcutSearch");
    search->setPlaceholderText("Find a command or a key");
    search->setClearButtonEnabled(true);
    tree = new QTreeWidget(this);
    tree->setObjectName("shortcutList");
    tree->setColumnCount(2);
    tree->setHeaderLabels({"Command", "Key"});
    tree->setRootIsDecorated(false);
    tree->setUniformRowHeights(true);
    for (QAction* top : menus.actions()) {
        QMenu* menu = top->menu();
        if (!menu) continue;
        auto* group = new QTreeWidgetItem(tree, {plainTitle(menu->title())});
        QFont bold = group->font(0);
        bold.setBold(true);
        group->setFont(0, bold);
        group->setFirstColumnSpanned(true);
        addCommands(group, *menu, {});
        if (group->childCount() == 0) delete group;
    }
    tree->expandAll();
    tree->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    connect(search, &QLineEdit::textChanged, this, [this](const QString& text) { filter(text); });

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(search);
    layout->addWidget(tree, 1);
    layout->addWidget(buttons);
    resize(520, 600);
}

void ShortcutsDialog::filter(const QString& text) {
    for (int g = 0; g < tree->topLevelItemCount(); ++g) {
        QTreeWidgetItem* group = tree->topLevelItem(g);
        int shown = 0;
        for (int i = 0; i < group->childCount(); ++i) {
            QTreeWidgetItem* item = group->child(i);
            const bool match = text.isEmpty() ||
                               item->text(0).contains(text, Qt::CaseInsensitive) ||
                               item->text(1).contains(text, Qt::CaseInsensitive);
            item->setHidden(!match);
            shown += match ? 1 : 0;
        }
        group->setHidden(shown == 0);
    }
}

} // namespace sonvale
