// The live mix: 32 stereo lanes of overlapping faded clips into 4 buses, each bus with a reverb
// and a compressor, a limiter on the master, rendered in 512-frame buffers as the output thread
// renders them. "realtime" is seconds of mix per second of rendering: its inverse is the share
// of a buffer's duration one render takes (under 0.25 leaves a core room to spare); the same
// without effects. And the session record of a 200-track,
// 500-clip timeline, written and read.

#include "audio/AudioLoader.h"
#include "effects/EffectKind.h"
#include "effects/EffectSession.h"
#include "persistence/SessionState.h"
#include "timeline/Timeline.h"

#include <benchmark/benchmark.h>
#include <random>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr int64_t buffer = 512;

AudioDataPtr noise(int64_t frames, uint32_t seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<float> normal(0, 0.1f);
    std::vector<FloatBuffer> channels;
    for (int c = 0; c < 2; ++c) {
        FloatBuffer samples(frames);
        for (int64_t i = 0; i < frames; ++i)
            samples.data()[i] = normal(generator);
        channels.push_back(std::move(samples));
    }
    return AudioLoader::makeAudioData(rate, std::move(channels), frames);
}

// Lanes of ten-second clips every eight seconds (two seconds of crossfade between them).
TimelinePtr arrangement(bool effects) {
    auto timeline = Timeline::create(rate);
    const auto audio = noise(int64_t(rate * 10), 1);
    std::vector<Uuid> buses;
    for (int b = 0; b < 4; ++b)
        buses.push_back(timeline->addBus().id);
    for (int l = 0; l < 32; ++l) {
        const Uuid lane = timeline->addLane("Lane " + std::to_string(l)).id;
        timeline->setOutput(lane, buses[size_t(l % 4)]);
        for (int c = 0; c < 8; ++c) {
            TimelineClip clip{Uuid::random(), "Clip", audio, 0, audio->frameCount, 0, 0, 0, {}};
            timeline->insertCopy(clip, lane, int64_t(rate * 8) * c + l * 997, "Paste Clip");
        }
    }
    if (effects) {
        for (const auto& bus : buses) {
            auto chain = timeline->chain(MixerChannel::forBus(bus));
            chain->append(EffectSession::make(EffectKind::reverb));
            chain->append(EffectSession::make(EffectKind::compressor));
        }
        timeline->chain(MixerChannel::master())->append(EffectSession::make(EffectKind::limiter));
    }
    return timeline;
}

void liveMix(benchmark::State& state) {
    const auto timeline = arrangement(state.range(0) != 0);
    const auto snapshot = timeline->snapshot();
    TimelineMixer::Scratch scratch(buffer);
    std::vector<float> left(buffer), right(buffer);
    // From 5 s on, where every lane is inside a clip and most are inside a crossfade.
    int64_t at = int64_t(rate * 5);
    for (auto _ : state) {
        TimelineMixer::renderBlock(*snapshot, at, at + buffer, left.data(), right.data(), scratch);
        benchmark::DoNotOptimize(left.data());
        at += buffer;
        if (at > int64_t(rate * 60)) at = int64_t(rate * 5);
    }
    // Seconds of audio per second of rendering, and its inverse: the share of a buffer's time.
    state.counters["load"] =
        benchmark::Counter(double(state.iterations()) * buffer / rate,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(liveMix)->ArgName("effects")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

SessionState bigSession() {
    SessionState state;
    for (int t = 0; t < 200; ++t) {
        TrackState track;
        track.path = "/music/Track " + std::to_string(t) + ".wav";
        state.tracks.push_back(track);
    }
    TimelineState timeline;
    for (int l = 0; l < 25; ++l) {
        TimelineState::Lane lane;
        lane.name = "Lane " + std::to_string(l);
        for (int c = 0; c < 20; ++c) {
            TimelineState::Clip clip;
            clip.name = "Clip";
            clip.source = TimelineState::Clip::TrackSource{(l * 20 + c) % 200};
            clip.length = 480000;
            clip.start = int64_t(c) * 480000;
            clip.fadeIn = 4800;
            lane.clips.push_back(clip);
        }
        timeline.lanes.push_back(lane);
    }
    state.timeline = timeline;
    return state;
}

void sessionRecordWrite(benchmark::State& state) {
    const auto session = bigSession();
    for (auto _ : state)
        benchmark::DoNotOptimize(encodeSessionFile(session));
}
BENCHMARK(sessionRecordWrite)->Unit(benchmark::kMillisecond);

void sessionRecordRead(benchmark::State& state) {
    const auto text = encodeSessionFile(bigSession());
    for (auto _ : state)
        benchmark::DoNotOptimize(decodeSessionFile(text));
}
BENCHMARK(sessionRecordRead)->Unit(benchmark::kMillisecond);

} // namespace
