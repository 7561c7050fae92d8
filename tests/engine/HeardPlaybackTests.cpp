// Plays through a real sound server (the private PulseAudio of scripts/sound-server.sh) and
// checks what its sink's monitor recorded. Skipped, with the reason, where no server runs.

#include "engine/PlaybackEngine.h"

#include "audio/AudioLoader.h"
#include "effects/EffectChain.h"
#include "effects/LimiterProcessor.h"
#include "support/AudioFiles.h"
#include "support/PlaybackTestAudio.h"
#include "support/SoundServer.h"
#include "timeline/Timeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <thread>

using namespace sonvale;
using namespace sonvale::test;
using namespace std::chrono_literals;

namespace {

constexpr double rate = 48000;

// One frame of the position ramp as the recording shows it: the left channel over the right
// reference, so any gain applied to both channels alike cancels out. -1 where nothing sounds.
double recordedFrame(const MonitorRecorder& r, size_t i, int64_t frames) {
    if (std::fabs(r.right[i]) < 0.05f) return -1;
    return rampFrame(r.left[i] / r.right[i] * 0.5f, frames);
}

// Where the recorded ramp jumps: pairs of (frame before, frame after).
std::vector<std::pair<double, double>> jumps(const MonitorRecorder& r, int64_t frames) {
    std::vector<std::pair<double, double>> found;
    for (size_t i = 1; i < r.left.size(); ++i) {
        double before = recordedFrame(r, i - 1, frames), after = recordedFrame(r, i, frames);
        if (before < 0 || after < 0) continue;
        if (std::fabs(after - before - 1) > 8) found.emplace_back(before, after);
    }
    return found;
}

class HeardPlayback : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
        engine = std::make_unique<PlaybackEngine>();
    }

    // Records while `audio` plays `range` from `at`, calling `during` with the seconds since
    // the start every 5 ms, until the source ends or `seconds` pass; then lets the output and
    // the stretcher drain before stopping.
    void play(AudioDataPtr audio, FrameRange range, int64_t at, bool loop, double seconds,
              const std::function<void(double)>& during = {}) {
        play(AudioDataContent::make(audio), gain, true, range, at, loop, seconds, during);
    }

    // The same for any content, with or without the gain and the live effect.
    void play(PlaybackContentPtr content, std::shared_ptr<GainBox> contentGain, bool liveEffect,
              FrameRange range, int64_t at, bool loop, double seconds,
              const std::function<void(double)>& during = {}) {
        recorder.start();
        source = engine->prepare(std::move(content), std::move(contentGain), liveEffect);
        source->start(range, at, loop);
        engine->start();
        auto started = std::chrono::steady_clock::now();
        for (;;) {
            double elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
            if (elapsed > seconds || !source->playing.load()) break;
            if (during) during(elapsed);
            std::this_thread::sleep_for(5ms);
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(engine->outputLatency() +
                                                                  engine->stretchLatency() + 0.3));
        engine->stop();
        std::this_thread::sleep_for(100ms);
        recorder.stop();
    }

    std::unique_ptr<PlaybackEngine> engine;
    std::shared_ptr<GainBox> gain = std::make_shared<GainBox>(1.0f);
    RenderSourcePtr source;
    MonitorRecorder recorder;
};

} // namespace

TEST_F(HeardPlayback, PlaysTheContentAtItsLevelPitchAndLength) {
    auto audio = makeSine(rate, 2, 48000, 1000, 0.5f);
    play(audio, {0, 48000}, 0, false, 3.0);
    auto [first, last] = soundingSpan(recorder.left, rate, 0.1f);
    ASSERT_GE(first, 0) << "nothing was heard";
    EXPECT_NEAR(double(last - first) / rate, 1.0, 0.01);
    std::span<const float> middle(recorder.left.data() + first + 4800, 38400);
    EXPECT_NEAR(zeroCrossingFrequency(middle, rate), 1000.0, 1.0);
    EXPECT_NEAR(peakOf(middle), 0.5f, 0.01f);
    EXPECT_NEAR(peakOf(std::span<const float>(recorder.right.data() + first + 4800, 38400)), 0.5f,
                0.01f);
    EXPECT_EQ(engine->underflowCount(), 0);
}

