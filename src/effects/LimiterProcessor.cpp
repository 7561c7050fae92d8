#include "effects/LimiterProcessor.h"

#include "audio/Decibels.h"
#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

LimiterProcessor::LimiterProcessor(double sampleRate, int channelCount,
                                   std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0)) {
    reset();
}

void LimiterProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double G = bank->value(gain);
    double C = std::min(bank->value(ceiling), 0.0);
    double releaseMs = std::max(bank->value(release), 0.1);
    double r = decayCoefficient(releaseMs / 1000, sampleRate);

    double lowest = 1;
    // The exponentials only change while a smoother moves; cache them.
    double gainSeen = gainDB.value, g = gainFromDecibels(gainSeen);
    double ceilingSeen = ceilingDB.value, c = gainFromDecibels(ceilingSeen);
    for (int64_t i = 0; i < frameCount; ++i) {
        if (gainDB.step(G) != gainSeen) g = gainFromDecibels(gainSeen = gainDB.value);
        if (ceilingDB.step(C) != ceilingSeen) c = gainFromDecibels(ceilingSeen = ceilingDB.value);
        float largest = 0;
        for (int ch = 0; ch < channelCount; ++ch)
            largest = std::max(largest, std::fabs(channels[ch][i]));
        double peak = g * largest;
        double needed = peak > c ? c / peak : 1;
        envelope = needed < envelope ? needed : needed + r * (envelope - needed);
        lowest = std::min(lowest, envelope);
        double factor = g * envelope;
        float limit = float(c);
        for (int ch = 0; ch < channelCount; ++ch)
            channels[ch][i] = std::clamp(float(factor * channels[ch][i]), -limit, limit);
    }
    bank->report(frameCount > 0 ? float(decibelsFromGain(std::max(lowest, 1e-6))) : 0.0f,
                 frameCount);
}

void LimiterProcessor::reset() noexcept {
    double coefficient = Smoothed::coefficientFor(0.03, sampleRate); // 30 ms
    gainDB = {bank->value(gain), coefficient};
    ceilingDB = {std::min(bank->value(ceiling), 0.0), coefficient};
    envelope = 1;
}

} // namespace sonvale
