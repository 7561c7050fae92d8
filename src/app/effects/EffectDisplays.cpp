#include "app/effects/EffectDisplays.h"

#include "effects/EQBand.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

constexpr double lowest = 20, highest = 20000;
constexpr double graphDecibels = 24; // the equalizer graph shows +-24 dB
constexpr double curveFloor = -60;   // the compressor curve spans -60 to 0 dB

EQBand bandOf(const std::vector<double>& v, int b) {
    const size_t i = size_t(5 * b);
    if (v.size() < i + 5) return {};
    return {eqBandType(v[i]), v[i + 1], v[i + 2], v[i + 3], v[i + 4] >= 0.5};
}

QColor bandColour(int band) {
    static const QColor colours[] = {QColor(230, 110, 60), QColor(220, 190, 60),
                                     QColor(80, 190, 120), QColor(80, 150, 230)};
    return colours[band % 4];
}

QColor mix(const QColor& from, const QColor& to, double amount) {
    return QColor::fromRgbF(float(from.redF() + (to.redF() - from.redF()) * amount),
                            float(from.greenF() + (to.greenF() - from.greenF()) * amount),
                            float(from.blueF() + (to.blueF() - from.blueF()) * amount));
}

// The displays' colours, from the widget's palette so they follow a light or a dark theme.
struct Ink {
    QColor back;  // the plot's ground
    QColor grid;  // faint lines
    QColor axis;  // the 0 dB line, the unity diagonal
    QColor label; // scale text
    QColor text;  // readouts
    QColor curve; // a response or transfer curve

    explicit Ink(const QWidget& widget) {
        const QPalette& pal = widget.palette();
        back = pal.color(QPalette::Base);
        text = pal.color(QPalette::Text);
        grid = mix(back, text, 0.12);
        axis = mix(back, text, 0.35);
        label = mix(back, text, 0.6);
        curve = pal.color(QPalette::Highlight);
    }
};

void drawBackground(QPainter& p, const QRect& r, const Ink& ink) {
    p.fillRect(r, ink.back);
    p.setPen(ink.grid);
    p.drawRect(r.adjusted(0, 0, -1, -1));
}

} // namespace

// ---- equalizer graph -------------------------------------------------------------------------

EqualizerGraph::EqualizerGraph(EffectSessionPtr s, double sampleRate, QWidget* parent)
    : QWidget(parent)
    , session(std::move(s))
    , rate(sampleRate > 0 ? sampleRate : 48000) {
    setMinimumSize(240, 120);
    setToolTip("Drag a band's point: sideways for its frequency, up and down for its gain");
}

double EqualizerGraph::xOf(double frequency) const {
    return std::log(frequency / lowest) / std::log(highest / lowest) * (width() - 1);
}
double EqualizerGraph::frequencyAt(double x) const {
    return lowest * std::pow(highest / lowest, std::clamp(x / std::max(width() - 1, 1), 0.0, 1.0));
}
double EqualizerGraph::yOf(double decibels) const {
    return (0.5 - decibels / (2 * graphDecibels)) * (height() - 1);
}
double EqualizerGraph::decibelsAt(double y) const {
    return (0.5 - y / std::max(height() - 1, 1)) * 2 * graphDecibels;
}

std::vector<Biquad> EqualizerGraph::filters() const {
    std::vector<Biquad> result;
    for (int b = 0; b < 4; ++b) {
        const EQBand band = bandOf(session->values(), b);
        if (band.isOn) result.push_back(band.biquad(rate));
    }
    return result;
}

double EqualizerGraph::responseAt(double frequency) const {
    return responseAt(frequency, filters());
}

double EqualizerGraph::responseAt(double frequency, const std::vector<Biquad>& sections) const {
    const auto& v = session->values();
    double total = v.size() > 20 ? v[20] : 0;
    for (const Biquad& section : sections)
        total += section.decibels(frequency, rate);
    return total;
}

