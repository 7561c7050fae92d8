#include "effects/DelayProcessor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale {

namespace {
constexpr double longestSeconds = 2.0; // the Time knob's maximum
} // namespace

DelayProcessor::DelayProcessor(double sampleRate, int channelCount,
                               std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , capacity(int64_t(std::ceil(longestSeconds * sampleRate)) + 4)
    , lines(size_t(this->channelCount), std::vector<float>(size_t(capacity), 0.0f))
    , filters(size_t(this->channelCount), 0.0f) {
    reset();
}

float DelayProcessor::read(const std::vector<float>& line, double delay) const noexcept {
    return readCircular(line.data(), capacity, write, delay);
}

void DelayProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    double delayTarget =
        std::clamp(bank->value(time) * sampleRate / 1000, 1.0, double(capacity - 2));
    double feedbackTarget = std::min(bank->value(feedback) / 100, 0.95);
    double levelTarget = std::min(bank->value(level) / 100, 1.0);
    float p =
        float(std::exp(-2 * std::numbers::pi *
                       std::min(std::max(bank->value(tone), 0.0), 0.45 * sampleRate) / sampleRate));
    float q = 1 - p;
    bool alternate = bank->value(pingPong) >= 0.5 && channelCount >= 2;
    for (int64_t i = 0; i < frameCount; ++i) {
        double d = delaySamples.step(delayTarget);
        float fb = float(feedbackAmount.step(feedbackTarget));
        float lv = float(levelAmount.step(levelTarget));
        if (alternate) {
            float& yl = filters[0];
            float& yr = filters[1];
            yl = flushDenormal(yl + (read(lines[0], d) - yl) * q);
            yr = flushDenormal(yr + (read(lines[1], d) - yr) * q);
            float xl = channels[0][i], xr = channels[1][i];
            lines[0][size_t(write)] = (xl + xr) * 0.5f + fb * yr;
            lines[1][size_t(write)] = fb * yl;
            channels[0][i] = xl + lv * yl;
            channels[1][i] = xr + lv * yr;
            for (int c = 2; c < channelCount; ++c)
                lines[size_t(c)][size_t(write)] = 0;
        } else {
            for (int c = 0; c < channelCount; ++c) {
                float& y = filters[size_t(c)];
                y = flushDenormal(y + (read(lines[size_t(c)], d) - y) * q);
                float x = channels[c][i];
                lines[size_t(c)][size_t(write)] = x + fb * y;
                channels[c][i] = x + lv * y;
            }
        }
        if (++write == capacity) write = 0;
    }
}

void DelayProcessor::reset() noexcept {
    for (auto& line : lines)
        std::fill(line.begin(), line.end(), 0.0f);
    std::fill(filters.begin(), filters.end(), 0.0f);
    write = 0;
    double k = Smoothed::coefficientFor(0.05, sampleRate);
    delaySamples = {std::clamp(bank->value(time) * sampleRate / 1000, 1.0, double(capacity - 2)),
                    k};
    feedbackAmount = {std::min(bank->value(feedback) / 100, 0.95), k};
    levelAmount = {std::min(bank->value(level) / 100, 1.0), k};
}

} // namespace sonvale
