#include "audio/AudioExporter.h"

#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sndfile.h>
#include <sys/stat.h>

using namespace sonvale;

namespace {

constexpr double rate = 48000;
constexpr double pi = 3.14159265358979323846;

// 150,000 frames (more than two 65,536-frame chunks): a 440 Hz sine at 0.8 on the left,
// a slow ramp from -1 to +1 on the right.
AudioDataPtr testAudio(int64_t frames = 150000, int channels = 2) {
    std::vector<std::vector<float>> samples(static_cast<size_t>(channels),
                                            std::vector<float>(static_cast<size_t>(frames)));
    for (int64_t i = 0; i < frames; ++i) {
        samples[0][size_t(i)] = float(0.8 * std::sin(2 * pi * 440 * double(i) / rate));
        for (int c = 1; c < channels; ++c)
            samples[size_t(c)][size_t(i)] =
                float(-1.0 + 2.0 * double(i) / double(frames - 1)) / float(c);
    }
    return test::makeAudio(rate, samples);
}

struct Opened {
    SF_INFO info{};
    std::vector<int> ints; // interleaved, left-aligned 32-bit codes as libsndfile reads them
};

Opened readInts(const std::filesystem::path& path) {
    Opened opened;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &opened.info);
    if (!file) {
        ADD_FAILURE() << "libsndfile can't open " << path << ": " << sf_strerror(nullptr);
        return opened;
    }
    opened.ints.resize(size_t(opened.info.frames * opened.info.channels));
    EXPECT_EQ(sf_readf_int(file, opened.ints.data(), opened.info.frames), opened.info.frames);
    sf_close(file);
    return opened;
}

// The code a sample becomes at `bits` bits (scaled by 2^(bits-1), rounded to the nearest
// code, clipped; no dither), left-aligned in 32 bits as libsndfile returns it.
int expectedCode(float sample, int bits) {
    const double scale = std::ldexp(1.0, bits - 1);
    const double code = std::clamp(std::nearbyint(double(sample) * scale), -scale, scale - 1);
    return int(int64_t(code) * (int64_t(1) << (32 - bits)));
}

std::string exportError(const AudioData& audio, ExportFormat format,
                        const std::filesystem::path& url) {
    try {
        AudioExporter::exportAudio(audio, {0, audio.frameCount}, 1.0f, format, url);
    } catch (const UserError& error) {
        return error.what();
    }
    return "(written)";
}

// ---- PCM formats -----------------------------------------------------------------------

struct PCMCase {
    ExportFormat format;
    int sndfileFormat;
    int bits;
};

class PCMExport : public ::testing::TestWithParam<PCMCase> {};

TEST_P(PCMExport, WritesEverySampleAsTheNearestCodeWithTheHeaderLibsndfileExpects) {
    const PCMCase& c = GetParam();
    const auto audio = testAudio();
    test::TemporaryFolder folder;
    const auto url = folder / ("out." + std::string(fileExtension(c.format)));
    AudioExporter::exportAudio(*audio, {0, audio->frameCount}, 1.0f, c.format, url);

    const Opened file = readInts(url);
    EXPECT_EQ(file.info.format, c.sndfileFormat);
    EXPECT_EQ(file.info.samplerate, 48000);
    ASSERT_EQ(file.info.channels, 2);
    ASSERT_EQ(file.info.frames, audio->frameCount);
    int mismatches = 0;
    for (int64_t i = 0; i < audio->frameCount; ++i)
        for (int ch = 0; ch < 2; ++ch)
            mismatches +=
                file.ints[size_t(2 * i + ch)] != expectedCode(audio->samples(ch)[i], c.bits);
    EXPECT_EQ(mismatches, 0);
}

INSTANTIATE_TEST_SUITE_P(
    EveryPCMFormat, PCMExport,
    ::testing::Values(
        PCMCase{ExportFormat::wav16, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16},
        PCMCase{ExportFormat::wav24, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 24},
        // Plain AIFF (not AIFF-C), big-endian by nature: see AIFFStoresSamplesBigEndian.
        PCMCase{ExportFormat::aiff16, SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 16}),
    [](const ::testing::TestParamInfo<PCMCase>& info) {
        return std::string(rawValue(info.param.format));
    });

