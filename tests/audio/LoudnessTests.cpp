#include "audio/AudioLoader.h"
#include "audio/Loudness.h"
#include "support/AudioFiles.h"

#include <cmath>
#include <complex>
#include <cstdio>
#include <ebur128.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <sndfile.h>

using namespace sonvale;

namespace {

// A signal as one array per channel.
using Channels = std::vector<std::vector<float>>;

AudioDataPtr audioAt(const Channels& channels, double rate) {
    return test::makeAudio(rate, channels);
}

std::vector<float> sineAt(double rate, double seconds, double frequency, double dBFS,
                          double phase = 0) {
    const double amplitude = std::pow(10.0, dBFS / 20);
    std::vector<float> out(size_t(std::llround(rate * seconds)));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = float(amplitude *
                       std::sin(2 * std::numbers::pi * frequency * double(i) / rate + phase));
    return out;
}

std::vector<float> noiseAt(double rate, double seconds, double dBFS, unsigned seed) {
    std::mt19937 engine(seed);
    std::normal_distribution<float> dist(0.0f, float(std::pow(10.0, dBFS / 20)));
    std::vector<float> out(size_t(std::llround(rate * seconds)));
    for (auto& s : out)
        s = std::clamp(dist(engine), -1.0f, 1.0f);
    return out;
}

std::vector<float> concat(std::initializer_list<std::vector<float>> parts) {
    std::vector<float> out;
    for (const auto& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// libebur128's integrated loudness; every channel weighted 1 unless `defaultWeights`.
std::optional<double> reference(const Channels& channels, double rate,
                                bool defaultWeights = false) {
    const unsigned n = unsigned(channels.size());
    ebur128_state* state = ebur128_init(n, unsigned(rate), EBUR128_MODE_I);
    if (!defaultWeights)
        for (unsigned c = 0; c < n; ++c)
            ebur128_set_channel(state, c, EBUR128_LEFT);
    const size_t frames = channels[0].size();
    std::vector<float> interleaved(frames * n);
    for (size_t i = 0; i < frames; ++i)
        for (unsigned c = 0; c < n; ++c)
            interleaved[i * n + c] = channels[c][i];
    ebur128_add_frames_float(state, interleaved.data(), frames);
    double loudness = 0;
    int status = ebur128_loudness_global(state, &loudness);
    ebur128_destroy(&state);
    if (status != EBUR128_SUCCESS || !std::isfinite(loudness)) return std::nullopt;
    return loudness;
}

struct Case {
    std::string name;
    Channels channels;
    double rate;
};

Channels speech() {
    const auto path = std::filesystem::temp_directory_path() /
                      ("sonvale-speech-" + std::to_string(::getpid()) + ".wav");
    const std::string command = "espeak-ng -w '" + path.string() +
                                "' 'Loudness is measured over the whole programme, with quiet "
                                "pauses between the words gated away.' 2>/dev/null";
    if (std::system(command.c_str()) != 0) return {};
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return {};
    std::vector<float> samples(size_t(info.frames));
    sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    std::filesystem::remove(path);
    return {samples};
}

} // namespace

// Where both measure the same thing (all channels weighted 1), they agree within 0.01 LU.
TEST(Loudness, AgreesWithLibebur128OnVariedSignals) {
    std::vector<Case> cases;
    for (double rate : {8000.0, 22050.0, 44100.0, 48000.0, 96000.0, 192000.0})
        cases.push_back({"1 kHz -20 dBFS stereo at " + std::to_string(int(rate)),
                         {sineAt(rate, 3, 1000, -20), sineAt(rate, 3, 1000, -20)},
                         rate});
    for (double frequency : {50.0, 100.0, 440.0, 3000.0, 10000.0})
        cases.push_back({"mono " + std::to_string(int(frequency)) + " Hz -12 dBFS",
                         {sineAt(48000, 2, frequency, -12)},
                         48000});
    for (double level : {-6.0, -30.0, -50.0})
        cases.push_back({"noise " + std::to_string(int(level)) + " dBFS",
                         {noiseAt(44100, 4, level, 1), noiseAt(44100, 4, level, 2)},
                         44100});
    cases.push_back({"tone with long silence",
                     {concat({sineAt(48000, 3, 440, -14), std::vector<float>(48000 * 10, 0.0f),
                              sineAt(48000, 2, 440, -20)})},
                     48000});
    cases.push_back(
        {"loud and quiet passages (relative gate)",
         {concat({noiseAt(48000, 5, -10, 3), noiseAt(48000, 5, -45, 4), noiseAt(48000, 5, -12, 5)}),
          concat(
              {noiseAt(48000, 5, -10, 6), noiseAt(48000, 5, -45, 7), noiseAt(48000, 5, -12, 8)})},
         48000});
    cases.push_back({"near the absolute gate", {noiseAt(48000, 5, -68, 9)}, 48000});
    Channels surround;
    for (int c = 0; c < 6; ++c)
        surround.push_back(sineAt(48000, 3, 200 + 150 * c, -25 - c));
    cases.push_back({"5.1 weighted 1 per channel", surround, 48000});
    cases.push_back(
        {"odd length", {sineAt(44100, 1.2345, 700, -9), noiseAt(44100, 1.2345, -18, 10)}, 44100});
    if (auto voice = speech(); !voice.empty())
        cases.push_back({"espeak-ng speech", voice, 22050});
    else
        ADD_FAILURE() << "espeak-ng could not make the speech sample";

    ASSERT_GE(cases.size(), 20u);
    for (const auto& c : cases) {
        auto ours = Loudness::integrated(*audioAt(c.channels, c.rate));
        auto theirs = reference(c.channels, c.rate);
        ASSERT_TRUE(ours.has_value()) << c.name;
        ASSERT_TRUE(theirs.has_value()) << c.name;
        EXPECT_NEAR(*ours, *theirs, 0.01) << c.name;
    }
}

// libebur128 weights 5.1 surrounds by 1.41 and leaves out the LFE; Sonvale weights every
// channel 1, so surround content measures differently by design.
TEST(Loudness, SurroundDiffersFromBroadcastWeightingByDesign) {
    Channels surround(6, std::vector<float>(48000 * 3, 0.0f));
    surround[3] = sineAt(48000, 3, 60, -10); // LFE only
    EXPECT_TRUE(Loudness::integrated(*audioAt(surround, 48000)).has_value());
    EXPECT_FALSE(reference(surround, 48000, true).has_value());
}

TEST(Loudness, Tech3341ToneCases) {
    const double rate = 48000;
    auto stereo = [&](std::vector<float> mono) { return Channels{mono, mono}; };
    struct Tone {
        double frequency, dBFS, expected;
    };
    for (Tone t :
         {Tone{1000, -23, -23}, Tone{1000, -33, -33}, Tone{997, -23, -23}, Tone{997, -33, -33}}) {
        auto measured =
            Loudness::integrated(*audioAt(stereo(sineAt(rate, 20, t.frequency, t.dBFS)), rate));
        ASSERT_TRUE(measured);
        EXPECT_NEAR(*measured, t.expected, 0.1) << t.frequency << " Hz at " << t.dBFS;
    }
    // Level changes: the quiet parts fall below the relative gate.
    auto gated = concat(
        {sineAt(rate, 10, 1000, -36), sineAt(rate, 60, 1000, -23), sineAt(rate, 10, 1000, -36)});
    EXPECT_NEAR(*Loudness::integrated(*audioAt(stereo(gated), rate)), -23, 0.1);
    auto deep = concat({sineAt(rate, 10, 1000, -72), sineAt(rate, 10, 1000, -36),
                        sineAt(rate, 60, 1000, -23), sineAt(rate, 10, 1000, -36),
                        sineAt(rate, 10, 1000, -72)});
    EXPECT_NEAR(*Loudness::integrated(*audioAt(stereo(deep), rate)), -23, 0.1);
}

TEST(Loudness, FullScaleSineReadsMinusThreeInOneChannelAndZeroInTwo) {
    auto tone = sineAt(48000, 5, 997, 0);
    EXPECT_NEAR(*Loudness::integrated(*audioAt({tone}, 48000)), -3.01, 0.02);
    EXPECT_NEAR(*Loudness::integrated(*audioAt({tone, tone}, 48000)), 0.0, 0.02);
}

TEST(Loudness, NeedsFourHundredMillisecondsAndSomethingAboveTheAbsoluteGate) {
    EXPECT_TRUE(Loudness::integrated(*audioAt({sineAt(48000, 0.4, 1000, -20)}, 48000)));
    EXPECT_FALSE(Loudness::integrated(*audioAt({sineAt(48000, 0.399, 1000, -20)}, 48000)));
    EXPECT_FALSE(Loudness::integrated(*audioAt({std::vector<float>(48000, 0.0f)}, 48000)));
    EXPECT_FALSE(Loudness::integrated(*audioAt({sineAt(48000, 2, 1000, -80)}, 48000)));
}

TEST(Loudness, KWeightingHasTheBroadcastResponse) {
    // +4 dB of shelf at high frequencies, about 0 dB at 1 kHz, a steep cut below 40 Hz.
    auto response = [](double f, double fs) {
        double gain = 1;
        for (const auto& s : Loudness::kWeighting(fs)) {
            const double w = 2 * std::numbers::pi * f / fs;
            const std::complex<double> z = std::polar(1.0, -w);
            gain *= std::abs((s.b0 + s.b1 * z + s.b2 * z * z) / (1.0 + s.a1 * z + s.a2 * z * z));
        }
        return 20 * std::log10(gain);
    };
    for (double fs : {44100.0, 48000.0, 96000.0}) {
        EXPECT_NEAR(response(1000, fs), 0.7, 0.2) << fs;
        EXPECT_NEAR(response(10000, fs), 4.0, 0.3) << fs;
        EXPECT_LT(response(20, fs), -5) << fs;
    }
}

TEST(LoudnessTargets, ListsTheThreeStandardsAndACustomTargetSortedByValue) {
    auto titles = [](const std::vector<LoudnessTarget>& targets) {
        std::vector<std::string> out;
        for (const auto& t : targets)
            out.push_back(loudnessMenuTitle(t));
        return out;
    };
    EXPECT_EQ(titles(loudnessTargets(std::nullopt)),
              (std::vector<std::string>{"Loudness to -14 LUFS (streaming)",
                                        "Loudness to -16 LUFS (podcasts)",
                                        "Loudness to -23 LUFS (EBU R128 broadcast)"}));
    EXPECT_EQ(loudnessTargets(-16.0).size(), 3u);
    auto withCustom = loudnessTargets(-19.0);
    ASSERT_EQ(withCustom.size(), 4u);
    EXPECT_EQ(withCustom[2], (LoudnessTarget{-19, "custom"}));
}

TEST(Normalization, GainsStayWithinThirtyDecibels) {
    EXPECT_NEAR(*peakNormalizationGain(0.5f), 6.02f, 0.01f);
    EXPECT_EQ(*peakNormalizationGain(0.01f), 30.0f);
    EXPECT_EQ(*peakNormalizationGain(1e-9f), 30.0f);
    EXPECT_FALSE(peakNormalizationGain(0.0f));
    EXPECT_EQ(loudnessNormalizationGain(-16, -10), -6.0f);
    EXPECT_EQ(loudnessNormalizationGain(-14, -60), 30.0f);
    EXPECT_EQ(loudnessNormalizationGain(-23, 20), -30.0f);
}

TEST(AudibleRange, PadsTheLoudPartAndFindsNothingInSilence) {
    const double rate = 48000;
    auto quiet = std::vector<float>(size_t(rate), 0.0f);
    EXPECT_FALSE(audioAt({quiet}, rate)->audibleRange(-60, 0.01));

    // One loud sample in the second channel, deep inside a block.
    Channels channels{quiet, quiet};
    channels[1][30000] = 0.5f;
    channels[0][20000] = -0.01f;
    auto range = audioAt(channels, rate)->audibleRange(-60, 0.01);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->lower, 20000 - 480);
    EXPECT_EQ(range->upper, 30001 + 480);
}

TEST(AudibleRange, FiveMillisecondsOfSilenceAtEachEndIsCoveredByThePadding) {
    const double rate = 48000;
    auto body = sineAt(rate, 1, 440, -6);
    auto audio = audioAt(
        {concat({std::vector<float>(240, 0.0f), body, std::vector<float>(240, 0.0f)})}, rate);
    auto range = audio->audibleRange(-60, 0.01);
    ASSERT_TRUE(range);
    EXPECT_EQ(*range, (FrameRange{0, audio->frameCount}));
}
