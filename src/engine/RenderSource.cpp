#include "engine/RenderSource.h"

#include <algorithm>
#include <cstring>

namespace sonvale {

RenderSource::RenderSource(PlaybackContentPtr content, std::shared_ptr<GainBox> gain,
                           std::shared_ptr<EffectInsert> effect)
    : content(std::move(content))
    , gain(gain ? std::move(gain) : std::make_shared<GainBox>(1.0f))
    , effect(effect ? std::move(effect) : std::make_shared<EffectInsert>())
    , appliedGain(this->gain->load()) {
    const int channels = std::max(this->content->channelCount(), 1);
    scratch.assign(size_t(channels * blockFrames), 0.0f);
    for (int c = 0; c < channels; ++c)
        scratchChannels.push_back(scratch.data() + c * blockFrames);
}

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

    const int channels = int(scratchChannels.size());
    float* const* block = scratchChannels.data();
    bool ended = false;
    for (int64_t done = 0; done < frameCount;) {
        const int64_t frames = std::min(frameCount - done, blockFrames);
        int64_t filled = 0;
        while (!ended && filled < frames) {
            if (pos >= end) {
                if (loop && start < end) {
                    pos = std::max<int64_t>(start, 0);
                } else {
                    ended = true;
                    break;
                }
            }
            int64_t n = std::min(end - pos, frames - filled);
            content->read(pos, n, block, channels, filled);
            pos += n;
            filled += n;
        }
        for (int c = 0; c < channels; ++c)
            std::memset(block[c] + filled, 0, size_t(frames - filled) * sizeof(float));
        effect->process(block, channels, frames);
        for (int c = 0; c < bufferCount; ++c)
            std::memcpy(buffers[c] + done, block[std::min(c, channels - 1)],
                        size_t(frames) * sizeof(float));
        done += frames;
    }

    // One-buffer linear ramp from the gain reached last time to the current target; the last
    // sample gets the target exactly.
    const float target = gain->load();
    const float from = appliedGain;
    if (from == target) {
        if (target != 1.0f)
            for (int c = 0; c < bufferCount; ++c)
                for (int64_t k = 0; k < frameCount; ++k)
                    buffers[c][k] *= target;
    } else {
        const float step = (target - from) / float(frameCount);
        for (int c = 0; c < bufferCount; ++c) {
            float* samples = buffers[c];
            for (int64_t k = 0; k + 1 < frameCount; ++k)
                samples[k] *= from + float(k + 1) * step;
            samples[frameCount - 1] *= target;
        }
    }
    appliedGain = target;

    position.store(pos, std::memory_order_relaxed);
    if (ended) playing.store(false);
    return ended;
}

} // namespace sonvale
