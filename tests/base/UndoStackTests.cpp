#include "base/UndoStack.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace sonvale;

namespace {

// A value with an undoable setter that registers its own inverse, as models do.
struct Counter {
    UndoStack stack;
    int value = 0;
    std::vector<bool> undoingSeen;
    std::vector<bool> redoingSeen;

    void set(int newValue, const std::string& name = "Set") {
        const int old = value;
        value = newValue;
        undoingSeen.push_back(stack.isUndoing());
        redoingSeen.push_back(stack.isRedoing());
        stack.registerUndo(name, [this, old, name] { set(old, name); });
    }
};

} // namespace

TEST(UndoStack, InverseRegisteredDuringUndoBecomesRedoAndTheMenusNameTheSteps) {
    Counter c;
    EXPECT_EQ(c.stack.undoMenuTitle(), "Undo");
    EXPECT_EQ(c.stack.redoMenuTitle(), "Redo");
    c.stack.undo(); // harmless
    c.stack.redo();
    c.set(1, "Cut");
    c.set(2, "Paste");
    EXPECT_EQ(c.stack.undoMenuTitle(), "Undo Paste");
    c.stack.undo();
    EXPECT_EQ(c.value, 1);
    EXPECT_EQ(c.stack.undoMenuTitle(), "Undo Cut");
    EXPECT_EQ(c.stack.redoMenuTitle(), "Redo Paste");
    c.stack.undo();
    EXPECT_EQ(c.value, 0);
    EXPECT_FALSE(c.stack.canUndo());
    c.stack.redo();
    EXPECT_EQ(c.value, 1);
    c.stack.redo();
    EXPECT_EQ(c.value, 2);
    EXPECT_FALSE(c.stack.canRedo());
    c.stack.undo();
    EXPECT_EQ(c.value, 1);
}

TEST(UndoStack, UndoingAndRedoingFlagsAreSetOnlyWhileRunning) {
    Counter c;
    c.set(1);
    c.stack.undo();
    c.stack.redo();
    EXPECT_EQ(c.undoingSeen, (std::vector<bool>{false, true, false}));
    EXPECT_EQ(c.redoingSeen, (std::vector<bool>{false, false, true}));
    EXPECT_FALSE(c.stack.isUndoing());
    EXPECT_FALSE(c.stack.isRedoing());
}

TEST(UndoStack, NewChangeClearsRedoButRedoDoesNot) {
    Counter c;
    c.set(1);
    c.set(2);
    c.stack.undo();
    c.stack.undo();
    c.stack.redo(); // registers onto the undo stack without clearing the remaining redo
    EXPECT_TRUE(c.stack.canRedo());
    c.set(5);
    EXPECT_FALSE(c.stack.canRedo());
    EXPECT_EQ(c.stack.undoCount(), 2u);
}

TEST(UndoStack, GroupedInversesRedoAsOneStepAndUndoAgain) {
    Counter a;
    int other = 0;
    auto setOther = [&](auto& self, int v) -> void {
        const int old = other;
        other = v;
        a.stack.registerUndo("Other", [&, old] { self(self, old); });
    };
    a.stack.beginGroup("Both");
    a.set(1);
    setOther(setOther, 7);
    a.stack.endGroup();
    a.stack.undo();
    EXPECT_EQ(a.value, 0);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(a.stack.redoMenuTitle(), "Redo Both");
    a.stack.redo();
    EXPECT_EQ(a.value, 1);
    EXPECT_EQ(other, 7);
    EXPECT_EQ(a.stack.undoCount(), 1u);
    EXPECT_EQ(a.stack.undoMenuTitle(), "Undo Both");
}

TEST(UndoStack, AnUnnamedGroupTakesTheNameOfItsRegistrationsAndTheOuterNameWins) {
    UndoStack stack;
    stack.beginGroup();
    stack.registerUndo("Paste", [] {});
    stack.endGroup();
    EXPECT_EQ(stack.undoActionName(), "Paste");
    {
        UndoGroup outer(stack, "Apply");
        UndoGroup inner(stack, "Inner");
        stack.registerUndo("Replace", [] {});
    }
    EXPECT_EQ(stack.undoCount(), 2u);
    EXPECT_EQ(stack.undoActionName(), "Apply");
}

TEST(UndoStack, EmptyGroupLeavesNoStep) {
    UndoStack stack;
    int signals = 0;
    stack.changed.connect([&] { ++signals; });
    { UndoGroup group(stack, "Nothing"); }
    EXPECT_FALSE(stack.canUndo());
    EXPECT_EQ(signals, 0);
}

TEST(UndoStack, UndoIsRefusedWhileAGroupIsOpen) {
    Counter c;
    c.set(1);
    c.stack.beginGroup("Open");
    EXPECT_FALSE(c.stack.canUndo());
    c.stack.undo();
    EXPECT_EQ(c.value, 1);
    c.stack.endGroup();
    c.stack.undo();
    EXPECT_EQ(c.value, 0);
}

TEST(UndoStack, CancelledGroupRevertsItsChangesAndLeavesNoStep) {
    Counter c;
    c.set(1, "Before");
    {
        UndoGroup group(c.stack, "Trim");
        c.set(2);
        c.set(3);
        group.cancel();
    }
    EXPECT_EQ(c.value, 1);
    EXPECT_EQ(c.stack.undoCount(), 1u);
    EXPECT_EQ(c.stack.undoActionName(), "Before");
    EXPECT_FALSE(c.stack.canRedo());
    // The reverting closures ran as undos.
    EXPECT_EQ(c.undoingSeen, (std::vector<bool>{false, false, false, true, true}));
}

TEST(UndoStack, CancellingAnInnerGroupKeepsTheOuterGroupsChanges) {
    Counter c;
    c.stack.beginGroup("Outer");
    c.set(1);
    {
        UndoGroup inner(c.stack, "");
        c.set(2);
        inner.cancel();
    }
    EXPECT_EQ(c.value, 1);
    c.stack.endGroup();
    EXPECT_EQ(c.stack.undoCount(), 1u);
    c.stack.undo();
    EXPECT_EQ(c.value, 0);
}

TEST(UndoStack, FailingUndoKeepsWhatDidNotRunAndRethrows) {
    UndoStack stack;
    std::vector<int> ran;
    bool fail = true;
    stack.beginGroup("Two");
    stack.registerUndo("", [&] { ran.push_back(1); });
    stack.registerUndo("", [&] {
        if (fail) throw std::runtime_error("no memory");
        ran.push_back(2);
    });
    stack.endGroup();
    EXPECT_THROW(stack.undo(), std::runtime_error);
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(stack.canUndo());
    EXPECT_FALSE(stack.isUndoing());
    fail = false;
    stack.undo();
    EXPECT_EQ(ran, (std::vector<int>{2, 1}));
}

TEST(UndoStack, ChangedSignalFiresForEveryHistoryChange) {
    Counter c;
    int signals = 0;
    c.stack.changed.connect([&] { ++signals; });
    c.set(1);
    EXPECT_EQ(signals, 1);
    c.stack.undo();
    EXPECT_EQ(signals, 2);
    c.stack.redo();
    EXPECT_EQ(signals, 3);
    c.stack.removeAll();
    EXPECT_EQ(signals, 4);
    EXPECT_FALSE(c.stack.canUndo());
    EXPECT_FALSE(c.stack.canRedo());
}
