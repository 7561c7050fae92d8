// Integrated loudness of a 60-minute stereo 48 kHz track: Sonvale's meter and libebur128's
// integrated mode on the same samples, in the same run.

#include "audio/AudioLoader.h"
#include "audio/Loudness.h"

#include <benchmark/benchmark.h>
#include <ebur128.h>
#include <random>

using namespace sonvale;

namespace {

constexpr int64_t frames = int64_t(60) * 60 * 48000;

const AudioData& hourOfAudio() {
    static AudioDataPtr audio = [] {
        std::vector<FloatBuffer> buffers;
        for (unsigned seed : {11u, 12u}) {
            FloatBuffer buffer(frames);
            std::minstd_rand engine(seed);
            for (int64_t i = 0; i < frames; ++i) {
                // Noise with a slow level swing, so both gates have work to do.
                const float level = (i / (48000 * 7)) % 3 == 0 ? 0.02f : 0.3f;
                buffer[i] = level * (float(int32_t(engine() % 20001) - 10000) / 10000.0f);
            }
            buffers.push_back(std::move(buffer));
        }
        return AudioLoader::makeAudioData(48000, std::move(buffers), frames);
    }();
    return *audio;
}

void BM_LoudnessSonvale(benchmark::State& state) {
    const AudioData& audio = hourOfAudio();
    double result = 0;
    for (auto _ : state)
        result = Loudness::integrated(audio).value_or(0);
    state.counters["LUFS"] = result;
    state.counters["xRealTime"] =
        benchmark::Counter(3600.0 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LoudnessSonvale)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_LoudnessLibebur128(benchmark::State& state) {
    const AudioData& audio = hourOfAudio();
    // libebur128 takes interleaved frames; interleave outside the timed part, a chunk at a time.
    constexpr int64_t chunk = 65536;
    std::vector<float> interleaved(size_t(chunk) * 2);
    double result = 0;
    for (auto _ : state) {
        ebur128_state* meter = ebur128_init(2, 48000, EBUR128_MODE_I);
        for (int64_t from = 0; from < frames; from += chunk) {
            const int64_t n = std::min(chunk, frames - from);
            state.PauseTiming();
            for (int64_t i = 0; i < n; ++i) {
                interleaved[size_t(2 * i)] = audio.samples(0)[from + i];
                interleaved[size_t(2 * i + 1)] = audio.samples(1)[from + i];
            }
            state.ResumeTiming();
            ebur128_add_frames_float(meter, interleaved.data(), size_t(n));
        }
        ebur128_loudness_global(meter, &result);
        ebur128_destroy(&meter);
    }
    state.counters["LUFS"] = result;
    state.counters["xRealTime"] =
        benchmark::Counter(3600.0 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LoudnessLibebur128)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace
