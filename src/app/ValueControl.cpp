#include "app/ValueControl.h"

#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPointer>
#include <QRegularExpression>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace sonvale {

using namespace valueControl;

std::optional<double> parseTypedValue(const QString& text, const std::vector<TypedUnit>& units) {
    QString typed = text;
    typed.replace(QChar(0x2212), '-'); // a true minus sign, as the labels write it
    typed.remove(QRegularExpression(R"(\s)"));
    const TypedUnit* suffix = nullptr;
    for (const TypedUnit& unit : units)
        if (!unit.suffix.isEmpty() && typed.endsWith(unit.suffix, Qt::CaseInsensitive) &&
            (!suffix || unit.suffix.size() > suffix->suffix.size()))
            suffix = &unit;
    if (suffix) typed.chop(suffix->suffix.size());
    if (typed.isEmpty()) return std::nullopt;
    if (typed.contains(',') && !typed.contains('.')) typed.replace(',', '.'); // a decimal comma
    bool ok = false;
    const double number = QLocale::c().toDouble(typed, &ok);
    if (!ok || !std::isfinite(number)) return std::nullopt;
    return number * (suffix ? suffix->factor : 1);
}

int wheelNotches(QPoint angleDelta, int& pending) {
    const int travel = angleDelta.y() != 0 ? angleDelta.y() : angleDelta.x();
    if (travel == 0) return 0;
    if ((pending > 0) != (travel > 0)) pending = 0; // a turn the other way starts afresh
    pending += travel;
    const int notches = pending / wheelNotch;
    pending -= notches * wheelNotch;
    return notches;
}

// ---- the typed-value editor ---------------------------------------------------------------

ValueEditor::ValueEditor(QWidget* parent, const QString& text, QWidget* owner,
                         std::function<bool(const QString&)> commit)
    : QLineEdit(text, parent)
    , initialText(text)
    , owner(owner)
    , commit(std::move(commit)) {
    setObjectName("valueEditor");
    setAlignment(Qt::AlignCenter);
    setToolTip("Type a value: Enter sets it, Escape cancels");
    setAccessibleName("Value");
}

ValueEditor* ValueEditor::openOn(QWidget* parent) {
    for (auto* editor : parent->findChildren<ValueEditor*>(Qt::FindDirectChildrenOnly))
        if (!editor->closing) return editor;
    return nullptr;
}

ValueEditor* ValueEditor::open(QWidget* parent, QRect area, const QString& text, QWidget* owner,
                               std::function<bool(const QString&)> commit) {
    if (ValueEditor* open = openOn(parent)) return open;
    auto* editor = new ValueEditor(parent, text, owner, std::move(commit));
    // Wide enough for "-100.0 kHz", tall enough for its font, and inside the parent.
    const int width = std::min(
        std::max(area.width(), editor->fontMetrics().horizontalAdvance("-100.00 kHz") + 12),
        std::max(parent->width(), area.width()));
    const int height = std::max(area.height(), editor->sizeHint().height());
    const int left =
        std::clamp(area.center().x() - width / 2, 0, std::max(parent->width() - width, 0));
    const int top =
        std::clamp(area.center().y() - height / 2, 0, std::max(parent->height() - height, 0));
    editor->setGeometry(left, top, width, height);
    editor->show();
    editor->raise();
    editor->setFocus(Qt::OtherFocusReason);
    editor->selectAll();
    return editor;
}

void ValueEditor::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: {
        event->accept();
        if (text() == initialText) {
            finish();
            return;
        }
        const QPointer<ValueEditor> alive(this);
        const bool taken = commit(text());
        if (!alive) return; // the commit rebuilt the control that held it
        if (taken) {
            finish();
        } else {
            // Garbage: nothing changed; say so and let it be fixed or cancelled.
            setStyleSheet("QLineEdit { border: 1px solid #d04040; }");
            selectAll();
        }
        return;
    }
    case Qt::Key_Escape:
        event->accept();
        finish();
        return;
    default: QLineEdit::keyPressEvent(event);
    }
}

void ValueEditor::focusOutEvent(QFocusEvent* event) {
    QLineEdit::focusOutEvent(event);
    // Its own context menu takes the focus for a while; anything else closes it unchanged.
    if (event->reason() != Qt::PopupFocusReason) finish();
}

void ValueEditor::finish() {
    if (closing) return;
    closing = true;
    const bool hadFocus = hasFocus();
    hide();
    if (owner && hadFocus) owner->setFocus(Qt::OtherFocusReason);
    deleteLater();
}

// ---- sliders --------------------------------------------------------------------------------

SliderControl::Scale SliderControl::gain(int stepsPerDecibel) {
    Scale scale;
    scale.step = std::max(1, stepsPerDecibel / 2);
    scale.fineStep = std::max(1, stepsPerDecibel / 10);
    scale.valuePerUnit = stepsPerDecibel;
    return scale;
}

SliderControl::SliderControl(QSlider* slider, QLabel* label, Scale scale)
    : QObject(slider)
    , slider(slider)
    , label(label)
    , scale(std::move(scale)) {
    slider->setSingleStep(this->scale.step); // the arrow keys step as a wheel notch does
    slider->installEventFilter(this);
    if (label) {
        label->installEventFilter(this);
        label->setCursor(Qt::IBeamCursor);
        if (label->toolTip().isEmpty()) label->setToolTip("Click to type a value");
    }
}

