#include "audio/AudioData.h"
#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>

using namespace sonvale;

namespace {

AudioDataPtr audioOf(const std::vector<std::vector<float>>& channels, double rate = 48000) {
    return test::makeAudio(rate, channels);
}

std::vector<float> noiseSamples(size_t n, unsigned seed, float scale = 1.0f) {
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> dist(-scale, scale);
    std::vector<float> out(n);
    for (auto& s : out)
        s = dist(engine);
    return out;
}

std::vector<float> ramp(size_t n) {
    std::vector<float> out(n);
    for (size_t i = 0; i < n; ++i)
        out[i] = float(i);
    return out;
}

// The smallest and largest of samples [from, to) and the sum of their squares.
struct Summary {
    float min = INFINITY, max = -INFINITY;
    double energy = 0;
};
Summary summarise(const std::vector<float>& samples, size_t from, size_t to) {
    Summary summary;
    for (size_t i = from; i < to; ++i) {
        summary.min = std::min(summary.min, samples[i]);
        summary.max = std::max(summary.max, samples[i]);
        summary.energy += double(samples[i]) * samples[i];
    }
    return summary;
}

std::vector<float> samplesOf(const AudioData& audio, int channel) {
    auto span = audio.channels[size_t(channel)]->samples();
    return {span.begin(), span.end()};
}

// Two level pyramids hold the same summaries, bit for bit.
void expectSameLevels(const std::vector<PeakLevel>& levels, const std::vector<PeakLevel>& fresh,
                      const std::string& where) {
    ASSERT_EQ(levels.size(), fresh.size()) << where;
    for (size_t l = 0; l < fresh.size(); ++l) {
        ASSERT_EQ(levels[l].blockSize, fresh[l].blockSize) << where << " level " << l;
        ASSERT_EQ(levels[l].count, fresh[l].count) << where << " level " << l;
        ASSERT_EQ(std::memcmp(levels[l].buffer.data(), fresh[l].buffer.data(),
                              size_t(fresh[l].count) * 2 * sizeof(float)),
                  0)
            << where << " level " << l;
        ASSERT_EQ(std::memcmp(levels[l].energy.data(), fresh[l].energy.data(),
                              size_t(fresh[l].count) * sizeof(float)),
                  0)
            << where << " level " << l;
    }
}

// Samples and every level of `audio` are exactly those of `expected` built afresh.
void expectFreshBuildOf(const AudioData& audio, const std::vector<std::vector<float>>& expected,
                        const std::string& where) {
    ASSERT_EQ(audio.frameCount, int64_t(expected[0].size())) << where;
    float peak = 0;
    for (size_t c = 0; c < expected.size(); ++c) {
        ASSERT_EQ(samplesOf(audio, int(c)), expected[c]) << where << " channel " << c;
        for (float s : expected[c])
            peak = std::max(peak, std::fabs(s));
        expectSameLevels(audio.channels[c]->levels(),
                         AudioLoader::buildLevels(expected[c].data(), int64_t(expected[c].size())),
                         where + " channel " + std::to_string(c));
    }
    EXPECT_EQ(audio.peak, peak) << where;
}

} // namespace

TEST(AudioData, SixteenSamplesHaveNoLevelsAndThePeakComesFromTheSamples) {
    auto audio = audioOf({{0.1f, -0.7f, 0.2f, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0.3f}});
    EXPECT_TRUE(audio->channels[0]->levels().empty());
    EXPECT_FLOAT_EQ(audio->peak, 0.7f);
}

// Levels of 16, 64, 256... samples a block, up to the first that has a single block; the
// lengths are not multiples of any block size, so every level ends with a short block.
TEST(AudioData, EveryLevelSummarisesExactlyItsBlocks) {
    for (const size_t n : {size_t(17), size_t(100003)}) {
        SCOPED_TRACE(n);
        const auto samples = noiseSamples(n, 7);
        auto audio = audioOf({samples});
        const auto& levels = audio->channels[0]->levels();
        ASSERT_FALSE(levels.empty());
        EXPECT_EQ(levels.back().count, 1);
        EXPECT_TRUE(levels.size() == 1 || levels[levels.size() - 2].count > 1);
        int64_t expectedBlock = 16;
        for (const auto& level : levels) {
            ASSERT_EQ(level.blockSize, expectedBlock);
            ASSERT_EQ(level.count, (int64_t(n) + expectedBlock - 1) / expectedBlock);
            for (int64_t b = 0; b < level.count; ++b) {
                const auto expected = summarise(samples, size_t(b * level.blockSize),
                                                std::min(n, size_t((b + 1) * level.blockSize)));
                ASSERT_EQ(level.minimum(b), expected.min) << "level " << expectedBlock << " " << b;
                ASSERT_EQ(level.maximum(b), expected.max);
                ASSERT_NEAR(level.energy[b], expected.energy,
                            1e-4 * std::max(1.0, expected.energy));
            }
            expectedBlock *= 4;
        }
    }
}