TEST(AudioExporter, AIFFStoresSamplesBigEndian) {
    // First frame 0.25 and -0.5: codes 0x2000 and 0xC000, high byte first.
    const auto audio = test::makeAudio(rate, {{0.25f, 0.0f}, {-0.5f, 0.0f}});
    test::TemporaryFolder folder;
    AudioExporter::exportAudio(*audio, {0, 2}, 1.0f, ExportFormat::aiff16, folder / "x.aiff");

    std::ifstream in(folder / "x.aiff", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_EQ(bytes.substr(0, 4), "FORM");
    EXPECT_EQ(bytes.substr(8, 4), "AIFF");
    const size_t ssnd = bytes.find("SSND");
    ASSERT_NE(ssnd, std::string::npos);
    // Chunk id and size, then offset and block size, then the samples.
    const std::string first = bytes.substr(ssnd + 16, 4);
    EXPECT_EQ(first, std::string("\x20\x00\xC0\x00", 4));
}

TEST(AudioExporter, GainOfSixDecibelsClipsEverySampleAboveHalfScaleToFullScale) {
    const auto audio = testAudio();
    const float gain = float(std::pow(10.0, 6.0 / 20.0));
    test::TemporaryFolder folder;
    AudioExporter::exportAudio(*audio, {0, audio->frameCount}, gain, ExportFormat::wav24,
                               folder / "loud.wav");

    const Opened file = readInts(folder / "loud.wav");
    ASSERT_EQ(file.info.frames, audio->frameCount);
    const float* ramp = audio->samples(1);
    int clippedHigh = 0, clippedLow = 0, wrong = 0;
    for (int64_t i = 0; i < audio->frameCount; ++i) {
        const int code = file.ints[size_t(2 * i + 1)];
        if (std::fabs(ramp[i]) > 0.5013f) {
            // Full scale: +1.0 is the largest code, -1.0 the smallest.
            clippedHigh += ramp[i] > 0 && code == 0x7FFFFF00;
            clippedLow += ramp[i] < 0 && code == int(0x80000000);
        } else if (std::fabs(ramp[i]) < 0.5010f) {
            wrong += code != expectedCode(ramp[i] * gain, 24);
        }
    }
    // The ramp spends just under a quarter of its length above +0.5013 and below -0.5013.
    EXPECT_GT(clippedHigh, audio->frameCount / 4 - 200);
    EXPECT_GT(clippedLow, audio->frameCount / 4 - 200);
    const int64_t outside = std::count_if(ramp, ramp + audio->frameCount,
                                          [](float s) { return std::fabs(s) > 0.5013f; });
    EXPECT_EQ(clippedHigh + clippedLow, outside);
    EXPECT_EQ(wrong, 0);
}

TEST(AudioExporter, RangeWritesOnlyItsFrames) {
    const auto audio = testAudio();
    test::TemporaryFolder folder;
    AudioExporter::exportAudio(*audio, {70000, 140001}, 1.0f, ExportFormat::wav24,
                               folder / "part.wav");
    const Opened file = readInts(folder / "part.wav");
    ASSERT_EQ(file.info.frames, 70001);
    EXPECT_EQ(file.ints[0], expectedCode(audio->samples(0)[70000], 24));
    EXPECT_EQ(file.ints[1], expectedCode(audio->samples(1)[70000], 24));
    EXPECT_EQ(file.ints.back(), expectedCode(audio->samples(1)[140000], 24));
}

TEST(AudioExporter, ProgressRisesAndEndsAtOne) {
    const auto audio = testAudio(400000);
    test::TemporaryFolder folder;
    std::vector<double> values;
    AudioExporter::exportAudio(*audio, {0, audio->frameCount}, 1.0f, ExportFormat::wav16,
                               folder / "p.wav", [&](double v) { values.push_back(v); });
    ASSERT_GE(values.size(), 3u);
    for (size_t i = 0; i + 1 < values.size(); ++i)
        EXPECT_LT(values[i], values[i + 1]);
    EXPECT_GT(values.front(), 0.0);
    EXPECT_EQ(values.back(), 1.0);
}

// ---- AAC -----------------------------------------------------------------------------

std::string probe(const std::filesystem::path& path, const std::string& entries) {
    return test::commandOutput("ffprobe -v error -select_streams a:0 -show_entries " + entries +
                               " -of default=noprint_wrappers=1 '" + path.string() + "'");
}

int64_t probeNumber(const std::string& output, const std::string& key) {
    const size_t at = output.find(key + "=");
    if (at == std::string::npos) return -1;
    return std::atoll(output.c_str() + at + key.size() + 1);
}

TEST(AudioExporter, AACIsTwoHundredFiftySixKilobitsInAnM4A) {
    // Noise, which takes every bit the encoder is allowed.
    const int64_t frames = 5 * 48000;
    std::vector<std::vector<float>> noise(2, std::vector<float>(static_cast<size_t>(frames)));
    uint32_t state = 12345;
    for (auto& channel : noise)
        for (float& s : channel) {
            state = state * 1664525u + 1013904223u;
            s = float(int32_t(state)) / 4294967296.0f;
        }
    const auto audio = test::makeAudio(rate, noise);
    test::TemporaryFolder folder;
    AudioExporter::exportAudio(*audio, {0, frames}, 1.0f, ExportFormat::aac, folder / "n.m4a");

    const std::string info =
        probe(folder / "n.m4a", "stream=codec_name,sample_rate,channels,bit_rate");
    EXPECT_NE(info.find("codec_name=aac"), std::string::npos) << info;
    EXPECT_EQ(probeNumber(info, "sample_rate"), 48000);
    EXPECT_EQ(probeNumber(info, "channels"), 2);
    EXPECT_NEAR(double(probeNumber(info, "bit_rate")), 256000, 256000 * 0.1) << info;
    const std::string brand = test::commandOutput(
        "ffprobe -v error -show_entries format_tags=major_brand -of default=noprint_wrappers=1 '" +
        (folder / "n.m4a").string() + "'");
    EXPECT_NE(brand.find("M4A"), std::string::npos) << brand;
}

TEST(AudioExporter, AACDecodesBackToExactlyTheFramesWritten) {
    test::TemporaryFolder folder;
    // Shorter than one packet, one past a packet, and several chunks with a ragged end.
    for (int64_t frames : {1000, 1025, 150001}) {
        const auto audio = testAudio(frames);
        const auto url = folder / ("n" + std::to_string(frames) + ".m4a");
        AudioExporter::exportAudio(*audio, {0, frames}, 1.0f, ExportFormat::aac, url);
        EXPECT_EQ(AudioLoader::load(url)->frameCount, frames);
        EXPECT_EQ(probeNumber(probe(url, "stream=duration_ts"), "duration_ts"), frames);
    }
}

TEST(AudioExporter, AACKeepsChannelsInOrderAndTheSignalInPlace) {
    // A different tone in each of six channels (5.1); the fourth is the LFE channel, which
    // the encoder low-passes, so it gets a bass tone.
    const int64_t frames = 96000;
    const double tones[6] = {220, 330, 440, 60, 660, 770};
    std::vector<std::vector<float>> channels(6, std::vector<float>(static_cast<size_t>(frames)));
    for (int c = 0; c < 6; ++c)
        for (int64_t i = 0; i < frames; ++i)
            channels[size_t(c)][size_t(i)] =
                float(0.5 * std::sin(2 * pi * tones[c] * double(i) / rate));
    const auto audio = test::makeAudio(rate, channels);
    test::TemporaryFolder folder;
    AudioExporter::exportAudio(*audio, {0, frames}, 0.5f, ExportFormat::aac, folder / "six.m4a");

    const auto decoded = AudioLoader::load(folder / "six.m4a");
    ASSERT_EQ(decoded->channelCount(), 6);
    ASSERT_EQ(decoded->frameCount, frames);
    for (int c = 0; c < 6; ++c) {
        double error = 0, signal = 0;
        for (int64_t i = 1000; i < frames - 1000; ++i) {
            const double expected = 0.5 * audio->samples(c)[i];
            error += std::pow(decoded->samples(c)[i] - expected, 2);
            signal += expected * expected;
        }
        // Lossy, but close: swapped channels, a lost gain or a shift by a packet would
        // leave an error as large as the signal.
        EXPECT_LT(error / signal, 0.1) << "channel " << c;
    }
}

TEST(AudioExporter, AACRefusesARateItCantEncode) {
    const auto audio = test::makeAudio(12345, {std::vector<float>(5000, 0.1f)});
    test::TemporaryFolder folder;
    EXPECT_EQ(exportError(*audio, ExportFormat::aac, folder / "odd.m4a"),
              "Couldn't write \u201Codd.m4a\u201D: AAC can't be encoded at 12345 Hz");
}

// ---- the target path ---------------------------------------------------------------------

TEST(AudioExporter, ReplacesAnExistingFileOrLinkWithoutTouchingWhatALinkPointsTo) {
    test::TemporaryFolder folder;
    std::ofstream(folder / "old.wav") << std::string(1 << 20, 'x');
    std::ofstream(folder / "precious.txt") << "keep me";
    std::filesystem::create_symlink(folder / "precious.txt", folder / "link.wav");
    const auto audio = testAudio(1000);
    for (const char* name : {"old.wav", "link.wav"}) {
        AudioExporter::exportAudio(*audio, {0, 1000}, 1.0f, ExportFormat::wav16, folder / name);
        EXPECT_FALSE(std::filesystem::is_symlink(folder / name));
        EXPECT_EQ(readInts(folder / name).info.frames, 1000);
        EXPECT_LT(std::filesystem::file_size(folder / name), 5000u);
    }
    EXPECT_EQ(sonvale::test::readText(folder / "precious.txt"), "keep me");
}

TEST(AudioExporter, UnwritableDestinationFailsWithTheSystemsReason) {
    // Tests may run as root, who may write anywhere: a path through a file can't be created.
    test::TemporaryFolder folder;
    std::ofstream(folder / "file.wav") << "not a folder";
    const auto audio = testAudio(1000);
    for (ExportFormat format : allExportFormats)
        EXPECT_EQ(exportError(*audio, format, folder / "file.wav" / "out.wav"),
                  "Couldn't write \u201Cout.wav\u201D: Not a directory");
}

TEST(AudioExporter, FullDiskFailsWithNoSpaceLeftAndLeavesTheDeviceAlone) {
    struct stat before {};
    if (::stat("/dev/full", &before) != 0 || !S_ISCHR(before.st_mode))
        GTEST_SKIP() << "no /dev/full";
    const auto audio = testAudio();
    for (ExportFormat format : allExportFormats) {
        EXPECT_EQ(exportError(*audio, format, "/dev/full"),
                  "Couldn't write \u201Cfull\u201D: No space left on device")
            << rawValue(format);
        struct stat after {};
        ASSERT_EQ(::stat("/dev/full", &after), 0);
        EXPECT_TRUE(S_ISCHR(after.st_mode));
        EXPECT_EQ(after.st_rdev, before.st_rdev);
    }
}

TEST(AudioExporter, AFailedExportLeavesTheFileItWouldReplaceAsItWasAndNothingElse) {
    test::TemporaryFolder folder;
    sonvale::test::TmpfsMount disk(folder / "small", "2m");
    if (!disk.isMounted()) GTEST_SKIP() << "mounting a small tmpfs is not allowed here";
    const auto keep = folder / "small/keep.wav";
    AudioExporter::exportAudio(*testAudio(1000), {0, 1000}, 1.0f, ExportFormat::wav16, keep);
    const std::string before = sonvale::test::readText(keep);
    const auto audio = testAudio(30 * 48000); // 5.8 MB as 16-bit WAV, more as AAC than fits
    for (ExportFormat format : allExportFormats) {
        if (format == ExportFormat::aac) continue; // 30 s of AAC fits in 2 MB
        EXPECT_NE(exportError(*audio, format, keep).find("No space left on device"),
                  std::string::npos);
        EXPECT_EQ(sonvale::test::readText(keep), before) << rawValue(format);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / "small"),
                                std::filesystem::directory_iterator()),
                  1);
    }
}