double SliderControl::fullRangePixels() const {
    // The travel of the handle along the groove, as QSlider itself maps pixels to values.
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = slider->sliderPosition();
    option.sliderValue = slider->value();
    const QRect handle = slider->style()->subControlRect(QStyle::CC_Slider, &option,
                                                         QStyle::SC_SliderHandle, slider);
    const int travel = slider->orientation() == Qt::Horizontal ? slider->width() - handle.width()
                                                               : slider->height() - handle.height();
    constexpr double calmest = 200; // a short slider still takes this much drag end to end
    return std::max(calmest, double(travel));
}

void SliderControl::moveBy(double steps) {
    if (slider->invertedControls()) steps = -steps;
    slider->setValue(int(std::lround(slider->value() + steps)));
}

ValueEditor* SliderControl::openEditor() {
    if (!slider->isEnabled()) return nullptr;
    QWidget* over = label && !label->isHidden() ? static_cast<QWidget*>(label) : slider;
    QWidget* parent = over->parentWidget() ? over->parentWidget() : over;
    const QRect area = parent == over ? over->rect() : over->geometry();
    const QString text =
        QString::number(double(slider->value()) / scale.valuePerUnit, 'f', scale.decimals);
    const QPointer<SliderControl> alive(this);
    return ValueEditor::open(parent, area, text, slider, [alive](const QString& typed) {
        return alive && alive->commitText(typed);
    });
}

bool SliderControl::commitText(const QString& text) {
    const auto number = parseTypedValue(text, {{scale.unit, 1}});
    if (!number) return false;
    const double wanted = std::clamp(*number * scale.valuePerUnit, double(slider->minimum()),
                                     double(slider->maximum()));
    slider->setValue(int(std::lround(wanted)));
    return true;
}

bool SliderControl::eventFilter(QObject* watched, QEvent* event) {
    if (watched == slider) return sliderEvent(event);
    if (watched == label &&
        (event->type() == QEvent::MouseButtonPress ||
         event->type() == QEvent::MouseButtonDblClick) &&
        static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton && slider->isEnabled()) {
        openEditor();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

bool SliderControl::sliderEvent(QEvent* event) {
    if (!slider->isEnabled()) return false; // a disabled slider (no track) takes nothing
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton) {
            lastPosition = mouse->position();
            dragging = false;
        }
        return false; // the slider grabs its handle (and a DragStep opens its group)
    }
    case QEvent::MouseMove: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (!slider->isSliderDown() || !(mouse->buttons() & Qt::LeftButton)) return false;
        // The handle moves by the mouse's travel rather than jumping under it, so that Shift
        // can slow it down anywhere in the drag.
        const QPointF moved = mouse->position() - lastPosition;
        lastPosition = mouse->position();
        if (!dragging) {
            dragging = true;
            exactPosition = slider->sliderPosition();
        }
        const bool horizontal = slider->orientation() == Qt::Horizontal;
        double pixels = horizontal ? moved.x() : -moved.y();
        const bool mirrored = horizontal && slider->layoutDirection() == Qt::RightToLeft;
        if (slider->invertedAppearance() != mirrored) pixels = -pixels;
        const double speed = mouse->modifiers().testFlag(Qt::ShiftModifier) ? fineFactor : 1;
        const double span = slider->maximum() - slider->minimum();
        exactPosition = std::clamp(exactPosition + pixels / fullRangePixels() * span * speed,
                                   double(slider->minimum()), double(slider->maximum()));
        slider->setSliderPosition(int(std::lround(exactPosition)));
        return true;
    }
    case QEvent::MouseButtonRelease: dragging = false; return false;
    case QEvent::MouseButtonDblClick:
        if (static_cast<QMouseEvent*>(event)->button() != Qt::LeftButton) return false;
        slider->setValue(scale.defaultValue);
        return true;
    case QEvent::Wheel: {
        auto* wheel = static_cast<QWheelEvent*>(event);
        int notches = wheelNotches(wheel->angleDelta(), pendingWheel);
        if (wheel->inverted()) notches = -notches;
        const bool fine = wheel->modifiers().testFlag(Qt::ShiftModifier);
        if (notches != 0) moveBy(notches * (fine ? scale.fineStep : scale.step));
        wheel->accept();
        return true;
    }
    case QEvent::KeyPress: {
        auto* key = static_cast<QKeyEvent*>(event);
        const bool fine = key->modifiers().testFlag(Qt::ShiftModifier);
        switch (key->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter: openEditor(); return true;
        case Qt::Key_Delete:
        case Qt::Key_Backspace: slider->setValue(scale.defaultValue); return true;
        case Qt::Key_Up:
        case Qt::Key_Right:
            if (!fine) return false; // the slider's own single step
            moveBy(scale.fineStep);
            return true;
        case Qt::Key_Down:
        case Qt::Key_Left:
            if (!fine) return false;
            moveBy(-scale.fineStep);
            return true;
        default: return false; // Page Up/Down and Home/End are the slider's own
        }
    }
    default: return false;
    }
}

} // namespace sonvale
