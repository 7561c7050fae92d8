// Throughput of each effect processor on stereo 48 kHz audio in 512-frame blocks. The
// "realtime" counter is seconds of audio processed per second: a multiple of real time.

#include "audio/AudioLoader.h"
#include "effects/EffectChain.h"
#include "effects/EffectKind.h"
#include "effects/EffectRenderer.h"
#include "effects/EffectSession.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t block = 512;
constexpr int64_t frames = 48000 * 10; // ten seconds per iteration

std::vector<std::vector<float>> music() {
    std::mt19937 generator(7);
    std::normal_distribution<float> normal(0, 0.2f);
    std::vector<std::vector<float>> channels(2, std::vector<float>(size_t(frames)));
    for (auto& channel : channels)
        for (size_t i = 0; i < channel.size(); ++i)
            channel[i] = normal(generator) * ((i / 24000) % 4 == 3 ? 0.02f : 1.0f);
    return channels;
}

void run(benchmark::State& state, const std::shared_ptr<EffectSession>& session) {
    auto source = music();
    auto audio = source;
    auto processor = makeProcessor(session->kind(), rate, 2, session->bank());
    for (auto _ : state) {
        state.PauseTiming();
        audio = source;
        state.ResumeTiming();
        for (int64_t at = 0; at < frames; at += block) {
            float* channels[2] = {audio[0].data() + at, audio[1].data() + at};
            processor->process(channels, std::min(block, frames - at));
        }
        benchmark::DoNotOptimize(audio[0].data());
    }
    state.counters["realtime"] = benchmark::Counter(
        double(frames) / rate * double(state.iterations()), benchmark::Counter::kIsRate);
}

void equalizer(benchmark::State& state) {
    auto session = EffectSession::make(EffectKind::equalizer);
    session->setValues(
        presets(EffectKind::equalizer)[0].valuesFor(parameters(EffectKind::equalizer)));
    run(state, session);
}

void compressor(benchmark::State& state) {
    run(state, EffectSession::make(EffectKind::compressor));
}

void limiter(benchmark::State& state) { run(state, EffectSession::make(EffectKind::limiter)); }

void noiseGate(benchmark::State& state) { run(state, EffectSession::make(EffectKind::noiseGate)); }

// Every other effect at its defaults.
void effect(benchmark::State& state) {
    auto kind = allEffectKinds()[size_t(state.range(0))];
    state.SetLabel(std::string(rawValue(kind)));
    run(state, EffectSession::make(kind));
}

// All thirteen effects in one chain at their defaults, as the preview plays them.
void fullChain(benchmark::State& state) {
    EffectChain chain;
    for (auto kind : allEffectKinds())
        chain.append(EffectSession::make(kind));
    auto source = music();
    auto audio = source;
    auto render = chain.renderProcessor(rate, 2);
    for (auto _ : state) {
        state.PauseTiming();
        audio = source;
        state.ResumeTiming();
        for (int64_t at = 0; at < frames; at += block) {
            float* channels[2] = {audio[0].data() + at, audio[1].data() + at};
            render.processor->process(channels, std::min(block, frames - at));
        }
        benchmark::DoNotOptimize(audio[0].data());
    }
    state.counters["realtime"] = benchmark::Counter(
        double(frames) / rate * double(state.iterations()), benchmark::Counter::kIsRate);
}

// A loud second, then ten timed seconds of either silence (second argument 1) or more
// signal (0), with the same settings: the decaying feedback paths must not fall into
// denormal arithmetic, so the silent row costs no more than the signal row beside it.
void silentTail(benchmark::State& state) {
    auto kind = allEffectKinds()[size_t(state.range(0))];
    const bool silent = state.range(1) == 1;
    state.SetLabel(std::string(rawValue(kind)) + (silent ? " silence" : " signal"));
    auto session = EffectSession::make(kind);
    if (kind == EffectKind::delay) session->setValue(1, 90);
    if (kind == EffectKind::reverb) session->setValue(0, 100);
    auto processor = makeProcessor(kind, rate, 2, session->bank());
    const auto source = music();
    auto loud = source;
    auto timed = source;
    for (auto _ : state) {
        state.PauseTiming();
        processor->reset();
        loud = source;
        for (int64_t at = 0; at < rate; at += block) {
            float* channels[2] = {loud[0].data() + at, loud[1].data() + at};
            processor->process(channels, block);
        }
        if (silent)
            for (auto& channel : timed)
                std::fill(channel.begin(), channel.end(), 0.0f);
        else
            timed = source;
        state.ResumeTiming();
        for (int64_t at = 0; at < frames; at += block) {
            float* channels[2] = {timed[0].data() + at, timed[1].data() + at};
            processor->process(channels, std::min(block, frames - at));
        }
        benchmark::DoNotOptimize(timed[0].data());
    }
    state.counters["realtime"] = benchmark::Counter(
        double(frames) / rate * double(state.iterations()), benchmark::Counter::kIsRate);
}

// The render of an apply: ten minutes of stereo 48 kHz audio through a one-effect chain in
// 4,096-frame blocks, into a new clip.
void applyTenMinutes(benchmark::State& state) {
    auto kind = allEffectKinds()[size_t(state.range(0))];
    state.SetLabel(std::string(rawValue(kind)));
    constexpr int64_t length = 48000 * 600;
    std::vector<FloatBuffer> buffers;
    auto source = music();
    for (int c = 0; c < 2; ++c) {
        FloatBuffer buffer(length);
        for (int64_t i = 0; i < length; ++i)
            buffer[i] = source[size_t(c)][size_t(i % frames)];
        buffers.push_back(std::move(buffer));
    }
    auto audio = AudioLoader::makeAudioData(rate, std::move(buffers), length);
    EffectChain chain;
    chain.append(EffectSession::make(kind));
    for (auto _ : state) {
        auto render = chain.renderProcessor(rate, 2);
        auto clip = EffectRenderer::render(*audio, {0, length}, 0, *render.processor);
        benchmark::DoNotOptimize(clip.channels[0].data());
    }
    state.counters["realtime"] =
        benchmark::Counter(600.0 * double(state.iterations()), benchmark::Counter::kIsRate);
}

} // namespace

BENCHMARK(applyTenMinutes)
    ->Arg(int(EffectKind::equalizer))
    ->Arg(int(EffectKind::compressor))
    ->Arg(int(EffectKind::limiter))
    ->Arg(int(EffectKind::noiseGate))
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);
BENCHMARK(equalizer)->Unit(benchmark::kMillisecond);
BENCHMARK(compressor)->Unit(benchmark::kMillisecond);
BENCHMARK(limiter)->Unit(benchmark::kMillisecond);
BENCHMARK(noiseGate)->Unit(benchmark::kMillisecond);
BENCHMARK(effect)
    ->DenseRange(int(EffectKind::saturation), int(EffectKind::distortion))
    ->DenseRange(int(EffectKind::chorus), int(EffectKind::spectrumAnalyzer))
    ->Unit(benchmark::kMillisecond);
BENCHMARK(fullChain)->Unit(benchmark::kMillisecond);
BENCHMARK(silentTail)
    ->ArgsProduct({{int(EffectKind::saturation), int(EffectKind::distortion),
                    int(EffectKind::chorus), int(EffectKind::flanger), int(EffectKind::phaser),
                    int(EffectKind::delay), int(EffectKind::reverb), int(EffectKind::pitchShifter)},
                   {0, 1}})
    ->Unit(benchmark::kMillisecond);