QPointF EqualizerGraph::bandPoint(int b) const {
    const EQBand band = bandOf(session->values(), b);
    return {xOf(band.frequency), yOf(usesGain(band.type) ? band.gain : 0)};
}

void EqualizerGraph::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const Ink ink(*this);
    drawBackground(p, rect(), ink);
    p.setFont(QFont(font().family(), 7));
    p.setPen(ink.grid);
    for (double f : {50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0, 10000.0}) {
        p.drawLine(QPointF(xOf(f), 0), QPointF(xOf(f), height()));
    }
    for (double db : {-12.0, 12.0})
        p.drawLine(QPointF(0, yOf(db)), QPointF(width(), yOf(db)));
    p.setPen(ink.axis);
    p.drawLine(QPointF(0, yOf(0)), QPointF(width(), yOf(0)));
    p.setPen(ink.label);
    for (auto [f, label] : {std::pair{100.0, "100"}, {1000.0, "1k"}, {10000.0, "10k"}})
        p.drawText(QPointF(xOf(f) + 2, height() - 3), label);
    p.drawText(QPointF(2, yOf(12) - 2), "+12 dB");
    p.drawText(QPointF(2, yOf(-12) - 2), "-12 dB");

    QPainterPath curve;
    const auto sections = filters(); // designed once per paint, not once per column
    for (int x = 0; x < width(); ++x) {
        const double y =
            std::clamp(yOf(responseAt(frequencyAt(x), sections)), -2.0, height() + 2.0);
        if (x == 0)
            curve.moveTo(x, y);
        else
            curve.lineTo(x, y);
    }
    // The area under the response, filled so that boosts and cuts read at a glance: strongest
    // along the curve, fading towards the floor.
    QPainterPath area = curve;
    area.lineTo(width() + 2, height() + 2);
    area.lineTo(-2, height() + 2);
    area.closeSubpath();
    QLinearGradient fade(0, 0, 0, height());
    QColor strong = ink.curve, faint = ink.curve;
    strong.setAlpha(110);
    faint.setAlpha(25);
    fade.setColorAt(0, strong);
    fade.setColorAt(1, faint);
    p.fillPath(area, fade);
    p.setPen(QPen(ink.curve, 2));
    p.drawPath(curve);

    for (int b = 0; b < 4; ++b) {
        const bool on = bandOf(session->values(), b).isOn;
        QColor colour = bandColour(b);
        if (!on) colour.setAlpha(90);
        p.setPen(QPen(ink.text, draggedBand == b ? 2 : 1));
        p.setBrush(colour);
        p.drawEllipse(bandPoint(b), 6, 6);
        p.setPen(Qt::black);
        p.drawText(QRectF(bandPoint(b) - QPointF(6, 6), QSizeF(12, 12)), Qt::AlignCenter,
                   QString::number(b + 1));
    }
}

void EqualizerGraph::mousePressEvent(QMouseEvent* event) {
    draggedBand.reset();
    double nearest = 12; // pixels
    for (int b = 0; b < 4; ++b) {
        const QPointF d = bandPoint(b) - event->position();
        const double distance = std::hypot(d.x(), d.y());
        if (distance < nearest) {
            nearest = distance;
            draggedBand = b;
        }
    }
    update();
}

void EqualizerGraph::mouseMoveEvent(QMouseEvent* event) {
    if (!draggedBand || !(event->buttons() & Qt::LeftButton)) return;
    const int b = *draggedBand;
    const EQBand band = bandOf(session->values(), b);
    session->setValue(5 * b + 1, std::clamp(frequencyAt(event->position().x()), 20.0, 20000.0));
    if (usesGain(band.type))
        session->setValue(5 * b + 2, std::clamp(decibelsAt(event->position().y()), -18.0, 18.0));
}

void EqualizerGraph::mouseReleaseEvent(QMouseEvent*) {
    draggedBand.reset();
    update();
}

// ---- compressor curve -----------------------------------------------------------------------

