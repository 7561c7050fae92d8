#include "effects/DistortionProcessor.h"

#include "audio/Decibels.h"
#include "effects/EQBand.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
enum class Shape { soft, hard, fuzz };

Shape shapeFor(double value) {
    auto rounded = std::lround(value);
    return rounded == 0 ? Shape::soft : rounded == 2 ? Shape::fuzz : Shape::hard;
}
} // namespace

DistortionProcessor::DistortionProcessor(double sampleRate, int channelCount,
                                         std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , filters(size_t(this->channelCount))
    , blockers(size_t(this->channelCount)) {
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    driveDB = {this->bank->value(drive), k};
    mixPercent = {std::clamp(this->bank->value(mix), 0.0, 100.0), k};
    outputDB = {this->bank->value(output), k};
    reset();
}

void DistortionProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double toneHz = bank->value(tone);
    toneFilter.follow(toneHz, sampleRate);
    Shape shape = shapeFor(bank->value(type));
    double driveTarget = bank->value(drive);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    double outputTarget = bank->value(output);

    double driveSeen = driveDB.value, g = gainFromDecibels(driveSeen);
    double outputSeen = outputDB.value, o = gainFromDecibels(outputSeen);
    for (int64_t i = 0; i < frameCount; ++i) {
        if (driveDB.step(driveTarget) != driveSeen) g = gainFromDecibels(driveSeen = driveDB.value);
        if (outputDB.step(outputTarget) != outputSeen)
            o = gainFromDecibels(outputSeen = outputDB.value);
        double m = mixPercent.step(mixTarget) / 100;
        for (int c = 0; c < channelCount; ++c) {
            double x = channels[c][i];
            double u = g * x, y;
            switch (shape) {
            case Shape::soft: y = 2 * std::atan(u) / std::numbers::pi; break;
            case Shape::hard: y = std::clamp(u, -1.0, 1.0); break;
            case Shape::fuzz:
                y = u >= 0 ? 1 - std::exp(-u) : -0.7 * (1 - std::exp(1.5 * u));
                y = blockers[size_t(c)].process(y);
                break;
            }
            y = filters[size_t(c)].process(toneFilter.section, y);
            channels[c][i] = float(o * (m * (y - x) + x));
        }
    }
    flushTiny(filters, blockers);
}

// The smoothers keep their values: a reset clears what the signal left, not the knobs.
void DistortionProcessor::reset() noexcept { resetFilters(filters, blockers, sampleRate); }

} // namespace sonvale