// ---- lossless ------------------------------------------------------------------------------

TEST(AudioExporter, LosslessWAVKeepsEveryFloatExactlyAndCreatesItsFolders) {
    AudioClip clip;
    clip.sampleRate = 44100;
    clip.channels.assign(2, std::vector<float>(100000));
    for (size_t i = 0; i < 100000; ++i) {
        clip.channels[0][i] = float(std::sin(double(i) * 0.001)) * 1.7f; // past full scale: kept
        clip.channels[1][i] = 1e-7f * float(i % 97) - 3e-6f;
    }
    test::TemporaryFolder folder;
    const auto url = folder / "Audio" / "Clips" / "take.wav";
    AudioExporter::writeLossless(clip, url);

    SF_INFO info{};
    SNDFILE* file = sf_open(url.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    EXPECT_TRUE((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ||
                (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX)
        << std::hex << info.format;
    EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    EXPECT_EQ(info.samplerate, 44100);
    ASSERT_EQ(info.channels, 2);
    ASSERT_EQ(info.frames, 100000);
    std::vector<float> read(200000);
    sf_command(file, SFC_SET_NORM_FLOAT, nullptr, SF_FALSE);
    EXPECT_EQ(sf_readf_float(file, read.data(), 100000), 100000);
    sf_close(file);
    int mismatches = 0;
    for (size_t i = 0; i < 100000; ++i)
        mismatches += read[2 * i] != clip.channels[0][i] || read[2 * i + 1] != clip.channels[1][i];
    EXPECT_EQ(mismatches, 0);

    // And Sonvale's own loader agrees.
    const auto loaded = AudioLoader::load(url);
    EXPECT_EQ(loaded->frameCount, 100000);
    EXPECT_EQ(loaded->samples(0)[1500], clip.channels[0][1500]);
}

TEST(AudioExporter, LosslessWriteOfAClipWithoutChannelsOrUnderAFileFails) {
    test::TemporaryFolder folder;
    std::ofstream(folder / "plain") << "x";
    AudioClip clip;
    clip.sampleRate = 48000;
    EXPECT_THROW(AudioExporter::writeLossless(clip, folder / "none.wav"), FileError);
    clip.channels = {{0.5f}};
    EXPECT_THROW(AudioExporter::writeLossless(clip, folder / "plain" / "sub" / "x.wav"), FileError);
}

} // namespace
