#include "engine/LevelMeters.h"

#include "engine/LevelMeter.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"

#include <gtest/gtest.h>

#include <vector>

using namespace sonvale;
using namespace sonvale::test;
using Slot = LevelMeters::Slot;

namespace {

// Records a block of `count` frames whose largest samples are `left` and `right`, then
// advances the mix as the mixer does after the master.
void mixBlock(LevelMeters& meters, Slot slot, float left, float right, int64_t count = 512) {
    std::vector<float> l(size_t(count), 0.0f), r(size_t(count), 0.0f);
    l[size_t(count / 2)] = -left; // magnitudes count, whatever the sign
    r[3] = right;
    meters.record(slot, l.data(), r.data(), count);
    meters.advanceMixed(count);
}

} // namespace

TEST(LevelMeters, SlotsMapLanesBusesAndMasterAndLeaveTheRestUnmetered) {
    EXPECT_EQ(Slot::lane(0).index(), 0);
    EXPECT_EQ(Slot::lane(63).index(), 63);
    EXPECT_EQ(Slot::lane(64).index(), std::nullopt);
    EXPECT_EQ(Slot::bus(0).index(), 64);
    EXPECT_EQ(Slot::bus(15).index(), 79);
    EXPECT_EQ(Slot::bus(16).index(), std::nullopt);
    EXPECT_EQ(Slot::master().index(), 80);
}

TEST(LevelMeters, SilentBlockWritesNothing) {
    LevelMeters meters;
    mixBlock(meters, Slot::master(), 0, 0);
    EXPECT_EQ(meters.writtenCount(Slot::master()), 0);
    EXPECT_EQ(meters.take(Slot::master(), 1'000'000), (LevelMeters::Peaks{0, 0}));
    EXPECT_EQ(meters.mixedFrames(), 512);
}

TEST(LevelMeters, Lane64AndBus16AreNotMeteredButTheMasterAlwaysIs) {
    LevelMeters meters;
    std::vector<float> block(64, 0.5f);
    meters.record(Slot::lane(64), block.data(), block.data(), 64);
    meters.record(Slot::bus(16), block.data(), block.data(), 64);
    meters.record(Slot::master(), block.data(), block.data(), 64);
    EXPECT_EQ(meters.writtenCount(Slot::lane(64)), 0);
    EXPECT_EQ(meters.writtenCount(Slot::bus(16)), 0);
    EXPECT_EQ(meters.writtenCount(Slot::master()), 1);
    EXPECT_EQ(meters.take(Slot::lane(64), 1000), (LevelMeters::Peaks{0, 0}));
}

TEST(LevelMeters, TakeReturnsTheLargestPeaksHeardByTheFrameAndConsumesThem) {
    LevelMeters meters;
    mixBlock(meters, Slot::lane(3), 0.2f, 0.1f); // ends at 512
    mixBlock(meters, Slot::lane(3), 0.6f, 0.3f); // ends at 1024
    mixBlock(meters, Slot::lane(3), 0.9f, 0.9f); // ends at 1536
    // Only the first two blocks have reached the listener by frame 1100.
    EXPECT_EQ(meters.take(Slot::lane(3), 1100), (LevelMeters::Peaks{0.6f, 0.3f}));
    EXPECT_EQ(meters.take(Slot::lane(3), 1100), (LevelMeters::Peaks{0, 0}));
    EXPECT_EQ(meters.take(Slot::lane(3), 1536), (LevelMeters::Peaks{0.9f, 0.9f}));
}

TEST(LevelMeters, AllSlotsOfOneBlockShareTheStamp) {
    LevelMeters meters;
    std::vector<float> block(256, 0.25f);
    meters.record(Slot::lane(0), block.data(), block.data(), 256);
    meters.record(Slot::bus(2), block.data(), block.data(), 256);
    meters.record(Slot::master(), block.data(), block.data(), 256);
    meters.advanceMixed(256);
    for (auto slot : {Slot::lane(0), Slot::bus(2), Slot::master()}) {
        EXPECT_EQ(meters.take(slot, 255), (LevelMeters::Peaks{0, 0}));
        EXPECT_EQ(meters.take(slot, 256), (LevelMeters::Peaks{0.25f, 0.25f}));
    }
}