// Long channels are summarised in parts on several threads; the parts must meet exactly.
TEST(AudioData, LevelsBuiltInPartsEqualLevelsBuiltFromAWholeLevelZero) {
    const int64_t n = (int64_t(1) << 24) + 12345;
    const auto samples = noiseSamples(size_t(n), 11);
    const auto whole = AudioLoader::buildLevels(samples.data(), n);

    PeakLevel zero;
    zero.blockSize = 16;
    zero.count = (n + 15) / 16;
    zero.buffer = FloatBuffer(2 * zero.count);
    zero.energy = FloatBuffer(zero.count);
    AudioLoader::summariseLevelZero(samples.data(), n, zero.buffer.data(), zero.energy.data());
    const auto reference = AudioLoader::buildLevels(std::move(zero));

    expectSameLevels(whole, reference, "built in parts");
}

TEST(AudioData, PeakIsTheLargestMagnitudeOverAllChannels) {
    auto left = noiseSamples(5000, 1, 0.5f);
    auto right = noiseSamples(5000, 2, 0.5f);
    right[4321] = -0.93f;
    auto audio = audioOf({left, right});
    EXPECT_FLOAT_EQ(audio->peak, 0.93f);
    EXPECT_EQ(audioOf({})->peak, 0.0f);
}

TEST(AudioData, WaveColumnsAreEmptyForNoColumnsOrARangeOutsideTheAudio) {
    auto audio = audioOf({noiseSamples(1000, 3)});
    EXPECT_TRUE(audio->waveColumns({0, 1000}, 0).empty());
    EXPECT_TRUE(audio->waveColumns({1000, 2000}, 10).empty());
    EXPECT_TRUE(audio->waveColumns({-50, 0}, 10).empty());
    EXPECT_EQ(audio->waveColumns({-50, 5000}, 10).size(), 10u);
}

TEST(AudioData, ZoomedInColumnsReadRawSamples) {
    const auto samples = noiseSamples(4000, 4);
    auto audio = audioOf({samples});
    // 8 samples per column: finer than any level.
    auto columns = audio->waveColumns({800, 880}, 10);
    ASSERT_EQ(columns.size(), 10u);
    for (size_t c = 0; c < 10; ++c) {
        const auto expected = summarise(samples, 800 + 8 * c, 808 + 8 * c);
        EXPECT_EQ(columns[c].min, expected.min);
        EXPECT_EQ(columns[c].max, expected.max);
        EXPECT_NEAR(columns[c].rms, std::sqrt(expected.energy / 8), 1e-5);
    }
}

TEST(AudioData, ZoomedOutColumnsMergeWholeBlocksOfTheCoarsestFittingLevel) {
    // A ramp makes min and max tell exactly which samples a column summarised.
    auto audio = audioOf({ramp(100000)});
    auto columns = audio->waveColumns({0, 100000}, 100); // 1000 per column -> level of 256
    ASSERT_EQ(columns.size(), 100u);
    for (int c = 0; c < 100; ++c) {
        const int64_t start = 1000 * c, end = 1000 * (c + 1);
        EXPECT_EQ(columns[size_t(c)].min, float(start / 256 * 256));
        EXPECT_EQ(columns[size_t(c)].max,
                  float(std::min<int64_t>(100000, (end - 1) / 256 * 256 + 256) - 1));
    }
}

TEST(AudioData, OnlyTheFirstTwoChannelsAreDrawn) {
    std::vector<std::vector<float>> channels(5, std::vector<float>(2000, 0.0f));
    channels[0][10] = 0.2f;
    channels[1][20] = -0.3f;
    channels[2][30] = 0.9f;
    channels[4][40] = -0.9f;
    auto columns = audioOf(channels)->waveColumns({0, 2000}, 1);
    ASSERT_EQ(columns.size(), 1u);
    EXPECT_FLOAT_EQ(columns[0].max, 0.2f);
    EXPECT_FLOAT_EQ(columns[0].min, -0.3f);
}

