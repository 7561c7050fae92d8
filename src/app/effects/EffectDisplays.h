#pragma once

#include "analysis/SpectrumAnalysis.h"
#include "effects/Biquad.h"
#include "effects/EffectSession.h"

#include <QWidget>
#include <optional>
#include <vector>

namespace sonvale {

// The equalizer's summed response over 20 Hz to 20 kHz with a draggable point per band:
// sideways sets the band's frequency, up and down its gain (for the types that have one).
class EqualizerGraph : public QWidget {
    Q_OBJECT
public:
    EqualizerGraph(EffectSessionPtr session, double sampleRate, QWidget* parent = nullptr);
    QSize sizeHint() const override { return {420, 170}; }
    // The response in dB at `frequency` for the session's current values.
    double responseAt(double frequency) const;
    // Where the band's point is drawn.
    QPointF bandPoint(int band) const;

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;

private:
    std::vector<Biquad> filters() const; // the bands that are on
    double responseAt(double frequency, const std::vector<Biquad>& sections) const;
    double xOf(double frequency) const;
    double frequencyAt(double x) const;
    double yOf(double decibels) const;
    double decibelsAt(double y) const;

    EffectSessionPtr session;
    double rate;
    std::optional<int> draggedBand;
};

// The compressor's static curve: output level against input level, with knee and makeup.
class CompressorCurve : public QWidget {
    Q_OBJECT
public:
    explicit CompressorCurve(EffectSessionPtr session, QWidget* parent = nullptr);
    QSize sizeHint() const override { return {170, 170}; }
    // The output level in dB for an input level, from the session's values.
    double outputAt(double inputDecibels) const;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    EffectSessionPtr session;
};

// The gain reduction a dynamics effect applies to what is heard, on a `range` dB scale.
class ReductionMeter : public QWidget {
    Q_OBJECT
public:
    explicit ReductionMeter(QWidget* parent = nullptr, float range = 24);
    QSize sizeHint() const override { return {170, 28}; }
    float value() const { return reduction; }
    void setValue(float decibels);

protected:
    void paintEvent(QPaintEvent*) override;

private:
    float range;
    float reduction = 0;
};

// The analyzer's live display ("Bars", "LED", "Analogue" or "Line", with peak markers).
class SpectrumDisplay : public QWidget {
    Q_OBJECT
public:
    explicit SpectrumDisplay(EffectSessionPtr session, QWidget* parent = nullptr);
    QSize sizeHint() const override { return {420, 170}; }
    // Analyses the tap `delay` frames behind what was processed and redraws if anything moved.
    void refresh(int64_t delay, SpectrumAnalysis::Clock::time_point at);
    const SpectrumAnalysis& analysis() const { return spectrum; }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    EffectSessionPtr session;
    SpectrumAnalysis spectrum;
    bool drawnSettled = false;
};

} // namespace sonvale
