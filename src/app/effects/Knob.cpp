#include "app/effects/Knob.h"

#include "app/ValueControl.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
constexpr double sweepDegrees = 270;

// The units a typed value of the parameter may carry.
std::vector<TypedUnit> typedUnits(EffectParameter::Unit unit) {
    using Unit = EffectParameter::Unit;
    switch (unit) {
    case Unit::milliseconds: return {{"ms", 1}, {"s", 1000}};
    case Unit::percent: return {{"%", 1}};
    case Unit::hertz: return {{"hz", 1}, {"khz", 1000}, {"k", 1000}};
    case Unit::decibels: return {{"db", 1}};
    case Unit::ratio: return {{":1", 1}};
    case Unit::semitones: return {{"st", 1}};
    case Unit::cents: return {{"ct", 1}};
    case Unit::factor: return {{"x", 1}};
    case Unit::toggle:
    case Unit::choice: return {};
    }
    return {};
}
} // namespace

Knob::Knob(EffectParameter parameter, QWidget* parent)
    : ParameterControl(std::move(parameter), parent) {
    setFocusPolicy(Qt::StrongFocus);
    setToolTip(
        QString::fromStdString(param.name) +
        "\nDrag or scroll (Shift: fine); double-click: default; click the value to type one");
    setMinimumSize(sizeHint());
}

bool Knob::isDiscrete() const {
    return param.unit == EffectParameter::Unit::choice ||
           param.unit == EffectParameter::Unit::toggle || param.step.has_value();
}

double Knob::steppedValue(double steps, bool fine) const {
    if (isDiscrete()) {
        const double step = param.step.value_or(1);
        return std::clamp(std::round(current / step + steps) * step, param.lower(), param.upper());
    }
    if (param.unit == EffectParameter::Unit::decibels)
        return std::clamp(current + steps * (fine ? 0.1 : 0.5), param.lower(), param.upper());
    return param.value(param.normalized(current) + steps * (fine ? 0.001 : 0.01));
}

std::optional<double> Knob::typedValue(const QString& text) const {
    std::optional<double> number;
    for (size_t i = 0; i < param.choices.size(); ++i)
        if (text.trimmed().compare(QString::fromStdString(param.choices[i]), Qt::CaseInsensitive) ==
            0)
            number = double(i);
    if (param.unit == EffectParameter::Unit::toggle) {
        if (text.trimmed().compare("on", Qt::CaseInsensitive) == 0) number = param.upper();
        if (text.trimmed().compare("off", Qt::CaseInsensitive) == 0) number = param.lower();
    }
    if (!number) number = parseTypedValue(text, typedUnits(param.unit));
    if (!number) return std::nullopt;
    double value = std::clamp(*number, param.lower(), param.upper());
    if (isDiscrete()) {
        const double step = param.step.value_or(1);
        value = std::clamp(std::round(value / step) * step, param.lower(), param.upper());
    }
    return value;
}

QRect Knob::valueRect() const {
    const int textHeight = fontMetrics().height();
    return {0, height() - textHeight, width(), textHeight};
}

ValueEditor* Knob::openEditor() {
    if (!isEnabled()) return nullptr;
    return ValueEditor::open(this, valueRect(), QString::fromStdString(param.format(current)), this,
                             [this](const QString& text) {
                                 const auto value = typedValue(text);
                                 if (value) edit(*value);
                                 return value.has_value();
                             });
}

