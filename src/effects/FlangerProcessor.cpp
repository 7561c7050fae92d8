#include "effects/FlangerProcessor.h"

#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr double lineSeconds = 0.021; // twice the longest Delay (10 ms) at full Depth
} // namespace

FlangerProcessor::FlangerProcessor(double sampleRate, int channelCount,
                                   std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , lines(size_t(this->channelCount)) {
    for (auto& line : lines)
        line.init(int64_t(std::ceil(lineSeconds * sampleRate)));
    reset();
}

void FlangerProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double step = std::max(bank->value(rate), 0.0) / sampleRate;
    double delayTarget = std::max(bank->value(delay), 0.0) * sampleRate / 1000;
    double depthTarget = std::clamp(bank->value(depth) / 100, 0.0, 1.0);
    double feedbackTarget = std::clamp(bank->value(feedback) / 100, -0.9, 0.9);
    double mixTarget = std::clamp(bank->value(mix) / 100, 0.0, 1.0);
    for (int64_t i = 0; i < frameCount; ++i) {
        double d0 = delaySamples.step(delayTarget);
        double dd = depthAmount.step(depthTarget);
        float fb = float(feedbackAmount.step(feedbackTarget));
        float m = float(mixAmount.step(mixTarget));
        double quadrants[4] = {std::sin(twoPi * phase), std::cos(twoPi * phase), 0, 0};
        quadrants[2] = -quadrants[0];
        quadrants[3] = -quadrants[1];
        for (int c = 0; c < channelCount; ++c) {
            auto& line = lines[size_t(c)];
            double lfo = quadrants[c & 3];
            // At full depth the sweep reaches zero; a sample is the shortest delay the loop has.
            float w = line.read(std::max(d0 * (lfo * dd + 1), 1.0));
            float x = channels[c][i];
            line.push(flushDenormal(x + fb * w));
            channels[c][i] = w * m + x * (1 - m);
        }
        phase += step;
        if (phase >= 1) phase -= std::floor(phase);
    }
}

void FlangerProcessor::reset() noexcept {
    for (auto& line : lines)
        line.clear();
    phase = 0;
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    delaySamples = {std::max(bank->value(delay), 0.0) * sampleRate / 1000, k};
    depthAmount = {std::clamp(bank->value(depth) / 100, 0.0, 1.0), k};
    feedbackAmount = {std::clamp(bank->value(feedback) / 100, -0.9, 0.9), k};
    mixAmount = {std::clamp(bank->value(mix) / 100, 0.0, 1.0), k};
}

} // namespace sonvale