TEST(LevelMeters, CollectingReadersDoNotConsumeForEachOther) {
    LevelMeters meters;
    LevelMeters::Reader first, second;
    meters.collect(Slot::master(), first, 0); // both readers start before the audio
    meters.collect(Slot::master(), second, 0);
    mixBlock(meters, Slot::master(), 0.5f, 0.4f);
    EXPECT_EQ(meters.collect(Slot::master(), first, 512), (LevelMeters::Peaks{0.5f, 0.4f}));
    EXPECT_EQ(meters.collect(Slot::master(), second, 512), (LevelMeters::Peaks{0.5f, 0.4f}));
    EXPECT_EQ(meters.collect(Slot::master(), first, 512), (LevelMeters::Peaks{0, 0}));
    EXPECT_EQ(meters.take(Slot::master(), 512), (LevelMeters::Peaks{0.5f, 0.4f}));
}

TEST(LevelMeters, EntriesWrittenBeforeAClearAreNeverShown) {
    LevelMeters meters;
    LevelMeters::Reader reader;
    meters.collect(Slot::master(), reader, 0);
    mixBlock(meters, Slot::master(), 0.7f, 0.7f);
    meters.clear();
    EXPECT_EQ(meters.mixedFrames(), 0);
    EXPECT_EQ(meters.take(Slot::master(), 1'000'000), (LevelMeters::Peaks{0, 0}));
    EXPECT_EQ(meters.collect(Slot::master(), reader, 1'000'000), (LevelMeters::Peaks{0, 0}));
    mixBlock(meters, Slot::master(), 0.1f, 0.2f);
    EXPECT_EQ(meters.collect(Slot::master(), reader, 512), (LevelMeters::Peaks{0.1f, 0.2f}));
}

TEST(LevelMeters, AReaderMoreThanARingBehindLosesTheOldestEntries) {
    LevelMeters meters;
    mixBlock(meters, Slot::lane(1), 0.99f, 0.99f, 16); // will be overwritten
    for (int i = 0; i < LevelMeters::ringSize; ++i)
        mixBlock(meters, Slot::lane(1), 0.5f, 0.5f, 16);
    EXPECT_EQ(meters.take(Slot::lane(1), 1'000'000), (LevelMeters::Peaks{0.5f, 0.5f}));
}

TEST(LevelMeters, RecordingAllocatesNothingAndTakesNoLock) {
    LevelMeters meters;
    std::vector<float> left(512, 0.3f), right(512, -0.6f);
    AllocationCounter::Scope memory;
    LockCounter::Scope mutexes;
    for (int i = 0; i < 2000; ++i) {
        meters.record(Slot::lane(i % 64), left.data(), right.data(), 512);
        meters.record(Slot::master(), left.data(), right.data(), 512);
        meters.advanceMixed(512);
    }
    EXPECT_EQ(memory.allocations(), 0);
    if (!LockCounter::available) GTEST_SKIP() << "locks are not counted in this build";
    EXPECT_EQ(mutexes.locks() + mutexes.tryLocks(), 0);
}

TEST(LevelMeters, HeardOutputPeaksWaitForTheLatency) {
    LevelMeters meters;
    OutputPeakReader reader;
    EXPECT_EQ(heardOutputPeaks(reader, meters, 1000), std::nullopt);
    mixBlock(meters, Slot::master(), 0.4f, 0.8f);   // ends at 512
    mixBlock(meters, Slot::master(), 0.05f, 0.05f); // ends at 1024
    // mixed 1024 - latency 400: only the first block is heard.
    auto heard = heardOutputPeaks(reader, meters, 400);
    ASSERT_TRUE(heard);
    EXPECT_EQ(*heard, (LevelMeters::Peaks{0.4f, 0.8f}));
    EXPECT_EQ(reader.lastFrame, 624);
    mixBlock(meters, Slot::master(), 0, 0); // silence: mixed 1536
    heard = heardOutputPeaks(reader, meters, 400);
    ASSERT_TRUE(heard);
    EXPECT_EQ(*heard, (LevelMeters::Peaks{0.05f, 0.05f}));
    EXPECT_EQ(heardOutputPeaks(reader, meters, 400), std::nullopt);
}
