// One full repaint of a 1920x400 waveform canvas showing a 60-minute stereo track, from the
// whole track down to single samples. Built into sonvale_app_bench, whose main() (in
// EffectsPanelBench.cpp) makes the QApplication on the offscreen platform.

#include "app/QtExecutor.h"
#include "app/canvas/WaveformCanvas.h"
#include "audio/AudioLoader.h"
#include "audio/AudioTrack.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QCoreApplication>
#include <QImage>
#include <benchmark/benchmark.h>
#include <cmath>
#include <memory>

namespace {

using namespace sonvale;

constexpr double rate = 48000;
constexpr int64_t frames = int64_t(60 * 60 * rate);
constexpr int zoomLevels = 10;

struct Scene {
    QtExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    AudioTrackPtr track = AudioTrack::create("/bench/hour.wav");
    std::unique_ptr<WaveformCanvas> canvas;
    QImage image{1920, 400, QImage::Format_ARGB32_Premultiplied};

    Scene() {
        std::vector<FloatBuffer> channels;
        for (int c = 0; c < 2; ++c) {
            FloatBuffer buffer(frames);
            float* s = buffer.data();
            // A tone whose level swells and falls over every ten seconds, plus a little hash.
            uint32_t noise = 12345u + uint32_t(c);
            for (int64_t i = 0; i < frames; ++i) {
                noise = noise * 1664525u + 1013904223u;
                const double envelope = 0.5 + 0.45 * std::sin(double(i) * 2 * M_PI / (10 * rate));
                s[i] = float(envelope * std::sin(double(i) * 2 * M_PI * 220 / rate)) +
                       float(int32_t(noise)) * 1e-11f;
            }
            channels.push_back(std::move(buffer));
        }
        track->finishLoading(AudioLoader::makeAudioData(rate, std::move(channels), frames));
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        canvas = std::make_unique<WaveformCanvas>(model);
        canvas->resize(image.size());
        track->updateWidth(image.width());
        track->setSelection(FrameRange{frames / 3, frames / 2});
    }
};

Scene& scene() {
    static Scene instance;
    return instance;
}

// Level 0 shows the whole hour; each level zooms in by the same factor down to 0.05 frames
// per point (individual samples with dots).
void BM_CanvasRepaint(benchmark::State& state) {
    Scene& s = scene();
    const double widest = double(frames) / s.image.width();
    const double deepest = 0.05;
    const double factor = std::pow(deepest / widest, 1.0 / (zoomLevels - 1));
    const double samplesPerPoint = widest * std::pow(factor, double(state.range(0)));
    const double span = samplesPerPoint * s.image.width();
    s.track->setViewport(
        Viewport{double(frames) * 0.4 - span / 2, samplesPerPoint, double(s.image.width())});
    for (auto _ : state) {
        s.canvas->render(&s.image);
        benchmark::DoNotOptimize(s.image.constBits());
    }
    state.counters["framesPerPoint"] = samplesPerPoint;
}
BENCHMARK(BM_CanvasRepaint)->DenseRange(0, zoomLevels - 1)->Unit(benchmark::kMillisecond);

// Switching to the spectrogram view of the hour once its spectrogram is computed: the first
// paint draws the picture for a view it has not drawn before (goal: under 16 ms). Argument 0
// shows the whole hour, 1 ten seconds of it.
void BM_SpectrogramFirstPaint(benchmark::State& state) {
    Scene& s = scene();
    const double span = state.range(0) == 0 ? double(frames) : 10 * rate;
    s.track->setViewport(
        Viewport{double(frames) * 0.4 - span / 2, span / s.image.width(), double(s.image.width())});
    s.model.setTrackView(EditorModel::TrackView::spectrogram);
    while (!s.model.hasCurrentSpectrogram(*s.track))
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    SpectrogramSettings settings = s.preferences.spectrogramSettings();
    for (auto _ : state) {
        state.PauseTiming();
        s.model.setTrackView(EditorModel::TrackView::waveform);
        // Other colours each time: a picture not drawn before.
        settings.colorMap = settings.colorMap == SpectrogramColorMap::inferno
                                ? SpectrogramColorMap::magma
                                : SpectrogramColorMap::inferno;
        s.preferences.setSpectrogramSettings(settings);
        state.ResumeTiming();
        s.model.setTrackView(EditorModel::TrackView::spectrogram);
        s.canvas->render(&s.image);
        benchmark::DoNotOptimize(s.image.constBits());
    }
    s.model.setTrackView(EditorModel::TrackView::waveform);
}
BENCHMARK(BM_SpectrogramFirstPaint)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
