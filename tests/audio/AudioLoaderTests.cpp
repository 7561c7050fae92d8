#include "audio/AudioLoader.h"

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "support/AudioFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <sndfile.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace sonvale;
using sonvale::test::fixture;

namespace {

// Largest difference from ffmpeg's decode that counts as the same audio. PCM, FLAC and
// ALAC are exact, and every lossy codec is decoded by FFmpeg's own decoders, so the whole
// table is exact: any difference is a fault in conversion, alignment or trimming.
constexpr float exact = 0;

struct DecodeCase {
    const char* file;
    int channels;
    double sampleRate;
    int64_t frames; // -1: as many as ffmpeg decodes
    float tolerance;
};

std::ostream& operator<<(std::ostream& out, const DecodeCase& c) { return out << c.file; }

class DecodingFixture : public testing::TestWithParam<DecodeCase> {};

TEST_P(DecodingFixture, MatchesFFmpegsDecodeInLengthAndSamples) {
    const DecodeCase& c = GetParam();
    const AudioDataPtr audio = AudioLoader::load(fixture(c.file));
    const std::vector<float> reference = test::ffmpegDecode(c.file);
    const int64_t referenceFrames = int64_t(reference.size()) / c.channels;

    ASSERT_EQ(audio->channelCount(), c.channels);
    EXPECT_EQ(audio->sampleRate, c.sampleRate);
    EXPECT_EQ(audio->frameCount, c.frames >= 0 ? c.frames : referenceFrames);
    ASSERT_LE(audio->frameCount, referenceFrames);

    // Compared over the frames both have: ffmpeg's command line keeps AAC's end padding.
    float worst = 0;
    int64_t worstFrame = 0;
    for (int ch = 0; ch < c.channels; ++ch) {
        const float* samples = audio->samples(ch);
        for (int64_t i = 0; i < audio->frameCount; ++i) {
            const float difference = std::fabs(samples[i] - reference[size_t(i * c.channels + ch)]);
            if (!(difference <= worst)) {
                worst = difference;
                worstFrame = i;
            }
        }
    }
    EXPECT_LE(worst, c.tolerance) << "at frame " << worstFrame;
}

INSTANTIATE_TEST_SUITE_P(
    EveryFormat, DecodingFixture,
    testing::Values(
        DecodeCase{"stereo-s16.wav", 2, 48000, 144000, exact},
        DecodeCase{"stereo-s24.wav", 2, 48000, 144000, exact},
        DecodeCase{"stereo-f32.wav", 2, 48000, 144000, exact},
        DecodeCase{"stereo-s16.aiff", 2, 48000, 144000, exact},
        DecodeCase{"stereo-s24.aiff", 2, 48000, 144000, exact},
        DecodeCase{"stereo.flac", 2, 48000, 144000, exact},
        DecodeCase{"stereo-alac.m4a", 2, 48000, 144000, exact},
        DecodeCase{"stereo-pcm.mka", 2, 48000, 144000, exact},
        DecodeCase{"stereo.mp3", 2, 48000, 144000, exact},
        DecodeCase{"stereo-vbr.mp3", 2, 48000, 144000, exact},
        DecodeCase{"stereo.ogg", 2, 48000, 144000, exact},
        DecodeCase{"stereo.opus", 2, 48000, 144000, exact},
        // AAC in MPEG-4: exactly the encoded frames, priming and end padding dropped.
        DecodeCase{"stereo.m4a", 2, 48000, 144000, exact},
        DecodeCase{"stereo-faststart.m4a", 2, 48000, 144000, exact},
        DecodeCase{"six.m4a", 6, 48000, 72000, exact},
        DecodeCase{"video.mp4", 1, 48000, 96000, exact},
        // Raw AAC has nothing saying where the audio starts and ends: as FFmpeg decodes it.
        DecodeCase{"stereo.aac", 2, 48000, -1, exact},
        DecodeCase{"stereo.wma", 2, 48000, -1, exact},
        // Holds more than twice the length FFmpeg estimates: the channels grow while decoding.
        DecodeCase{"growing.aac", 1, 48000, -1, exact},
        DecodeCase{"mono.wav", 1, 44100, 88200, exact},
        DecodeCase{"mono.mp3", 1, 44100, 88200, exact},
        DecodeCase{"vbr-no-header.mp3", 1, 44100, -1, exact},
        DecodeCase{"six.wav", 6, 48000, 72000, exact},
        DecodeCase{"low-8k.wav", 1, 8000, 16000, exact},
        DecodeCase{"high-96k.flac", 2, 96000, 96000, exact},
        DecodeCase{"speech.wav", 1, 22050, -1, exact},
        DecodeCase{"silence.wav", 2, 48000, 48000, exact},
        // A WAV that ends before its header says: the frames that are there.
        DecodeCase{"truncated.wav", 2, 48000, -1, exact}),
    [](const testing::TestParamInfo<DecodeCase>& info) {
        std::string name = info.param.file;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

TEST(AudioLoader, LossyDecodesLineUpWithTheirSourceFrameForFrame) {
    // The encoders' priming (AAC's 1,024 frames, LAME's delay, Opus's pre-skip) is dropped,
    // so frame n of the decode is frame n of what was encoded. The codecs' own error is
    // below 0.1 % of the signal's energy; one frame off adds 0.3 % at 440 Hz and more on
    // the chirp.
    const auto source = AudioLoader::load(fixture("stereo-f32.wav"));
    for (const char* file : {"stereo.m4a", "stereo.mp3", "stereo.opus", "stereo.ogg"}) {
        const auto decoded = AudioLoader::load(fixture(file));
        ASSERT_EQ(decoded->frameCount, source->frameCount) << file;
        for (int ch = 0; ch < 2; ++ch) {
            double error = 0, signal = 0;
            for (int64_t i = 2048; i < source->frameCount - 2048; ++i) {
                const double x = source->samples(ch)[i];
                error += std::pow(decoded->samples(ch)[i] - x, 2);
                signal += x * x;
            }
            EXPECT_LT(error / signal, 0.003) << file << " channel " << ch;
        }
    }
}

TEST(AudioLoader, UndamagedMP3sReportNothing) {
    // At a constant bit rate (with an Info header, or none) frames are placed by their byte
    // position, at a variable one (with a Xing header, or none) one after another: either
    // way an undamaged file has no gap and no early end.
    for (const char* file : {"stereo.mp3", "mono.mp3", "stereo-vbr.mp3", "vbr-no-header.mp3"}) {
        DecodeReport report;
        const auto audio = AudioLoader::load(fixture(file), {}, &report);
        EXPECT_TRUE(report.isClean()) << file << ": " << report.summary(file, audio->sampleRate);
    }
}

TEST(AudioLoader, MP3sJoinedEndToEndKeepBothHalves) {
    // Files copied one after the other, as players join them: the second file's tags sit in
    // the middle of the stream, and its bit rate may differ from the first's. Both halves
    // are kept; the tags, and the encoder's priming and padding that are trimmed only at the
    // ends of the first, add no more than five frames of silence, all at the join.
    test::TemporaryFolder folder;
    auto encode = [&](const char* bitRate) {
        const auto path = folder / (std::string(bitRate) + ".mp3");
        const std::string command =
            "ffmpeg -nostdin -v error -y -f lavfi -i sine=frequency=440:sample_rate=44100:"
            "duration=2 -c:a libmp3lame -b:a " +
            std::string(bitRate) + " '" + path.string() + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        std::ifstream in(path, std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(in), {}};
    };
    const std::string low = encode("64k"), high = encode("128k");
    const int64_t half = 88200, frame = 1152;
    for (const std::string& first : {low, high}) {
        const auto path = folder / "joined.mp3";
        std::ofstream(path, std::ios::binary) << first << high;
        DecodeReport report;
        const auto joined = AudioLoader::load(path, {}, &report);
        EXPECT_GE(joined->frameCount, 2 * half) << first.size();
        EXPECT_LE(joined->frameCount, 2 * half + 5 * frame) << first.size();
        EXPECT_FALSE(report.endsEarly);
        for (const FrameRange& range : report.damaged) {
            EXPECT_GE(range.lower, half - frame) << first.size();
            EXPECT_LE(range.upper, half + 3 * frame) << first.size();
        }
    }
}

// Levels of long files are summarised on a second thread while they decode: they must be
// exactly the levels built from the finished samples.
void expectLevelsBuiltFromTheSamples(const AudioData& audio) {
    for (int ch = 0; ch < audio.channelCount(); ++ch) {
        const auto& levels = audio.channels[size_t(ch)]->levels();
        const auto expected = AudioLoader::buildLevels(audio.samples(ch), audio.frameCount);
        ASSERT_EQ(levels.size(), expected.size()) << "channel " << ch;
        for (size_t l = 0; l < levels.size(); ++l) {
            ASSERT_EQ(levels[l].count, expected[l].count) << "level " << l;
            EXPECT_EQ(levels[l].blockSize, expected[l].blockSize);
            EXPECT_EQ(std::memcmp(levels[l].buffer.data(), expected[l].buffer.data(),
                                  size_t(2 * levels[l].count) * sizeof(float)),
                      0)
                << "channel " << ch << " level " << l << " min/max";
            EXPECT_EQ(std::memcmp(levels[l].energy.data(), expected[l].energy.data(),
                                  size_t(levels[l].count) * sizeof(float)),
                      0)
                << "channel " << ch << " level " << l << " energy";
        }
    }
}

// What one decoder yields read from the start to the end: samples per channel and report.
std::pair<std::vector<std::vector<float>>, DecodeReport>
decodedFromStartToEnd(const std::filesystem::path& path) {
    auto decoder = openAudioDecoder(path);
    std::vector<std::vector<float>> samples(size_t(decoder->info().channels));
    std::vector<std::vector<float>> chunk(samples.size(), std::vector<float>(4096));
    std::vector<float*> to;
    for (auto& c : chunk)
        to.push_back(c.data());
    for (int64_t got; (got = decoder->read(to.data(), 4096)) > 0;)
        for (size_t c = 0; c < samples.size(); ++c)
            samples[c].insert(samples[c].end(), chunk[c].begin(), chunk[c].begin() + got);
    return {std::move(samples), decoder->report()};
}

TEST(AudioLoader, LongFilesDecodedInTwoPartsAtOnceMatchOneDecoderFromStartToEnd) {
    // 1.5 million frames of noise, not a whole number of chunks or blocks, with a NaN in the
    // second half of the float file; the FLAC also comes damaged three quarters in.
    constexpr int64_t frames = 1500007;
    test::TemporaryFolder folder;
    std::vector<float> noise(2 * frames);
    uint32_t state = 99;
    for (float& s : noise) {
        state = state * 1664525u + 1013904223u;
        s = float(int32_t(state)) / 2147483648.0f * 0.9f;
    }
    auto write = [&](const char* name, int format) {
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = format;
        SNDFILE* file = sf_open((folder / name).c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr) << name;
        sf_writef_float(file, noise.data(), frames);
        sf_close(file);
    };
    write("long.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write("long-16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    noise[2 * 1400000 + 1] = std::numeric_limits<float>::quiet_NaN();
    write("long-float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    std::filesystem::copy_file(folder / "long.flac", folder / "damaged.flac");
    {
        std::fstream damaged(folder / "damaged.flac",
                             std::ios::in | std::ios::out | std::ios::binary);
        damaged.seekp(std::streamoff(std::filesystem::file_size(folder / "long.flac") * 3 / 4));
        damaged << std::string(3000, '\x5a');
    }

    for (const char* name : {"long.flac", "long-16.wav", "long-float.wav", "damaged.flac"}) {
        SCOPED_TRACE(name);
        ASSERT_NE(openAudioDecoder(folder / name)->startingAt(frames / 2), nullptr);
        const auto [expected, expectedReport] = decodedFromStartToEnd(folder / name);
        DecodeReport report;
        const auto audio = AudioLoader::load(folder / name, {}, &report);
        ASSERT_EQ(audio->frameCount, frames);
        for (int c = 0; c < 2; ++c)
            EXPECT_EQ(std::memcmp(audio->samples(c), expected[size_t(c)].data(),
                                  size_t(frames) * sizeof(float)),
                      0)
                << "channel " << c;
        EXPECT_EQ(report, expectedReport);
        expectLevelsBuiltFromTheSamples(*audio);
    }
    DecodeReport damage;
    AudioLoader::load(folder / "damaged.flac", {}, &damage);
    ASSERT_EQ(damage.damaged.size(), 1u);
    EXPECT_GT(damage.damaged[0].lower, frames / 2);
    DecodeReport nan;
    AudioLoader::load(folder / "long-float.wav", {}, &nan);
    EXPECT_EQ(nan.nonFiniteSamples, 1);
}

TEST(AudioLoader, FileThatOutgrowsItsEstimateGetsTheSameLevelsAsIfBuiltAfterDecoding) {
    const auto audio = AudioLoader::load(fixture("growing.aac"));
    EXPECT_GT(audio->frameCount, 2 * AudioLoader::probe(fixture("growing.aac")).frames);
    expectLevelsBuiltFromTheSamples(*audio);
}

TEST(AudioLoader, FilesEndingBeforeTheirHeadersSayAreReportedAsEndingEarly) {
    // A WAV whose header claims 4 GB of data, and one cut short.
    test::TemporaryFolder folder;
    const auto huge = folder / "huge.wav";
    {
        std::ifstream in(fixture("stereo-s16.wav"), std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(in), {}};
        const size_t data = bytes.find("data");
        ASSERT_NE(data, std::string::npos);
        bytes.replace(data + 4, 4, "\xf0\xff\xff\xff");
        std::ofstream(huge, std::ios::binary) << bytes;
    }
    struct Row {
        std::filesystem::path file;
        int64_t frames;       // -1: fewer than stated
        int64_t statedFrames; // as the report gives it
    };
    // FLAC and MPEG-4 state their length exactly: the missing end is silent.
    const Row rows[] = {{fixture("truncated.wav"), -1, 144000},
                        {huge, 144000, 0xfffffff0 / 4},
                        {fixture("truncated.flac"), 144000, 144000},
                        {fixture("truncated.m4a"), 144000, 144000}};
    for (const Row& row : rows) {
        DecodeReport report;
        const auto audio = AudioLoader::load(row.file, {}, &report);
        EXPECT_TRUE(report.endsEarly) << row.file;
        EXPECT_EQ(report.statedFrames, row.statedFrames) << row.file;
        EXPECT_GT(report.framesRead, 0) << row.file;
        EXPECT_LT(report.framesRead, row.statedFrames) << row.file;
        if (row.frames < 0)
            EXPECT_EQ(audio->frameCount, report.framesRead) << row.file;
        else
            EXPECT_EQ(audio->frameCount, row.frames) << row.file;
    }
}

TEST(AudioLoader, ProbeReportsContainerCodecAndHeaderLength) {
    struct Expected {
        const char* file;
        const char* container;
        const char* codec;
        double rate;
        int channels;
        int64_t frames;
    };
    for (const Expected& e :
         {Expected{"stereo-s16.wav", "wav", "pcm_s16le", 48000, 2, 144000},
          Expected{"stereo-s24.aiff", "aiff", "pcm_s24be", 48000, 2, 144000},
          Expected{"stereo.flac", "flac", "flac", 48000, 2, 144000},
          // An MP3's header counts whole packets, priming and padding included.
          Expected{"stereo.mp3", "mp3", "mp3", 48000, 2, 145152},
          Expected{"stereo.ogg", "ogg", "vorbis", 48000, 2, 144000},
          Expected{"stereo.m4a", "mov,mp4,m4a,3gp,3g2,mj2", "aac", 48000, 2, 144000},
          Expected{"stereo-alac.m4a", "mov,mp4,m4a,3gp,3g2,mj2", "alac", 48000, 2, 144000},
          Expected{"six.wav", "wav", "pcm_s16le", 48000, 6, 72000}}) {
        const auto info = AudioLoader::probe(fixture(e.file));
        EXPECT_EQ(info.container, e.container) << e.file;
        EXPECT_EQ(info.codec, e.codec) << e.file;
        EXPECT_EQ(info.sampleRate, e.rate) << e.file;
        EXPECT_EQ(info.channels, e.channels) << e.file;
        EXPECT_EQ(info.frames, e.frames) << e.file;
    }
    const auto opus = AudioLoader::probe(fixture("stereo.opus"));
    EXPECT_EQ(opus.codec, "opus");
    EXPECT_EQ(opus.sampleRate, 48000);
}

TEST(AudioLoader, OpusDecodesAtFortyEightKilohertzWhateverRateWasEncoded) {
    // The fixture was encoded from 48 kHz, so check a file made from 8 kHz input here.
    test::TemporaryFolder folder;
    const auto path = folder / "low.opus";
    ASSERT_EQ(
        std::system(
            ("ffmpeg -nostdin -v error -f lavfi -i sine=frequency=300:sample_rate=8000:duration=1 "
             "-c:a libopus '" +
             path.string() + "'")
                .c_str()),
        0);
    const auto audio = AudioLoader::load(path);
    EXPECT_EQ(audio->sampleRate, 48000);
    EXPECT_EQ(audio->frameCount, 48000);
}

TEST(AudioLoader, NaNAndInfinityInAFloatFileBecomeSilence) {
    test::TemporaryFolder folder;
    const auto path = folder / "broken-floats.wav";
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    std::vector<float> samples(1000, 0.25f);
    samples[10] = std::numeric_limits<float>::quiet_NaN();
    samples[500] = std::numeric_limits<float>::infinity();
    samples[999] = -std::numeric_limits<float>::infinity();
    samples[600] = 3.5f; // loud, but a number: kept
    sf_writef_float(file, samples.data(), 1000);
    sf_close(file);

    DecodeReport report;
    const auto audio = AudioLoader::load(path, {}, &report);
    ASSERT_EQ(audio->frameCount, 1000);
    EXPECT_EQ(report.nonFiniteSamples, 3);
    EXPECT_EQ(audio->samples(0)[10], 0.0f);
    EXPECT_EQ(audio->samples(0)[500], 0.0f);
    EXPECT_EQ(audio->samples(0)[999], 0.0f);
    EXPECT_EQ(audio->samples(0)[600], 3.5f);
    EXPECT_EQ(audio->samples(0)[11], 0.25f);
    EXPECT_EQ(audio->peak, 3.5f);
}

// ---- progress ------------------------------------------------------------------------

std::vector<double> progressOf(const std::string& file) {
    std::vector<double> values;
    AudioLoader::load(fixture(file), [&](double value) { values.push_back(value); });
    return values;
}

TEST(AudioLoader, ProgressRisesInStepsOfAtLeastTwoPercentAndEndsAtOne) {
    for (const char* file : {"stereo-s16.wav", "stereo.mp3", "stereo.m4a", "stereo.aac",
                             "vbr-no-header.mp3", "truncated.wav"}) {
        const auto values = progressOf(file);
        ASSERT_GE(values.size(), 2u) << file;
        EXPECT_EQ(values.back(), 1.0) << file;
        EXPECT_GE(values.front(), 0.02) << file;
        for (size_t i = 0; i + 1 < values.size(); ++i) {
            EXPECT_LE(values[i], 0.9) << file; // reading fills 90 % of the bar
            EXPECT_GE(values[i + 1] - values[i], 0.02) << file << " step " << i;
        }
    }
    // A file of known length has read all of it at 90 %.
    const auto wav = progressOf("stereo-s16.wav");
    EXPECT_DOUBLE_EQ(wav[wav.size() - 2], 0.9);
}

// ---- files that don't load ------------------------------------------------------------

std::string loadError(const std::filesystem::path& path) {
    try {
        AudioLoader::load(path);
    } catch (const UserError& error) {
        return error.what();
    }
    return "(loaded)";
}

// Writes `bytes` of `from` to `to`, with `patch` written over them at `at`.
void copyPatched(const std::filesystem::path& from, const std::filesystem::path& to, size_t length,
                 size_t at = 0, const std::string& patch = {}) {
    std::ifstream in(from, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    bytes.resize(std::min(length, bytes.size()));
    bytes.replace(at, patch.size(), patch);
    std::ofstream(to, std::ios::binary) << bytes;
}

// Each bad input fails with its plain words, naming the file, and keeps the library's or
// the system's own line apart as details.
TEST(AudioLoader, FilesThatDontOpenSayWhyInPlainWordsWithTheLibrarysLineAsDetails) {
    test::TemporaryFolder folder;
    const auto wav = fixture("mono.wav"), flac = fixture("stereo.flac");
    const size_t all = size_t(-1);
    std::ofstream(folder / "zero.flac").close();
    for (const char* name : {"notes.wav", "notes.mp3", "notes.flac"})
        std::ofstream(folder / name) << "Shopping: eggs, milk, flour.\n";
    copyPatched(wav, folder / "cut-header.wav", 30);
    copyPatched(wav, folder / "no-rate.wav", all, 24, std::string(4, '\0'));
    copyPatched(wav, folder / "no-channels.wav", all, 22, std::string(2, '\0'));
    copyPatched(wav, folder / "codec.wav", all, 20, "\x34\x12");
    copyPatched(flac, folder / "cut-header.flac", 20);
    // STREAMINFO: the block sizes, then the frame sizes, then 20 bits of rate from byte 18.
    copyPatched(flac, folder / "junk-streaminfo.flac", all, 8, std::string(34, '\xff'));
    std::ifstream streamInfo(flac, std::ios::binary);
    streamInfo.seekg(20); // the rate's last 4 bits, then the channels and bits per sample
    copyPatched(flac, folder / "no-rate.flac", all, 18,
                std::string{'\0', '\0', char(streamInfo.get() & 0x0f)});
    std::filesystem::create_directory(folder / "album.wav");
    ASSERT_EQ(::mkfifo((folder / "pipe.wav").c_str(), 0600), 0);
    // FLAC frames (whose checksums catch every damaged one) in an MP4, whose index keeps
    // handing them over: garbage from a third of the way in leaves nothing that decodes.
    const auto mp4 = folder / "clean.mp4";
    ASSERT_EQ(std::system(("ffmpeg -nostdin -v error -y -f lavfi -i sine=f=440:d=12:r=44100 -c:a "
                           "flac -frame_size 1152 -strict -2 -movflags +faststart '" +
                           mp4.string() + "'")
                              .c_str()),
              0);
    {
        std::ifstream in(mp4, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(in), {}};
        std::mt19937 random(7);
        for (size_t i = bytes.size() / 3; i < bytes.size(); ++i)
            bytes[i] = char(random());
        std::ofstream(folder / "garbage.mp4", std::ios::binary) << bytes;
    }

    struct Row {
        std::filesystem::path file;
        std::string problem; // the plain words ("*" at the end: the start of them)
        std::string details; // found in the details
    };
    std::vector<Row> rows = {
        {folder / "zero.flac", "The file is empty.", "0 bytes"},
        {folder / "notes.wav", "This is not an audio file.",
         "Invalid data found when processing input"},
        {folder / "notes.mp3", "This is not an audio file.",
         "Invalid data found when processing input"},
        {folder / "notes.flac", "This is not an audio file.", "audio (flac, 0 Hz, 0 channels)"},
        {fixture("noise.wav"), "This is not an audio file.",
         "Invalid data found when processing input"},
        {folder / "cut-header.wav", "The file's header is damaged.", "Error"},
        {folder / "no-rate.wav", "The header says the sample rate is 0 Hz.", "SF_INFO"},
        {folder / "no-channels.wav", "The file contains no audio.", "Channel count is zero."},
        {folder / "codec.wav", "The codec (format 0x1234) is not supported.", "Decoder not found"},
        {folder / "cut-header.flac", "The file's header is damaged.", "FLAC__STREAM_DECODER"},
        {folder / "junk-streaminfo.flac", "The file's header is damaged.",
         "STREAMINFO gives blocks of 65535 to 65535 samples"},
        {folder / "no-rate.flac", "The header says the sample rate is 0 Hz.", "0 Hz"},
        {fixture("video-silent.mp4"), "The file contains no audio.", "video (mpeg4)"},
        {folder / "gone.wav", "The file doesn't exist.", "No such file or directory"},
        {folder / "album.wav", "This is a folder, not a file.", "Is a directory"},
        {folder / "pipe.wav", "It isn't a file but a pipe or a device.", "named pipe"},
        {"/dev/zero", "It isn't a file but a pipe or a device.", "device"},
        {folder / "garbage.mp4", "The file is damaged after 0:0*", "Invalid data found"},
    };
    // Permissions don't hold root back.
    if (::geteuid() != 0) {
        std::ofstream(folder / "locked.wav") << "RIFF";
        std::filesystem::permissions(folder / "locked.wav", std::filesystem::perms::none);
        rows.push_back({folder / "locked.wav", "The file could not be read (permission denied).",
                        "Permission denied"});
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file.string());
        std::string problem, details, message;
        try {
            AudioLoader::load(row.file);
            ADD_FAILURE() << "loaded";
            continue;
        } catch (const AudioFileError& error) {
            problem = error.problem();
            details = error.details();
            message = error.what();
            EXPECT_EQ(message,
                      "Couldn't open \u201C" + row.file.filename().string() + "\u201D: " + problem);
        } catch (const AudioLoaderError& error) {
            problem = error.what();
            details = error.details();
        }
        if (row.problem.ends_with("*"))
            EXPECT_EQ(problem.rfind(row.problem.substr(0, row.problem.size() - 1), 0), 0u)
                << problem;
        else
            EXPECT_EQ(problem, row.problem);
        EXPECT_NE(details.find(row.details), std::string::npos) << details;
    }
    // The time decoding broke off at: about a third of the way in.
    EXPECT_THAT(loadError(folder / "garbage.mp4"),
                testing::MatchesRegex(".*: The file is damaged after 0:0[2-4]\\.[0-9]\\."));
}

// Caps the process's address space a little above what it uses, for as long as it lives,
// so that running out of memory doesn't depend on the system's overcommit policy.
class AddressSpaceCap {
public:
    explicit AddressSpaceCap(rlim_t headroom) {
        std::ifstream statm("/proc/self/statm");
        long pages = 0;
        statm >> pages;
        ::getrlimit(RLIMIT_AS, &saved);
        rlimit capped = saved;
        capped.rlim_cur = rlim_t(pages) * rlim_t(::sysconf(_SC_PAGESIZE)) + headroom;
        active = ::setrlimit(RLIMIT_AS, &capped) == 0;
    }
    ~AddressSpaceCap() { ::setrlimit(RLIMIT_AS, &saved); }
    bool active = false;

private:
    rlimit saved{};
};

TEST(AudioLoader, HeaderClaimingMoreThanMemoryHoldsFailsAsOutOfMemory) {
    std::string message;
    {
        AddressSpaceCap cap(rlim_t(1) << 30);
        ASSERT_TRUE(cap.active);
        try {
            AudioLoader::load(fixture("huge-header.flac"));
        } catch (const AudioLoaderError& error) {
            message = error.what();
            EXPECT_EQ(error.code(), AudioLoaderError::Code::outOfMemory);
        } catch (const std::exception& error) {
            message = error.what();
        }
    }
    EXPECT_EQ(message, "Not enough memory to decode the file.");
}

TEST(AudioLoader, ProbeFailsLikeLoad) {
    EXPECT_THROW(AudioLoader::probe(fixture("noise.mp3")), FileError);
    EXPECT_THROW(AudioLoader::probe(fixture("video-silent.mp4")), AudioLoaderError);
}

// ---- audio file names ------------------------------------------------------------------

TEST(AudioLoader, RecognisesAudioExtensionsWhateverTheirCase) {
    EXPECT_TRUE(AudioLoader::isAudioFile("take.wav"));
    EXPECT_TRUE(AudioLoader::isAudioFile("/music/Song.M4A"));
    EXPECT_TRUE(AudioLoader::isAudioFile("voice.Opus"));
    EXPECT_FALSE(AudioLoader::isAudioFile("notes.txt"));
    EXPECT_FALSE(AudioLoader::isAudioFile("wav"));
    EXPECT_FALSE(AudioLoader::isAudioFile(".wav"));        // a hidden file with no extension
    EXPECT_FALSE(AudioLoader::isAudioFile("holiday.mp4")); // films open, but aren't audio files
    for (const char* file : {"a.aiff", "a.flac", "a.mp3", "a.aac", "a.ogg", "a.wma", "a.mka"})
        EXPECT_TRUE(AudioLoader::isAudioFile(file)) << file;
}

} // namespace
