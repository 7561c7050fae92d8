#include "support/PlaybackTestAudio.h"

#include "audio/AudioLoader.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sonvale::test {

AudioDataPtr makeAudio(double sampleRate, int channels, int64_t frames,
                       const std::function<float(int, int64_t)>& sample) {
    std::vector<FloatBuffer> buffers;
    for (int c = 0; c < channels; ++c) {
        FloatBuffer buffer(frames);
        for (int64_t i = 0; i < frames; ++i)
            buffer[i] = sample(c, i);
        buffers.push_back(std::move(buffer));
    }
    return AudioLoader::makeAudioData(sampleRate, std::move(buffers), frames);
}

AudioDataPtr makeSine(double sampleRate, int channels, int64_t frames, double frequency,
                      float amplitude) {
    return makeAudio(sampleRate, channels, frames, [&](int, int64_t i) {
        return amplitude *
               float(std::sin(2 * std::numbers::pi * frequency * double(i) / sampleRate));
    });
}

float rampValue(int64_t frame, int64_t frames) {
    return float(-0.9 + 1.8 * double(frame) / double(frames));
}

double rampFrame(float value, int64_t frames) {
    return (double(value) + 0.9) / 1.8 * double(frames);
}

AudioDataPtr makePositionRamp(double sampleRate, int64_t frames) {
    return makeAudio(sampleRate, 2, frames,
                     [&](int c, int64_t i) { return c == 0 ? rampValue(i, frames) : 0.5f; });
}

double zeroCrossingFrequency(std::span<const float> samples, double sampleRate) {
    double first = -1, last = -1;
    int64_t crossings = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        if (samples[i - 1] < 0 && samples[i] >= 0) {
            double at =
                double(i - 1) + double(-samples[i - 1]) / double(samples[i] - samples[i - 1]);
            if (first < 0)
                first = at;
            else
                ++crossings;
            last = at;
        }
    }
    if (crossings < 1) return 0;
    return double(crossings) / ((last - first) / sampleRate);
}

std::pair<int64_t, int64_t> soundingSpan(std::span<const float> samples, double sampleRate,
                                         float threshold) {
    const size_t window = size_t(sampleRate * 0.005);
    int64_t first = -1, last = -1;
    for (size_t start = 0; start + window <= samples.size(); start += window / 4) {
        if (rmsOf(samples.subspan(start, window)) > threshold) {
            if (first < 0) first = int64_t(start + window / 2);
            last = int64_t(start + window / 2);
        }
    }
    return {first, last};
}

float peakOf(std::span<const float> samples) {
    float peak = 0;
    for (float x : samples)
        peak = std::max(peak, std::fabs(x));
    return peak;
}

float rmsOf(std::span<const float> samples) {
    if (samples.empty()) return 0;
    double sum = 0;
    for (float x : samples)
        sum += double(x) * x;
    return float(std::sqrt(sum / double(samples.size())));
}

void ManualOutput::open(Format format, Client* newClient) {
    if (failOpen) throw PlaybackError("The audio output could not be opened: Device unavailable");
    client = newClient;
    streamFormat = format;
    ++opens;
}

void ManualOutput::start() {
    if (failStart) throw PlaybackError("The audio output could not start: Device unavailable");
    running = true;
    failed = false;
    ++starts;
}

void ManualOutput::close() {
    running = false;
    client = nullptr;
}

const std::vector<std::vector<float>>& ManualOutput::pull(int64_t frames, HostTime hostTime) {
    channels.assign(size_t(streamFormat.channelCount), std::vector<float>(size_t(frames), 0.0f));
    std::vector<float*> pointers;
    for (auto& channel : channels)
        pointers.push_back(channel.data());
    if (client && running) client->render(pointers.data(), int(pointers.size()), frames, hostTime);
    return channels;
}

void ManualOutput::pullInto(float* const* buffers, int channelCount, int64_t frames,
                            HostTime hostTime) {
    if (client && running) client->render(buffers, channelCount, frames, hostTime);
}

} // namespace sonvale::test
