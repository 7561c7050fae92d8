#pragma once

#include <QLineEdit>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

class QLabel;
class QSlider;

namespace sonvale {

// What the effect knobs and the gain sliders share: Shift slows a drag, a wheel notch or an
// arrow key to a tenth; a double-click goes back to the default; a value can be typed.
namespace valueControl {
inline constexpr double fineFactor = 0.1; // Shift held
inline constexpr int wheelNotch = 120;    // one mouse wheel notch, in eighths of a degree
inline constexpr int dragThreshold = 3;   // pixels a press moves before it counts as a drag
} // namespace valueControl

// A unit a typed value may end with, and what one of it is worth ("kHz", 1000).
struct TypedUnit {
    QString suffix; // compared without case
    double factor = 1;
};

// The number in a typed text: "-6", "−6.5" (a true minus sign), "+3", "1,5", "1.5 kHz",
// "250ms", "40 %" with `units` naming the accepted suffixes; none for anything else (garbage,
// an unknown unit, an empty text, infinity, NaN).
std::optional<double> parseTypedValue(const QString& text, const std::vector<TypedUnit>& units);

// Whole wheel notches out of a wheel's travel: touchpads send small deltas, which add up in
// `pending` until they make a notch. Vertical travel counts, else horizontal.
int wheelNotches(QPoint angleDelta, int& pending);

// A small line edit over part of a control, for typing its value. Return hands the text to
// `commit`: when it takes it the edit closes, when it refuses it (garbage) the edit stays open
// with the text selected and nothing changes. Escape or a click elsewhere closes it unchanged.
// Return with the text as it opened changes nothing either (the shown text may be rounded).
class ValueEditor : public QLineEdit {
    Q_OBJECT
public:
    // Opens over `area` of `parent` (widened to fit a number), focused with `text` selected;
    // the focus goes back to `owner` when it closes. One editor at a time: an editor already
    // open on `parent` is returned as it is.
    static ValueEditor* open(QWidget* parent, QRect area, const QString& text, QWidget* owner,
                             std::function<bool(const QString&)> commit);
    // The editor open on `parent`, if any.
    static ValueEditor* openOn(QWidget* parent);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    ValueEditor(QWidget* parent, const QString& text, QWidget* owner,
                std::function<bool(const QString&)> commit);
    void finish();

    QString initialText;
    QPointer<QWidget> owner;
    std::function<bool(const QString&)> commit;
    bool closing = false;
};

// Gives a plain QSlider (a gain control) the knobs' handling: a calm drag (the whole range
// over at least 200 pixels) that Shift slows to a tenth, the wheel in steps (one notch one
// step, Shift a fine step), a double-click back to the default, Delete to the default, and a
// typed value: click or double-click the value label, or press Enter on the slider. Every
// change goes through the slider's own value, so a DragStep on it still makes a drag one undo
// step, and its arrow, Page and Home/End keys work as before. Owned by the slider.
class SliderControl : public QObject {
public:
    struct Scale {
        int defaultValue = 0;
        int step = 5;             // one wheel notch
        int fineStep = 1;         // one wheel notch with Shift
        double valuePerUnit = 10; // slider steps per typed unit
        QString unit = "dB";      // the typed suffix it accepts
        int decimals = 1;         // of the number the editor opens with
    };
    // A gain in decibels at `stepsPerDecibel`: 0 dB default, 0.5 dB a notch, 0.1 dB fine.
    static Scale gain(int stepsPerDecibel = 10);

    // `label` (optional) shows the value; clicking it opens the editor over it.
    SliderControl(QSlider* slider, QLabel* label, Scale scale);

    // Opens the typed-value editor (over the label, else over the slider).
    ValueEditor* openEditor();
    // Sets the slider to a typed text's value, clamped; false (nothing changes) for garbage.
    bool commitText(const QString& text);
    // The pixels of drag that cross the whole range (without Shift).
    double fullRangePixels() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool sliderEvent(QEvent* event);
    void moveBy(double steps);

    QSlider* slider;
    QLabel* label;
    Scale scale;
    QPointF lastPosition;
    double exactPosition = 0; // the drag's unrounded slider position
    bool dragging = false;
    int pendingWheel = 0;
};

} // namespace sonvale
