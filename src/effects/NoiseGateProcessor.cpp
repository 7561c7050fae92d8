#include "effects/NoiseGateProcessor.h"

#include "audio/Decibels.h"
#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

NoiseGateProcessor::NoiseGateProcessor(double sampleRate, int channelCount,
                                       std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , detectorDecay(decayCoefficient(0.01, sampleRate)) {}

void NoiseGateProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double thresholdDB = bank->value(threshold);
    double open = gainFromDecibels(thresholdDB);
    double close = gainFromDecibels(thresholdDB - 6); // fixed 6 dB hysteresis
    double floor = gainFromDecibels(std::min(bank->value(range), 0.0));
    auto holdSamples = int64_t(std::max(bank->value(hold), 0.0) / 1000 * sampleRate);
    double a = decayCoefficient(std::max(bank->value(attack), 0.01) / 1000, sampleRate);
    double r = decayCoefficient(std::max(bank->value(release), 1.0) / 1000, sampleRate);

    double lowest = frameCount > 0 ? 1.0 : 0.0;
    for (int64_t i = 0; i < frameCount; ++i) {
        float peak = 0;
        for (int c = 0; c < channelCount; ++c)
            peak = std::max(peak, std::fabs(channels[c][i]));
        level = std::max(double(peak), level * detectorDecay);
        if (level >= open) {
            isOpen = true;
            holdLeft = holdSamples;
        } else if (holdLeft >= 1) {
            holdLeft -= 1;
        } else if (level < close) {
            isOpen = false;
        }
        double target = isOpen ? 1 : floor;
        gain = target + (gain - target) * (gain < target ? a : r);
        lowest = std::min(lowest, gain);
        for (int c = 0; c < channelCount; ++c)
            channels[c][i] = float(channels[c][i] * gain);
    }
    bank->report(frameCount > 0 ? float(decibelsFromGain(std::max(lowest, 1e-6))) : 0.0f,
                 frameCount);
}

void NoiseGateProcessor::reset() noexcept {
    level = 0;
    isOpen = false;
    holdLeft = 0;
    gain = 0;
}

} // namespace sonvale
