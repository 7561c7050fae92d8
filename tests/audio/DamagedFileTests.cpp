// Damaged files, made at test time by real encoders and then broken the way disks and
// downloads break them: decoding keeps every frame a reference decoder recovers, later
// audio keeps its time, and the report names exactly the stretches that were lost.

#include "audio/AudioLoader.h"

#include "support/AudioFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

using namespace sonvale;

namespace {

enum class Damage { none, garbage, flipped, cut };

struct Format {
    const char* name;
    const char* extension;
    const char* encoder; // ffmpeg's options
    float tolerance;     // from the undamaged decode outside the lost stretches
    double recovery;     // seconds around a lost stretch in which a lossy decoder may differ
    // Every frame's place is known, also after damage in the middle. Raw MP3 has no time
    // stamps of its own: at a constant bit rate a frame's byte position gives its time, but
    // at a variable one frames whose headers were hit leave no trace but a shorter length.
    bool placesEveryFrame = true;
    // Damage shows: PCM has no checksums, so garbage in it decodes as noise.
    bool seesDamage = true;
};

const Format formats[] = {
    {"FLAC", "flac", "-c:a flac", 0, 0},
    {"MP3", "mp3", "-c:a libmp3lame -b:a 128k", 0, 0.06},
    {"AAC", "m4a", "-c:a aac -b:a 128k -movflags +faststart", 0, 0.1},
    {"Vorbis", "ogg", "-c:a libvorbis -q:a 4", 0, 0.1},
    {"Opus", "opus", "-c:a libopus -b:a 96k", 2e-3f, 0.5},
    {"WavPack", "wv", "-c:a wavpack -sample_fmt s16p", 0, 0},
    {"WAV", "wav", "-c:a pcm_s16le", 0, 0, true, false},
};

struct Case {
    const Format* format;
    Damage damage;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
    const char* names[] = {"undamaged", "garbage", "flipped", "cut"};
    return out << c.format->name << " " << names[int(c.damage)];
}

constexpr double seconds = 12;

// One folder of encoded and damaged files for the whole suite.
class DamagedFile : public testing::TestWithParam<Case> {
protected:
    static void SetUpTestSuite() { folder = new test::TemporaryFolder; }
    static void TearDownTestSuite() {
        delete folder;
        folder = nullptr;
    }

    static std::filesystem::path file(const Format& format, Damage damage) {
        const auto original = *folder / (std::string("clean.") + format.extension);
        if (!std::filesystem::exists(original)) {
            const std::string command =
                "ffmpeg -v error -y -f lavfi -i "
                "'aevalsrc=0.5*sin(2*PI*440*t)|0.4*sin(2*PI*660*t):s=44100:d=" +
                std::to_string(seconds) + "' " + format.encoder + " '" + original.string() + "'";
            EXPECT_EQ(std::system(command.c_str()), 0) << command;
        }
        if (damage == Damage::none) return original;
        const char* names[] = {"", "garbage", "flipped", "cut"};
        const auto broken = *folder / (std::string(names[int(damage)]) + "." + format.extension);
        std::ifstream in(original, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(in), {}};
        const size_t third = bytes.size() / 3;
        if (damage == Damage::garbage) {
            // 4 KB of noise a third of the way in, as a bad sector leaves it.
            std::mt19937 random(7);
            for (size_t i = third; i < third + 4096; ++i)
                bytes[i] = char(random());
        } else if (damage == Damage::flipped) {
            for (size_t i = third; i < third + 1024; i += 64)
                bytes[i] = char(~bytes[i]);
        } else {
            bytes.resize(bytes.size() / 2);
        }
        std::ofstream(broken, std::ios::binary) << bytes;
        return broken;
    }

    // Frames the format's reference decoder recovers: `flac -d -F` for FLAC, else ffmpeg.
    static int64_t referenceFrames(const Format& format, const std::filesystem::path& path,
                                   int channels) {
        if (std::string(format.name) == "FLAC") {
            const auto decoded = *folder / "reference.wav";
            const std::string command = "flac -d -F -f -s '" + path.string() + "' -o '" +
                                        decoded.string() + "' 2>/dev/null";
            std::system(command.c_str());
            return AudioLoader::load(decoded)->frameCount;
        }
        const std::string bytes =
            test::commandOutput("ffmpeg -v quiet -i '" + path.string() + "' -f f32le - | wc -c");
        return std::stoll(bytes) / (4 * channels);
    }