// Replacing reuses the head's summaries and summarises the rest as it copies; whatever the
// range and the clip, the result must be what building it from scratch gives, bit for bit.
TEST(AudioData, ReplacingGivesTheSamplesAndLevelsOfAFreshBuild) {
    const int64_t n = 200003;
    auto audio = audioOf({noiseSamples(size_t(n), 3), noiseSamples(size_t(n), 4)});
    std::mt19937 random(9);
    for (int round = 0; round < 12; ++round) {
        const int64_t lower = std::uniform_int_distribution<int64_t>(0, n)(random);
        const int64_t upper =
            std::uniform_int_distribution<int64_t>(lower, std::min(n, lower + 90000))(random);
        const size_t length = size_t(std::uniform_int_distribution<int>(0, 70000)(random));
        AudioClip clip{48000,
                       {noiseSamples(length, 10 + unsigned(round)),
                        noiseSamples(length / 2, 30 + unsigned(round))}};
        if (length == 0) clip.channels.clear();
        if (n - (upper - lower) + int64_t(length) < 1) continue;
        auto result = audio->replacing({lower, upper}, clip);

        std::vector<std::vector<float>> expected;
        for (int c = 0; c < 2; ++c) {
            const auto old = samplesOf(*audio, c);
            auto& e = expected.emplace_back(old.begin(), old.begin() + lower);
            if (length > 0) {
                const auto& inserted = clip.channels[size_t(c)];
                e.insert(e.end(), inserted.begin(), inserted.end());
                e.resize(size_t(lower) + length, 0.0f); // a short channel is padded
            }
            e.insert(e.end(), old.begin() + upper, old.end());
        }
        expectFreshBuildOf(*result, expected, "round " + std::to_string(round));
    }
}

TEST(AudioData, AnOwnerEditsLongAudioWhereItLiesAndGetsAFreshBuildsSamplesAndLevels) {
    const size_t n = 3 * (size_t(1) << 20) + 4099; // stays long enough through ten edits
    std::vector<std::vector<float>> expected{noiseSamples(n, 5), noiseSamples(n, 6, 0.5f)};
    AudioDataPtr audio = audioOf(expected);
    std::mt19937 random(11);
    for (int round = 0; round < 10; ++round) {
        const int64_t length = int64_t(expected[0].size());
        const int64_t lower = std::uniform_int_distribution<int64_t>(0, length)(random);
        const int64_t upper =
            std::uniform_int_distribution<int64_t>(lower, std::min(length, lower + 300000))(random);
        // Alternately shorter and longer than what it replaces; round 3 inserts nothing.
        const size_t inserted = round == 3  ? 0
                                : round % 2 ? size_t(upper - lower) + size_t(random() % 200000)
                                            : size_t(random() % size_t(upper - lower + 1));
        AudioClip clip{48000,
                       {noiseSamples(inserted, 40 + unsigned(round), 2.0f),
                        noiseSamples(inserted / 3, 70 + unsigned(round))}};
        if (inserted == 0) clip.channels.clear();

        const float* samples = audio->samples(0);
        auto result = AudioData::replacingOwned(audio, {lower, upper}, clip);
        EXPECT_EQ(audio, nullptr) << "round " << round; // given up to the new audio
        // Shorter audio stays in the very same memory: nothing was copied.
        if (int64_t(inserted) <= upper - lower) {
            EXPECT_EQ(result->samples(0), samples);
        }
        for (size_t c = 0; c < 2; ++c) {
            auto& e = expected[c];
            std::vector<float> middle;
            if (inserted > 0) {
                middle = clip.channels[c];
                middle.resize(inserted, 0.0f); // a short channel is padded with silence
            }
            e.erase(e.begin() + lower, e.begin() + upper);
            e.insert(e.begin() + lower, middle.begin(), middle.end());
        }
        expectFreshBuildOf(*result, expected, "round " + std::to_string(round));
        audio = std::move(result);
    }
}

TEST(AudioData, AudioThatOthersHoldIsCopiedNotEditedAndARefusedEditChangesNothing) {
    const size_t n = (size_t(1) << 20) + 17;
    const std::vector<std::vector<float>> original{noiseSamples(n, 8), noiseSamples(n, 9)};
    AudioDataPtr audio = audioOf(original);
    AudioDataPtr clipboard = audio; // the clipboard, a player or a background job
    auto result = AudioData::replacingOwned(audio, {1000, 500000}, AudioClip{});
    EXPECT_EQ(audio, clipboard);
    expectFreshBuildOf(*clipboard, original, "held elsewhere");
    EXPECT_EQ(result->frameCount, int64_t(n) - 499000);
    EXPECT_NE(result->samples(0), clipboard->samples(0));

    clipboard.reset();
    const float* samples = audio->samples(0);
    EXPECT_THROW(AudioData::replacingOwned(audio, {0, int64_t(n)}, AudioClip{}), EditError);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->samples(0), samples);
    expectFreshBuildOf(*audio, original, "refused");
}

