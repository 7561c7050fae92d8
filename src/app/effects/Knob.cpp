#include "app/effects/Knob.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
constexpr double dragPixels = 200;      // a full turn over 200 pixels of drag
constexpr double fineDragPixels = 1000; // with Shift held
constexpr double sweepDegrees = 270;
} // namespace

Knob::Knob(EffectParameter parameter, QWidget* parent)
    : QWidget(parent)
    , param(std::move(parameter))
    , label(QString::fromStdString(param.name))
    , current(param.defaultValue) {
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(QString::fromStdString(param.name));
    setToolTip(QString::fromStdString(param.name));
    setMinimumSize(sizeHint());
}

void Knob::setLabel(const QString& text) {
    label = text;
    update();
}

void Knob::setValue(double value) {
    if (value == current) return;
    current = value;
    update();
}

bool Knob::isDiscrete() const {
    return param.unit == EffectParameter::Unit::choice ||
           param.unit == EffectParameter::Unit::toggle || param.step.has_value();
}

double Knob::steppedValue(double steps) const {
    if (isDiscrete()) {
        const double step = param.step.value_or(1);
        return std::clamp(std::round(current / step + steps) * step, param.lower(), param.upper());
    }
    return param.value(param.normalized(current) + steps * 0.01);
}

void Knob::edit(double value) {
    if (value == current) return;
    current = value;
    update();
    Q_EMIT valueEdited(value);
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
    p.drawText(QRect(0, height() - textHeight, width(), textHeight), Qt::AlignCenter,
               QString::fromStdString(param.format(current)));

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
    dragStartY = event->position().y();
    dragStartPosition = param.normalized(current);
    dragged = false;
}

void Knob::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton)) return;
    const double pixels = (event->modifiers() & Qt::ShiftModifier) ? fineDragPixels : dragPixels;
    const double travel = (dragStartY - event->position().y()) / pixels;
    if (std::abs(dragStartY - event->position().y()) >= 2) dragged = true;
    if (dragged) edit(param.value(dragStartPosition + travel));
}

void Knob::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (inDoubleClick) {
        inDoubleClick = false;
        return;
    }
    // A click on a switch flips it.
    if (!dragged && param.unit == EffectParameter::Unit::toggle)
        edit(current >= 0.5 ? param.lower() : param.upper());
}

void Knob::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    inDoubleClick = true;
    edit(param.defaultValue);
}

void Knob::wheelEvent(QWheelEvent* event) {
    const int eighths = event->angleDelta().y(); // a mouse notch is 120, a touchpad sends less
    if (eighths == 0) return;
    event->accept();
    if (!isDiscrete()) {
        edit(steppedValue(eighths / 120.0));
        return;
    }
    // Choices and steps move once per whole notch, however the travel arrives.
    if ((wheelEighths > 0) != (eighths > 0)) wheelEighths = 0;
    wheelEighths += eighths;
    const int steps = wheelEighths / 120;
    if (steps == 0) return;
    wheelEighths -= steps * 120;
    edit(steppedValue(steps));
}

void Knob::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Right: edit(steppedValue(1)); break;
    case Qt::Key_Down:
    case Qt::Key_Left: edit(steppedValue(-1)); break;
    case Qt::Key_PageUp: edit(steppedValue(isDiscrete() ? 1 : 10)); break;
    case Qt::Key_PageDown: edit(steppedValue(isDiscrete() ? -1 : -10)); break;
    case Qt::Key_Home: edit(param.lower()); break;
    case Qt::Key_End: edit(param.upper()); break;
    case Qt::Key_Delete:
    case Qt::Key_Backspace: edit(param.defaultValue); break;
    default: QWidget::keyPressEvent(event); return;
    }
    event->accept();
}

} // namespace sonvale
