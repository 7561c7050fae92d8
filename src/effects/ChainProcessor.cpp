#include "effects/ChainProcessor.h"

namespace sonvale {

void ChainProcessor::process(float* const* channels, int64_t frameCount) noexcept {
    for (auto& stage : stages) {
        if (!stage.processor || (stage.bypass && stage.bypass->value())) continue;
        stage.processor->process(channels, frameCount);
    }
}

void ChainProcessor::reset() noexcept {
    for (auto& stage : stages)
        if (stage.processor) stage.processor->reset();
}

} // namespace sonvale
