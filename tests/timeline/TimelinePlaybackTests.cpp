#include "engine/PlaybackEngine.h"
#include "engine/RenderSource.h"
#include "support/AllocationCounter.h"
#include "support/ModelTestAudio.h"
#include "support/PlaybackTestAudio.h"
#include "timeline/Timeline.h"

#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;
using sonvale::test::AllocationCounter;
using sonvale::test::ManualOutput;
using sonvale::test::peakOf;

// The engine plays the timeline as it plays a track: from the frame it was started at, what
// the mixer renders, with an edit heard from the next buffer on; a buffer that meets a
// snapshot being swapped is silent; nothing allocates on the output thread.
TEST(TimelinePlayback, TheEnginePlaysTheMixAndHearsEditsAtOnce) {
    auto timeline = Timeline::create(48000);
    const Uuid lane = timeline->addLane("Voice").id;
    TimelineClip clip{Uuid::random(), "Noise", makeNoise(48000, 2, 48000), 0, 48000, 0, 0, 0,
                      std::nullopt};
    timeline->insertCopy(clip, lane, 0, "Paste Clip");

    auto manual = std::make_unique<ManualOutput>();
    ManualOutput* output = manual.get();
    PlaybackEngine engine(std::move(manual));
    auto source = engine.prepare(timeline->playback(), nullptr);
    source->start({0, timeline->frameCount()}, 4800, false);
    engine.start();

    std::vector<float> left(512), right(512);
    float* buffers[2] = {left.data(), right.data()};
    int64_t allocations = 0;
    auto pull = [&](double seconds) {
        AllocationCounter::Scope scope;
        output->pullInto(buffers, 2, 512, hostTimeFromSeconds(seconds));
        allocations += scope.allocations() + scope.frees();
    };
    // What the mixer renders on its own for [from, from + 512).
    auto expected = [&](int64_t from) {
        TimelineMixer::Scratch scratch(512);
        std::vector<float> l(512), r(512);
        TimelineMixer::renderBlock(*timeline->snapshot(), from, from + 512, l.data(), r.data(),
                                   scratch);
        return std::pair{l, r};
    };

    pull(1.0);
    auto [l0, r0] = expected(4800);
    EXPECT_EQ(left, l0);
    EXPECT_EQ(right, r0);

    timeline->setLaneGain(lane, -12); // heard from the next buffer
    pull(1.0 + 512 / 48000.0);
    auto [l1, r1] = expected(4800 + 512);
    EXPECT_EQ(left, l1);
    EXPECT_EQ(right, r1);

    timeline->playback()->holdSlotForTesting(true);
    pull(1.0 + 1024 / 48000.0);
    timeline->playback()->holdSlotForTesting(false);
    EXPECT_EQ(peakOf(left), 0.0f);
    EXPECT_EQ(peakOf(right), 0.0f);
    EXPECT_EQ(allocations, 0);
}
