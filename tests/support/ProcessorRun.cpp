#include "support/ProcessorRun.h"

#include <algorithm>
#include <random>

namespace sonvale::test {

namespace {
void runBlock(EffectProcessor& processor, Channels& channels, int64_t at, int64_t frames) {
    std::vector<float*> pointers;
    for (auto& channel : channels)
        pointers.push_back(channel.data() + at);
    processor.process(pointers.data(), frames);
}
} // namespace

void runInBlocks(EffectProcessor& processor, Channels& channels, int64_t blockSize) {
    auto total = channels.empty() ? 0 : int64_t(channels[0].size());
    for (int64_t at = 0; at < total; at += blockSize)
        runBlock(processor, channels, at, std::min(blockSize, total - at));
}

void runInRandomBlocks(EffectProcessor& processor, Channels& channels, uint32_t seed,
                       int64_t largest) {
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int64_t> size(1, largest);
    auto total = channels.empty() ? 0 : int64_t(channels[0].size());
    for (int64_t at = 0; at < total;) {
        int64_t frames = std::min(size(generator), total - at);
        runBlock(processor, channels, at, frames);
        at += frames;
    }
}

} // namespace sonvale::test
