#pragma once

#include "effects/EffectProcessor.h"

#include <cstdint>
#include <vector>

namespace sonvale::test {

using Channels = std::vector<std::vector<float>>;

// Runs `processor` over `channels` in place in blocks of `blockSize` frames.
void runInBlocks(EffectProcessor& processor, Channels& channels, int64_t blockSize);
// The same with block sizes drawn from a seeded generator (1 to `largest` frames).
void runInRandomBlocks(EffectProcessor& processor, Channels& channels, uint32_t seed,
                       int64_t largest = 1000);

} // namespace sonvale::test
