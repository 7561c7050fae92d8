#include "effects/PhaserProcessor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr double twoPi = 2 * std::numbers::pi;
constexpr int stageChoices[] = {4, 6, 8, 12};
constexpr int updateInterval = 16;
} // namespace

PhaserProcessor::PhaserProcessor(double sampleRate, int channelCount,
                                 std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , states(size_t(this->channelCount * maxStages), 0.0)
    , last(size_t(this->channelCount), 0.0)
    , coefficients(size_t(this->channelCount), 0.0) {
    reset();
}

void PhaserProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double step = std::max(bank->value(rate), 0.0) / sampleRate;
    auto choice = std::clamp<long>(std::lround(bank->value(stages)), 0, 3);
    int stageCount = stageChoices[choice];
    double depthTarget = std::clamp(bank->value(depth), 0.0, 100.0);
    double feedbackTarget = std::clamp(bank->value(feedback), -90.0, 90.0);
    double mixTarget = std::clamp(bank->value(mix), 0.0, 100.0);
    double highest = 0.45 * sampleRate;
    for (int64_t i = 0; i < frameCount; ++i) {
        double sweep = 3 * depthPercent.step(depthTarget) / 100;
        double fb = feedbackPercent.step(feedbackTarget) / 100;
        double m = mixPercent.step(mixTarget) / 100;
        if (countdown-- == 0) {
            countdown = updateInterval - 1;
            // Channels a quarter cycle apart see the LFO's sin, cos, -sin and -cos.
            double lfo[4] = {std::sin(twoPi * phase), std::cos(twoPi * phase), 0, 0};
            lfo[2] = -lfo[0];
            lfo[3] = -lfo[1];
            for (int c = 0; c < channelCount; ++c) {
                double f = std::min(800 * std::exp2(sweep * lfo[c & 3]), highest);
                double t = std::tan(std::numbers::pi * f / sampleRate);
                coefficients[size_t(c)] = (t - 1) / (t + 1);
            }
        }
        for (int c = 0; c < channelCount; ++c) {
            double a = coefficients[size_t(c)];
            double x = channels[c][i];
            double u = x + fb * last[size_t(c)];
            double* s = &states[size_t(c * maxStages)];
            for (int k = 0; k < stageCount; ++k) {
                double y = a * u + s[k];
                s[k] = flushDenormal(u - a * y);
                u = y;
            }
            last[size_t(c)] = flushDenormal(u);
            channels[c][i] = float(m * (u - x) + x);
        }
        phase += step;
        if (phase >= 1) phase -= std::floor(phase);
    }
}

void PhaserProcessor::reset() noexcept {
    std::fill(states.begin(), states.end(), 0.0);
    std::fill(last.begin(), last.end(), 0.0);
    phase = 0;
    countdown = 0;
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    depthPercent = {std::clamp(bank->value(depth), 0.0, 100.0), k};
    feedbackPercent = {std::clamp(bank->value(feedback), -90.0, 90.0), k};
    mixPercent = {std::clamp(bank->value(mix), 0.0, 100.0), k};
}

} // namespace sonvale
