#include "base/UndoStack.h"

namespace sonvale {

void UndoStack::registerUndo(std::string actionName, Action action) {
    if (mode == Mode::cancelling) return; // the inverse of a reverted change is not history
    if (mode == Mode::idle) redoSteps.clear();
    if (depth == 0 && mode == Mode::idle) {
        undoSteps.push_back({std::move(actionName), false, {std::move(action)}});
        changed.emit();
        return;
    }
    building.actions.push_back(std::move(action));
    if (!building.nameIsFixed && !actionName.empty()) building.name = std::move(actionName);
}

void UndoStack::beginGroup(std::string actionName) {
    if (depth == 0 && mode == Mode::idle) building = {};
    groupStarts.push_back(building.actions.size());
    ++depth;
    if (!actionName.empty() && !building.nameIsFixed) {
        building.name = std::move(actionName);
        building.nameIsFixed = true;
    }
}

void UndoStack::endGroup() {
    if (depth == 0) return;
    --depth;
    groupStarts.pop_back();
    if (depth > 0 || mode != Mode::idle) return;
    Step step = std::move(building);
    building = {};
    if (!step.actions.empty()) {
        undoSteps.push_back(std::move(step));
        changed.emit();
    }
}

void UndoStack::cancelGroup() {
    if (depth == 0) return;
    if (mode != Mode::idle) {
        endGroup();
        return;
    }
    const size_t start = groupStarts.back();
    std::vector<Action> reverting(std::make_move_iterator(building.actions.begin() + long(start)),
                                  std::make_move_iterator(building.actions.end()));
    building.actions.resize(start);
    --depth;
    groupStarts.pop_back();

    struct Restore {
        Mode& mode;
        ~Restore() { mode = Mode::idle; }
    } restore{mode};
    mode = Mode::cancelling;
    for (auto it = reverting.rbegin(); it != reverting.rend(); ++it)
        (*it)();
    mode = Mode::idle;

    if (depth == 0) {
        Step step = std::move(building);
        building = {};
        if (!step.actions.empty()) {
            undoSteps.push_back(std::move(step));
            changed.emit();
        }
    }
}

void UndoStack::setActionName(std::string actionName) {
    if (depth > 0 || mode != Mode::idle) {
        building.name = std::move(actionName);
        building.nameIsFixed = true;
        return;
    }
    if (undoSteps.empty()) return;
    undoSteps.back().name = std::move(actionName);
    changed.emit();
}

void UndoStack::undo() {
    if (canUndo()) runStep(undoSteps, redoSteps, Mode::undoing);
}

void UndoStack::redo() {
    if (canRedo()) runStep(redoSteps, undoSteps, Mode::redoing);
}

void UndoStack::runStep(std::vector<Step>& from, std::vector<Step>& to, Mode runMode) {
    Step step = std::move(from.back());
    from.pop_back();
    building = {step.name, true, {}};
    mode = runMode;
    for (size_t i = step.actions.size(); i-- > 0;) {
        try {
            step.actions[i]();
        } catch (...) {
            // Closures 0...i have not taken effect: they remain the step to run next time.
            step.actions.resize(i + 1);
            from.push_back(std::move(step));
            if (!building.actions.empty()) to.push_back(std::move(building));
            building = {};
            groupStarts.clear();
            depth = 0;
            mode = Mode::idle;
            changed.emit();
            throw;
        }
    }
    mode = Mode::idle;
    if (!building.actions.empty()) to.push_back(std::move(building));
    building = {};
    changed.emit();
}

std::string UndoStack::undoActionName() const {
    return undoSteps.empty() ? std::string() : undoSteps.back().name;
}

std::string UndoStack::redoActionName() const {
    return redoSteps.empty() ? std::string() : redoSteps.back().name;
}

std::string UndoStack::menuTitle(const char* verb, const std::string& name) {
    return name.empty() ? std::string(verb) : std::string(verb) + " " + name;
}

std::string UndoStack::undoMenuTitle() const {
    return menuTitle("Undo", canUndo() ? undoActionName() : std::string());
}

std::string UndoStack::redoMenuTitle() const {
    return menuTitle("Redo", canRedo() ? redoActionName() : std::string());
}

void UndoStack::removeAll() {
    undoSteps.clear();
    redoSteps.clear();
    if (depth > 0 && mode == Mode::idle) {
        building.actions.clear();
        for (auto& start : groupStarts)
            start = 0;
    }
    changed.emit();
}

UndoGroup::UndoGroup(UndoStack& stack, std::string actionName)
    : stack(stack) {
    stack.beginGroup(std::move(actionName));
}

UndoGroup::~UndoGroup() {
    if (open) stack.endGroup();
}

void UndoGroup::cancel() {
    if (!open) return;
    open = false;
    stack.cancelGroup();
}

} // namespace sonvale
