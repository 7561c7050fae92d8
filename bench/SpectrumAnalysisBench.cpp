#include "analysis/SpectrumAnalysis.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <numbers>

using namespace sonvale;

// One display frame of the live spectrum: a 4,096-point transform of the tap's newest
// samples, the band values and the ballistics. The goal is well under 0.5 ms.
static void SpectrumAnalysisUpdatePerFrame(benchmark::State& state) {
    SampleTap tap;
    int64_t written = 0;
    SpectrumAnalysis analysis;
    const SpectrumAnalysis::Settings settings{
        .bands = int(state.range(0)), .release = 0.3, .floor = -80, .tilt = 3};
    auto at = SpectrumAnalysis::Clock::now();
    for (auto _ : state) {
        // 800 new samples a frame: 48 kHz at 60 frames a second.
        for (int i = 0; i < 800; ++i, ++written)
            tap.store(written,
                      float(0.5 * std::sin(2 * std::numbers::pi * 440 * written / 48000.0)));
        tap.publish(uint64_t(written));
        at += std::chrono::microseconds(16667);
        analysis.update(&tap, 2048, settings, at);
        benchmark::DoNotOptimize(analysis.levels().data());
    }
}
BENCHMARK(SpectrumAnalysisUpdatePerFrame)->Arg(32)->Arg(64)->Unit(benchmark::kMicrosecond);
