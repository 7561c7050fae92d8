// Level pyramid and waveform column costs on long audio.

#include "audio/AudioData.h"
#include "audio/AudioLoader.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <random>

using namespace sonvale;

namespace {

FloatBuffer noiseBuffer(int64_t n, unsigned seed) {
    FloatBuffer buffer(n);
    std::minstd_rand engine(seed);
    for (int64_t i = 0; i < n; ++i)
        buffer[i] = float(int32_t(engine()) % 20000) / 20000.0f;
    return buffer;
}

// 64 Mi samples (256 MB): far beyond the caches, like a long track.
constexpr int64_t pyramidSamples = int64_t(1) << 26;

void BM_BuildLevels(benchmark::State& state) {
    FloatBuffer samples = noiseBuffer(pyramidSamples, 1);
    for (auto _ : state) {
        auto levels = AudioLoader::buildLevels(samples.data(), samples.size());
        benchmark::DoNotOptimize(levels.data());
    }
    state.SetBytesProcessed(state.iterations() * pyramidSamples * int64_t(sizeof(float)));
}
BENCHMARK(BM_BuildLevels)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same buffer copied: the bandwidth the pyramid is measured against (bytes read).
void BM_MemcpySameBuffer(benchmark::State& state) {
    FloatBuffer samples = noiseBuffer(pyramidSamples, 1);
    FloatBuffer copy(pyramidSamples);
    std::memset(copy.data(), 0, size_t(pyramidSamples) * 4);
    for (auto _ : state) {
        std::memcpy(copy.data(), samples.data(), size_t(pyramidSamples) * sizeof(float));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * pyramidSamples * int64_t(sizeof(float)));
}
BENCHMARK(BM_MemcpySameBuffer)->Unit(benchmark::kMillisecond)->UseRealTime();

// A 3-hour stereo track at 48 kHz, built once.
const AudioData& threeHourTrack() {
    static AudioDataPtr audio = [] {
        const int64_t frames = int64_t(3 * 3600) * 48000;
        std::vector<FloatBuffer> buffers;
        buffers.push_back(noiseBuffer(frames, 2));
        buffers.push_back(noiseBuffer(frames, 3));
        return AudioLoader::makeAudioData(48000, std::move(buffers), frames);
    }();
    return *audio;
}

// 2,000 columns; zoom 0 shows the whole track, each next zoom a span four times shorter,
// in the middle of the track.
void BM_WaveColumns(benchmark::State& state) {
    const AudioData& audio = threeHourTrack();
    const int64_t span = audio.frameCount >> (2 * state.range(0));
    const int64_t start = (audio.frameCount - span) / 2 + 12345 % std::max<int64_t>(1, span);
    const FrameRange range{std::max<int64_t>(0, std::min(start, audio.frameCount - span)),
                           std::max<int64_t>(0, std::min(start, audio.frameCount - span)) + span};
    for (auto _ : state) {
        auto columns = audio.waveColumns(range, 2000);
        benchmark::DoNotOptimize(columns.data());
    }
    state.counters["samplesPerColumn"] = double(span) / 2000;
}
BENCHMARK(BM_WaveColumns)->DenseRange(0, 10)->Unit(benchmark::kMicrosecond);

} // namespace

// Level 0 alone into buffers made once: the summarising loop without the levels' allocation.
void BM_LevelZeroIntoMadeBuffers(benchmark::State& state) {
    FloatBuffer samples = noiseBuffer(pyramidSamples, 1);
    FloatBuffer minMax(pyramidSamples / 8), energy(pyramidSamples / 16);
    for (auto _ : state) {
        AudioLoader::summariseLevelZero(samples.data(), samples.size(), minMax.data(),
                                        energy.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * pyramidSamples * int64_t(sizeof(float)));
}
BENCHMARK(BM_LevelZeroIntoMadeBuffers)->Unit(benchmark::kMillisecond)->UseRealTime();
