#include "audio/LiveAudio.h"

#include "audio/AudioLoader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace sonvale {

namespace {

constexpr int64_t initialSeconds = 30;
constexpr int levelCount = 10; // blocks of 16 to 16 x 4^9 samples, as an opened file's
constexpr int64_t firstBlock = 16;

// Grows a level's two buffers to hold at least `entries` blocks, by half again each time.
void reserveLevel(PeakLevel& level, int64_t entries) {
    if (level.energy.size() >= entries) return;
    const int64_t wanted = std::max(entries, level.energy.size() + level.energy.size() / 2);
    level.buffer.resize(2 * wanted);
    level.energy.resize(wanted);
}

} // namespace

LiveAudio::LiveAudio(double rate, int count)
    : sampleRate(rate)
    , channelCount(std::max(1, count)) {
    channels.resize(size_t(channelCount));
    for (auto& channel : channels)
        for (int k = 0; k < levelCount; ++k) {
            PeakLevel level;
            level.blockSize = firstBlock << (2 * k);
            channel.levels.push_back(std::move(level));
        }
    reserve(std::max<int64_t>(1, int64_t(sampleRate) * initialSeconds));
}

void LiveAudio::reserve(int64_t frameCapacity) {
    if (frameCapacity <= capacity) return;
    // Pages are only taken from the system as they are written.
    for (auto& channel : channels) {
        if (channel.samples.size() == 0)
            channel.samples = FloatBuffer(frameCapacity, FloatBuffer::FaultOnWrite{});
        else
            channel.samples.resize(frameCapacity);
        for (auto& level : channel.levels)
            reserveLevel(level, frameCapacity / level.blockSize + 1);
    }
    capacity = frameCapacity;
}

void LiveAudio::append(const std::vector<std::vector<float>>& added) {
    if (added.empty()) return;
    size_t n = std::numeric_limits<size_t>::max();
    for (const auto& samples : added)
        n = std::min(n, samples.size());
    if (n == 0) return;
    if (frames + int64_t(n) > capacity) reserve(std::max(frames + int64_t(n), capacity * 2));
    for (int c = 0; c < channelCount; ++c) {
        const auto& source = added[std::min(size_t(c), added.size() - 1)];
        Channel& channel = channels[size_t(c)];
        std::memcpy(channel.samples.data() + frames, source.data(), n * sizeof(float));
        for (size_t i = 0; i < n; ++i)
            loudest = std::max(loudest, std::fabs(source[i]));
        summarise(channel, int64_t(n));
    }
    frames += int64_t(n);
}

void LiveAudio::summarise(Channel& channel, int64_t newFrames) {
    const int64_t total = frames + newFrames;
    PeakLevel& zero = channel.levels[0];
    const float* samples = channel.samples.data();
    for (int64_t b = zero.count; b < total / firstBlock; ++b) {
        float mn = std::numeric_limits<float>::infinity(), mx = -mn, e = 0;
        for (int64_t i = b * firstBlock; i < (b + 1) * firstBlock; ++i) {
            mn = std::min(mn, samples[i]);
            mx = std::max(mx, samples[i]);
            e += samples[i] * samples[i];
        }
        zero.buffer[2 * b] = mn;
        zero.buffer[2 * b + 1] = mx;
        zero.energy[b] = e;
    }
    zero.count = total / firstBlock;
    for (size_t k = 1; k < channel.levels.size(); ++k) {
        const PeakLevel& below = channel.levels[k - 1];
        PeakLevel& level = channel.levels[k];
        for (int64_t b = level.count; b < below.count / 4; ++b) {
            float mn = below.buffer[8 * b], mx = below.buffer[8 * b + 1], e = below.energy[4 * b];
            for (int64_t j = 4 * b + 1; j < 4 * b + 4; ++j) {
                mn = std::min(mn, below.buffer[2 * j]);
                mx = std::max(mx, below.buffer[2 * j + 1]);
                e += below.energy[j];
            }
            level.buffer[2 * b] = mn;
            level.buffer[2 * b + 1] = mx;
            level.energy[b] = e;
        }
        level.count = below.count / 4;
    }
}

std::vector<WaveColumn> LiveAudio::waveColumns(FrameRange range, int columns) const {
    std::vector<WaveSource> sources;
    for (size_t c = 0; c < std::min<size_t>(2, channels.size()); ++c)
        sources.push_back({channels[c].samples.data(), &channels[c].levels});
    return sonvale::waveColumns(sources, frames, range, columns);
}

AudioDataPtr LiveAudio::snapshot() const {
    if (frames == 0) return nullptr;
    std::vector<FloatBuffer> buffers;
    for (const auto& channel : channels) {
        FloatBuffer copy(frames);
        std::memcpy(copy.data(), channel.samples.data(), size_t(frames) * sizeof(float));
        buffers.push_back(std::move(copy));
    }
    return AudioLoader::makeAudioData(sampleRate, std::move(buffers), frames);
}

int64_t LiveAudio::memoryBytes() const {
    int64_t entries = 0;
    for (const auto& level : channels.front().levels)
        entries += level.count;
    return int64_t(channels.size()) * (frames + 3 * entries) * int64_t(sizeof(float));
}

} // namespace sonvale
