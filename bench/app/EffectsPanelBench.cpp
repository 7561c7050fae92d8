// The effects panel's drawing while a knob turns: what one knob step costs the interface
// thread, from the key press to the repainted pixels. Offscreen, so the figures are the
// painting itself without the compositor.

#include "app/effects/EffectDisplays.h"
#include "app/effects/EffectsPanel.h"
#include "app/effects/Knob.h"
#include "audio/AudioLoader.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QApplication>
#include <QImage>
#include <QKeyEvent>
#include <benchmark/benchmark.h>
#include <cmath>
#include <numbers>

using namespace sonvale;

namespace {

struct Editor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    EffectsPanel panel{model};

    explicit Editor(EffectKind kind) {
        std::vector<FloatBuffer> channels;
        for (int c = 0; c < 2; ++c) {
            FloatBuffer buffer(48000);
            for (int64_t i = 0; i < 48000; ++i)
                buffer.data()[i] =
                    float(0.3 * std::sin(2 * std::numbers::pi * 440 * double(i) / 48000));
            channels.push_back(std::move(buffer));
        }
        auto audio = AudioLoader::makeAudioData(48000, std::move(channels), 48000);
        auto track = AudioTrack::create("/music/bench.wav");
        track->finishLoading(audio);
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        executor.drain();
        model.addEffect(kind);
        panel.resize(900, 600);
        panel.show();
        QApplication::processEvents();
    }
    Knob* knob(int index) const { return qobject_cast<Knob*>(panel.controls()[size_t(index)]); }
};

// Turns the knob one step up and back down, alternately, like a slow drag.
void step(Knob* knob, int i) {
    QKeyEvent press(QEvent::KeyPress, (i & 1) ? Qt::Key_Down : Qt::Key_Up, Qt::NoModifier);
    QApplication::sendEvent(knob, &press);
}

// What Qt repaints after a step: the knob and the display that shows the value.
void render(QWidget* widget, QImage& image) {
    image.fill(Qt::transparent);
    widget->render(&image);
}

} // namespace

static void PanelKnobStepRepaintEqualizer(benchmark::State& state) {
    Editor editor(EffectKind::equalizer);
    Knob* frequency = editor.knob(11); // band 3
    QImage knobImage(frequency->size(), QImage::Format_ARGB32_Premultiplied);
    QImage graphImage(editor.panel.equalizerGraph()->size(), QImage::Format_ARGB32_Premultiplied);
    int i = 0;
    for (auto _ : state) {
        step(frequency, i++);
        render(frequency, knobImage);
        render(editor.panel.equalizerGraph(), graphImage);
    }
}
BENCHMARK(PanelKnobStepRepaintEqualizer)->Unit(benchmark::kMicrosecond);

static void PanelKnobStepRepaintCompressor(benchmark::State& state) {
    Editor editor(EffectKind::compressor);
    Knob* threshold = editor.knob(0);
    QImage knobImage(threshold->size(), QImage::Format_ARGB32_Premultiplied);
    QWidget* curve = editor.panel.compressorDisplay();
    ReductionMeter* meter = editor.panel.reductionMeter();
    QImage curveImage(curve->size(), QImage::Format_ARGB32_Premultiplied);
    QImage meterImage(meter->size(), QImage::Format_ARGB32_Premultiplied);
    int i = 0;
    for (auto _ : state) {
        step(threshold, i++);
        render(threshold, knobImage);
        editor.panel.refreshDisplays();
        render(curve, curveImage);
        render(meter, meterImage);
    }
}
BENCHMARK(PanelKnobStepRepaintCompressor)->Unit(benchmark::kMicrosecond);

// The worst case: the whole panel repainted for every step.
static void PanelKnobStepRepaintWholePanel(benchmark::State& state) {
    Editor editor(EffectKind::equalizer);
    Knob* gain = editor.knob(12);
    QImage image(editor.panel.size(), QImage::Format_ARGB32_Premultiplied);
    int i = 0;
    for (auto _ : state) {
        step(gain, i++);
        render(&editor.panel, image);
    }
}
BENCHMARK(PanelKnobStepRepaintWholePanel)->Unit(benchmark::kMicrosecond);

// One display frame of the analyzer while playing: analysis and repaint.
static void PanelSpectrumFrame(benchmark::State& state) {
    Editor editor(EffectKind::spectrumAnalyzer);
    SpectrumDisplay* display = editor.panel.spectrumDisplay();
    SampleTap* tap = editor.model.effectChain()->selected()->bank()->tap();
    QImage image(display->size(), QImage::Format_ARGB32_Premultiplied);
    int64_t written = 0;
    for (auto _ : state) {
        for (int n = 0; n < 800; ++n, ++written)
            tap->store(written,
                       float(0.3 * std::sin(2 * std::numbers::pi * 440 * double(written) / 48000)));
        tap->publish(uint64_t(written));
        editor.panel.refreshDisplays();
        render(display, image);
    }
}
BENCHMARK(PanelSpectrumFrame)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
