// The multitrack view at 1920x800 with 16 lanes and 200 clips over an hour: one repaint at
// five zoom levels (of what a change of the timeline repaints: the ruler and the clips; the
// lane headers, with their sliders and boxes, separately), and a clip dragged across the
// lanes with snapping on (the slowest step of move-and-repaint is reported as maxMs). Built
// into sonvale_app_bench.

#include "app/QtExecutor.h"
#include "app/timeline/TimelineView.h"
#include "audio/AudioLoader.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <QCoreApplication>
#include <QImage>
#include <QMouseEvent>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cmath>
#include <memory>

namespace {

using namespace sonvale;

constexpr double rate = 48000;
constexpr int lanes = 16;
constexpr int clips = 200;
constexpr int64_t hour = int64_t(3600 * rate);

struct Scene {
    QtExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    std::unique_ptr<TimelineView> view;
    QImage image{1920, 800, QImage::Format_ARGB32_Premultiplied};

    Scene() {
        // Five minutes of a swelling tone that every clip plays a part of.
        const int64_t frames = int64_t(300 * rate);
        std::vector<FloatBuffer> channels;
        for (int c = 0; c < 2; ++c) {
            FloatBuffer buffer(frames);
            float* s = buffer.data();
            for (int64_t i = 0; i < frames; ++i)
                s[i] = float((0.5 + 0.45 * std::sin(double(i) * 2 * M_PI / (7 * rate))) *
                             std::sin(double(i) * 2 * M_PI * 220 / rate));
            channels.push_back(std::move(buffer));
        }
        const auto audio = AudioLoader::makeAudioData(rate, std::move(channels), frames);
        Timeline& timeline = *model.timeline();
        timeline.setSampleRate(rate);
        std::vector<Uuid> ids;
        for (int l = 0; l < lanes; ++l)
            ids.push_back(timeline.addLane("Lane " + std::to_string(l + 1)).id);
        // 200 clips spread over the hour, a little overlapping so that some crossfade.
        const int64_t step = hour / (clips / lanes + 1);
        for (int i = 0; i < clips; ++i) {
            const int64_t length = int64_t(rate * 60) * (2 + i % 3);
            TimelineClip clip{Uuid::random(), "Clip " + std::to_string(i + 1),
                              audio,          int64_t(rate) * (i % 50),
                              length,         0,
                              int64_t(rate),  int64_t(rate),
                              std::nullopt};
            timeline.insertCopy(clip, ids[size_t(i % lanes)],
                                (i / lanes) * step + (i % 5) * int64_t(rate * 20), "Place");
        }
        timeline.setCursor(hour / 3);
        model.setShowingTimeline(true);
        view = std::make_unique<TimelineView>(model);
        view->resize(image.size());
        view->show();
        QCoreApplication::processEvents();
    }

    void zoom(int level) {
        // The whole hour, ten minutes, a minute, five seconds, a tenth of a second.
        static const double spans[] = {3600, 600, 60, 5, 0.1};
        const double perPoint = spans[level] * rate / (image.width() - TimelineView::headerWidth);
        model.timeline()->update(TimelineScale{level == 0 ? 0 : double(hour) * 0.3, perPoint},
                                 image.width() - TimelineView::headerWidth);
    }

    // What the view repaints when the timeline changes.
    void render() {
        view->render(&image, {}, view->repaintRegion());
        benchmark::DoNotOptimize(image.constBits());
    }
};

Scene& scene() {
    static Scene instance;
    return instance;
}

void BM_TimelineRepaint(benchmark::State& state) {
    Scene& s = scene();
    s.zoom(int(state.range(0)));
    for (auto _ : state)
        s.render();
}
BENCHMARK(BM_TimelineRepaint)->DenseRange(0, 4)->Unit(benchmark::kMillisecond);

// The headers of the visible lanes, which repaint only when their lane changes.
void BM_TimelineHeaders(benchmark::State& state) {
    Scene& s = scene();
    for (auto _ : state) {
        s.view->render(&s.image, {}, QRegion(0, 0, TimelineView::headerWidth, s.image.height()));
        benchmark::DoNotOptimize(s.image.constBits());
    }
}
BENCHMARK(BM_TimelineHeaders)->Unit(benchmark::kMillisecond);

void send(QWidget& view, QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
    QMouseEvent event(type, at, view.mapToGlobal(at),
                      type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, buttons, {});
    QCoreApplication::sendEvent(&view, &event);
}

// One step moves the grabbed clip a little right and down (wrapping back to the top lane),
// then repaints; the drag is never let go, so nothing is edited.
void BM_TimelineClipDrag(benchmark::State& state) {
    Scene& s = scene();
    s.zoom(1);
    TimelineView& view = *s.view;
    const TimelineClip& clip = s.model.timeline()->lanes()[0].clips.back();
    const QPoint grab(int(view.xOfFrame(double(clip.start + clip.length / 2))),
                      view.laneTop(0) + TimelineView::laneHeight / 2);
    send(view, QEvent::MouseButtonPress, grab, Qt::LeftButton);
    double slowest = 0;
    int step = 0;
    for (auto _ : state) {
        const auto began = std::chrono::steady_clock::now();
        ++step;
        const QPoint at = grab + QPoint(step % 400, (step * 7) % (s.image.height() - 60));
        send(view, QEvent::MouseMove, at, Qt::LeftButton);
        s.render();
        slowest = std::max(slowest, std::chrono::duration<double, std::milli>(
                                        std::chrono::steady_clock::now() - began)
                                        .count());
    }
    // Let go back where it started: the clip does not move.
    send(view, QEvent::MouseMove, grab, Qt::LeftButton);
    send(view, QEvent::MouseButtonRelease, grab, Qt::NoButton);
    state.counters["maxMs"] = slowest;
}
BENCHMARK(BM_TimelineClipDrag)->Unit(benchmark::kMillisecond);

} // namespace
