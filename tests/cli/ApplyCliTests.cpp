// sonvale-cli apply end to end: a fixture file goes in, the written file is read back with
// libsndfile.

#include "support/AudioFiles.h"

#include "support/CliCommand.h"

#include "effects/EffectKind.h"

#include "audio/AudioLoader.h"
#include "effects/EffectChain.h"
#include "effects/EffectRenderer.h"
#include "effects/EffectSetup.h"
#include <gtest/gtest.h>
#include <sndfile.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

sonvale::test::CliOutput apply(const std::string& arguments) {
    return sonvale::test::runCli("apply " + arguments);
}

struct Sound {
    int format = 0;
    int channels = 0;
    int rate = 0;
    std::vector<std::vector<float>> samples; // per channel
};

Sound read(const fs::path& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    Sound sound;
    if (!file) return sound;
    sound.format = info.format;
    sound.channels = info.channels;
    sound.rate = info.samplerate;
    std::vector<float> interleaved(size_t(info.frames * info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    sound.samples.assign(size_t(info.channels), std::vector<float>(size_t(info.frames)));
    for (sf_count_t i = 0; i < info.frames; ++i)
        for (int c = 0; c < info.channels; ++c)
            sound.samples[size_t(c)][size_t(i)] = interleaved[size_t(i * info.channels + c)];
    return sound;
}

class ApplyCommand : public testing::Test {
protected:
    // 3 s of stereo at 48 kHz: a 0.5 sine at 440 Hz on the left, a 0.4 chirp on the right.
    std::string in() const { return sonvale::test::fixture("stereo-f32.wav").string(); }
    std::string out() const { return (folder / "out.wav").string(); }
    sonvale::test::TemporaryFolder folder;
};

float peak(const std::vector<float>& samples) {
    float largest = 0;
    for (float s : samples)
        largest = std::max(largest, std::fabs(s));
    return largest;
}

} // namespace

TEST_F(ApplyCommand, LimitsTheWholeFileIntoAFloatWav) {
    auto run = apply(in() + " -o " + out() + " --effect 'limiter@Loud Master'");
    ASSERT_EQ(run.status, 0) << run.output;
    auto result = read(out());
    auto source = read(in());
    EXPECT_EQ(result.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    EXPECT_TRUE((result.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ||
                (result.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX);
    EXPECT_EQ(result.rate, 48000);
    ASSERT_EQ(result.channels, 2);
    EXPECT_EQ(result.samples[0].size(), source.samples[0].size());
    EXPECT_LE(peak(result.samples[0]), std::pow(10.0f, -0.3f / 20));
    EXPECT_GT(peak(result.samples[0]), 0.9f); // raised by 10 dB, then held under the ceiling
    // One gain for both channels: the right keeps its level relative to the left.
    EXPECT_NEAR(peak(result.samples[1]), 0.4f / 0.5f * std::pow(10.0f, -0.3f / 20), 0.01f);
}

// The whole file is streamed through the chain rather than loaded: the result must be what
// rendering the loaded file gives, tail included, to the bit.
TEST_F(ApplyCommand, TheWholeFileStreamedIsTheRenderOfTheLoadedFile) {
    auto run = apply(in() + " -o " + out() + " --effect 'delay,Feedback=50' --effect chorus");
    ASSERT_EQ(run.status, 0) << run.output;
    auto audio = sonvale::AudioLoader::load(in());
    sonvale::EffectChain chain;
    sonvale::EffectSetup delay = sonvale::EffectSetup::parse("delay,Feedback=50");
    chain.append(sonvale::EffectSession::make(delay.kind, delay.values));
    chain.append(sonvale::EffectSession::make(sonvale::EffectKind::chorus));
    auto render = chain.renderProcessor(audio->sampleRate, audio->channelCount());
    const auto tail = sonvale::EffectRenderer::tailFrames(render.tailSeconds, audio->sampleRate);
    ASSERT_GT(tail, 48000);
    auto expected =
        sonvale::EffectRenderer::render(*audio, {0, audio->frameCount}, tail, *render.processor);
    auto result = read(out());
    ASSERT_EQ(result.channels, 2);
    for (int c = 0; c < 2; ++c) {
        ASSERT_EQ(result.samples[size_t(c)].size(), expected.channels[size_t(c)].size());
        EXPECT_EQ(result.samples[size_t(c)], expected.channels[size_t(c)]) << "channel " << c;
    }
}

TEST_F(ApplyCommand, AFileWithoutAudioWritesNothing) {
    const auto empty = (folder / "empty.wav").string();
    {
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* file = sf_open(empty.c_str(), SFM_WRITE, &info);
        ASSERT_TRUE(file);
        sf_close(file);
    }
    auto run = apply(empty + " -o " + out() + " --effect limiter");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("no audio"), std::string::npos) << run.output;
    EXPECT_FALSE(fs::exists(out()));
}

TEST_F(ApplyCommand, RangeIsProcessedAndTheTailLengthensTheFile) {
    auto run = apply(in() + " -o " + out() +
                     " --range 24000:72000 --effect 'equalizer,Band 1 Type=Low Cut,"
                     "Band 1 Frequency=80' --effect 'compressor'");
    ASSERT_EQ(run.status, 0) << run.output;
    auto source = read(in());
    auto result = read(out());
    ASSERT_EQ(result.channels, 2);
    auto tail = int64_t(4.88452060054544 / (80 * M_PI) * 48000); // the low cut's ring time
    ASSERT_EQ(int64_t(result.samples[0].size()), int64_t(source.samples[0].size()) + tail);
    for (int c = 0; c < 2; ++c) {
        auto& before = source.samples[size_t(c)];
        auto& after = result.samples[size_t(c)];
        for (size_t i = 0; i < 24000; i += 101)
            ASSERT_EQ(after[i], before[i]);
        for (size_t i = 72000; i < before.size(); i += 101)
            ASSERT_EQ(after[i + size_t(tail)], before[i]);
    }
    // The compressor turned the -6 dB left channel down by about 9 dB inside the range.
    EXPECT_LT(peak({result.samples[0].begin() + 60000, result.samples[0].begin() + 72000}), 0.25f);
}

TEST_F(ApplyCommand, RefusesUnknownPresetsAndBadArgumentsWithoutWriting) {
    auto preset = apply(in() + " -o " + out() + " --effect 'limiter@Brickwall'");
    EXPECT_EQ(preset.status, 1);
    EXPECT_NE(preset.output.find("\"Streaming Master\""), std::string::npos) << preset.output;
    auto range = apply(in() + " -o " + out() + " --range 10:5 --effect limiter");
    EXPECT_EQ(range.status, 1);
    auto value = apply(in() + " -o " + out() + " --effect 'limiter,Ceiling=4'");
    EXPECT_EQ(value.status, 1);
    EXPECT_NE(value.output.find("from -12 to 0"), std::string::npos) << value.output;
    auto usage = apply(in() + " -o " + out());
    EXPECT_EQ(usage.status, 1);
    EXPECT_NE(usage.output.find("usage: apply"), std::string::npos) << usage.output;
    auto missing = apply((folder / "missing.wav").string() + " -o " + out() + " --effect limiter");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.output.find("missing.wav"), std::string::npos) << missing.output;
    EXPECT_FALSE(fs::exists(out()));
}

TEST_F(ApplyCommand, RangeInSecondsAndOpenEndsCoverTheRestOfTheFile) {
    auto run =
        apply(in() + " -o " + out() + " --range 2.5s: --effect 'limiter,Gain=0,Ceiling=-12'");
    ASSERT_EQ(run.status, 0) << run.output;
    auto source = read(in());
    auto result = read(out());
    ASSERT_EQ(result.samples[0].size(), source.samples[0].size());
    EXPECT_EQ(result.samples[0][119999], source.samples[0][119999]);
    EXPECT_LE(peak({result.samples[0].begin() + 120000, result.samples[0].end()}),
              std::pow(10.0f, -12.0f / 20));
}

TEST_F(ApplyCommand, EveryPresetOfEveryEffectRendersAFiniteFile) {
    auto source = read(in());
    ASSERT_EQ(source.channels, 2);
    for (auto kind : sonvale::allEffectKinds())
        for (auto& preset : sonvale::presets(kind)) {
            std::string effect = std::string(sonvale::rawValue(kind)) + "@" + preset.name;
            auto result = apply(in() + " -o " + out() + " --effect '" + effect + "'");
            ASSERT_EQ(result.status, 0) << effect << ": " << result.output;
            auto sound = read(out());
            ASSERT_EQ(sound.channels, 2) << effect;
            EXPECT_GE(sound.samples[0].size(), source.samples[0].size()) << effect;
            bool finite = true, audible = false;
            for (auto& channel : sound.samples)
                for (float s : channel) {
                    finite = finite && std::isfinite(s);
                    audible = audible || std::fabs(s) > 1e-3f;
                }
            EXPECT_TRUE(finite) << effect;
            EXPECT_TRUE(audible) << effect;
            fs::remove(out());
        }
}