// A crossing lies between two frames and the one of smaller magnitude is returned (the
// earlier on a tie); forward wins over backward at equal distance; stereo is read as the sum.
TEST(AudioData, NearestZeroCrossingSearchesWithinTheRadiusOfTheMonoSum) {
    // Left and right cancel nowhere: the sum is +1 before 50 and -1 from 50.
    std::vector<float> half(100);
    for (size_t i = 0; i < 100; ++i)
        half[i] = i < 50 ? 0.5f : -0.5f;
    std::vector<float> both(100, 1.0f); // crossings 39 -> 40 and 59 -> 60, smaller at 40 and 59
    for (size_t i = 40; i < 60; ++i)
        both[i] = -1.0f;
    both[59] = both[40] = -0.1f;
    const auto noisy = audioOf({noiseSamples(1000, 9)}),
               silent = audioOf({std::vector<float>(100)}), stereo = audioOf({half, half}),
               twoSided = audioOf({both});
    const struct {
        const AudioData* audio;
        int64_t frame, radius, expected;
    } cases[] = {{noisy.get(), 0, 100, 0},      {noisy.get(), 500, 0, 500},
                 {noisy.get(), 1000, 10, 1000}, {silent.get(), 50, 10, 49},
                 {stereo.get(), 45, 10, 49},    {stereo.get(), 55, 10, 49},
                 {stereo.get(), 45, 3, 45}, // out of reach
                 {twoSided.get(), 50, 10, 59}};
    for (const auto& c : cases)
        EXPECT_EQ(c.audio->nearestZeroCrossing(c.frame, c.radius), c.expected)
            << c.frame << " within " << c.radius;
}

TEST(AudioData, ResamplingKeepsAToneAndScalesTheLength) {
    const int n = 44100;
    std::vector<float> tone(n);
    for (int i = 0; i < n; ++i)
        tone[size_t(i)] = 0.5f * float(std::sin(2 * std::numbers::pi * 1000.0 * i / 44100));
    auto audio = audioOf({tone, tone}, 44100);
    auto converted = audio->resampled(48000);
    EXPECT_EQ(converted->sampleRate, 48000);
    EXPECT_EQ(converted->channelCount(), 2);
    EXPECT_NEAR(double(converted->frameCount), 48000, 2);
    // Away from the edges the result is the same tone at the new rate, up to a fixed delay.
    const float* out = converted->samples(0);
    double bestError = 1e9;
    for (int delay = -40; delay <= 40; ++delay) {
        double error = 0;
        for (int i = 2000; i < 46000; i += 7) {
            double expected = 0.5 * std::sin(2 * std::numbers::pi * 1000.0 * (i - delay) / 48000);
            error = std::max(error, std::fabs(out[i] - expected));
        }
        bestError = std::min(bestError, error);
    }
    EXPECT_LT(bestError, 1e-3);
    EXPECT_NEAR(converted->peak, 0.5f, 0.01f);
}

TEST(FloatBuffer, AnImpossibleAllocationIsReportedAsOutOfMemory) {
    try {
        FloatBuffer buffer(int64_t(1) << 60);
        FAIL();
    } catch (const AudioLoaderError& error) {
        EXPECT_EQ(error.code(), AudioLoaderError::Code::outOfMemory);
        EXPECT_STREQ(error.what(), "Not enough memory to decode the file.");
    }
    EXPECT_THROW(FloatBuffer(-1), AudioLoaderError);
}

TEST(FloatBuffer, ResizeKeepsTheContentsInBothMappedAndHeapBuffers) {
    for (int64_t start : {int64_t(100), int64_t(1) << 20}) {
        FloatBuffer buffer(start);
        for (int64_t i = 0; i < start; ++i)
            buffer[i] = float(i % 1000);
        buffer.resize(start * 3);
        buffer[start * 3 - 1] = 1;
        for (int64_t i = 0; i < start; i += 97)
            ASSERT_EQ(buffer[i], float(i % 1000));
        buffer.resize(start / 2);
        EXPECT_EQ(buffer.size(), start / 2);
        EXPECT_EQ(buffer[start / 2 - 1], float((start / 2 - 1) % 1000));
    }
}

TEST(AudioMemory, SharedAudioCountsOnceAndTheClipboardCountsFourBytesASample) {
    auto audio = audioOf({noiseSamples(1 << 18, 1), noiseSamples(1 << 18, 2)});
    AudioMemory::Accumulator memory;
    memory.addAudio(audio);
    memory.addAudio(audio);
    AudioClip clip{48000, {std::vector<float>(10), std::vector<float>(10)}};
    memory.setClipboard(&clip);
    EXPECT_GE(memory.result.samples, 2 * (1 << 18) * 4);
    EXPECT_LT(memory.result.samples, 2 * (1 << 18) * 4 + 2 * 4096);
    // Levels: 3 floats per 16 samples plus a third more for the upper levels.
    EXPECT_NEAR(double(memory.result.levels) / double(memory.result.samples), 0.25, 0.02);
    EXPECT_EQ(memory.result.clipboard, 80);
    EXPECT_GT(AudioMemory::processFootprint(), 0);
}
