#include "effects/PitchShifterProcessor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr double longestWindow = 0.1; // seconds

double windowFor(double windowMs, double sampleRate) {
    return std::clamp(windowMs, 20.0, 100.0) / 1000 * sampleRate;
}
} // namespace

PitchShifterProcessor::PitchShifterProcessor(double sampleRate, int channelCount,
                                             std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , lines(size_t(this->channelCount)) {
    for (auto& line : lines)
        line.init(int64_t(std::ceil(longestWindow * sampleRate)) + 2);
    reset();
}

void PitchShifterProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double semitones = std::round(bank->value(pitch)) + std::round(bank->value(fine)) / 100;
    double ratio = std::exp2(semitones / 12);
    double windowTarget = windowFor(bank->value(window), sampleRate);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    for (int64_t i = 0; i < frameCount; ++i) {
        double length = windowSamples.step(windowTarget);
        float m = float(mixPercent.step(mixTarget) / 100);
        phase += (1 - ratio) / length;
        phase -= std::floor(phase);
        if (phase >= 1) phase = 0; // floor of a tiny negative phase can round up to 1
        double s = std::sin(std::numbers::pi * phase);
        float g1 = float(s * s), g2 = 1 - g1;
        double d1 = length * phase + 1;
        double d2 = length * (phase < 0.5 ? phase + 0.5 : phase - 0.5) + 1;
        for (int c = 0; c < channelCount; ++c) {
            auto& line = lines[size_t(c)];
            float wet = line.read(d1) * g1 + line.read(d2) * g2;
            float x = channels[c][i];
            line.push(x);
            channels[c][i] = x + (wet - x) * m;
        }
    }
}

void PitchShifterProcessor::reset() noexcept {
    for (auto& line : lines)
        line.clear();
    phase = 0;
    windowSamples = {windowFor(bank->value(window), sampleRate),
                     Smoothed::coefficientFor(0.1, sampleRate)};
    mixPercent = {std::clamp(bank->value(mix), 0.0, 100.0),
                  Smoothed::coefficientFor(0.03, sampleRate)};
}

} // namespace sonvale
