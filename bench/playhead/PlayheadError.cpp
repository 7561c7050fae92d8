// How far the engine's playhead is from what is really heard. Plays a ramp whose every frame
// has its own value (left channel, over a constant right channel) and captures the output's
// monitor with a PortAudio input stream on the same clock. Every 10 ms it asks the engine for
// the frame heard now; afterwards each answer is compared with the frame the capture shows
// at that time. Run it through bench/playhead-error.sh, which provides the sound server.

#include "audio/AudioLoader.h"
#include "engine/PlaybackEngine.h"

#include <portaudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t frames = int64_t(rate) * 8;

float rampValue(int64_t frame) { return float(-0.9 + 1.8 * double(frame) / double(frames)); }
double rampFrame(float value) { return (double(value) + 0.9) / 1.8 * double(frames); }

struct Capture {
    std::vector<float> left, right;
    std::vector<std::pair<int64_t, double>> stamps; // (first sample index, ADC time)
    std::atomic<int64_t> count{0};
    size_t stampCount = 0;
};

int captureCallback(const void* input, void*, unsigned long n, const PaStreamCallbackTimeInfo* time,
                    PaStreamCallbackFlags, void* context) {
    auto* capture = static_cast<Capture*>(context);
    auto* const* channels = static_cast<const float* const*>(input);
    int64_t at = capture->count.load(std::memory_order_relaxed);
    if (at + int64_t(n) > int64_t(capture->left.size())) return paComplete;
    std::copy(channels[0], channels[0] + n, capture->left.begin() + at);
    std::copy(channels[1], channels[1] + n, capture->right.begin() + at);
    if (capture->stampCount < capture->stamps.size())
        capture->stamps[capture->stampCount++] = {at, time->inputBufferAdcTime};
    capture->count.store(at + int64_t(n), std::memory_order_release);
    return paContinue;
}

double timeOfSample(const Capture& capture, double when, int64_t& index) {
    // The capture buffer whose ADC time is the last at or before `when`.
    const auto& stamps = capture.stamps;
    auto it = std::upper_bound(stamps.begin(), stamps.begin() + long(capture.stampCount), when,
                               [](double t, const auto& s) { return t < s.second; });
    if (it == stamps.begin()) return -1;
    --it;
    index = it->first + std::llround((when - it->second) * rate);
    return when;
}

} // namespace

int main(int argc, char** argv) {
    // The speeds to measure: all steps, or those given as arguments.
    std::vector<float> speeds{1.0f, 0.5f, 0.75f, 1.25f, 1.5f, 2.0f};
    if (argc > 1) {
        speeds.clear();
        for (int i = 1; i < argc; ++i)
            speeds.push_back(std::strtof(argv[i], nullptr));
    }
    std::vector<FloatBuffer> buffers;
    for (int c = 0; c < 2; ++c) {
        FloatBuffer buffer(frames);
        for (int64_t i = 0; i < frames; ++i)
            buffer[i] = c == 0 ? rampValue(i) : 0.5f;
        buffers.push_back(std::move(buffer));
    }
    auto audio = AudioLoader::makeAudioData(rate, std::move(buffers), frames);

    for (float speed : speeds) {
        PlaybackEngine engine;
        Capture capture;
        capture.left.resize(size_t(rate * 20));
        capture.right.resize(size_t(rate * 20));
        capture.stamps.resize(20000);

        PaStreamParameters in{};
        in.device = Pa_GetDefaultInputDevice();
        if (in.device == paNoDevice) {
            std::fprintf(stderr, "no input device to capture the monitor\n");
            return 1;
        }
        in.channelCount = 2;
        in.sampleFormat = paFloat32 | paNonInterleaved;
        in.suggestedLatency = Pa_GetDeviceInfo(in.device)->defaultLowInputLatency;
        PaStream* stream = nullptr;
        if (Pa_OpenStream(&stream, &in, nullptr, rate, 256, paNoFlag, captureCallback, &capture) !=
                paNoError ||
            Pa_StartStream(stream) != paNoError) {
            std::fprintf(stderr, "the monitor could not be captured\n");
            return 1;
        }

        // The capture stream's clock mapping settles in its first seconds; start measuring after.
        std::this_thread::sleep_for(std::chrono::seconds(3));
        engine.setRate(speed);
        auto source = engine.prepare(AudioDataContent::make(audio), nullptr);
        source->start({0, frames}, 0, false);
        engine.start();
        std::vector<std::pair<double, int64_t>> answers; // (stream time, heard frame)
        auto began = std::chrono::steady_clock::now();
        bool sought = false;
        while (source->playing.load() &&
               std::chrono::steady_clock::now() - began < std::chrono::seconds(6)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (!sought && std::chrono::steady_clock::now() - began > std::chrono::seconds(2)) {
                source->seek(frames / 2);
                sought = true;
            }
            HostTime now = engine.hostTimeNow();
            if (auto frame = engine.audibleFrame(now))
                answers.emplace_back(secondsFromHostTime(now), *frame);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        engine.stop();
        Pa_StopStream(stream);
        Pa_CloseStream(stream);

        // Compare, leaving out the half second after the start and after the seek, while the
        // playhead knowingly runs ahead of the audio still in the output.
        std::vector<double> errors;
        const double seekAt = std::chrono::duration<double>(std::chrono::seconds(2)).count();
        double first = answers.empty() ? 0 : answers.front().first;
        for (auto [when, predicted] : answers) {
            double sinceStart = when - first;
            if (sinceStart < 0.5 || (sinceStart > seekAt - 0.1 && sinceStart < seekAt + 0.6))
                continue;
            int64_t index = 0;
            if (timeOfSample(capture, when, index) < 0 || index < 0 ||
                index >= capture.count.load())
                continue;
            float r = capture.right[size_t(index)];
            if (std::fabs(r) < 0.25f) continue;
            double actual = rampFrame(capture.left[size_t(index)] / r * 0.5f);
            errors.push_back((double(predicted) - actual) / (rate * double(speed)) * 1000);
            if (std::getenv("PLAYHEAD_TRACE"))
                std::fprintf(stderr, "TRACE %.3f %ld %.1f %+.2f\n", sinceStart, long(predicted),
                             actual, errors.back());
        }
        if (errors.empty()) {
            std::printf("speed %.2f: no comparable points\n", speed);
            continue;
        }
        std::vector<double> sorted = errors;
        std::sort(sorted.begin(), sorted.end());
        double mean = 0, absMax = 0;
        for (double e : errors)
            mean += e, absMax = std::max(absMax, std::fabs(e));
        mean /= double(errors.size());
        std::printf("speed %.2f: %zu points, playhead minus heard: mean %+.2f ms, median %+.2f ms, "
                    "5%%..95%% %+.2f..%+.2f ms, largest |error| %.2f ms "
                    "(output latency %.1f ms, stretcher %.1f ms)\n",
                    speed, errors.size(), mean, sorted[sorted.size() / 2],
                    sorted[sorted.size() / 20], sorted[sorted.size() * 19 / 20], absMax,
                    engine.outputLatency() * 1000, engine.stretchLatency() * 1000);
    }
    return 0;
}
