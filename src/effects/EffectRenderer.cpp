#include "effects/EffectRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace sonvale {

int64_t EffectRenderer::tailFrames(double tailSeconds, double sampleRate) {
    double frames = std::trunc(tailSeconds * sampleRate);
    return frames > 0 && std::isfinite(frames) ? int64_t(frames) : 0;
}

AudioClip EffectRenderer::render(const AudioData& audio, FrameRange range, int64_t tailFrames,
                                 EffectProcessor& processor, const Progress& progress) {
    range.lower = std::clamp<int64_t>(range.lower, 0, audio.frameCount);
    range.upper = std::clamp<int64_t>(range.upper, range.lower, audio.frameCount);
    tailFrames = std::max<int64_t>(tailFrames, 0);
    const int channelCount = audio.channelCount();
    const int64_t total = range.length() + tailFrames;

    AudioClip clip;
    clip.sampleRate = audio.sampleRate;
    clip.channels.resize(size_t(channelCount));
    for (auto& channel : clip.channels)
        channel.reserve(size_t(total)); // filled as it renders
    auto scratch = std::vector<std::vector<float>>(size_t(channelCount),
                                                   std::vector<float>(size_t(blockFrames)));
    std::vector<float*> pointers;
    for (auto& buffer : scratch)
        pointers.push_back(buffer.data());

    double reported = 0;
    for (int64_t done = 0; done < total; done += blockFrames) {
        int64_t frames = std::min(blockFrames, total - done);
        int64_t inside = std::clamp<int64_t>(range.length() - done, 0, frames);
        for (int c = 0; c < channelCount; ++c) {
            float* block = scratch[size_t(c)].data();
            if (inside > 0)
                std::memcpy(block, audio.samples(c) + range.lower + done,
                            size_t(inside) * sizeof(float));
            std::fill(block + inside, block + frames, 0.0f); // the tail: silence in
        }
        processor.process(pointers.data(), frames);
        for (int c = 0; c < channelCount; ++c) {
            const float* block = scratch[size_t(c)].data();
            clip.channels[size_t(c)].insert(clip.channels[size_t(c)].end(), block, block + frames);
        }
        if (progress && total > 0) {
            double fraction = double(done + frames) / double(total);
            if (fraction - reported >= 0.02 || done + frames == total) {
                reported = fraction;
                progress(fraction);
            }
        }
    }
    return clip;
}

} // namespace sonvale
