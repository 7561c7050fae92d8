#pragma once

#include "effects/EffectParameter.h"

#include <QWidget>

namespace sonvale {

// A rotary control for one effect parameter. Travels geometrically for logarithmic
// parameters, snaps choices and steps, shows the parameter's own value text. Drag up or
// down (Shift for fine), scroll, or use the arrow, Page and Home/End keys; a double-click
// returns to the default. Main thread only.
class Knob : public QWidget {
    Q_OBJECT
public:
    explicit Knob(EffectParameter parameter, QWidget* parent = nullptr);

    const EffectParameter& parameter() const { return param; }
    // The text above the knob; the parameter's name unless set.
    void setLabel(const QString& text);
    double value() const { return current; }
    // Shows a value without emitting valueEdited (for changes that come from the model).
    void setValue(double value);
    // The value `steps` keyboard steps away: one choice, one step, or 1% of the travel.
    double steppedValue(double steps) const;

    QSize sizeHint() const override { return {66, 80}; }

Q_SIGNALS:
    // The user moved the knob.
    void valueEdited(double value);

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void mouseDoubleClickEvent(QMouseEvent*) override;
    void wheelEvent(QWheelEvent*) override;
    void keyPressEvent(QKeyEvent*) override;

private:
    void edit(double value);
    bool isDiscrete() const;

    EffectParameter param;
    QString label;
    double current = 0;
    double dragStartY = 0;
    double dragStartPosition = 0;
    bool dragged = false;
    bool inDoubleClick = false; // the release that ends a double-click does not flip a switch
    int wheelEighths = 0;       // wheel travel not yet turned into a discrete step
};

} // namespace sonvale
