#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "effects/EffectProcessor.h"
#include "support/AllocationCounter.h"
#include "support/ModelTestAudio.h"
#include "timeline/Timeline.h"
#include "timeline/TimelineMixer.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

using namespace sonvale;
using namespace sonvale::test;
using sonvale::test::AllocationCounter;
using sonvale::test::TemporaryFolder;

namespace {

using Snapshot = TimelineMixer::Snapshot;

// A stereo clip of constant samples (0.8 left, 0.4 right) over timeline frames [start, start +
// frames).
TimelineClip constantClip(int64_t start, int64_t frames, int channels = 2) {
    std::vector<std::vector<float>> samples;
    for (int c = 0; c < channels; ++c)
        samples.emplace_back(size_t(frames), c == 0 ? 0.8f : c == 1 ? 0.4f : 0.3f);
    TimelineClip clip;
    clip.audio = makeAudio(48000, samples);
    clip.length = frames;
    clip.start = start;
    return clip;
}

struct Rendered {
    std::vector<float> left, right;
};

// Renders [from, to) in blocks of `block` frames.
Rendered render(const Snapshot& snapshot, int64_t from, int64_t to, int64_t block = 512) {
    TimelineMixer::Scratch scratch(block);
    Rendered out{std::vector<float>(size_t(to - from)), std::vector<float>(size_t(to - from))};
    for (int64_t at = from; at < to; at += block) {
        const int64_t end = std::min(to, at + block);
        TimelineMixer::renderBlock(snapshot, at, end, out.left.data() + (at - from),
                                   out.right.data() + (at - from), scratch);
    }
    return out;
}

// Multiplies every sample by `factor`, as a bus or master effect.
struct Scale final : EffectProcessor {
    explicit Scale(float factor)
        : factor(factor) {}
    void process(float* const* channels, int64_t frames) noexcept override {
        for (int c = 0; c < 2; ++c)
            for (int64_t i = 0; i < frames; ++i)
                channels[c][i] *= factor;
    }
    void reset() noexcept override {}
    float factor;
};

std::shared_ptr<EffectInsert> scalingInsert(float factor) {
    auto insert = std::make_shared<EffectInsert>();
    insert->setProcessor(std::make_unique<Scale>(factor), 2);
    return insert;
}

} // namespace

