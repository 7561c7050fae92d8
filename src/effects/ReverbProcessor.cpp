#include "effects/ReverbProcessor.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
constexpr int combTunings[8] = {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
constexpr int allpassTunings[4] = {556, 441, 341, 225};
constexpr int stereoSpread = 23;
constexpr double longestPreDelay = 0.2; // seconds

size_t lengthFor(int tuning, int channel, double sampleRate) {
    return size_t(std::max<int64_t>(
        int64_t(double(tuning + stereoSpread * channel) * sampleRate / 44100), 1));
}
double roomFeedback(double size) {
    return size <= 0 ? 0.7 : 0.7 + 0.28 * std::min(size / 100, 1.0);
}
double dampingFor(double damping) { return damping <= 0 ? 0 : 0.4 * std::min(damping / 100, 1.0); }
double clampedShare(double percent) { return std::clamp(percent / 100, 0.0, 1.0); }
} // namespace

ReverbProcessor::ReverbProcessor(double sampleRate, int channelCount,
                                 std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , combs(size_t(this->channelCount * 8))
    , allpasses(size_t(this->channelCount * 4))
    , wet(size_t(this->channelCount), 0.0f) {
    preDelayLine.init(int64_t(std::ceil(longestPreDelay * sampleRate)));
    for (int c = 0; c < this->channelCount; ++c) {
        for (int k = 0; k < 8; ++k)
            combs[size_t(c * 8 + k)].buffer.assign(lengthFor(combTunings[k], c, sampleRate), 0);
        for (int k = 0; k < 4; ++k)
            allpasses[size_t(c * 4 + k)].buffer.assign(lengthFor(allpassTunings[k], c, sampleRate),
                                                       0);
    }
    reset();
}

void ReverbProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    if (channelCount == 0) return;
    float g = float(roomFeedback(bank->value(size)));
    float d = float(dampingFor(bank->value(damping)));
    float undamped = 1 - d;
    double delayTarget = std::max(bank->value(preDelay) * sampleRate / 1000, 1.0);
    double mixTarget = clampedShare(bank->value(mix));
    double widthTarget = clampedShare(bank->value(width));
    float k = 0.015f / float(channelCount);
    for (int64_t i = 0; i < frameCount; ++i) {
        double delayNow = delaySamples.step(delayTarget);
        float m = float(mixAmount.step(mixTarget));
        float w = float(widthAmount.step(widthTarget));
        float sum = 0;
        for (int c = 0; c < channelCount; ++c)
            sum += channels[c][i];
        float in = k * sum;
        // Read after the write, so a delay between one and two samples interpolates towards
        // this sample rather than the line's oldest.
        preDelayLine.push(in);
        float delayed = delayNow <= 1.001 ? in : preDelayLine.read(delayNow);
        for (int c = 0; c < channelCount; ++c) {
            float out = 0;
            for (int n = 0; n < 8; ++n) {
                auto& comb = combs[size_t(c * 8 + n)];
                float& slot = comb.buffer[size_t(comb.index)];
                float y = slot;
                comb.filtered = flushDenormal(y * undamped + comb.filtered * d);
                slot = delayed + comb.filtered * g;
                if (++comb.index == int64_t(comb.buffer.size())) comb.index = 0;
                out += y;
            }
            for (int n = 0; n < 4; ++n) {
                auto& ap = allpasses[size_t(c * 4 + n)];
                float& slot = ap.buffer[size_t(ap.index)];
                float b = slot;
                slot = out + b * 0.5f;
                out = b - out;
                if (++ap.index == int64_t(ap.buffer.size())) ap.index = 0;
            }
            wet[size_t(c)] = out;
        }
        float W = m * 3, W1 = W * (w * 0.5f + 0.5f), W2 = W * (1 - w) * 0.5f;
        float dry = 1 - m;
        if (channelCount == 1) {
            channels[0][i] = channels[0][i] * dry + wet[0] * W1;
        } else {
            // Pairs share the width matrix; an odd last channel gets its own wet signal.
            int c = 0;
            for (; c + 1 < channelCount; c += 2) {
                float l = wet[size_t(c)], r = wet[size_t(c + 1)];
                channels[c][i] = channels[c][i] * dry + l * W1 + r * W2;
                channels[c + 1][i] = channels[c + 1][i] * dry + r * W1 + l * W2;
            }
            if (c < channelCount) channels[c][i] = channels[c][i] * dry + wet[size_t(c)] * W1;
        }
    }
}

void ReverbProcessor::reset() noexcept {
    preDelayLine.clear();
    for (auto& comb : combs) {
        std::fill(comb.buffer.begin(), comb.buffer.end(), 0.0f);
        comb.index = 0;
        comb.filtered = 0;
    }
    for (auto& ap : allpasses) {
        std::fill(ap.buffer.begin(), ap.buffer.end(), 0.0f);
        ap.index = 0;
    }
    double k = Smoothed::coefficientFor(0.03, sampleRate);
    delaySamples = {std::max(bank->value(preDelay) * sampleRate / 1000, 1.0), k};
    mixAmount = {clampedShare(bank->value(mix)), k};
    widthAmount = {clampedShare(bank->value(width)), k};
}

} // namespace sonvale
