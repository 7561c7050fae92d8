#include "engine/RenderSource.h"

#include "effects/EffectChain.h"
#include "effects/EffectKind.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "support/PlaybackTestAudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

using namespace sonvale;
using namespace sonvale::test;

namespace {

// A stereo output block the way the render callback sees it.
struct Block {
    explicit Block(int64_t frames)
        : left(size_t(frames), -7.0f)
        , right(size_t(frames), -7.0f) {}
    float* channels[2];
    float* const* buffers() {
        channels[0] = left.data();
        channels[1] = right.data();
        return channels;
    }
    std::vector<float> left, right;
};

// Frame i of this content holds the value i (left) and -i (right).
AudioDataPtr countingContent(int64_t frames) {
    return makeAudio(48000, 2, frames,
                     [](int c, int64_t i) { return c == 0 ? float(i) : -float(i); });
}

RenderSource makeSource(AudioDataPtr audio, float gain = 1.0f) {
    return RenderSource(AudioDataContent::make(std::move(audio)), std::make_shared<GainBox>(gain),
                        std::make_shared<EffectInsert>());
}

} // namespace

TEST(RenderSource, RendersSilenceUntilStartedThenEachChannelFromTheGivenFrame) {
    auto source = makeSource(countingContent(1000));
    Block block(64);
    EXPECT_FALSE(source.render(64, block.buffers(), 2, 0));
    EXPECT_EQ(block.left, std::vector<float>(64, 0.0f));
    source.start({0, 1000}, 100, false);
    EXPECT_FALSE(source.render(64, block.buffers(), 2, 0));
    for (int64_t k = 0; k < 64; ++k) {
        EXPECT_EQ(block.left[size_t(k)], float(100 + k));
        EXPECT_EQ(block.right[size_t(k)], -float(100 + k));
    }
    EXPECT_EQ(source.position.load(), 164);
    EXPECT_TRUE(source.playing.load());
}

TEST(RenderSource, MonoContentIsHeardOnBothChannels) {
    auto source = makeSource(makeAudio(48000, 1, 100, [](int, int64_t i) { return float(i); }));
    source.start({0, 100}, 0, false);
    Block block(32);
    source.render(32, block.buffers(), 2, 0);
    EXPECT_EQ(block.left, block.right);
    EXPECT_EQ(block.right[31], 31.0f);
}

// The stamp pairs the buffer's first frame with its time, kept only when the platform gives one.
TEST(RenderSource, SeekRequestedWhilePlayingIsAppliedAtTheNextBufferAndStamped) {
    auto source = makeSource(countingContent(100000));
    source.start({0, 100000}, 0, false);
    Block block(256);
    source.render(256, block.buffers(), 2, 0);
    EXPECT_EQ(source.rendered.load().time, 0u);
    source.render(256, block.buffers(), 2, 12345);
    EXPECT_EQ(source.rendered.load().time, 12345u);
    EXPECT_EQ(source.rendered.load().frame, 256);
    source.seek(50000);
    EXPECT_EQ(source.position.load(), 512); // nothing moves until the next buffer
    source.render(256, block.buffers(), 2, hostTimeFromSeconds(1.1));
    EXPECT_EQ(block.left[0], 50000.0f);
    EXPECT_EQ(block.left[255], 50255.0f);
    EXPECT_EQ(source.rendered.load().frame, 50000);
    EXPECT_EQ(source.seekRequest.load(), -1);
}

