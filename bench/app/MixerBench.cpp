// The mixer's meters while the timeline plays: one display frame of 32 strips (28 lanes, 3
// buses and the master), from reading the level meters to the repainted pixels. The meters
// are refreshed about 30 times a second, so "corePercent" is the part of one core that takes.
// Offscreen, so the figures are the painting itself without the compositor.

#include "app/LevelMeterWidget.h"
#include "app/timeline/MixerView.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QApplication>
#include <QRegion>
#include <benchmark/benchmark.h>
#include <cmath>
#include <ctime>
#include <string>

using namespace sonvale;

namespace {

constexpr int laneCount = 28;
constexpr int busCount = 3;
constexpr double framesPerSecond = 30;
constexpr int64_t blockFrames = 1600; // what the mix meters in a 30th of a second at 48 kHz

struct Mixer {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    MixerView view{model};
    int frame = 0;

    Mixer() {
        Timeline& timeline = *model.timeline();
        for (int i = 0; i < laneCount; ++i)
            timeline.addLane("Lane " + std::to_string(i + 1));
        for (int i = 0; i < busCount; ++i)
            timeline.addBus();
        // Wide enough for every strip and the New Bus button: nothing scrolled out of sight.
        view.resize((laneCount + busCount + 1) * MixerStrip::stripWidth + 140, 300);
        view.show();
        QApplication::processEvents();
    }

    // What the real-time mix writes in one display frame: a block's peaks for every slot.
    void meterOneBlock() {
        LevelMeters& meters = *model.timeline()->meters();
        ++frame;
        auto record = [&](LevelMeters::Slot slot, int n) {
            const float peak = float(0.4 + 0.35 * std::sin(frame * 0.2 + n));
            meters.record(slot, &peak, &peak, 1);
        };
        for (int i = 0; i < laneCount; ++i)
            record(LevelMeters::Slot::lane(i), i);
        for (int i = 0; i < busCount; ++i)
            record(LevelMeters::Slot::bus(i), laneCount + i);
        record(LevelMeters::Slot::master(), 99);
        meters.advanceMixed(blockFrames);
    }

    double now() const { return frame / framesPerSecond; }

    QRegion meterRegion() const {
        QRegion region;
        for (MixerStrip* strip : view.strips()) {
            LevelMeterWidget* meter = strip->meter();
            region += QRect(meter->mapTo(&view, QPoint(0, 0)), meter->size());
        }
        return region;
    }
};

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The CPU time of every thread over the frames, as a share of one core at 30 frames a second.
void reportShare(benchmark::State& state, double cpuSecondsBefore) {
    const double perFrame = (processCpuSeconds() - cpuSecondsBefore) / double(state.iterations());
    state.counters["corePercent"] = 100 * framesPerSecond * perFrame;
}

} // namespace

// What Qt redraws in a frame while nothing else changes: the meters marked by the refresh,
// painted through the window's backing store at once (as the next frame would).
static void MixerMeterFrame32Strips(benchmark::State& state) {
    Mixer mixer;
    const double before = processCpuSeconds();
    for (auto _ : state) {
        mixer.meterOneBlock();
        mixer.view.refreshMeters(mixer.now());
        mixer.view.repaint(mixer.meterRegion());
    }
    reportShare(state, before);
}
BENCHMARK(MixerMeterFrame32Strips)->Unit(benchmark::kMicrosecond);

// The same frame with the whole mixer repainted: faders, buttons and all.
static void MixerWholeViewFrame32Strips(benchmark::State& state) {
    Mixer mixer;
    const double before = processCpuSeconds();
    for (auto _ : state) {
        mixer.meterOneBlock();
        mixer.view.refreshMeters(mixer.now());
        mixer.view.repaint();
    }
    reportShare(state, before);
}
BENCHMARK(MixerWholeViewFrame32Strips)->Unit(benchmark::kMicrosecond);