void Knob::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette pal = palette();
    const QFontMetrics metrics(font());
    const int textHeight = metrics.height();

    p.setPen(pal.color(QPalette::WindowText));
    p.drawText(QRect(0, 0, width(), textHeight), Qt::AlignCenter,
               metrics.elidedText(label, Qt::ElideRight, width()));
    p.drawText(valueRect(), Qt::AlignCenter, QString::fromStdString(param.format(current)));

    const int side = std::max(std::min(width(), height() - 2 * textHeight) - 8, 8);
    const QRectF dial(
        QPointF((width() - side) / 2.0, textHeight + (height() - 2 * textHeight - side) / 2.0),
        QSizeF(side, side));
    const double t = param.normalized(current);
    const QColor accent = isEnabled() ? pal.color(QPalette::Highlight) : pal.color(QPalette::Mid);

    QPen track(pal.color(QPalette::Mid), 4, Qt::SolidLine, Qt::RoundCap);
    p.setPen(track);
    p.drawArc(dial, int(225 * 16), int(-sweepDegrees * 16));
    QPen fill(accent, 4, Qt::SolidLine, Qt::RoundCap);
    p.setPen(fill);
    p.drawArc(dial, int(225 * 16), int(-sweepDegrees * t * 16));

    const double angle = (225 - sweepDegrees * t) * M_PI / 180;
    const QPointF centre = dial.center();
    const double radius = side / 2.0 - 6;
    p.setPen(QPen(pal.color(QPalette::WindowText), 2, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(centre, centre + QPointF(std::cos(angle) * radius, -std::sin(angle) * radius));
    if (hasFocus()) {
        p.setPen(QPen(accent, 1, Qt::DotLine));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(dial.adjusted(-3, -3, 3, 3));
    }
}

void Knob::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    pressPosition = lastPosition = event->position();
    dragPosition = param.normalized(current);
    axis = Axis::undecided;
    pressed = true;
    inDoubleClick = false;
}

void Knob::mouseMoveEvent(QMouseEvent* event) {
    if (!pressed || !(event->buttons() & Qt::LeftButton)) return;
    const QPointF position = event->position();
    if (axis == Axis::undecided) {
        // The drag goes the way the mouse first moves: up or right turns the knob up.
        const QPointF moved = position - pressPosition;
        if (std::max(std::abs(moved.x()), std::abs(moved.y())) < valueControl::dragThreshold)
            return;
        axis = std::abs(moved.x()) > std::abs(moved.y()) ? Axis::horizontal : Axis::vertical;
        lastPosition = pressPosition;
    }
    const double pixels = axis == Axis::horizontal ? position.x() - lastPosition.x()
                                                   : lastPosition.y() - position.y();
    lastPosition = position;
    const double speed =
        event->modifiers().testFlag(Qt::ShiftModifier) ? valueControl::fineFactor : 1;
    dragPosition = std::clamp(dragPosition + pixels / dragPixels * speed, 0.0, 1.0);
    edit(param.value(dragPosition));
}

void Knob::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    const bool clicked = pressed && axis == Axis::undecided;
    pressed = false;
    if (std::exchange(inDoubleClick, false)) return;
    // A click on the value text opens the editor to type one.
    if (clicked && valueRect().contains(event->position().toPoint())) openEditor();
}

void Knob::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    inDoubleClick = true;
    pressed = false;
    edit(param.defaultValue);
}

void Knob::wheelEvent(QWheelEvent* event) {
    const QPoint delta = event->angleDelta();
    if (delta.isNull()) return;
    event->accept();
    const bool fine = event->modifiers().testFlag(Qt::ShiftModifier);
    const double sign = event->inverted() ? -1 : 1;
    if (!isDiscrete()) {
        // A touchpad's small deltas turn it smoothly, in proportion.
        const int travel = delta.y() != 0 ? delta.y() : delta.x();
        edit(steppedValue(sign * travel / double(valueControl::wheelNotch), fine));
        return;
    }
    // Choices and steps move once per whole notch, however the travel arrives.
    const int steps = wheelNotches(delta, wheelEighths);
    if (steps != 0) edit(steppedValue(sign * steps));
}

void Knob::keyPressEvent(QKeyEvent* event) {
    const bool fine = event->modifiers().testFlag(Qt::ShiftModifier);
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Right: edit(steppedValue(1, fine)); break;
    case Qt::Key_Down:
    case Qt::Key_Left: edit(steppedValue(-1, fine)); break;
    case Qt::Key_PageUp: edit(steppedValue(isDiscrete() ? 1 : 10)); break;
    case Qt::Key_PageDown: edit(steppedValue(isDiscrete() ? -1 : -10)); break;
    case Qt::Key_Home: edit(param.lower()); break;
    case Qt::Key_End: edit(param.upper()); break;
    case Qt::Key_Delete:
    case Qt::Key_Backspace: edit(param.defaultValue); break;
    case Qt::Key_Return:
    case Qt::Key_Enter: openEditor(); break;
    default: ParameterControl::keyPressEvent(event); return;
    }
    event->accept();
}

} // namespace sonvale
