#pragma once

#include "app/ActionID.h"
#include "app/SignalConnections.h"

#include <QKeySequence>
#include <QObject>
#include <functional>
#include <map>

class QAction;
class QMainWindow;
class QMenu;

namespace sonvale {

class EditorModel;

// The window's menu bar and its actions, one per ActionID. The actions are the window's (their
// shortcuts work anywhere in it) and are enabled, titled and checked as the model and the
// active track allow. Commands that are operations of the model run them; the window connects
// the rest (its dialogs and questions, quitting, the effects dock, the view's zoom) to
// action(id)'s triggered signal. Main thread only.
class MainMenus final : public QObject {
    Q_OBJECT
public:
    // `effectKinds` holds one action per kind of effect, for Effects > Add Effect.
    MainMenus(EditorModel& model, QMainWindow& window, QMenu& effectKinds);

    QAction* action(ActionID id) const;

Q_SIGNALS:
    // A session from File > Open Recent was chosen.
    void recentSessionChosen(const QString& path);

private:
    QAction* makeAction(ActionID id, const char* name, const QString& text,
                        const QKeySequence& shortcut, std::function<void()> run = {});
    void build(QMenu& effectKinds);
    void watchActiveTrack();
    void refresh();
    void refreshSessionActions();
    void rebuildRecentMenu();

    EditorModel& model;
    QMainWindow& window;
    std::map<ActionID, QAction*> actions;
    QMenu* recentMenu = nullptr;
    QMenu* addEffectMenu = nullptr;
    SignalConnections trackConnections;
    SignalConnections modelConnections;
};

} // namespace sonvale
