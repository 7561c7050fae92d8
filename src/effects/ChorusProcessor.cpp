#include "effects/ChorusProcessor.h"

#include "effects/Dsp.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr double lineSeconds = 0.06; // holds the longest Delay (40 ms) plus Depth (10 ms)
} // namespace

ChorusProcessor::ChorusProcessor(double sampleRate, int channelCount,
                                 std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , lines(size_t(this->channelCount))
    , offsets(size_t(this->channelCount) * 6) {
    for (auto& line : lines)
        line.init(int64_t(std::ceil(lineSeconds * sampleRate)));
    reset();
}

void ChorusProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double step = std::max(bank->value(rate), 0.0) / sampleRate;
    double delayTarget = bank->value(delay) * sampleRate / 1000;
    double depthTarget = bank->value(depth) * sampleRate / 1000;
    double widthTarget = std::clamp(bank->value(width) / 100, 0.0, 1.0);
    double mixTarget = std::clamp(bank->value(mix) / 100, 0.0, 1.0);
    double longest = lines.empty() ? 1 : lines[0].maxDelay();
    const double turnSin = std::sin(twoPi * step), turnCos = std::cos(twoPi * step);
    double s = lfoSin, co = lfoCos;
    for (int64_t i = 0; i < frameCount; ++i) {
        if (resyncCountdown-- == 0) {
            resyncCountdown = resyncInterval - 1;
            s = std::sin(twoPi * phase);
            co = std::cos(twoPi * phase);
        }
        double d0 = delaySamples.step(delayTarget);
        double dd = depthSamples.step(depthTarget);
        double w = widthAmount.step(widthTarget);
        float m = float(mixAmount.step(mixTarget));
        if (w != offsetsWidth) {
            for (int c = 0; c < channelCount; ++c)
                for (int k = 0; k < 3; ++k) {
                    double angle = twoPi * (w * c / 6 + k / 3.0);
                    offsets[size_t(c * 6 + k * 2)] = std::sin(angle);
                    offsets[size_t(c * 6 + k * 2 + 1)] = std::cos(angle);
                }
            offsetsWidth = w;
        }
        // sin(lfo + offset) from the LFO's sin and cos and the offset's rotation.
        for (int c = 0; c < channelCount; ++c) {
            auto& line = lines[size_t(c)];
            const double* r = &offsets[size_t(c * 6)];
            float sum = 0;
            for (int k = 0; k < 3; ++k) {
                double d = d0 + dd * (s * r[2 * k + 1] + co * r[2 * k]);
                sum += line.read(std::clamp(d, 1.0, longest));
            }
            float x = channels[c][i];
            line.push(x);
            channels[c][i] = sum * (1.0f / 3) * m + x * (1 - m);
        }
        phase += step;
        if (phase >= 1) phase -= std::floor(phase);
        const double turned = s * turnCos + co * turnSin;
        co = co * turnCos - s * turnSin;
        s = turned;
    }
    lfoSin = s;
    lfoCos = co;
}

void ChorusProcessor::reset() noexcept {
    for (auto& line : lines)
        line.clear();
    phase = 0;
    offsetsWidth = -1;
    lfoSin = 0;
    lfoCos = 1;
    resyncCountdown = 0;
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    delaySamples = {bank->value(delay) * sampleRate / 1000, k};
    depthSamples = {bank->value(depth) * sampleRate / 1000, k};
    widthAmount = {std::clamp(bank->value(width) / 100, 0.0, 1.0), k};
    mixAmount = {std::clamp(bank->value(mix) / 100, 0.0, 1.0), k};
}

} // namespace sonvale
