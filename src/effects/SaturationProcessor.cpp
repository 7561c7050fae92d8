#include "effects/SaturationProcessor.h"

#include "effects/EQBand.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
// tanh through a single exponential: several times faster than std::tanh, within float
// precision of it (the output is float), and exactly 0 at 0.
inline float fastTanh(float x) noexcept {
    return 1 - 2 / (std::exp(2 * x) + 1);
}
} // namespace

SaturationProcessor::SaturationProcessor(double sampleRate, int channelCount,
                                         std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , filters(size_t(this->channelCount))
    , blockers(size_t(this->channelCount)) {
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    driveDB = {this->bank->value(drive), k};
    warmthPercent = {this->bank->value(warmth), k};
    mixPercent = {std::clamp(this->bank->value(mix), 0.0, 100.0), k};
    outputDB = {this->bank->value(output), k};
    reset();
}

void SaturationProcessor::flushTinyStates() noexcept {
    for (auto& f : filters)
        f.flushTiny();
    for (auto& blocker : blockers)
        blocker.flushTiny();
}

void SaturationProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double toneHz = bank->value(tone);
    if (toneHz != toneFrequency) {
        toneFilter = EQBand{EQBandType::highCut, toneHz, 0, 1 / std::sqrt(2.0)}.biquad(sampleRate);
        toneFrequency = toneHz;
    }
    bool toneOn = toneHz < 0.45 * sampleRate;
    double driveTarget = bank->value(drive), warmthTarget = bank->value(warmth);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    double outputTarget = bank->value(output);

    // The exponentials and tanh terms only change while a smoother moves; cache them.
    double driveSeen = driveDB.value, g = std::pow(10.0, driveSeen / 20), tanhG = std::tanh(g);
    double warmthSeen = warmthPercent.value, b = 0.4 * warmthSeen / 100;
    float tanhB = fastTanh(float(b));
    double outputSeen = outputDB.value, o = std::pow(10.0, outputSeen / 20);
    // Settled knobs (the usual case) leave every smoother where it is: the same arithmetic,
    // a channel at a time and without the per-sample smoothing.
    if (driveDB.value == driveTarget && warmthPercent.value == warmthTarget &&
        outputDB.value == outputTarget && mixPercent.value == mixTarget) {
        const double m = mixPercent.value / 100;
        const float scale = float(1 / tanhG), fb = float(b), fg = float(g);
        for (int c = 0; c < channelCount; ++c) {
            float* samples = channels[c];
            DCBlocker& blocker = blockers[size_t(c)];
            BiquadState& filter = filters[size_t(c)];
            for (int64_t i = 0; i < frameCount; ++i) {
                double x = samples[i];
                double shaped = (fastTanh(fb + fg * float(x)) - tanhB) * scale;
                shaped = blocker.process(shaped);
                if (toneOn) shaped = filter.process(toneFilter, shaped);
                samples[i] = float(o * (m * (shaped - x) + x));
            }
        }
        flushTinyStates();
        return;
    }
    for (int64_t i = 0; i < frameCount; ++i) {
        if (driveDB.step(driveTarget) != driveSeen) {
            driveSeen = driveDB.value;
            g = std::pow(10.0, driveSeen / 20);
            tanhG = std::tanh(g);
        }
        if (warmthPercent.step(warmthTarget) != warmthSeen) {
            warmthSeen = warmthPercent.value;
            b = 0.4 * warmthSeen / 100;
            tanhB = fastTanh(float(b));
        }
        if (outputDB.step(outputTarget) != outputSeen)
            o = std::pow(10.0, (outputSeen = outputDB.value) / 20);
        double m = mixPercent.step(mixTarget) / 100;
        float scale = float(1 / tanhG), fb = float(b), fg = float(g);
        for (int c = 0; c < channelCount; ++c) {
            double x = channels[c][i];
            double s = (fastTanh(fb + fg * float(x)) - tanhB) * scale;
            s = blockers[size_t(c)].process(s);
            if (toneOn) s = filters[size_t(c)].process(toneFilter, s);
            channels[c][i] = float(o * (m * (s - x) + x));
        }
    }
    flushTinyStates();
}

// The smoothers keep their values: a reset clears what the signal left, not the knobs.
void SaturationProcessor::reset() noexcept {
    for (auto& f : filters)
        f.reset();
    double pole = DCBlocker::fiveHertzPole(sampleRate);
    for (auto& blocker : blockers)
        blocker = {0, 0, pole};
}

} // namespace sonvale
