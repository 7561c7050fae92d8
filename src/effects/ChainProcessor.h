#pragma once

#include "effects/BypassFlag.h"
#include "effects/EffectProcessor.h"

#include <memory>
#include <vector>

namespace sonvale {

// Runs processors one after another on the same buffers. A stage whose bypass flag reads
// true is skipped, so bypass is heard without rebuilding the chain; a stage without a
// processor passes the audio through. Real-time safe: process() only reads the flags.
class ChainProcessor final : public EffectProcessor {
public:
    struct Stage {
        std::unique_ptr<EffectProcessor> processor;
        std::shared_ptr<BypassFlag> bypass; // none: never bypassed
    };

    ChainProcessor() = default;
    explicit ChainProcessor(std::vector<Stage> stages)
        : stages(std::move(stages)) {}

    void process(float* const* channels, int64_t frameCount) noexcept override;
    void reset() noexcept override;

    std::vector<Stage> stages;
};

} // namespace sonvale