TEST_F(HeardPlayback, GainChangesAreHeardAsRampsWithoutSteps) {
    // A steady level (DC) with gentle fades, so any step in the gain stands out.
    const int64_t frames = 96000;
    auto audio = makeAudio(rate, 2, frames, [&](int, int64_t i) {
        return 0.5f * float(std::min<int64_t>({i, frames - 1 - i, 4800})) / 4800.0f;
    });
    bool lowered = false, raised = false;
    play(audio, {0, frames}, 0, false, 4.0, [&](double t) {
        if (t > 0.7 && !lowered) gain->store(0.2f), lowered = true;
        if (t > 1.3 && !raised) gain->store(1.0f), raised = true;
    });
    auto [first, last] = soundingSpan(recorder.left, rate, 0.05f);
    ASSERT_GE(first, 0) << "nothing was heard";
    float largestStep = 0;
    int64_t lowFrames = 0;
    // From the middle of the fade-in (the sound server may cut the first milliseconds of a new
    // stream) to past the end of the fade-out.
    for (int64_t i = first + 2400;
         i < std::min<int64_t>(last + 4800, int64_t(recorder.left.size())); ++i) {
        largestStep = std::max(largestStep,
                               std::fabs(recorder.left[size_t(i)] - recorder.left[size_t(i - 1)]));
        if (std::fabs(recorder.left[size_t(i)] - 0.1f) < 0.002f) ++lowFrames;
    }
    // The ramp over one 512-frame buffer moves at most 0.4 / 512 per sample.
    EXPECT_LT(largestStep, 0.4f / 512 * 1.5f);
    EXPECT_GT(lowFrames, 0.4 * rate); // the lowered gain was heard for about 0.6 s
}

TEST_F(HeardPlayback, SeekLandsOnTheRequestedFrame) {
    const int64_t frames = 4 * 48000;
    auto audio = makePositionRamp(rate, frames);
    bool sought = false;
    play(audio, {0, frames}, 0, false, 1.5, [&](double t) {
        if (t > 0.5 && !sought) source->seek(144000), sought = true;
    });
    auto found = jumps(recorder, frames);
    ASSERT_EQ(found.size(), 1u) << "one seek, one jump";
    EXPECT_NEAR(found[0].second, 144000, 1.0);
    EXPECT_GT(found[0].first, 0.4 * rate);
}

TEST_F(HeardPlayback, LoopingWrapsFromTheRangeEndToItsStart) {
    const int64_t frames = 2 * 48000;
    auto audio = makePositionRamp(rate, frames);
    play(audio, {24000, 48000}, 30000, true, 2.2);
    auto found = jumps(recorder, frames);
    ASSERT_GE(found.size(), 3u);
    for (auto [before, after] : found) {
        EXPECT_NEAR(before, 47999, 1.0);
        EXPECT_NEAR(after, 24000, 1.0);
    }
}

TEST_F(HeardPlayback, SpeedOnePointFiveKeepsThePitchAndShortensTheTone) {
    const int64_t silence = 14400, tone = 3 * 48000;
    auto audio = makeAudio(rate, 2, silence + tone + 24000, [&](int, int64_t i) {
        if (i < silence || i >= silence + tone) return 0.0f;
        return 0.5f * float(std::sin(2 * M_PI * 440.0 * double(i - silence) / rate));
    });
    engine->setRate(1.5f);
    play(audio, {0, audio->frameCount}, 0, false, 6.0);
    auto [first, last] = soundingSpan(recorder.left, rate, 0.1f);
    ASSERT_GE(first, 0) << "nothing was heard";
    // Counted in sounding 5 ms windows, so a gap the loaded machine may leave does not count.
    const size_t window = 240;
    int64_t sounding = 0;
    for (size_t start = 0; start + window <= recorder.left.size(); start += window)
        if (rmsOf(std::span<const float>(recorder.left.data() + start, window)) > 0.1f) ++sounding;
    double heardSeconds = double(sounding * int64_t(window)) / rate;
    EXPECT_NEAR(heardSeconds, 2.0, 2.0 * 0.02);
    std::span<const float> middle(recorder.left.data() + first + 24000, 48000);
    EXPECT_NEAR(zeroCrossingFrequency(middle, rate), 440.0, 4.4);
}

