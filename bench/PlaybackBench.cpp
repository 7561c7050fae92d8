// CPU cost of rendering one 512-frame output buffer of a stereo 48 kHz track, as a fraction of
// the buffer's duration (realtime_fraction: 0.01 means 1 % of the time the buffer lasts; Google
// Benchmark prints it with SI prefixes, so "76u" is 0.000076 and "7.4m" is 0.0074).

#include "audio/AudioLoader.h"
#include "effects/EffectChain.h"
#include "engine/PlaybackEngine.h"
#include "engine/RenderSource.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <vector>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t bufferFrames = 512;
constexpr double bufferSeconds = double(bufferFrames) / rate;

AudioDataPtr benchTrack() {
    static AudioDataPtr audio = [] {
        const int64_t frames = int64_t(rate) * 30;
        std::vector<FloatBuffer> buffers;
        for (int c = 0; c < 2; ++c) {
            FloatBuffer buffer(frames);
            uint32_t noise = 12345u + uint32_t(c);
            for (int64_t i = 0; i < frames; ++i) {
                noise = noise * 1664525u + 1013904223u;
                buffer[i] = 0.3f * float(std::sin(2 * std::numbers::pi * 220 * double(i) / rate)) +
                            0.05f * (float(noise >> 8) / float(1 << 24) - 0.5f);
            }
            buffers.push_back(std::move(buffer));
        }
        return AudioLoader::makeAudioData(rate, std::move(buffers), frames);
    }();
    return audio;
}

// Every processor that exists, on live banks, as the editor hears its chain.
std::unique_ptr<EffectProcessor> fullChain(EffectChain& chain) {
    for (EffectKind kind : allEffectKinds())
        chain.append(EffectSession::make(kind));
    return chain.previewProcessor(rate, 2);
}

void report(benchmark::State& state) {
    state.counters["realtime_fraction"] =
        benchmark::Counter(double(state.iterations()) * bufferSeconds,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void renderLoop(benchmark::State& state, RenderSource& source) {
    std::vector<float> left(bufferFrames), right(bufferFrames);
    float* buffers[2] = {left.data(), right.data()};
    source.start({0, source.content->frameCount()}, 0, true);
    int i = 0;
    for (auto _ : state) {
        source.gain->store(++i % 64 < 32 ? 1.0f : 0.5f); // a ramp now and then
        source.render(bufferFrames, buffers, 2, HostTime(i));
        benchmark::DoNotOptimize(left.data());
    }
    report(state);
}

void BM_RenderSourceNoEffects(benchmark::State& state) {
    RenderSource source(AudioDataContent::make(benchTrack()), std::make_shared<GainBox>(1.0f),
                        std::make_shared<EffectInsert>());
    renderLoop(state, source);
}
BENCHMARK(BM_RenderSourceNoEffects);

void BM_RenderSourceFullEffectChain(benchmark::State& state) {
    EffectChain chain;
    auto insert = std::make_shared<EffectInsert>();
    insert->setProcessor(fullChain(chain), 2);
    RenderSource source(AudioDataContent::make(benchTrack()), std::make_shared<GainBox>(1.0f),
                        insert);
    renderLoop(state, source);
}
BENCHMARK(BM_RenderSourceFullEffectChain);

// An output that never opens a device: the benchmark calls the engine's render callback itself.
class DrivenOutput final : public AudioOutput {
public:
    void open(Format format, Client* newClient) override {
        client = newClient, streamFormat = format;
    }
    void start() override { running = true; }
    void stop() override { running = false; }
    void close() override { client = nullptr; }
    bool isOpen() const override { return client; }
    bool isRunning() const override { return running; }
    bool hasFailed() const override { return false; }
    Format format() const override { return streamFormat; }
    double outputLatency() const override { return 0.02; }
    HostTime now() const override { return 1; }
    int64_t underflowCount() const override { return 0; }
    double deviceSampleRate() const override { return rate; }
    Client* client = nullptr;

private:
    Format streamFormat;
    bool running = false;
};

void BM_EngineRenderAtSpeed(benchmark::State& state) {
    auto output = std::make_unique<DrivenOutput>();
    DrivenOutput* driven = output.get();
    PlaybackEngine engine(std::move(output));
    engine.setRate(float(state.range(0)) / 100);
    auto source =
        engine.prepare(AudioDataContent::make(benchTrack()), std::make_shared<GainBox>(1.0f));
    source->start({0, benchTrack()->frameCount}, 0, true);
    engine.start();
    std::vector<float> left(bufferFrames), right(bufferFrames);
    float* buffers[2] = {left.data(), right.data()};
    int i = 0;
    for (auto _ : state) {
        static_cast<AudioOutput::Client*>(driven->client)
            ->render(buffers, 2, bufferFrames, HostTime(++i));
        benchmark::DoNotOptimize(left.data());
    }
    report(state);
}
BENCHMARK(BM_EngineRenderAtSpeed)->Arg(100)->Arg(150)->Arg(50)->Arg(200);

} // namespace
