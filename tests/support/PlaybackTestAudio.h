#pragma once

#include "audio/AudioData.h"
#include "engine/AudioOutput.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace sonvale::test {

// AudioData whose sample (channel, frame) is `sample(channel, frame)`.
AudioDataPtr makeAudio(double sampleRate, int channels, int64_t frames,
                       const std::function<float(int, int64_t)>& sample);
// A sine of `frequency` Hz and `amplitude` on every channel.
AudioDataPtr makeSine(double sampleRate, int channels, int64_t frames, double frequency,
                      float amplitude);
// Left: a ramp from -0.9 to +0.9 over the audio, so every frame has its own value;
// right: 0.5 throughout, a reference that survives any gain applied to both channels.
AudioDataPtr makePositionRamp(double sampleRate, int64_t frames);
float rampValue(int64_t frame, int64_t frames);
// The frame whose ramp value is `value`.
double rampFrame(float value, int64_t frames);

// Frequency from interpolated upward zero crossings of `samples`.
double zeroCrossingFrequency(std::span<const float> samples, double sampleRate);
// First and last frame whose 5 ms RMS is above `threshold`; {-1, -1} when none is.
std::pair<int64_t, int64_t> soundingSpan(std::span<const float> samples, double sampleRate,
                                         float threshold);
float peakOf(std::span<const float> samples);
float rmsOf(std::span<const float> samples);

// An audio output the test drives by hand: pull() calls the engine's render callback as the
// real-time thread would, with a time stamp the test chooses. It can be told to fail.
class ManualOutput final : public AudioOutput {
public:
    void open(Format format, Client* client) override;
    void start() override;
    void stop() override { running = false; }
    void close() override;
    bool isOpen() const override { return client != nullptr; }
    bool isRunning() const override { return running; }
    bool hasFailed() const override { return running && failed; }
    Format format() const override { return streamFormat; }
    double outputLatency() const override { return latency; }
    HostTime now() const override { return clock; }
    int64_t underflowCount() const override { return 0; }
    double deviceSampleRate() const override { return 48000; }

    // Renders one buffer of `frames` frames stamped `hostTime`; returns the channels.
    const std::vector<std::vector<float>>& pull(int64_t frames, HostTime hostTime);
    // The same into buffers the test owns, allocating nothing itself.
    void pullInto(float* const* buffers, int channelCount, int64_t frames, HostTime hostTime);

    double latency = 0.02;
    HostTime clock = 0;
    bool failStart = false; // start() throws
    bool failOpen = false;  // open() throws
    bool failed = false;    // the stream died on its own
    int opens = 0;
    int starts = 0;

private:
    Client* client = nullptr;
    Format streamFormat;
    bool running = false;
    std::vector<std::vector<float>> channels;
};

} // namespace sonvale::test