TEST_F(HeardPlayback, EffectChainIsAudibleAndBypassRemovesIt) {
    EffectChain chain;
    auto limiter = EffectSession::make(EffectKind::limiter);
    limiter->setValue(LimiterProcessor::gain, 12); // 0.1 becomes 0.4, under the -1 dB ceiling
    chain.append(limiter);
    engine->setEffectFactory(
        [&](double sampleRate, int channels) -> std::unique_ptr<EffectProcessor> {
            return chain.previewProcessor(sampleRate, channels);
        });
    auto audio = makeSine(rate, 2, 2 * 48000, 1000, 0.1f);
    bool bypassed = false;
    play(audio, {0, audio->frameCount}, 0, false, 4.0, [&](double t) {
        if (t > 1.0 && !bypassed) engine->effectInsert()->setBypassed(true), bypassed = true;
    });
    auto [first, last] = soundingSpan(recorder.left, rate, 0.02f);
    ASSERT_GE(first, 0) << "nothing was heard";
    float withEffect = rmsOf(std::span<const float>(recorder.left.data() + first + 9600, 24000));
    float bypassedLevel = rmsOf(std::span<const float>(recorder.left.data() + last - 33600, 24000));
    EXPECT_NEAR(withEffect, 0.4f / std::sqrt(2.0f), 0.02f);
    EXPECT_NEAR(bypassedLevel, 0.1f / std::sqrt(2.0f), 0.005f);
}

// Twelve seconds of playing while another thread seeks, changes the gain, turns knobs and swaps
// the effect processor every few milliseconds.
TEST_F(HeardPlayback, KeepsPlayingWithoutUnderrunsOrTornSeeksUnderConstantChanges) {
    const int64_t frames = 32 * 48000;
    auto audio = makePositionRamp(rate, frames);
    EffectChain chain;
    auto limiter = EffectSession::make(EffectKind::limiter);
    auto compressor = EffectSession::make(EffectKind::compressor);
    chain.append(compressor);
    chain.append(limiter);
    engine->setEffectFactory(
        [&](double sampleRate, int channels) -> std::unique_ptr<EffectProcessor> {
            return chain.previewProcessor(sampleRate, channels);
        });

    std::set<int64_t> targets;
    for (int64_t f = 4800; f < frames - 96000; f += 4800)
        targets.insert(f);
    std::vector<int64_t> targetList(targets.begin(), targets.end());

    std::atomic<bool> done{false}, ready{false};
    std::atomic<int> seeks{0}, swaps{0};
    std::thread changer([&] {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> unit(0, 1);
        // Wait for the source, which play() prepares.
        while (!ready)
            std::this_thread::sleep_for(1ms);
        auto insert = engine->effectInsert();
        for (int i = 0; !done && source; ++i) {
            gain->store(0.5f + 0.5f * unit(random));
            limiter->bank()->set(LimiterProcessor::gain, 6 * unit(random));
            compressor->bank()->set(0, -30 + 20 * unit(random));
            if (i % 5 == 0) {
                source->seek(targetList[size_t(random()) % targetList.size()]);
                ++seeks;
            }
            if (i % 7 == 0) {
                auto old = insert->setProcessor(chain.previewProcessor(rate, 2), 2);
                ++swaps;
            }
            std::this_thread::sleep_for(3ms);
        }
    });
    play(audio, {0, frames}, 0, false, 12.0, [&](double) { ready = true; });
    done = true;
    ready = true;
    changer.join();

    EXPECT_EQ(engine->underflowCount(), 0);
    EXPECT_GT(seeks.load(), 120);
    EXPECT_GT(swaps.load(), 120);
    auto found = jumps(recorder, frames);
    ASSERT_GT(found.size(), 60u);
    int torn = 0;
    for (auto [before, after] : found) {
        auto nearest = targets.lower_bound(int64_t(std::llround(after)) - 2);
        if (nearest == targets.end() || std::fabs(double(*nearest) - after) > 2) ++torn;
    }
    EXPECT_EQ(torn, 0) << "of " << found.size() << " jumps";
}

