#pragma once

#include <QObject>
#include <QString>
#include <QToolButton>
#include <functional>
#include <memory>

class QLabel;
class QSlider;

namespace sonvale {

class SliderControl;
class Timeline;
class UndoStack;

// The on/off switch of a lane or bus (the lane headers and the mixer strips). It remembers
// whether Alt was held on the click that triggered it (Alt-click hears only this lane).
class ChannelSwitch : public QToolButton {
public:
    explicit ChannelSwitch(QWidget* parent = nullptr);
    // Alt was held when the button was last clicked with the mouse; cleared by reading it.
    bool takeAlt();
    // "Turn this lane off (Alt-click: hear only this lane)" or its "on" twin.
    static QString laneToolTip(bool audible);

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    bool alt = false;
};

// Makes one undo step of a slider's drag: what it writes while the mouse holds it goes into
// one group of the history `stack` gives when the handle is pressed (none: no group). The
// stack is kept alive until the handle is let go.
class DragStep : public QObject {
public:
    DragStep(QSlider* slider, std::function<std::shared_ptr<UndoStack>()> stack);
    ~DragStep() override;

private:
    void finish();
    std::shared_ptr<UndoStack> open;
};

// The timeline's history for a DragStep: the stack, sharing the timeline's lifetime.
std::function<std::shared_ptr<UndoStack>()> historyOf(Timeline& timeline);

// Gives a gain slider of `stepsPerDecibel` steps per dB the knobs' handling (SliderControl):
// Shift for a fine drag or wheel step, a double-click back to 0 dB, and a typed value on a
// click of `label` (or Enter on the slider).
SliderControl* makeGainControl(QSlider* slider, QLabel* label, int stepsPerDecibel = 10);

// "+1.5 dB", "−6.0 dB" (with a true minus sign).
QString gainText(float gainDB);
// "C", "L40", "R100".
QString panText(float pan);

} // namespace sonvale
