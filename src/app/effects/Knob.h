#pragma once

#include "app/effects/ParameterControl.h"

#include <QPointF>

namespace sonvale {

class ValueEditor;

// A rotary control for one effect parameter. Travels geometrically for logarithmic
// parameters, snaps choices and steps, shows the parameter's own value text. Drag up or
// right (the whole range over 200 pixels; Shift for a tenth of that), scroll (a notch a step,
// Shift a fine step), use the arrow (Shift: fine), Page and Home/End keys; a double-click or
// Delete returns to the default; a click on the value, or Enter, opens a line edit to type one.
// Main thread only.
class Knob : public ParameterControl {
    Q_OBJECT
public:
    explicit Knob(EffectParameter parameter, QWidget* parent = nullptr);

    // The value `steps` steps away: one choice or snapping step; half a decibel (fine: a
    // tenth); else 1% of the travel (fine: 0.1%). Clamped to the range.
    double steppedValue(double steps, bool fine = false) const;
    // The value a typed text asks for (a number with or without the parameter's unit, or a
    // choice's name), clamped to the range and snapped; none for garbage.
    std::optional<double> typedValue(const QString& text) const;
    // Opens the typed-value editor over the value text.
    ValueEditor* openEditor();
    // Where the value text is drawn (a click there opens the editor).
    QRect valueRect() const;

    static constexpr double dragPixels = 200; // the whole range, without Shift

    QSize sizeHint() const override { return {66, 80}; }

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void mouseDoubleClickEvent(QMouseEvent*) override;
    void wheelEvent(QWheelEvent*) override;
    void keyPressEvent(QKeyEvent*) override;

private:
    bool isDiscrete() const;

    enum class Axis { undecided, vertical, horizontal };
    QPointF pressPosition, lastPosition;
    double dragPosition = 0; // the drag's unsnapped knob position, 0 to 1
    Axis axis = Axis::undecided;
    bool pressed = false;
    bool inDoubleClick = false; // the release that ends a double-click opens nothing
    int wheelEighths = 0;       // wheel travel not yet turned into a discrete step
};

} // namespace sonvale