// Content of 1000 frames (50 for the loop past its end) counting up from 0, one buffer each.
TEST(RenderSource, PlaysItsRangeLoopingInsideOneBufferOrEndingWithSilence) {
    const struct {
        const char* name;
        int64_t frames;
        FrameRange range;
        int64_t from;
        bool loop;
        std::vector<float> heard; // then silence when the play ends
        bool ends;
    } cases[] = {
        {"loop wraps to the range start",
         1000,
         {100, 110},
         105,
         true,
         {105, 106, 107, 108, 109, 100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 100},
         false},
        {"loop end past the content wraps at its end",
         50,
         {40, 1000},
         45,
         true,
         {45, 46, 47, 48, 49, 40, 41, 42},
         false},
        {"loop starting at the end plays to the end",
         1000,
         {1000, 2000},
         996,
         true,
         {996, 997, 998, 999},
         true},
        {"loop starting past the end plays to the end",
         1000,
         {1200, 2000},
         996,
         true,
         {996, 997, 998, 999},
         true},
        {"range shorter than the buffer", 1000, {0, 300}, 296, false, {296, 297, 298, 299}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto source = makeSource(countingContent(c.frames));
        source.start(c.range, c.from, c.loop);
        Block block(64);
        EXPECT_EQ(source.render(64, block.buffers(), 2, 0), c.ends);
        const auto heard = ptrdiff_t(c.heard.size());
        EXPECT_EQ(std::vector<float>(block.left.begin(), block.left.begin() + heard), c.heard);
        if (c.ends) {
            const std::vector<float> silence(size_t(64 - heard), 0.0f);
            EXPECT_EQ(std::vector<float>(block.left.begin() + heard, block.left.end()), silence);
            EXPECT_EQ(std::vector<float>(block.right.begin() + heard, block.right.end()), silence);
            if (!c.loop) EXPECT_EQ(source.position.load(), c.range.upper);
            EXPECT_FALSE(source.render(64, block.buffers(), 2, 0)); // nothing new after the end
        }
        EXPECT_EQ(source.playing.load(), !c.ends);
    }
}

TEST(RenderSource, SeekPastTheEndEndsThePlay) {
    auto source = makeSource(countingContent(1000));
    source.start({0, 1000}, 0, false);
    source.seek(5000);
    Block block(64);
    EXPECT_TRUE(source.render(64, block.buffers(), 2, 0));
    EXPECT_FALSE(source.playing.load());
}

TEST(RenderSource, GainChangeRampsLinearlyOverOneBufferAndEndsExactlyOnTheTarget) {
    auto audio = makeAudio(48000, 2, 4096, [](int, int64_t) { return 1.0f; });
    auto source = makeSource(audio, 1.0f);
    source.start({0, 4096}, 0, false);
    Block block(512);
    source.render(512, block.buffers(), 2, 0);
    EXPECT_EQ(block.left[511], 1.0f);

    source.gain->store(0.0f);
    source.render(512, block.buffers(), 2, 0);
    EXPECT_EQ(block.left[511], 0.0f);
    EXPECT_EQ(block.right[511], 0.0f);
    float largestStep = 0;
    for (size_t k = 1; k < 512; ++k) {
        EXPECT_LE(block.left[k], block.left[k - 1]);
        largestStep = std::max(largestStep, block.left[k - 1] - block.left[k]);
    }
    EXPECT_NEAR(block.left[0], 1.0f - 1.0f / 512, 1e-6);
    EXPECT_NEAR(largestStep, 1.0f / 512, 1e-5); // a ramp, never a step
    EXPECT_EQ(source.appliedGain, 0.0f);

    source.render(512, block.buffers(), 2, 0);
    for (float x : block.left)
        EXPECT_EQ(x, 0.0f);
}

TEST(RenderSource, RenderingWithAnEffectChainAndAGainRampAllocatesNothingAndTakesNoLock) {
    auto audio = makeSine(48000, 2, 48000, 440, 0.5f);
    auto source = makeSource(audio);
    EffectChain chain;
    for (auto kind : {EffectKind::equalizer, EffectKind::compressor, EffectKind::limiter,
                      EffectKind::noiseGate})
        chain.append(EffectSession::make(kind));
    source.effect->setProcessor(chain.previewProcessor(48000, 2), 2);
    source.start({0, 48000}, 0, true);
    Block block(512);
    source.render(512, block.buffers(), 2, 1); // first touches outside the counted scope

    int64_t allocations = 0, frees = 0, locks = 0, tryLocks = 0;
    for (int i = 0; i < 200; ++i) {
        source.gain->store(i % 2 ? 0.25f : 1.0f);
        if (i == 100) source.seek(1000);
        AllocationCounter::Scope memory;
        LockCounter::Scope mutexes;
        source.render(512, block.buffers(), 2, HostTime(i + 2));
        allocations += memory.allocations();
        frees += memory.frees();
        locks += mutexes.locks();
        tryLocks += mutexes.tryLocks();
    }
    EXPECT_EQ(allocations, 0);
    EXPECT_EQ(frees, 0);
    if (!LockCounter::available) GTEST_SKIP() << "locks are not counted in this build";
    // The insert guards its slot with an atomic flag that is only ever tried, so the render
    // path makes no call into the system's locks at all.
    EXPECT_EQ(locks, 0);
    EXPECT_EQ(tryLocks, 0);
}

TEST(PlayheadStamp, AReaderNeverPairsOneBuffersFrameWithAnothersTime) {
    PlayheadStamp stamp;
    std::atomic<bool> reading{false}, done{false};
    // The writer waits for the reader, so that on a loaded machine the two still overlap.
    std::thread writer([&] {
        while (!reading)
            std::this_thread::yield();
        for (int64_t i = 1; i <= 2'000'000; ++i)
            stamp.store(i, HostTime(i) * 1000);
        done = true;
    });
    int64_t reads = 0, torn = 0, last = 0, backwards = 0;
    reading = true;
    do {
        const auto [frame, time] = stamp.load();
        torn += time != HostTime(frame) * 1000;
        backwards += frame < last;
        last = frame;
        ++reads;
    } while (!done);
    writer.join();
    EXPECT_GT(reads, 0);
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(backwards, 0);
    EXPECT_EQ(stamp.load().frame, 2'000'000);
}
