#pragma once

#include "audio/AudioData.h"

#include <cstdint>
#include <vector>

namespace sonvale {

// The audio of a recording so far, for the live waveform: one growing sample buffer per
// channel and a level pyramid summarised as the samples arrive, so drawing an hour-long
// recording costs what drawing an opened file does. Buffers grow in place (mapped pages), so
// the memory held stays close to the samples' own size plus their summary.
// Main thread only.
class LiveAudio {
public:
    LiveAudio(double sampleRate, int channelCount);
    LiveAudio(const LiveAudio&) = delete;
    LiveAudio& operator=(const LiveAudio&) = delete;

    const double sampleRate;
    const int channelCount;
    int64_t frameCount() const { return frames; }
    double duration() const { return double(frames) / sampleRate; }
    float peak() const { return loudest; }

    // Adds samples, one array per channel (the shortest sets the count; missing channels
    // repeat the last). Throws AudioLoaderError::outOfMemory and then adds nothing.
    void append(const std::vector<std::vector<float>>& channels);
    // The recording so far as audio of its own (a copy), or none while it is empty.
    AudioDataPtr snapshot() const;
    // Channel `channel`'s samples and levels for drawing; valid until the next append.
    WaveSource source(int channel) const {
        const Channel& c = channels[size_t(channel)];
        return {c.samples.data(), &c.levels};
    }
    // As AudioData::waveColumns.
    std::vector<WaveColumn> waveColumns(FrameRange range, int columns) const;
    // Bytes the samples and their levels take.
    int64_t memoryBytes() const;

private:
    struct Channel {
        FloatBuffer samples;           // capacity floats, the first `frames` filled
        std::vector<PeakLevel> levels; // counts are whole blocks only
    };
    void reserve(int64_t frameCapacity);
    void summarise(Channel& channel, int64_t newFrames);

    std::vector<Channel> channels;
    int64_t frames = 0;
    int64_t capacity = 0;
    float loudest = 0;
};

} // namespace sonvale
