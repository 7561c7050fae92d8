#include "app/ChannelControls.h"

#include "app/ValueControl.h"
#include "base/UndoStack.h"
#include "timeline/Timeline.h"

#include <QMouseEvent>
#include <QSlider>
#include <cmath>
#include <utility>

namespace sonvale {

ChannelSwitch::ChannelSwitch(QWidget* parent)
    : QToolButton(parent) {
    setCheckable(true);
    setObjectName("channelSwitch");
    setStyleSheet("QToolButton { padding: 1px 6px; }"
                  "QToolButton:checked { background: #3d9a52; color: white; border-radius: 3px; }");
}

bool ChannelSwitch::takeAlt() { return std::exchange(alt, false); }

QString ChannelSwitch::laneToolTip(bool audible) {
    return audible ? "Turn this lane off (Alt-click: hear only this lane)"
                   : "Turn this lane on (Alt-click: hear only this lane)";
}

void ChannelSwitch::mouseReleaseEvent(QMouseEvent* event) {
    alt = event->modifiers().testFlag(Qt::AltModifier);
    QToolButton::mouseReleaseEvent(event);
}

DragStep::DragStep(QSlider* slider, std::function<std::shared_ptr<UndoStack>()> stack)
    : QObject(slider) {
    connect(slider, &QSlider::sliderPressed, this, [this, stack = std::move(stack)] {
        if (open) return;
        open = stack();
        if (open) open->beginGroup();
    });
    connect(slider, &QSlider::sliderReleased, this, [this] { finish(); });
}

DragStep::~DragStep() { finish(); }

void DragStep::finish() {
    if (auto stack = std::exchange(open, nullptr)) stack->endGroup();
}

std::function<std::shared_ptr<UndoStack>()> historyOf(Timeline& timeline) {
    return [weak = timeline.weak_from_this()]() -> std::shared_ptr<UndoStack> {
        const auto alive = weak.lock();
        return alive ? std::shared_ptr<UndoStack>(alive, &alive->undoStack()) : nullptr;
    };
}

SliderControl* makeGainControl(QSlider* slider, QLabel* label, int stepsPerDecibel) {
    return new SliderControl(slider, label, SliderControl::gain(stepsPerDecibel));
}

QString gainText(float gainDB) {
    return QString::asprintf("%+.1f dB", double(gainDB)).replace('-', QChar(0x2212));
}

QString panText(float pan) {
    const int percent = int(std::lround(std::fabs(pan) * 100));
    if (percent == 0) return "C";
    return (pan < 0 ? "L" : "R") + QString::number(percent);
}

} // namespace sonvale