CompressorCurve::CompressorCurve(EffectSessionPtr s, QWidget* parent)
    : QWidget(parent)
    , session(std::move(s)) {
    setMinimumSize(120, 120);
    setToolTip("Output level against input level");
}

double CompressorCurve::outputAt(double level) const {
    const auto& v = session->values();
    if (v.size() < 6) return level;
    const double threshold = v[0], ratio = std::max(v[1], 1.0), knee = std::max(v[4], 0.0);
    const double over = level - threshold;
    double out;
    if (knee > 0 && std::abs(over) <= knee / 2)
        out = level + (1 / ratio - 1) * (over + knee / 2) * (over + knee / 2) / (2 * knee);
    else if (over > 0)
        out = threshold + over / ratio;
    else
        out = level;
    return out + v[5];
}

void CompressorCurve::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    // A square plot, centred: one dB is as wide as it is high.
    const int square = std::min(width(), height());
    const QRect plot((width() - square) / 2, (height() - square) / 2, square, square);
    const Ink ink(*this);
    drawBackground(p, plot, ink);
    const double side = square - 1;
    auto point = [&](double in, double out) {
        return QPointF(plot.left() + (in - curveFloor) / -curveFloor * side,
                       plot.top() + side -
                           std::clamp(out - curveFloor, -5.0, -curveFloor + 5) / -curveFloor *
                               side);
    };
    p.setPen(ink.grid);
    for (double db = -48; db < 0; db += 12) {
        p.drawLine(point(db, curveFloor), point(db, 0));
        p.drawLine(point(curveFloor, db), point(0, db));
    }
    p.setPen(QPen(ink.axis, 1, Qt::DashLine));
    p.drawLine(point(curveFloor, curveFloor), point(0, 0));
    const auto& v = session->values();
    if (v.size() > 0) {
        p.setPen(QPen(QColor(230, 110, 60), 1, Qt::DotLine));
        p.drawLine(point(v[0], curveFloor), point(v[0], 0));
    }
    QPainterPath curve;
    for (int i = 0; i <= 120; ++i) {
        const double in = curveFloor + i * (-curveFloor / 120);
        if (i == 0)
            curve.moveTo(point(in, outputAt(in)));
        else
            curve.lineTo(point(in, outputAt(in)));
    }
    p.setPen(QPen(ink.curve, 2));
    p.drawPath(curve);
}

// ---- gain-reduction readout --------------------------------------------------------------------

ReductionMeter::ReductionMeter(QWidget* parent, float scale)
    : QWidget(parent)
    , range(scale) {
    setMinimumSize(120, 22);
    setToolTip("Gain reduction of the audio being heard");
}

void ReductionMeter::setValue(float decibels) {
    const float value = std::isfinite(decibels) ? std::min(decibels, 0.0f) : 0.0f;
    if (std::abs(value - reduction) < 0.05f) return;
    reduction = value;
    update();
}

void ReductionMeter::paintEvent(QPaintEvent*) {
    QPainter p(this);
    const Ink ink(*this);
    drawBackground(p, rect(), ink);
    const double fraction = std::clamp(double(-reduction) / range, 0.0, 1.0);
    const QRectF bar(width() * (1 - fraction), 3, width() * fraction, height() - 6);
    p.fillRect(bar, QColor(230, 140, 50));
    p.setPen(ink.text);
    p.drawText(rect().adjusted(6, 0, -6, 0), Qt::AlignVCenter | Qt::AlignLeft,
               QString::asprintf("GR %.1f dB", double(reduction)));
}

// ---- spectrum -----------------------------------------------------------------------------------

SpectrumDisplay::SpectrumDisplay(EffectSessionPtr s, QWidget* parent)
    : QWidget(parent)
    , session(std::move(s)) {
    setMinimumSize(240, 120);
    setToolTip("The frequencies playing now: bass on the left, treble on the right");
    spectrum.configure(SpectrumAnalysis::settingsFromValues(session->values()),
                       session->bank()->tap() ? session->bank()->tap()->sampleRate() : 48000);
}

