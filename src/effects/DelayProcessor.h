#pragma once

#include "effects/Biquad.h"
#include "effects/DelayLine.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <memory>
#include <vector>

namespace sonvale {

// An echo: one line per channel read at a smoothed delay (50 ms glide, so time changes bend
// the pitch rather than click), a one-pole Tone low-pass in the loop, and a ping-pong mode in
// which the first echo sounds left and repeats alternate sides. The dry signal always passes.
// Real-time safe after construction: process() neither allocates nor locks.
class DelayProcessor final : public EffectProcessor {
public:
    enum Parameter { time = 0, feedback = 1, tone = 2, level = 3, pingPong = 4, parameterCount };

    DelayProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    int64_t capacity;
    std::vector<std::vector<float>> lines;
    std::vector<float> filters; // Tone low-pass state per channel
    int64_t write = 0;
    Smoothed delaySamples, feedbackAmount, levelAmount;

    float read(const std::vector<float>& line, double delay) const noexcept;
};

} // namespace sonvale