// The linear balance law: the centre plays both sides at unity, panning lowers only the other
// side, beyond the ends it stays at the end, and a pan that is not a number is the centre.
TEST(TimelineMixer, PanLawAndChannelsOfMonoAndMultichannelClips) {
    struct Case {
        float pan, left, right;
    } cases[] = {{-3, 1, 0},  {-1, 1, 0},      {-0.25f, 1, 0.75f}, {0, 1, 1},
                 {NAN, 1, 1}, {0.5f, 0.5f, 1}, {1, 0, 1},          {2, 0, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE("pan " + std::to_string(c.pan));
        std::vector<float> left(10), right(10);
        TimelineMixer::add({constantClip(0, 10)}, 0, 10, left.data(), right.data(), INT64_MAX, 0,
                           c.pan);
        EXPECT_FLOAT_EQ(left[5], 0.8f * c.left);
        EXPECT_FLOAT_EQ(right[5], 0.4f * c.right);
    }
    // A mono clip feeds both sides; of four channels only the first two play; +6 dB of gain.
    for (int channels : {1, 4}) {
        std::vector<float> left(10), right(10);
        TimelineMixer::add({constantClip(0, 10, channels)}, 0, 10, left.data(), right.data(),
                           INT64_MAX, 6, 0);
        const float gain = std::pow(10.0f, 6 / 20.0f);
        EXPECT_FLOAT_EQ(left[3], gain * 0.8f);
        EXPECT_FLOAT_EQ(right[3], gain * (channels == 1 ? 0.8f : 0.4f));
    }
}

// Quarter-sine fades in single precision with the fixed pi/2: the first frame of a fade-in is
// silent, the last frame of a one-frame fade-out is at full level, the middle is untouched,
// and rendering in odd-sized blocks changes nothing.
TEST(TimelineMixer, FadesAreQuarterSinesAtTheirEdgesAndTheMiddleIsUntouched) {
    const float halfPi = std::bit_cast<float>(0x3FC90FDAu);
    auto clip = constantClip(100, 1000);
    clip.fadeIn = 300;
    clip.fadeOut = 1;
    Snapshot snapshot;
    snapshot.lanes.push_back({{clip}, 0, 0, std::nullopt, std::nullopt});
    const auto whole = render(snapshot, 0, 1200, 1200);
    const auto blocks = render(snapshot, 0, 1200, 37);
    EXPECT_EQ(whole.left, blocks.left);
    EXPECT_EQ(whole.right, blocks.right);
    EXPECT_EQ(whole.left[99], 0.0f);
    EXPECT_EQ(whole.left[100], 0.0f); // q = 0
    for (int q : {1, 150, 299})
        EXPECT_EQ(whole.left[size_t(100 + q)], std::sin(float(q) * halfPi / 300.0f) * 0.8f);
    EXPECT_EQ(whole.left[500], 0.8f);
    EXPECT_EQ(whole.left[1099], std::sin(halfPi / 1.0f) * 0.8f); // r = 1
    EXPECT_EQ(whole.left[1100], 0.0f);
}

// Direct lanes, a bus with its effect and gain, a muted bus, the master effect and master
// gain, against the sum worked out by hand; the meters see each lane at its own slot.
TEST(TimelineMixer, RenderBlockSumsLanesBusesAndMasterInOrder) {
    auto meters = std::make_shared<LevelMeters>();
    Snapshot snapshot;
    snapshot.meters = meters;
    snapshot.lanes = {
        {{constantClip(0, 100)}, 0, -1, std::nullopt, 1}, // direct, left only
        {{constantClip(0, 100)}, 0, 1, 0, 3},             // into bus 0, right only
        {{constantClip(0, 100)}, 0, 0, 1, 4},             // into the muted bus
    };
    snapshot.buses = {{-6, false, scalingInsert(0.5f)}, {0, true, scalingInsert(4)}};
    snapshot.master = scalingInsert(2);
    snapshot.masterGainDB = 20;
    const auto out = render(snapshot, 0, 100);
    const float busGain = std::pow(10.0f, -6 / 20.0f);
    EXPECT_FLOAT_EQ(out.left[50], (0.8f) * 2 * 10);
    EXPECT_FLOAT_EQ(out.right[50], (0.4f * 0.5f * busGain) * 2 * 10);

    meters->advanceMixed(0);
    auto taken = [&](LevelMeters::Slot slot) { return meters->take(slot, INT64_MAX); };
    EXPECT_FLOAT_EQ(taken(LevelMeters::Slot::lane(1)).left, 0.8f);
    EXPECT_FLOAT_EQ(taken(LevelMeters::Slot::lane(3)).right, 0.4f);
    EXPECT_EQ(meters->writtenCount(LevelMeters::Slot::lane(4)), 0); // the muted bus did no work
    EXPECT_FLOAT_EQ(taken(LevelMeters::Slot::bus(0)).right, 0.4f * 0.5f * busGain);
    EXPECT_FLOAT_EQ(taken(LevelMeters::Slot::master()).left, 16);
    EXPECT_EQ(meters->mixedFrames(), 100);

    // A bypassed insert passes the bus through dry; master gain of exactly 0 dB leaves the sum
    // bit for bit as it was.
    snapshot.buses[0].effects->setBypassed(true);
    snapshot.master.reset();
    snapshot.masterGainDB = 0;
    snapshot.meters.reset();
    const auto dry = render(snapshot, 0, 100);
    EXPECT_EQ(dry.left[50], 0.8f);
    EXPECT_EQ(dry.right[50], 0.4f * busGain);
}

// Rendering with buses, lane meters, chains of real effects and fades allocates nothing.
TEST(TimelineMixer, RenderingAllocatesNothing) {
    auto timeline = Timeline::create(48000);
    const auto bus = timeline->addBus();
    for (int i = 0; i < 3; ++i) {
        const auto lane = timeline->addLane("Lane " + std::to_string(i));
        TimelineClip clip{Uuid::random(),
                          "Noise",
                          makeNoise(48000, 2, 48000, uint32_t(i + 1)),
                          0,
                          48000,
                          0,
                          4800,
                          4800,
                          std::nullopt};
        timeline->insertCopy(clip, lane.id, 1000 * i, "Paste Clip");
        if (i > 0) timeline->setOutput(lane.id, bus.id);
    }
    for (auto channel : {MixerChannel::forBus(bus.id), MixerChannel::master()}) {
        auto chain = timeline->chain(channel);
        for (auto kind : {EffectKind::reverb, EffectKind::compressor, EffectKind::limiter})
            chain->append(EffectSession::make(kind));
    }
    const auto snapshot = timeline->snapshot();
    ASSERT_TRUE(snapshot->master && snapshot->buses[0].effects);
    TimelineMixer::Scratch scratch(512);
    std::vector<float> left(512), right(512);
    AllocationCounter::Scope scope;
    for (int64_t at = 0; at < 48000; at += 512)
        TimelineMixer::renderBlock(*snapshot, at, at + 512, left.data(), right.data(), scratch);
    EXPECT_EQ(scope.allocations() + scope.frees(), 0);
}

// A selection mixdown stops every clip at the selection's end but goes on for the effects'
// tail, and writes what renderBlock renders; an empty timeline writes nothing.
TEST(TimelineMixer, SelectionMixdownKeepsTheTailAndMatchesTheRender) {
    TemporaryFolder folder;
    auto timeline = Timeline::create(48000);
    const auto lane = timeline->addLane("Voice");
    TimelineClip clip{Uuid::random(), "Noise", makeNoise(48000, 1, 96000), 0, 96000, 0, 0, 0,
                      std::nullopt};
    timeline->insertCopy(clip, lane.id, 0, "Paste Clip");
    EXPECT_THROW(
        TimelineMixer::writeMixdown(*Timeline::create()->mixdownSnapshot(), folder / "empty.wav"),
        AudioLoaderError);
    EXPECT_FALSE(std::filesystem::exists(folder / "empty.wav"));

    timeline->chain(MixerChannel::master())->append(EffectSession::make(EffectKind::delay));
    const auto snapshot = timeline->mixdownSnapshot(std::pair<int64_t, int64_t>{24000, 48000});
    ASSERT_GT(snapshot->frameCount, 24000); // the delay's tail
    std::vector<double> progress;
    TimelineMixer::writeMixdown(*snapshot, folder / "mix.wav",
                                [&](double p) { progress.push_back(p); });
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), 1.0);
    const auto written = AudioLoader::load(folder / "mix.wav");
    ASSERT_EQ(written->frameCount, snapshot->frameCount);
    ASSERT_EQ(written->channelCount(), 2);

    // The same render through a fresh offline snapshot, with no effects: the dry clip stops at
    // the cut-off, and the file's first frames hold the delay's dry part of the selection.
    auto dry = *snapshot;
    dry.master.reset();
    const auto plain = render(dry, 24000, 24000 + snapshot->frameCount);
    EXPECT_EQ(plain.left[24000 - 1], clip.audio->samples(0)[47999]);
    EXPECT_EQ(plain.left[24000], 0.0f);
    EXPECT_GT(std::fabs(written->samples(0)[24000 + 100]), 0.0f); // the tail rings on
}

