#include "app/effects/ParameterControl.h"

#include "app/effects/Knob.h"

#include <QComboBox>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
QLabel* makeTitle(QWidget* parent) {
    auto* title = new QLabel(parent);
    title->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    return title;
}
} // namespace

ParameterControl::ParameterControl(EffectParameter parameter, QWidget* parent)
    : QWidget(parent)
    , param(std::move(parameter))
    , label(QString::fromStdString(param.name))
    , current(param.defaultValue) {
    setAccessibleName(QString::fromStdString(param.name));
}

void ParameterControl::setLabel(const QString& text) {
    label = text;
    showLabel();
}

void ParameterControl::setValue(double value) {
    if (value == current) return;
    current = value;
    showValue();
}

void ParameterControl::edit(double value) {
    if (value == current) return;
    current = value;
    showValue();
    Q_EMIT valueEdited(value);
}

// ---- switch ----------------------------------------------------------------------------------

ParameterSwitch::ParameterSwitch(EffectParameter parameter, QWidget* parent)
    : ParameterControl(std::move(parameter), parent)
    , title(makeTitle(this))
    , toggle(new QToolButton(this)) {
    toggle->setObjectName("parameterSwitch");
    toggle->setCheckable(true);
    toggle->setAccessibleName(QString::fromStdString(param.name));
    toggle->setToolTip(QString::fromStdString(param.name));
    toggle->setMinimumWidth(48);
    // Pressed in and lit in the theme's highlight when on.
    toggle->setStyleSheet("QToolButton { padding: 2px 8px; }"
                          "QToolButton:checked { background: palette(highlight);"
                          " color: palette(highlighted-text); border-radius: 3px; }");
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(title);
    column->addStretch();
    column->addWidget(toggle, 0, Qt::AlignHCenter);
    column->addStretch();
    connect(toggle, &QToolButton::clicked, this,
            [this](bool on) { edit(on ? param.upper() : param.lower()); });
    setMinimumSize(56, 80);
    showLabel();
    showValue();
}

void ParameterSwitch::showValue() {
    const bool on = current >= 0.5 * (param.lower() + param.upper());
    toggle->setChecked(on);
    toggle->setText(on ? "On" : "Off");
}

void ParameterSwitch::showLabel() { title->setText(label); }

// ---- choice ----------------------------------------------------------------------------------

ParameterChoice::ParameterChoice(EffectParameter parameter, QWidget* parent)
    : ParameterControl(std::move(parameter), parent)
    , title(makeTitle(this))
    , box(new QComboBox(this)) {
    box->setObjectName("parameterChoice");
    box->setAccessibleName(QString::fromStdString(param.name));
    box->setToolTip(QString::fromStdString(param.name));
    for (const auto& choice : param.choices)
        box->addItem(QString::fromStdString(choice));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(title);
    column->addStretch();
    column->addWidget(box);
    column->addStretch();
    connect(box, &QComboBox::activated, this,
            [this](int index) { edit(param.lower() + double(index)); });
    // As wide as its longest name ("High Shelf"), never narrower than a knob.
    box->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    setMinimumSize(std::max(66, box->sizeHint().width()), 80);
    showLabel();
    showValue();
}

void ParameterChoice::showValue() {
    box->setCurrentIndex(int(std::lround(current - param.lower())));
}

void ParameterChoice::showLabel() { title->setText(label); }

ParameterControl* makeParameterControl(const EffectParameter& parameter, QWidget* parent) {
    using Unit = EffectParameter::Unit;
    if (parameter.unit == Unit::toggle) return new ParameterSwitch(parameter, parent);
    if (parameter.unit == Unit::choice && !parameter.choices.empty())
        return new ParameterChoice(parameter, parent);
    return new Knob(parameter, parent);
}

} // namespace sonvale
