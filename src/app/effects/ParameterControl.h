#pragma once

#include "effects/EffectParameter.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QToolButton;

namespace sonvale {

// One effect parameter's control in an editor: a Knob, a ParameterSwitch or a ParameterChoice,
// made by makeParameterControl from the parameter's unit. Main thread only.
class ParameterControl : public QWidget {
    Q_OBJECT
public:
    const EffectParameter& parameter() const { return param; }
    // The text above the control; the parameter's name unless set.
    void setLabel(const QString& text);
    const QString& labelText() const { return label; }
    double value() const { return current; }
    // Shows a value without emitting valueEdited (for changes that come from the model).
    void setValue(double value);

Q_SIGNALS:
    // The user changed the value.
    void valueEdited(double value);

protected:
    ParameterControl(EffectParameter parameter, QWidget* parent);
    // Sets and shows a value the user chose, and announces it.
    void edit(double value);
    // Follows a new value or label; a drawn control repaints.
    virtual void showValue() { update(); }
    virtual void showLabel() { update(); }

    EffectParameter param;
    QString label;
    double current = 0;
};

// An on/off parameter (a band's switch, Ping-Pong, Peaks): a button that stays pressed in.
class ParameterSwitch : public ParameterControl {
    Q_OBJECT
public:
    explicit ParameterSwitch(EffectParameter parameter, QWidget* parent = nullptr);
    QToolButton* button() const { return toggle; }

protected:
    void showValue() override;
    void showLabel() override;

private:
    QLabel* title;
    QToolButton* toggle;
};

// A parameter with named choices (a band's filter type, a distortion's type): a menu of them.
class ParameterChoice : public ParameterControl {
    Q_OBJECT
public:
    explicit ParameterChoice(EffectParameter parameter, QWidget* parent = nullptr);
    QComboBox* menu() const { return box; }

protected:
    void showValue() override;
    void showLabel() override;

private:
    QLabel* title;
    QComboBox* box;
};

// The control for a parameter: a switch for a toggle, a menu for a choice with names, a knob
// for everything else.
ParameterControl* makeParameterControl(const EffectParameter& parameter, QWidget* parent);

} // namespace sonvale
