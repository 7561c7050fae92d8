#include "effects/SpectrumAnalyzerProcessor.h"

#include <algorithm>

namespace sonvale {

SpectrumAnalyzerProcessor::SpectrumAnalyzerProcessor(double sampleRate, int channelCount,
                                                     std::shared_ptr<ParameterBank> bank)
    : bank(std::move(bank))
    , sampleRate(sampleRate)
    , channelCount(std::max(channelCount, 0))
    , tap(this->bank->tap()) {
    if (tap) {
        tap->setSampleRate(sampleRate);
        written = tap->writtenCount();
    }
}

void SpectrumAnalyzerProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    if (!tap || channelCount == 0 || frameCount <= 0) return;
    float scale = 1.0f / float(channelCount);
    for (int64_t i = 0; i < frameCount; ++i) {
        float sum = 0;
        for (int c = 0; c < channelCount; ++c)
            sum += channels[c][i];
        tap->store(int64_t(written + uint64_t(i)), sum * scale);
    }
    written += uint64_t(frameCount);
    tap->publish(written);
}

// The tap is the display's history, not the effect's state: nothing to clear.
void SpectrumAnalyzerProcessor::reset() noexcept {}

} // namespace sonvale
