#include "effects/EffectChain.h"
#include "engine/PlaybackEngine.h"
#include "support/AllocationCounter.h"
#include "support/PlaybackTestAudio.h"

#include <chrono>
#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;

namespace {

struct ManualEngine {
    ManualEngine() {
        auto manual = std::make_unique<ManualOutput>();
        output = manual.get();
        engine = std::make_unique<PlaybackEngine>(std::move(manual));
    }
    ManualOutput* output;
    std::unique_ptr<PlaybackEngine> engine;
};

AudioDataPtr countingAudio(int64_t frames, double rate = 48000) {
    return makeAudio(rate, 1, frames, [](int, int64_t i) { return float(i) * 1e-6f; });
}

} // namespace

// The speeds 0.5, 0.75, 1, 1.25, 1.5, 2; a speed that is not one of them counts as 1.
TEST(PlaybackSpeed, StepsMoveThroughTheSixSpeedsAndStopAtTheEnds) {
    const struct {
        float from;
        int step;
        float to;
    } cases[] = {{1.0f, 1, 1.25f}, {1.25f, 1, 1.5f},  {1.5f, 1, 2.0f},
                 {2.0f, 1, 2.0f},  {1.0f, -1, 0.75f}, {0.75f, -1, 0.5f},
                 {0.5f, -1, 0.5f}, {1.1f, 1, 1.25f},  {3.0f, -1, 0.75f}};
    for (const auto& c : cases)
        EXPECT_EQ(PlaybackEngine::steppedRate(c.from, c.step), c.to) << c.from << " " << c.step;
}

TEST(PlaybackEngine, PlayheadIsTheRenderedFrameWhenItsBufferIsHeard) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(480000)), nullptr);
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(5.0)), std::nullopt); // not playing
    source->start({0, 480000}, 1000, false);
    m.engine->start();
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(5.0)), std::nullopt); // nothing rendered
    m.output->pull(512, hostTimeFromSeconds(10.0));
    // Heard from 10.0 + 0.02 s of output latency on.
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(10.02)), 1000);
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(10.12)), 1000 + 4800);
    // Until the buffer reaches the ear the playhead lags the render position by the latency.
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(10.0)), 1000 - 960);
}

TEST(PlaybackEngine, PlayheadRestartsFromTheSeekTarget) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(480000)), nullptr);
    source->start({0, 480000}, 0, false);
    m.engine->start();
    m.output->pull(512, hostTimeFromSeconds(1.0));
    source->seek(200000);
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(1.03)), 480); // not applied yet
    m.output->pull(512, hostTimeFromSeconds(1.0 + 512.0 / 48000));
    auto heard = m.engine->audibleFrame(hostTimeFromSeconds(1.0 + 512.0 / 48000 + 0.02 + 0.01));
    EXPECT_EQ(heard, 200000 + 480);
}

TEST(PlaybackEngine, PlayheadRunsAtTheContentRateTimesTheSpeed) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(441000, 44100)), nullptr);
    m.engine->setRate(1.5f);
    source->start({0, 441000}, 0, false);
    m.engine->start();
    m.output->pull(512, hostTimeFromSeconds(2.0));
    double delay = m.engine->stretchLatency();
    EXPECT_GT(delay, 0.0); // the stretcher runs and its delay counts
    EXPECT_EQ(m.engine->latencyFrames(), int64_t((delay + 0.02) * 44100 * 1.5));
    // The first frame is heard only after the stretcher's and the output's delay; from then on
    // the playhead runs at 1.5 times the content rate.
    auto atStart = m.engine->audibleFrame(hostTimeFromSeconds(2.0 + 0.02));
    auto first = m.engine->audibleFrame(hostTimeFromSeconds(2.0 + 0.02 + delay + 1.0));
    auto second = m.engine->audibleFrame(hostTimeFromSeconds(2.0 + 0.02 + delay + 2.0));
    ASSERT_TRUE(atStart && first && second);
    EXPECT_LT(*atStart, 0);
    EXPECT_GT(*first, 0);
    EXPECT_EQ(*second - *first, 66150);
}

TEST(PlaybackEngine, SpeedOneBypassesTheStretcher) {
    ManualEngine m;
    auto audio = makeSine(48000, 2, 48000, 1000, 0.5f);
    auto source = m.engine->prepare(AudioDataContent::make(audio), nullptr);
    source->start({0, 48000}, 0, false);
    m.engine->start();
    auto& out = m.output->pull(512, 1);
    EXPECT_EQ(out[0][100], audio->samples(0)[100]); // untouched samples, no delay
    EXPECT_EQ(m.engine->stretchLatency(), 0.0);
}