void SpectrumDisplay::refresh(int64_t delay, SpectrumAnalysis::Clock::time_point at) {
    spectrum.update(session->bank()->tap(), delay,
                    SpectrumAnalysis::settingsFromValues(session->values()), at);
    // At rest nothing moves: draw the settled picture once, then stop redrawing.
    if (spectrum.isSettled() && drawnSettled) return;
    drawnSettled = spectrum.isSettled();
    update();
}

void SpectrumDisplay::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const Ink ink(*this);
    drawBackground(p, rect(), ink);
    const auto& v = session->values();
    const int style = v.size() > 0 ? int(std::lround(v[0])) : 0;
    const bool peaks = v.size() > 5 && v[5] >= 0.5;
    const auto& levels = spectrum.levels();
    const auto& peakLevels = spectrum.peaks();
    const double floor = spectrum.settings().floor;
    const int n = int(levels.size());
    if (n == 0) return;
    const QRectF area = QRectF(rect()).adjusted(4, 4, -4, -4);
    const double bandWidth = area.width() / n;
    auto yOf = [&](double db) {
        return area.bottom() - std::clamp((db - floor) / -floor, 0.0, 1.0) * area.height();
    };
    const QColor bar(90, 200, 140), hot(240, 190, 70), peakColour = ink.text;

    p.setPen(ink.grid);
    for (double db = 0; db > floor; db -= 12)
        p.drawLine(QPointF(area.left(), yOf(db)), QPointF(area.right(), yOf(db)));

    switch (style) {
    case 1: { // LED: stacked segments
        const double segment = 5;
        for (int i = 0; i < n; ++i) {
            const double x = area.left() + i * bandWidth + 1;
            for (double y = area.bottom() - segment; y >= yOf(levels[size_t(i)]);
                 y -= segment + 2) {
                const double height = (area.bottom() - y) / area.height();
                p.fillRect(QRectF(x, y, bandWidth - 2, segment), height > 0.85 ? QColor(230, 80, 60)
                                                                 : height > 0.65 ? hot
                                                                                 : bar);
            }
        }
        break;
    }
    case 2: { // Analogue: a soft, filled contour
        QPainterPath path;
        path.moveTo(area.left(), area.bottom());
        for (int i = 0; i < n; ++i)
            path.lineTo(area.left() + (i + 0.5) * bandWidth, yOf(levels[size_t(i)]));
        path.lineTo(area.right(), area.bottom());
        path.closeSubpath();
        QLinearGradient gradient(area.topLeft(), area.bottomLeft());
        gradient.setColorAt(0, QColor(240, 170, 60, 220));
        gradient.setColorAt(1, QColor(240, 110, 40, 60));
        p.fillPath(path, gradient);
        break;
    }
    case 3: { // Line
        QPainterPath path;
        for (int i = 0; i < n; ++i) {
            const QPointF point(area.left() + (i + 0.5) * bandWidth, yOf(levels[size_t(i)]));
            if (i == 0)
                path.moveTo(point);
            else
                path.lineTo(point);
        }
        p.setPen(QPen(ink.curve, 2));
        p.drawPath(path);
        break;
    }
    default: // Bars
        for (int i = 0; i < n; ++i) {
            const double top = yOf(levels[size_t(i)]);
            p.fillRect(
                QRectF(area.left() + i * bandWidth + 1, top, bandWidth - 2, area.bottom() - top),
                bar);
        }
        break;
    }
    if (peaks) {
        p.setPen(QPen(peakColour, 2));
        for (int i = 0; i < n; ++i) {
            if (peakLevels[size_t(i)] <= floor + 0.01) continue;
            const double y = yOf(peakLevels[size_t(i)]);
            p.drawLine(QPointF(area.left() + i * bandWidth + 1, y),
                       QPointF(area.left() + (i + 1) * bandWidth - 1, y));
        }
    }
}

} // namespace sonvale