    static test::TemporaryFolder* folder;
};

test::TemporaryFolder* DamagedFile::folder = nullptr;

TEST_P(DamagedFile, KeepsWhatAReferenceDecoderRecoversAtItsTimeAndReportsWhatWasLost) {
    const Format& format = *GetParam().format;
    const Damage damage = GetParam().damage;
    DecodeReport cleanReport;
    const auto clean = AudioLoader::load(file(format, Damage::none), {}, &cleanReport);
    EXPECT_TRUE(cleanReport.isClean());
    const auto path = file(format, damage);
    DecodeReport report;
    const auto audio = AudioLoader::load(path, {}, &report);
    ASSERT_EQ(audio->channelCount(), 2);
    const double rate = audio->sampleRate;

    // No less than the reference decoder: only ffmpeg's AAC keeps the encoder's end padding.
    const int64_t padding = std::string(format.name) == "AAC" ? 1024 : 0;
    const int64_t reference = referenceFrames(format, path, 2);
    EXPECT_GE(audio->frameCount + padding, reference);
    std::cout << "[ frames   ] " << GetParam() << ": Sonvale " << audio->frameCount
              << ", reference " << reference << "\n";

    if (damage == Damage::none) {
        EXPECT_TRUE(report.isClean());
        return;
    }
    const int64_t third = int64_t(seconds * rate / 3);
    if (damage != Damage::cut && !format.seesDamage) {
        EXPECT_TRUE(report.isClean());
        EXPECT_EQ(audio->frameCount, clean->frameCount);
        return;
    }
    EXPECT_FALSE(report.isClean());
    if (damage != Damage::cut && !format.placesEveryFrame) {
        // What comes before the damage is kept as it was.
        for (int c = 0; c < 2; ++c)
            for (int64_t i = 0; i < third / 2; ++i)
                ASSERT_NEAR(audio->samples(c)[i], clean->samples(c)[i], format.tolerance) << i;
        return;
    }
    if (damage == Damage::cut) {
        EXPECT_TRUE(report.endsEarly);
        EXPECT_GT(report.framesRead, int64_t(seconds * rate * 0.4));
        EXPECT_LT(report.framesRead, int64_t(seconds * rate * 0.52));
    } else {
        EXPECT_FALSE(report.endsEarly);
    }

    // Every frame that differs from the undamaged decode lies in a reported stretch (or in
    // the few hundredths of a second a lossy decoder needs to recover around one), and
    // every reported stretch is silent.
    const int64_t margin = std::llround(format.recovery * rate);
    auto explained = [&](int64_t frame) {
        if (report.endsEarly && frame >= report.framesRead - margin) return true;
        return std::any_of(report.damaged.begin(), report.damaged.end(), [&](FrameRange r) {
            return frame >= r.lower - margin && frame < r.upper + margin;
        });
    };
    const int64_t common = std::min(audio->frameCount, clean->frameCount);
    int64_t unexplained = 0, firstUnexplained = -1;
    for (int c = 0; c < 2; ++c)
        for (int64_t i = 0; i < common; ++i)
            if (std::fabs(audio->samples(c)[i] - clean->samples(c)[i]) > format.tolerance &&
                !explained(i)) {
                if (unexplained++ == 0) firstUnexplained = i;
            }
    EXPECT_EQ(unexplained, 0) << "first at frame " << firstUnexplained;
    for (const FrameRange& range : report.damaged) {
        EXPECT_LE(range.upper, audio->frameCount);
        for (int c = 0; c < 2; ++c)
            EXPECT_TRUE(std::all_of(audio->samples(c) + range.lower,
                                    audio->samples(c) + range.upper,
                                    [](float s) { return s == 0; }));
    }
    // A decoder that goes on after a lost stretch starts afresh: what it makes of the
    // frames there is no louder than the undamaged audio, give or take the little a
    // restarting lossy decoder overshoots (MP3's 2 %), not a burst of noise.
    for (const FrameRange& range : report.damaged)
        for (int c = 0; c < 2; ++c)
            for (int64_t i = range.upper; i < std::min(range.upper + margin, audio->frameCount);
                 ++i)
                ASSERT_LE(std::fabs(audio->samples(c)[i]), clean->peak * 1.1f)
                    << "at frame " << i << ", " << i - range.upper << " after a lost stretch";
    if (damage != Damage::cut) {
        ASSERT_FALSE(report.damaged.empty());
        // Near the damaged bytes a third of the way in, and no more than the pages or
        // frames they hit.
        EXPECT_GT(report.damaged.front().lower, third / 2);
        EXPECT_LT(report.damaged.back().upper, third * 3 / 2);
        EXPECT_EQ(audio->frameCount, clean->frameCount) << "the audio after the damage moved";
    }
}

std::vector<Case> everyCase() {
    std::vector<Case> cases;
    for (const Format& format : formats)
        for (Damage damage : {Damage::none, Damage::garbage, Damage::flipped, Damage::cut})
            cases.push_back({&format, damage});
    return cases;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    const char* names[] = {"Undamaged", "Garbage", "Flipped", "Cut"};
    return std::string(info.param.format->name) + names[int(info.param.damage)];
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, DamagedFile, testing::ValuesIn(everyCase()), caseName);

TEST(DecodeReport, SaysWhatWasLostInPlainWordsNamingTheFile) {
    struct Row {
        DecodeReport report;
        std::string summary;
    };
    DecodeReport one;
    one.addDamage(273420, 26460);
    DecodeReport three;
    three.addDamage(44100, 4410);
    three.addDamage(48510, 4410); // touches the first: one stretch
    three.addDamage(88200, 441);
    three.addDamage(441000, 44);
    DecodeReport cut;
    cut.endsEarly = true;
    cut.framesRead = 92169;
    cut.statedFrames = 220500;
    cut.addDamage(92169, 220500 - 92169);
    DecodeReport header;
    header.endsEarly = true;
    header.framesRead = 44100;
    DecodeReport floats;
    floats.nonFiniteSamples = 3;
    const Row rows[] = {
        {one, "“take.flac” is damaged: 0.6 s at 0:06.2 could not be read and is silent."},
        {three, "“take.flac” is damaged: 3 stretches (0.2 s in all, the first at 0:01.0) "
                "could not be read and are silent."},
        {cut, "“take.flac” ends early: only 2.1 s of 5.0 s could be read, and the rest is "
              "silent."},
        {header, "“take.flac” ends early: only 1.0 s could be read."},
        {floats, "“take.flac” has 3 samples that are not a number or infinite; they were "
                 "replaced by silence."},
        {DecodeReport{}, ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.report.summary("take.flac", 44100), row.summary);
    EXPECT_EQ(three.damaged.size(), 3u);
    EXPECT_EQ(three.damaged[0], (FrameRange{44100, 52920}));
    EXPECT_EQ(three.details(44100).front(),
              "Silent from 0:01.0 to 0:01.2 (0.2 s, frames 44100 to 52920)");
}

} // namespace
