#include "engine/RenderSource.h"

#include <algorithm>
#include <cstring>

namespace sonvale {

RenderSource::RenderSource(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                           std::shared_ptr<EffectInsert> effect)
    : content(std::move(content)),
      gain(gain ? std::move(gain) : std::make_shared<GainBox>(1.0f)),
      effect(effect ? std::move(effect) : std::make_shared<EffectInsert>()),
      appliedGain(this->gain->load()) {}

void RenderSource::start(FrameRange range, int64_t at, bool loop) {
    playing.store(false);
    rendered.store(at, 0);
    position.store(at, std::memory_order_relaxed);
    seekRequest.store(-1, std::memory_order_relaxed);
    rangeStart.store(range.lower, std::memory_order_relaxed);
    rangeEnd.store(range.upper, std::memory_order_relaxed);
    looping.store(loop, std::memory_order_relaxed);
    playing.store(true);
}

bool RenderSource::render(int64_t frameCount, float* const* buffers, int bufferCount,
                          HostTime hostTime) noexcept {
    if (frameCount <= 0) return false;
    if (!playing.load()) {
        for (int c = 0; c < bufferCount; ++c)
            std::memset(buffers[c], 0, size_t(frameCount) * sizeof(float));
        return false;
    }

    const int64_t end = std::min(content->frameCount(), rangeEnd.load(std::memory_order_relaxed));
    const int64_t start = rangeStart.load(std::memory_order_relaxed);
    const bool loop = looping.load(std::memory_order_relaxed);
    int64_t pos = seekRequest.exchange(-1, std::memory_order_relaxed);
    if (pos < 0) pos = position.load(std::memory_order_relaxed);
    pos = std::max<int64_t>(pos, 0);
    blockStart = pos;
    if (hostTime != 0) rendered.store(pos, hostTime);

    int64_t filled = 0;
    bool ended = false;
    while (filled < frameCount) {
        if (pos >= end) {
            if (loop && start < end) {
                pos = std::max<int64_t>(start, 0);
            } else {
                ended = true;
                break;
            }
        }
        int64_t n = std::min(end - pos, frameCount - filled);
        content->read(pos, n, buffers, bufferCount, filled);
        pos += n;
        filled += n;
    }
    if (ended) {
        for (int c = 0; c < bufferCount; ++c)
            std::memset(buffers[c] + filled, 0, size_t(frameCount - filled) * sizeof(float));
    }

    effect->process(buffers, bufferCount, frameCount);

    // One-buffer linear ramp from the gain reached last time to the current target; the last
    // sample gets the target exactly.
    const float target = gain->load();
    const float from = appliedGain;
    if (from == target) {
        if (target != 1.0f)
            for (int c = 0; c < bufferCount; ++c)
                for (int64_t k = 0; k < frameCount; ++k) buffers[c][k] *= target;
    } else {
        const float step = (target - from) / float(frameCount);
        for (int c = 0; c < bufferCount; ++c) {
            float* samples = buffers[c];
            for (int64_t k = 0; k + 1 < frameCount; ++k) samples[k] *= from + float(k + 1) * step;
            samples[frameCount - 1] *= target;
        }
    }
    appliedGain = target;

    position.store(pos, std::memory_order_relaxed);
    if (ended) playing.store(false);
    return ended;
}

} // namespace sonvale