TEST(PlaybackEngine, ContentWithoutChannelsCannotBePrepared) {
    ManualEngine m;
    EXPECT_THROW(m.engine->prepare(AudioDataContent::make(makeAudio(48000, 0, 0, {})), nullptr),
                 PlaybackError);
}

TEST(PlaybackEngine, ConfigurationChangeReopensAndRestartsAPlayingSource) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(48000)), nullptr);
    source->start({0, 48000}, 0, false);
    m.engine->start();
    m.output->failed = true;
    EXPECT_TRUE(m.engine->checkOutput());
    EXPECT_EQ(m.output->opens, 2);
    EXPECT_EQ(m.output->starts, 2);
    EXPECT_TRUE(m.engine->isRunning());
    EXPECT_TRUE(source->playing.load());
    EXPECT_FALSE(m.engine->checkOutput());
}

TEST(PlaybackEngine, AnOutputThatStopsAskingForAudioIsReopenedAndOtherwiseEndsPlayback) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(480000)), nullptr);
    source->start({0, 480000}, 0, false);
    m.engine->start();
    const auto t0 = std::chrono::steady_clock::now();
    const auto later = [&](double seconds) {
        return t0 + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                        std::chrono::duration<double>(seconds));
    };
    // Buffers keep coming: no matter how long between polls, nothing is wrong.
    for (int i = 0; i < 5; ++i) {
        m.output->pull(512, 1);
        EXPECT_FALSE(m.engine->checkOutput(later(i * 3.0)));
    }
    // Then none for two seconds: the stream is reopened and restarted.
    EXPECT_FALSE(m.engine->checkOutput(later(13.0)));
    EXPECT_TRUE(m.engine->checkOutput(later(12.0 + PlaybackEngine::stalledOutputSeconds + 0.1)));
    EXPECT_EQ(m.output->opens, 2);
    EXPECT_EQ(m.output->starts, 2);
    EXPECT_TRUE(source->playing.load());
    // Still silent, and now the device refuses to start: playback ends as at the end.
    m.output->failStart = true;
    EXPECT_TRUE(m.engine->checkOutput(later(17.0)));
    EXPECT_FALSE(source->playing.load());
    EXPECT_FALSE(m.engine->isSounding());
}

TEST(PlaybackEngine, FailedRestartStopsTheSourceAsAtTheEnd) {
    ManualEngine m;
    auto source = m.engine->prepare(AudioDataContent::make(countingAudio(48000)), nullptr);
    source->start({0, 48000}, 0, false);
    m.engine->start();
    m.output->failStart = true;
    m.engine->handleConfigurationChange();
    EXPECT_FALSE(source->playing.load());
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(1)), std::nullopt);
}

TEST(PlaybackEngine, EffectIsMadeForTheContentStartsEachPlayFromSilenceAndGoesWithTheFactory) {
    struct CountingResets final : EffectProcessor {
        explicit CountingResets(int& resets)
            : resets(resets) {}
        void process(float* const*, int64_t) noexcept override {}
        void reset() noexcept override { ++resets; }
        int& resets;
    };
    ManualEngine m;
    int resets = 0;
    std::vector<PlaybackEngine::Format> built;
    m.engine->setEffectFactory([&](double rate, int channels) -> std::unique_ptr<EffectProcessor> {
        built.push_back({rate, channels});
        return std::make_unique<CountingResets>(resets);
    });
    EXPECT_TRUE(built.empty()); // no content yet
    m.engine->prepare(AudioDataContent::make(countingAudio(1000, 44100)), nullptr);
    m.engine->prepare(AudioDataContent::make(countingAudio(2000, 44100)), nullptr);
    EXPECT_EQ(resets, 1); // the same format: kept, from silence
    m.engine->prepare(AudioDataContent::make(makeSine(44100, 6, 1000, 440, 0.5f)), nullptr);
    m.engine->prepare(AudioDataContent::make(countingAudio(1000, 96000)), nullptr);
    EXPECT_EQ(built, (std::vector<PlaybackEngine::Format>{{44100, 1}, {44100, 6}, {96000, 1}}));
    EXPECT_EQ(m.engine->nodeFormat(), (PlaybackEngine::Format{96000, 2}));
    EXPECT_TRUE(m.engine->effectInsert()->hasProcessor());
    m.engine->setEffectFactory({});
    EXPECT_FALSE(m.engine->effectInsert()->hasProcessor());
    EXPECT_EQ(m.engine->effectFormat(), std::nullopt);
}