// The timeline played from a cursor in its middle, as the editor plays it (its own mix, no live
// effect): two lanes of tones that sox and ffmpeg made, at their own gains and pans, one with
// a fade at each end. What the sink records, found by where it matches best, is the mixdown of
// the same arrangement from the cursor on; nothing before the cursor is heard.
TEST_F(HeardPlayback, TimelineFromItsCursorSoundsAsItsMixdown) {
    TemporaryFolder folder;
    const auto low = folder / "low.wav", high = folder / "high.wav";
    ASSERT_EQ(
        std::system(
            ("sox -n -r 48000 -c 1 -b 16 '" + low.string() + "' synth 3 sine 440 gain -4").c_str()),
        0);
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=frequency=660:sample_rate=48000:"
                           "duration=3 -ac 2 -c:a pcm_f32le '" +
                           high.string() + "'")
                              .c_str()),
              0);
    const auto lowAudio = AudioLoader::load(low), highAudio = AudioLoader::load(high);

    auto timeline = Timeline::create(rate);
    auto place = [&](const AudioDataPtr& audio, int64_t start, int64_t length, float gainDB,
                     float pan) {
        const Uuid lane = timeline->addLane("Lane").id;
        timeline->setLaneGain(lane, gainDB);
        timeline->setLanePan(lane, pan);
        TimelineClip clip{Uuid::random(), "Tone", audio, 0, length, 0, 0, 0, {}};
        return timeline->insertCopy(clip, lane, start, "Paste Clip");
    };
    place(lowAudio, 0, 120000, -6, -0.5f);                         // 0 to 2.5 s
    const auto fading = place(highAudio, 38400, 105600, -3, 0.6f); // 0.8 to 3 s
    timeline->setFade(fading.id, ClipEdge::start, fading.start + 19200);
    timeline->setFade(fading.id, ClipEdge::end, fading.end() - 28800);
    const int64_t cursor = 24000, frames = timeline->frameCount();
    ASSERT_EQ(frames, 144000);
    timeline->setCursor(cursor);

    const auto written = folder / "mix.wav";
    TimelineMixer::writeMixdown(*timeline->mixdownSnapshot(), written);
    const auto mix = AudioLoader::load(written);
    ASSERT_EQ(mix->frameCount, frames);

    play(timeline->playback(), nullptr, false, {0, frames}, timeline->cursor(), false, 20.0);

    const auto& heard = recorder.left;
    const int64_t recorded = int64_t(heard.size());
    const int64_t onset =
        std::find_if(heard.begin(), heard.end(), [](float x) { return std::fabs(x) > 0.01f; }) -
        heard.begin();
    ASSERT_LT(onset, recorded) << "nothing was heard";
    // Where the cursor's frame is in the recording: the offset at which the half second from
    // 10 ms after it (a new stream's first frames may not be heard as rendered) matches the
    // mixdown best, by the least squared difference, searched a twentieth of a second around
    // where the sound starts.
    const int64_t skipped = 480, window = 24000;
    int64_t at = -1;
    double best = std::numeric_limits<double>::infinity();
    for (int64_t d = std::max<int64_t>(onset - 2400, 0); d <= onset + 2400; ++d) {
        if (d + skipped + window > recorded) break;
        double sum = 0;
        for (int64_t k = skipped; k < skipped + window && sum < best; ++k) {
            const double difference = heard[size_t(d + k)] - mix->samples(0)[cursor + k];
            sum += difference * difference;
        }
        if (sum < best) best = sum, at = d;
    }
    ASSERT_GE(at, 0) << "the recording is too short";
    // From 10 ms after the cursor to 0.1 s before the end (the end of playback may cut it
    // short).
    const int64_t count = std::min(frames - cursor - 4800, recorded - at);
    ASSERT_GT(count, 96000) << "less than two seconds were recorded";
    for (int c = 0; c < 2; ++c) {
        SCOPED_TRACE(c == 0 ? "left" : "right");
        const auto& side = c == 0 ? recorder.left : recorder.right;
        float largest = 0;
        for (int64_t k = skipped; k < count; ++k)
            largest =
                std::max(largest, std::fabs(side[size_t(at + k)] - mix->samples(c)[cursor + k]));
        EXPECT_LT(largest, 1e-6f);
        // Before the cursor's frame nothing sounds: the start of the arrangement isn't played.
        float before = 0;
        for (int64_t i = 0; i < at; ++i)
            before = std::max(before, std::fabs(side[size_t(i)]));
        EXPECT_LT(before, 1e-6f);
    }
    // While the low lane plays alone (0.6 to 0.75 s): at -6 dB, panned half left.
    auto peak = [&](const std::vector<float>& side) {
        return peakOf(std::span<const float>(side.data() + at + 4800, 7200));
    };
    EXPECT_NEAR(peak(recorder.left), lowAudio->peak * std::pow(10.0f, -6.0f / 20), 0.005f);
    EXPECT_NEAR(peak(recorder.right), 0.5f * peak(recorder.left), 0.005f);
}