namespace {

// A file decoded from its start, as a streamed mixdown reads it.
class DecodedFile final : public TimelineMixer::Stream {
public:
    explicit DecodedFile(const std::filesystem::path& path)
        : decoder(openAudioDecoder(path)) {}
    int channelCount() const override { return decoder->info().channels; }
    int64_t read(float* const* channels, int64_t maxFrames) override {
        return decoder->read(channels, maxFrames);
    }

private:
    std::unique_ptr<AudioDecoder> decoder;
};

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

// Two 25-second files that sox made, decoded as the mix reaches them, write the same file to
// the bit as their decoded audio does: clips that skip the start of a file, play the same file
// twice at once, play an earlier part of it after a later one and run past its end, through a
// bus and a master with effects, whole and as a selection.
TEST(TimelineMixer, StreamedMixdownWritesWhatDecodedAudioWrites) {
    TemporaryFolder folder;
    const auto noise = folder / "noise.wav", tones = folder / "tones.flac";
    ASSERT_EQ(std::system(("sox -n -r 48000 -c 1 -b 16 '" + noise.string() +
                           "' synth 25 whitenoise gain -12")
                              .c_str()),
              0);
    ASSERT_EQ(std::system(("sox -n -r 48000 -c 2 -b 24 '" + tones.string() +
                           "' synth 25 sine 300 sine 500 gain -6")
                              .c_str()),
              0);
    const auto a = AudioLoader::load(noise), b = AudioLoader::load(tones);
    const int64_t s = 48000;

    auto timeline = Timeline::create(48000);
    const auto bus = timeline->addBus();
    std::vector<Uuid> lanes;
    for (int i = 0; i < 3; ++i)
        lanes.push_back(timeline->addLane("Lane " + std::to_string(i)).id);
    timeline->setLaneGain(lanes[0], -2);
    timeline->setLanePan(lanes[0], -0.3f);
    timeline->setLanePan(lanes[1], 0.4f);
    timeline->setOutput(lanes[1], bus.id);
    struct Placed {
        size_t lane;
        AudioDataPtr audio;
        int64_t sourceStart, length, start, fadeIn, fadeOut;
    } placed[] = {
        {0, a, 10 * s, 12 * s, 0, s, 0},               // from the middle of the file
        {0, a, s, 6 * s, 13 * s, 0, 0},                // then an earlier part of it
        {1, b, 3 * s, 15 * s, 2 * s, 0, 2 * s},        // skips the file's first seconds
        {2, b, 5 * s, 4 * s, 9 * s / 2, s / 2, s / 2}, // the same file, elsewhere, meanwhile
        {2, a, 20 * s, 10 * s, 15 * s, 0, 0},          // the last 5 s of the file, then nothing
    };
    for (const auto& p : placed)
        timeline->insertCopy({Uuid::random(), "Clip", p.audio, p.sourceStart, p.length, 0, p.fadeIn,
                              p.fadeOut, std::nullopt},
                             lanes[p.lane], p.start, "Paste Clip");
    timeline->chain(MixerChannel::forBus(bus.id))
        ->append(EffectSession::make(EffectKind::compressor));
    timeline->chain(MixerChannel::master())->append(EffectSession::make(EffectKind::delay));

    // What the clips hold while they are streamed: the files' rate and channels, no samples.
    std::map<AudioDataPtr, std::pair<AudioDataPtr, std::filesystem::path>> standIns;
    for (const auto& [audio, path] : {std::pair{a, noise}, std::pair{b, tones}})
        standIns[audio] = {AudioLoader::makeAudioDataForPlaying(
                               48000, std::vector<FloatBuffer>(size_t(audio->channelCount())), 0),
                           path};

    const std::optional<std::pair<int64_t, int64_t>> ranges[] = {
        std::nullopt, std::pair<int64_t, int64_t>{3 * s, 17 * s}};
    for (const auto& range : ranges) {
        SCOPED_TRACE(range ? "selection" : "whole");
        // Each mixdown runs effects of its own, from their start.
        TimelineMixer::writeMixdown(*timeline->mixdownSnapshot(range), folder / "decoded.wav");
        auto streamed =
            std::make_shared<TimelineMixer::Snapshot>(*timeline->mixdownSnapshot(range));
        for (auto& lane : streamed->lanes)
            for (auto& clip : lane.clips)
                clip.audio = standIns.at(clip.audio).first;
        int opened = 0;
        std::vector<double> progress;
        TimelineMixer::writeMixdown(
            *streamed, folder / "streamed.wav", [&](double p) { progress.push_back(p); },
            [&](const AudioDataPtr& audio) -> std::unique_ptr<TimelineMixer::Stream> {
                for (const auto& [loaded, standIn] : standIns)
                    if (standIn.first == audio) {
                        ++opened;
                        return std::make_unique<DecodedFile>(standIn.second);
                    }
                return nullptr;
            });
        EXPECT_EQ(opened, 2); // each file once
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.back(), 1.0);
        const auto expected = bytesOf(folder / "decoded.wav");
        ASSERT_GT(expected.size(), size_t(14 * s * 8));
        EXPECT_TRUE(bytesOf(folder / "streamed.wav") == expected);
    }
}
