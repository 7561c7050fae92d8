#include "audio/AudioData.h"

#include "audio/Decibels.h"

#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {
constexpr int64_t searchBlock = 4096;

float blockPeak(const float* samples, int64_t count) {
    float peak = 0;
    for (int64_t i = 0; i < count; ++i)
        peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}
} // namespace

std::optional<FrameRange> AudioData::audibleRange(double thresholdDB, double padding) const {
    const float threshold = float(gainFromDecibels(thresholdDB));
    auto loudAt = [&](int64_t i) {
        for (const auto& channel : channels)
            if (std::fabs(channel->data()[i]) > threshold) return true;
        return false;
    };
    auto blockIsQuiet = [&](int64_t from, int64_t count) {
        for (const auto& channel : channels)
            if (blockPeak(channel->data() + from, count) > threshold) return false;
        return true;
    };

    int64_t first = -1;
    for (int64_t from = 0; from < frameCount && first < 0; from += searchBlock) {
        const int64_t count = std::min(searchBlock, frameCount - from);
        if (blockIsQuiet(from, count)) continue;
        for (int64_t i = from; i < from + count; ++i)
            if (loudAt(i)) {
                first = i;
                break;
            }
    }
    if (first < 0) return std::nullopt;

    int64_t last = first;
    for (int64_t to = frameCount; to > first; to -= searchBlock) {
        const int64_t from = std::max(first, to - searchBlock);
        if (blockIsQuiet(from, to - from)) continue;
        for (int64_t i = to - 1; i >= from; --i)
            if (loudAt(i)) {
                last = i;
                break;
            }
        break;
    }
    const int64_t pad = int64_t(padding * sampleRate);
    return FrameRange{std::max<int64_t>(first - pad, 0), std::min(last + 1 + pad, frameCount)};
}

} // namespace sonvale
