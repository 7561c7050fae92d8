#pragma once

#include "effects/Biquad.h"
#include "effects/EffectProcessor.h"
#include "effects/ParameterBank.h"

#include <array>
#include <memory>
#include <vector>

namespace sonvale {

// The four-band parametric equalizer: four cascaded sections and an output gain.
//
// Every 32 samples it reads the bank, glides frequency (in log), gain and Q towards their
// targets with a 30 ms time constant and redesigns the sections; a changed band type takes
// effect at once. A band switched off is crossfaded out (its filter keeps running), so the
// output never switches abruptly. The 32-sample update grid runs across block boundaries,
// so any split of a signal into blocks gives the same output.
// Real-time safe after construction: process() neither allocates nor locks.
class EqualizerProcessor final : public EffectProcessor {
public:
    static constexpr int bandCount = 4;
    static constexpr int updateInterval = 32; // samples between parameter updates
    // Type, Frequency, Gain, Q and On of each band, then Output.
    static constexpr int parameterCount = 5 * bandCount + 1;

    EqualizerProcessor(double sampleRate, int channelCount, std::shared_ptr<ParameterBank> bank);
    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

private:
    void start() noexcept;
    void update() noexcept;

    std::shared_ptr<ParameterBank> bank;
    double sampleRate;
    int channelCount;
    std::array<Biquad, bandCount> coefficients{};
    std::vector<double> z1, z2; // band b, channel c at b * channelCount + c
    std::array<double, bandCount> logFrequency{}, gain{}, logQ{};
    std::array<double, bandCount> amount{}, amountStep{};
    double output = 1, outputStep = 0;
    int countdown = 0;
    double smoothing;
};

} // namespace sonvale
