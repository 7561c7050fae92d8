#include "app/effects/EffectEditors.h"

#include "app/effects/EffectDisplays.h"
#include "app/effects/ParameterControl.h"
#include "effects/EQBand.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QVBoxLayout>
#include <algorithm>
#include <iterator>

namespace sonvale {

namespace {

// ---- icons, drawn on a 32 x 32 grid -----------------------------------------------------------

void drawSliders(QPainter& p, const QColor& ink) {
    for (int i = 0; i < 3; ++i) {
        const double x = 8 + i * 8, knob = (i == 1) ? 10 : 20;
        p.drawLine(QPointF(x, 5), QPointF(x, 27));
        p.setBrush(ink);
        p.drawEllipse(QPointF(x, knob), 3, 3);
        p.setBrush(Qt::NoBrush);
    }
}

void drawFlame(QPainter& p, const QColor&) {
    QPainterPath path;
    path.moveTo(16, 28);
    path.cubicTo(6, 26, 6, 16, 12, 10);
    path.cubicTo(12, 16, 15, 16, 16, 4);
    path.cubicTo(24, 12, 27, 24, 16, 28);
    p.drawPath(path);
}

void drawBolt(QPainter& p, const QColor&) {
    QPainterPath path;
    path.moveTo(19, 3);
    path.lineTo(9, 18);
    path.lineTo(16, 18);
    path.lineTo(13, 29);
    path.lineTo(23, 13);
    path.lineTo(16, 13);
    path.closeSubpath();
    p.drawPath(path);
}

void drawArrowsOntoALine(QPainter& p, const QColor&) {
    p.drawLine(QPointF(5, 16), QPointF(27, 16));
    p.drawLine(QPointF(16, 3), QPointF(16, 11));
    p.drawLine(QPointF(12, 7), QPointF(16, 11));
    p.drawLine(QPointF(20, 7), QPointF(16, 11));
    p.drawLine(QPointF(16, 29), QPointF(16, 21));
    p.drawLine(QPointF(12, 25), QPointF(16, 21));
    p.drawLine(QPointF(20, 25), QPointF(16, 21));
}

void drawArrowUpToACeiling(QPainter& p, const QColor&) {
    p.drawLine(QPointF(6, 5), QPointF(26, 5));
    p.drawLine(QPointF(16, 28), QPointF(16, 11));
    p.drawLine(QPointF(10, 17), QPointF(16, 11));
    p.drawLine(QPointF(22, 17), QPointF(16, 11));
}

void drawClosedDoor(QPainter& p, const QColor&) {
    p.drawRect(QRectF(9, 4, 14, 24));
    p.drawEllipse(QPointF(19, 17), 1.2, 1.2);
    p.drawLine(QPointF(5, 28), QPointF(27, 28));
}

void drawThreeVoices(QPainter& p, const QColor&) {
    for (int i = 0; i < 3; ++i)
        p.drawEllipse(QPointF(7 + i * 9, 12 + (i == 1 ? -3 : 0)), 3.5, 3.5);
    QPainterPath path;
    path.moveTo(3, 26);
    path.quadTo(16, 14, 29, 26);
    p.drawPath(path);
}

void drawWind(QPainter& p, const QColor&) {
    for (int i = 0; i < 3; ++i) {
        QPainterPath line;
        const double y = 9 + i * 7;
        line.moveTo(4, y);
        line.lineTo(22 - i * 4, y);
        line.quadTo(28 - i * 4, y, 26 - i * 4, y - 4);
        p.drawPath(line);
    }
}

void drawSwirl(QPainter& p, const QColor&) {
    for (int i = 0; i < 3; ++i) {
        const double r = 4 + i * 4.5;
        p.drawArc(QRectF(16 - r, 16 - r, 2 * r, 2 * r), (i * 120) * 16, 220 * 16);
    }
}

void drawDotAndEchoes(QPainter& p, const QColor& ink) {
    p.setBrush(ink);
    p.drawEllipse(QPointF(7, 16), 3, 3);
    p.setBrush(Qt::NoBrush);
    for (int i = 0; i < 3; ++i) {
        const double r = 7 + i * 6;
        p.drawArc(QRectF(7 - r, 16 - r, 2 * r, 2 * r), -45 * 16, 90 * 16);
    }
}

void drawHallOfColumns(QPainter& p, const QColor&) {
    QPainterPath path;
    path.moveTo(4, 11);
    path.lineTo(16, 4);
    path.lineTo(28, 11);
    path.closeSubpath();
    p.drawPath(path);
    for (int i = 0; i < 4; ++i)
        p.drawLine(QPointF(7 + i * 6, 14), QPointF(7 + i * 6, 24));
    p.drawLine(QPointF(4, 28), QPointF(28, 28));
}

void drawTuningFork(QPainter& p, const QColor&) {
    QPainterPath path;
    path.moveTo(10, 4);
    path.lineTo(10, 16);
    path.quadTo(10, 21, 16, 21);
    path.quadTo(22, 21, 22, 16);
    path.lineTo(22, 4);
    p.drawPath(path);
    p.drawLine(QPointF(16, 21), QPointF(16, 29));
}

void drawBarsOverAnAxis(QPainter& p, const QColor&) {
    p.drawLine(QPointF(4, 28), QPointF(28, 28));
    for (int i = 0; i < 4; ++i) {
        const double h = (i == 1 ? 18 : i == 2 ? 12 : i == 0 ? 9 : 6);
        p.drawLine(QPointF(8 + i * 6, 24), QPointF(8 + i * 6, 24 - h));
    }
}

// ---- editors ------------------------------------------------------------------------------------

constexpr int equalizerBands = 4;

void equalizerEditor(EffectEditorParts& parts, const EffectSessionPtr& session, double rate,
                     QWidget* area, QVBoxLayout* layout) {
    parts.equalizerGraph = new EqualizerGraph(session, rate, area);
    layout->addWidget(parts.equalizerGraph, 1);
    parts.controlColumns = 10; // two bands to a row keep the response graph tall
    parts.labelControls = [](const std::vector<ParameterControl*>& controls) {
        // "Band 2 Frequency" would not fit: the band's number and a short name.
        static const char* shortNames[] = {"%1 Type", "%1 Freq", "%1 Gain", "%1 Q", "Band %1"};
        for (ParameterControl* control : controls) {
            const int index = control->parameter().index;
            if (index < 5 * equalizerBands)
                control->setLabel(QString(shortNames[index % 5]).arg(index / 5 + 1));
        }
    };
    parts.syncControls = [](const std::vector<ParameterControl*>& controls,
                            const std::vector<double>& values) {
        if (controls.size() < 5 * equalizerBands) return;
        // Each band shows only the controls its type uses.
        for (int b = 0; b < equalizerBands; ++b) {
            const EQBandType type = eqBandType(values[size_t(5 * b)]);
            controls[size_t(5 * b + 2)]->setVisible(usesGain(type));
            controls[size_t(5 * b + 3)]->setVisible(usesQ(type));
        }
    };
}

void compressorEditor(EffectEditorParts& parts, const EffectSessionPtr& session, double,
                      QWidget* area, QVBoxLayout* layout) {
    auto* row = new QHBoxLayout;
    parts.compressorCurve = new CompressorCurve(session, area);
    parts.compressorCurve->setFixedSize(200, 200);
    row->addWidget(parts.compressorCurve);
    auto* readout = new QVBoxLayout;
    readout->addWidget(new QLabel("Gain reduction", area));
    parts.reductionMeter = new ReductionMeter(area);
    readout->addWidget(parts.reductionMeter);
    readout->addStretch();
    row->addLayout(readout, 1);
    layout->addLayout(row);
}

// A gain-reduction readout on a `range` dB scale.
template <int range>
void reductionEditor(EffectEditorParts& parts, const EffectSessionPtr&, double, QWidget* area,
                     QVBoxLayout* layout) {
    layout->addWidget(new QLabel("Gain reduction", area));
    parts.reductionMeter = new ReductionMeter(area, range);
    layout->addWidget(parts.reductionMeter);
}

void spectrumEditor(EffectEditorParts& parts, const EffectSessionPtr& session, double,
                    QWidget* area, QVBoxLayout* layout) {
    parts.spectrumDisplay = new SpectrumDisplay(session, area);
    layout->addWidget(parts.spectrumDisplay, 1);
}

struct EffectEditor {
    EffectKind kind;
    void (*drawIcon)(QPainter& p, const QColor& ink);
    // Adds the effect's displays; null for an effect that shows only its knobs.
    void (*build)(EffectEditorParts& parts, const EffectSessionPtr& session, double sampleRate,
                  QWidget* area, QVBoxLayout* layout);
};

// Each effect's icon and editor, one line an effect.
constexpr EffectEditor editors[] = {
    {EffectKind::equalizer, drawSliders, equalizerEditor},
    {EffectKind::saturation, drawFlame, nullptr},
    {EffectKind::distortion, drawBolt, nullptr},
    {EffectKind::compressor, drawArrowsOntoALine, compressorEditor},
    {EffectKind::limiter, drawArrowUpToACeiling, reductionEditor<24>},
    {EffectKind::noiseGate, drawClosedDoor, reductionEditor<80>},
    {EffectKind::chorus, drawThreeVoices, nullptr},
    {EffectKind::flanger, drawWind, nullptr},
    {EffectKind::phaser, drawSwirl, nullptr},
    {EffectKind::delay, drawDotAndEchoes, nullptr},
    {EffectKind::reverb, drawHallOfColumns, nullptr},
    {EffectKind::pitchShifter, drawTuningFork, nullptr},
    {EffectKind::spectrumAnalyzer, drawBarsOverAnAxis, spectrumEditor},
};

const EffectEditor* editorFor(EffectKind kind) {
    auto found = std::find_if(std::begin(editors), std::end(editors),
                              [kind](const EffectEditor& editor) { return editor.kind == kind; });
    return found == std::end(editors) ? nullptr : found;
}

} // namespace

EffectEditorParts buildEffectEditor(const EffectSessionPtr& session, double sampleRate,
                                    QWidget* area, QVBoxLayout* layout) {
    EffectEditorParts parts;
    const EffectEditor* editor = editorFor(session->kind());
    if (editor && editor->build) editor->build(parts, session, sampleRate, area, layout);
    return parts;
}

QIcon effectIcon(EffectKind kind) {
    const EffectEditor* editor = editorFor(kind);
    if (!editor) return {};
    // Drawn at twice the size so it stays sharp on HiDPI screens, in the theme's text colour
    // so it shows on light and dark themes alike.
    QPixmap pixmap(64, 64);
    pixmap.setDevicePixelRatio(2);
    pixmap.fill(Qt::transparent);
    const QColor ink = QGuiApplication::palette().color(QPalette::WindowText);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(ink, 2.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    editor->drawIcon(p, ink);
    p.end();
    return QIcon(pixmap);
}

} // namespace sonvale
