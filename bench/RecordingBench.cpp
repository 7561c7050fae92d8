// Recording's costs: the capture path's time per 4,096-frame input buffer as a fraction of the
// buffer's duration (realtime_fraction; goal under 0.01), and the resident memory an hour of
// live waveform holds against the raw float size of its samples (memory_ratio; goal under 1.3,
// as for an opened file).

#include "audio/LiveAudio.h"
#include "engine/RecordingWriter.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <vector>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t bufferFrames = 4096;

std::vector<float> tone(int64_t frames, double frequency) {
    std::vector<float> samples(static_cast<size_t>(frames));
    for (int64_t i = 0; i < frames; ++i)
        samples[size_t(i)] =
            0.5f * float(std::sin(2 * std::numbers::pi * frequency * double(i) / rate));
    return samples;
}

// What the capture thread does with each stereo buffer; the writer thread writes to the disk
// meanwhile (into /dev/shm when there is one, so the disk's speed doesn't count).
void BM_CaptureBuffer(benchmark::State& state) {
    const std::filesystem::path folder =
        std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
    const auto url = folder / ("sonvale-bench-" + std::to_string(getpid()) + ".wav");
    std::filesystem::remove(url);
    RecordingWriter::Options options;
    options.keepsPending = false;
    RecordingWriter writer(url, rate, 2, RecordingFormat::wav24, options);
    const auto left = tone(bufferFrames, 440), right = tone(bufferFrames, 660);
    const float* channels[] = {left.data(), right.data()};
    int64_t handed = 0;
    for (auto _ : state) {
        writer.write(channels, 2, bufferFrames);
        benchmark::ClobberMemory();
        // Every 32 buffers, untimed, the writer catches up, so that the ring always has room.
        if (++handed % 32 == 0) {
            state.PauseTiming();
            while (writer.frames() < handed * bufferFrames)
                usleep(100);
            state.ResumeTiming();
        }
    }
    writer.finish();
    std::filesystem::remove(url);
    state.counters["realtime_fraction"] =
        benchmark::Counter(double(state.iterations()) * double(bufferFrames) / rate,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["dropped"] = double(writer.droppedFrames());
}
BENCHMARK(BM_CaptureBuffer)->UseRealTime();

int64_t residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(statm);
    }
    return int64_t(resident) * sysconf(_SC_PAGESIZE);
}

// An hour of stereo input appended as the live timer appends it (0.05 s at a time).
void BM_LiveWaveformHour(benchmark::State& state) {
    const int64_t chunk = int64_t(rate / 20);
    const int64_t hour = int64_t(rate) * 3600;
    const std::vector<std::vector<float>> block{tone(chunk, 440), tone(chunk, 660)};
    for (auto _ : state) {
        const int64_t before = residentBytes();
        LiveAudio live(rate, 2);
        for (int64_t at = 0; at < hour; at += chunk)
            live.append(block);
        const double raw = double(hour) * 2 * sizeof(float);
        state.counters["memory_ratio"] = double(residentBytes() - before) / raw;
        state.counters["reported_ratio"] = double(live.memoryBytes()) / raw;
    }
}
BENCHMARK(BM_LiveWaveformHour)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace
