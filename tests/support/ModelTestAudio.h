#pragma once

#include "audio/AudioData.h"
#include "audio/AudioLoader.h"
#include "audio/Marker.h"
#include "support/AudioFiles.h"

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace sonvale::test {

// Seeded white noise in [-0.5, 0.5): full of zero crossings, different in every channel.
inline AudioDataPtr makeNoise(double sampleRate, int channelCount, int64_t frames,
                              uint32_t seed = 1) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-0.5f, 0.5f);
    auto channels =
        std::vector<std::vector<float>>(size_t(channelCount), std::vector<float>(size_t(frames)));
    for (auto& channel : channels)
        for (float& s : channel)
            s = uniform(random);
    return makeAudio(sampleRate, channels);
}

// A ramp whose sample i is i * step: every frame is distinguishable.
inline AudioDataPtr makeRamp(double sampleRate, int channelCount, int64_t frames,
                             float step = 1e-4f) {
    auto channels =
        std::vector<std::vector<float>>(size_t(channelCount), std::vector<float>(size_t(frames)));
    for (size_t c = 0; c < channels.size(); ++c)
        for (int64_t i = 0; i < frames; ++i)
            channels[c][size_t(i)] = float(i) * step * float(c + 1);
    return makeAudio(sampleRate, channels);
}

inline std::vector<std::vector<float>> samplesOf(const AudioData& audio) {
    std::vector<std::vector<float>> result;
    for (int c = 0; c < audio.channelCount(); ++c)
        result.emplace_back(audio.samples(c), audio.samples(c) + audio.frameCount);
    return result;
}

// A point marker and a region with fresh ids.
inline Marker point(const std::string& name, int64_t at) {
    return {Uuid::random(), name, at, std::nullopt};
}
inline Marker region(const std::string& name, int64_t start, int64_t end) {
    return {Uuid::random(), name, start, end};
}

inline AudioClip makeClip(double sampleRate, std::vector<std::vector<float>> channels) {
    AudioClip clip;
    clip.sampleRate = sampleRate;
    clip.channels = std::move(channels);
    return clip;
}

} // namespace sonvale::test
