#include "engine/PlaybackContent.h"

#include <algorithm>
#include <cstring>

namespace sonvale {

void AudioDataContent::read(int64_t start, int64_t count, float* const* buffers, int bufferCount,
                            int64_t offset) const noexcept {
    int channels = audio->channelCount();
    for (int c = 0; c < bufferCount; ++c) {
        float* to = buffers[c] + offset;
        if (channels == 0) {
            std::memset(to, 0, size_t(count) * sizeof(float));
            continue;
        }
        const float* from = audio->samples(std::min(c, channels - 1)) + start;
        std::memcpy(to, from, size_t(count) * sizeof(float));
    }
}

} // namespace sonvale