TEST(PlaybackEngine, OutputPeaksAreRecordedIntoTheMasterMeter) {
    ManualEngine m;
    auto source =
        m.engine->prepare(AudioDataContent::make(makeAudio(
                              48000, 2, 4800, [](int c, int64_t) { return c ? -0.5f : 0.25f; })),
                          nullptr);
    source->start({0, 4800}, 0, false);
    m.engine->start();
    m.output->pull(512, 1);
    auto peaks = m.engine->outputMeters().take(LevelMeters::Slot::master(), 512);
    EXPECT_EQ(peaks, (LevelMeters::Peaks{0.25f, 0.5f}));
}

TEST(PlaybackEngine, StretchedPlaySoundsUntilItsLastFrameHasLeftTheStretcher) {
    ManualEngine m;
    auto source =
        m.engine->prepare(AudioDataContent::make(makeSine(48000, 1, 144000, 1000, 0.5f)), nullptr);
    m.engine->setRate(1.5f);
    source->start({0, 144000}, 0, false);
    m.engine->start();
    std::vector<float> heard;
    auto pull = [&] {
        auto& out = m.output->pull(512, 1);
        heard.insert(heard.end(), out[0].begin(), out[0].end());
    };
    while (source->playing.load())
        pull();
    // The source has run out, but the end of the tone is still inside the stretcher.
    EXPECT_TRUE(m.engine->isSounding());
    const size_t ranOut = heard.size();
    for (int i = 0; i < 200 && m.engine->isSounding(); ++i)
        pull();
    EXPECT_FALSE(m.engine->isSounding());
    EXPECT_GT(peakOf(std::span(heard).subspan(ranOut)), 0.3f);
    const size_t drained = heard.size();
    for (int i = 0; i < 20; ++i)
        pull();
    // Nothing of the tone was left behind, only the stretcher's faint smear of its end.
    EXPECT_LT(peakOf(std::span(heard).subspan(drained)), 0.1f);
    auto [first, last] = soundingSpan(heard, 48000, 0.1f);
    EXPECT_NEAR(double(last - first), 96000, 96000 * 0.02);
    EXPECT_LE(size_t(last), drained);
}

TEST(PlaybackEngine, APlayAfterAStretchedOneStartsAfresh) {
    ManualEngine m;
    auto content = AudioDataContent::make(countingAudio(480000));
    auto source = m.engine->prepare(content, nullptr);
    m.engine->setRate(1.5f);
    source->start({0, 480000}, 0, false);
    m.engine->start();
    for (int i = 0; i < 40; ++i)
        m.output->pull(512, hostTimeFromSeconds(1.0 + i * 0.01));
    m.engine->stop();

    m.engine->setRate(1.0f);
    source = m.engine->prepare(content, nullptr);
    source->start({0, 480000}, 100000, false);
    m.engine->start();
    auto& out = m.output->pull(512, hostTimeFromSeconds(5.0));
    EXPECT_FLOAT_EQ(out[0][0], 100000 * 1e-6f); // not where the stretched play had got to
    EXPECT_EQ(m.engine->stretchLatency(), 0.0);
    EXPECT_EQ(m.engine->audibleFrame(hostTimeFromSeconds(5.02)), 100000);
}

TEST(PlaybackEngine, RenderAllocatesNothingAtAnySpeed) {
    for (float speed : PlaybackEngine::playbackRates) {
        ManualEngine m;
        auto source = m.engine->prepare(
            AudioDataContent::make(makeSine(48000, 2, 480000, 440, 0.5f)), nullptr);
        m.engine->setEffectFactory([](double, int) { return std::make_unique<ChainProcessor>(); });
        m.engine->setRate(speed);
        source->start({0, 480000}, 0, true);
        m.engine->start();
        std::vector<std::vector<float>> buffers(2, std::vector<float>(4096));
        float* channels[2] = {buffers[0].data(), buffers[1].data()};
        int64_t allocations = 0, frees = 0;
        for (int i = 0; i < 200; ++i) {
            const int64_t frames = i % 3 == 0 ? 4096 : i % 3 == 1 ? 128 : 512;
            if (i == 100) source->seek(240000);
            AllocationCounter::Scope scope;
            m.output->pullInto(channels, 2, frames, hostTimeFromSeconds(1.0 + i * 0.01));
            allocations += scope.allocations();
            frees += scope.frees();
        }
        EXPECT_EQ(allocations, 0) << "at speed " << speed;
        EXPECT_EQ(frees, 0) << "at speed " << speed;
    }
}
