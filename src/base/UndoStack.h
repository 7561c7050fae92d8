#pragma once

#include <sigc++/signal.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace sonvale {

// One owner's undo history (each track has one, the timeline has one). A step is a list of
// closures with a user-visible action name; undoing a step runs its closures newest first.
//
// Closures registered while a step is being undone form the matching redo step, and closures
// registered while a step is being redone form the next undo step, so an edit that registers
// its own inverse gets redo for free. A registration outside undo and redo clears the redo
// history. Groups (beginGroup/endGroup or UndoGroup) collect every registration made inside
// them into one step.
//
// Main thread only. Closures must hold what they need by value or by weak identity, never by
// a raw pointer to something that may die before the stack does.
class UndoStack {
public:
    using Action = std::function<void()>;

    UndoStack() = default;
    UndoStack(const UndoStack&) = delete;
    UndoStack& operator=(const UndoStack&) = delete;

    // Records how to undo a change just made. Outside a group the closure is a step of its
    // own; inside one it joins the group's step. `actionName` names the step unless a group
    // around it was given a name.
    void registerUndo(std::string actionName, Action action);

    // Groups nest; only the outermost one makes a step, and only when something was
    // registered in it. A name given to a group wins over the names of registrations inside
    // it (an outer group's name over an inner one's).
    void beginGroup(std::string actionName = {});
    void endGroup();
    // Ends the innermost group and reverts what was registered in it since it began, by
    // running those closures newest first (their own registrations are thrown away). For an
    // edit that fails half-way. Inside an undo or redo it only ends the group.
    void cancelGroup();
    int groupingLevel() const { return depth; }
    // Renames the step being built, or the newest undo step when no group is open.
    void setActionName(std::string actionName);

    bool canUndo() const { return !undoSteps.empty() && depth == 0 && mode == Mode::idle; }
    bool canRedo() const { return !redoSteps.empty() && depth == 0 && mode == Mode::idle; }
    // Undo and redo do nothing while a group is open or another undo or redo runs. When a
    // closure throws, the closures not yet run stay on the stack as the step, what was
    // re-registered so far becomes the opposite step, and the exception propagates.
    void undo();
    void redo();
    // True while a step is undone, and while a cancelled group is being reverted.
    bool isUndoing() const { return mode == Mode::undoing || mode == Mode::cancelling; }
    bool isRedoing() const { return mode == Mode::redoing; }

    // The name of the step that undo or redo would act on; empty when there is none.
    std::string undoActionName() const;
    std::string redoActionName() const;
    // "Undo Cut", "Redo Paste"; plain "Undo" or "Redo" when there is nothing (or no name).
    std::string undoMenuTitle() const;
    std::string redoMenuTitle() const;

    size_t undoCount() const { return undoSteps.size(); }
    size_t redoCount() const { return redoSteps.size(); }

    // Forgets the whole history (an open group keeps collecting into a fresh step).
    void removeAll();

    // Fires when the history changed: a step was added, undone, redone or renamed, or all
    // was removed.
    sigc::signal<void()> changed;

private:
    struct Step {
        std::string name;
        bool nameIsFixed = false; // named by a group: registrations don't rename it
        std::vector<Action> actions;
    };
    enum class Mode { idle, undoing, redoing, cancelling };

    void runStep(std::vector<Step>& from, std::vector<Step>& to, Mode runMode);
    static std::string menuTitle(const char* verb, const std::string& name);

    std::vector<Step> undoSteps;
    std::vector<Step> redoSteps;
    Step building;                   // the step that registrations go into while depth > 0
    std::vector<size_t> groupStarts; // per open group: building.actions.size() when it began
    int depth = 0;
    Mode mode = Mode::idle;
};

// Keeps a group open for its own lifetime: `UndoGroup group(track.undoStack(), "Trim");`
class UndoGroup {
public:
    UndoGroup(UndoStack& stack, std::string actionName);
    ~UndoGroup();
    UndoGroup(const UndoGroup&) = delete;
    UndoGroup& operator=(const UndoGroup&) = delete;

    // Reverts what was registered in the group and closes it (see UndoStack::cancelGroup).
    void cancel();

private:
    UndoStack& stack;
    bool open = true;
};

} // namespace sonvale
