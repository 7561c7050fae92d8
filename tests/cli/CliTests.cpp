// Runs the built sonvale-cli as a separate process and checks what it prints and returns.

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"

#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sndfile.h>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace sonvale;
using sonvale::test::fixture;

namespace {

struct CliRun {
    int status = -1; // exit status; -1 when the process didn't exit normally
    std::string out;
    std::string err;
    std::vector<std::string> errLines() const {
        std::vector<std::string> lines;
        std::istringstream in(err);
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }
};

std::string slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Starts sonvale-cli with `args`; the process id, or 0 when it couldn't start.
pid_t spawnCli(const std::vector<std::string>& args,
               const posix_spawn_file_actions_t* actions = nullptr) {
    std::vector<std::string> all{SONVALE_CLI_PATH};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& arg : all)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    return posix_spawn(&pid, SONVALE_CLI_PATH, actions, nullptr, argv.data(), environ) == 0 ? pid
                                                                                            : 0;
}

// stdout and stderr go to files (so neither pipe can fill up and block), stdin is empty.
CliRun cli(const std::vector<std::string>& args) {
    test::TemporaryFolder folder;
    const auto outPath = folder / "out", errPath = folder / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    CliRun run;
    const pid_t pid = spawnCli(args, &actions);
    posix_spawn_file_actions_destroy(&actions);
    if (pid == 0) {
        ADD_FAILURE() << "couldn't start " << SONVALE_CLI_PATH;
        return run;
    }
    int wstatus = 0;
    ::waitpid(pid, &wstatus, 0);
    run.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    run.out = slurp(outPath);
    run.err = slurp(errPath);
    return run;
}

std::string path(const char* name) { return fixture(name).string(); }

// ---- info -----------------------------------------------------------------------------

TEST(CliInfo, DescribesEachFileOnOneLine) {
    const CliRun run = cli({"info", path("stereo-s16.wav"), path("silence.wav"), path("mono.wav")});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    // A 0.5 sine at 16 bits peaks at exactly 16384/32768: -6.02 dBFS; silence has no peak level.
    const std::string expected = path("stereo-s16.wav") +
                                 ": wav, pcm_s16le, 48000 Hz, 2 channels, 144000 frames, 3.000 s, "
                                 "peak -6.02 dBFS\n" +
                                 path("silence.wav") +
                                 ": wav, pcm_s16le, 48000 Hz, 2 channels, 48000 frames, 1.000 s, "
                                 "peak -inf dBFS\n" +
                                 path("mono.wav") +
                                 ": wav, pcm_s16le, 44100 Hz, 1 channel, 88200 frames, 2.000 s, ";
    EXPECT_EQ(run.out.substr(0, expected.size()), expected);
}

TEST(CliInfo, CountsTheFramesDecodedNotThoseTheHeaderPromises) {
    const CliRun run = cli({"info", "--json", path("stereo.m4a"), path("truncated.wav")});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto files = nlohmann::json::parse(run.out);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0]["frames"], 144000);
    EXPECT_EQ(files[1]["frames"], AudioLoader::load(fixture("truncated.wav"))->frameCount);
}

TEST(CliInfo, ADamagedFileOpensWithWhatWasLostOnStderrAndInItsJSON) {
    const CliRun run = cli({"info", "--json", path("truncated.flac")});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("“" + path("truncated.flac") + "” ends early: only "), std::string::npos)
        << run.err;
    const auto file = nlohmann::json::parse(run.out).at(0);
    EXPECT_EQ(file["frames"], 144000);
    EXPECT_EQ(file["endsEarly"], true);
    EXPECT_EQ(file["statedFrames"], 144000);
    ASSERT_EQ(file["damaged"].size(), 1u);
    const auto& stretch = file["damaged"][0];
    EXPECT_EQ(stretch["startFrame"], file["framesRead"]);
    EXPECT_EQ(stretch["startFrame"].get<int64_t>() + stretch["frames"].get<int64_t>(), 144000);
    EXPECT_DOUBLE_EQ(stretch["start"].get<double>(), stretch["startFrame"].get<double>() / 48000);
    EXPECT_DOUBLE_EQ(stretch["duration"].get<double>(), stretch["frames"].get<double>() / 48000);

    // The other commands say it once and go on.
    test::TemporaryFolder folder;
    const std::string out = (folder / "out.wav").string();
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"export", path("truncated.flac"), "-o", out}, {"loudness", path("truncated.flac")}}) {
        const CliRun other = cli(arguments);
        EXPECT_EQ(other.status, 0) << arguments[0] << ": " << other.err;
        const size_t first = other.err.find("ends early");
        EXPECT_NE(first, std::string::npos) << arguments[0];
        EXPECT_EQ(other.err.find("ends early", first + 1), std::string::npos) << arguments[0];
    }
}

// A file that fails is left out of the array, with its line on stderr.
TEST(CliInfo, JSONHasOneObjectPerFileWithTheDocumentedKeys) {
    const CliRun run =
        cli({"info", "--json", path("stereo.flac"), path("empty.wav"), path("silence.wav")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errLines().size(), 1u) << run.err;
    const auto files = nlohmann::json::parse(run.out);
    ASSERT_TRUE(files.is_array());
    ASSERT_EQ(files.size(), 2u);
    const auto& flac = files[0];
    EXPECT_EQ(flac["file"], path("stereo.flac"));
    EXPECT_EQ(flac["container"], "flac");
    EXPECT_EQ(flac["codec"], "flac");
    EXPECT_EQ(flac["sampleRate"], 48000);
    EXPECT_EQ(flac["channels"], 2);
    EXPECT_EQ(flac["frames"], 144000);
    EXPECT_DOUBLE_EQ(flac["duration"].get<double>(), 3.0);
    EXPECT_NEAR(flac["peakDBFS"].get<double>(), -6.02, 0.01);
    EXPECT_EQ(flac["damaged"], nlohmann::json::array());
    EXPECT_EQ(flac["endsEarly"], false);
    EXPECT_EQ(flac["nonFiniteSamples"], 0);
    EXPECT_EQ(flac.size(), 11u);
    EXPECT_EQ(files[1]["file"], path("silence.wav"));
    EXPECT_TRUE(files[1]["peakDBFS"].is_null());
}

// The file's name and the plain words come first; the library's own line follows on its own.
TEST(CliInfo, AFailingFileIsNamedWithPlainWordsThenDetailsAndTheOthersStillPrint) {
    const CliRun run = cli({"info", path("noise.mp3"), path("mono.wav"), path("empty.wav")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("mono.wav: wav"), std::string::npos);
    const auto lines = run.errLines();
    ASSERT_EQ(lines.size(), 3u) << run.err;
    EXPECT_EQ(lines[0], "sonvale-cli info: " + path("noise.mp3") + ": This is not an audio file.");
    EXPECT_EQ(lines[1], "  (details: Invalid data found when processing input)");
    EXPECT_EQ(lines[2], "sonvale-cli info: " + path("empty.wav") + ": The file contains no audio.");
}

// ---- export ---------------------------------------------------------------------------

SF_INFO sndfileInfo(const std::filesystem::path& file) {
    SF_INFO info{};
    if (SNDFILE* f = sf_open(file.c_str(), SFM_READ, &info)) sf_close(f);
    return info;
}

TEST(CliExport, TakesTheFormatFromTheExtensionOrTheOptionAndPrintsNothing) {
    test::TemporaryFolder folder;
    const struct {
        const char* input;
        const char* output;
        std::vector<std::string> options;
        int format; // libsndfile's; 0 for AAC
    } cases[] = {{"stereo.flac", "a.wav", {}, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                 {"stereo.flac", "a.aif", {}, SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
                 {"stereo.flac", "a.m4a", {}, 0},
                 {"mono.wav", "x.wav", {"--format", "wav24"}, SF_FORMAT_WAV | SF_FORMAT_PCM_24}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        std::vector<std::string> args{"export", path(c.input), "-o", (folder / c.output).string()};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const CliRun run = cli(args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out + run.err, ""); // stderr isn't a terminal: no progress
        const auto info = AudioLoader::probe(folder / c.output);
        const auto source = AudioLoader::probe(fixture(c.input));
        EXPECT_EQ(info.frames, source.frames);
        EXPECT_EQ(info.sampleRate, source.sampleRate);
        if (c.format)
            EXPECT_EQ(sndfileInfo(folder / c.output).format, c.format);
        else
            EXPECT_EQ(info.codec, "aac");
    }
}

TEST(CliExport, RangeAndGainApply) {
    test::TemporaryFolder folder;
    const auto out = folder / "part.wav";
    const CliRun run = cli({"export", path("stereo-s16.wav"), "-o", out.string(), "--range",
                            "1000:49000", "--gain", "+6.0206"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto source = AudioLoader::load(fixture("stereo-s16.wav"));
    const auto written = AudioLoader::load(out);
    ASSERT_EQ(written->frameCount, 48000);
    // Twice the gain: 16-bit samples double exactly, and the 0.5 sine now reaches full scale.
    for (int64_t i = 0; i < 48000; i += 997)
        EXPECT_EQ(written->samples(1)[i], 2 * source->samples(1)[1000 + i]) << i;
    EXPECT_NEAR(written->peak, 1.0f, 1.0f / 32768);
}

TEST(CliExport, WritesWhatTheProgramsExportWritesFromTheLoadedFile) {
    // The command streams the file; the program exports the whole loaded audio. Same bytes,
    // for a file that says how long it is and one (an MP3 without a length header) that
    // does not, with a gain that clips, in every format.
    test::TemporaryFolder folder;
    for (const char* input : {"stereo.flac", "vbr-no-header.mp3"})
        for (auto [format, name] : {std::pair{ExportFormat::wav24, "wav24"},
                                    {ExportFormat::aiff16, "aiff16"},
                                    {ExportFormat::aac, "aac"}}) {
            const auto ours = folder / (std::string(name) + ".cli");
            const auto theirs = folder / (std::string(name) + ".program");
            const CliRun run = cli({"export", path(input), "-o", ours.string(), "--format", name,
                                    "--gain", "9", "--range", "1000:70000"});
            ASSERT_EQ(run.status, 0) << run.err;
            AudioExporter::exportAudio(*AudioLoader::load(fixture(input)), {1000, 70000},
                                       float(std::pow(10.0, 9 / 20.0)), format, theirs);
            EXPECT_EQ(slurp(ours), slurp(theirs)) << input << " as " << name;
        }
    // A range past the end of a file that only estimates its length is found at its end.
    const auto past = folder / "past.wav";
    const CliRun run =
        cli({"export", path("vbr-no-header.mp3"), "-o", past.string(), "--range", "0:100000000"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("reaches past the end"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(past));
}

TEST(CliExport, UnknownExtensionWithoutFormatListsTheFormats) {
    test::TemporaryFolder folder;
    const CliRun run = cli({"export", path("mono.wav"), "-o", (folder / "x.mp3").string()});
    EXPECT_EQ(run.status, 1);
    ASSERT_EQ(run.errLines().size(), 1u) << run.err;
    EXPECT_NE(run.err.find("x.mp3"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("wav16, wav24, aiff16 or aac"), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(folder / "x.mp3"));
}

TEST(CliExport, RangesOutsideTheFileOrBackwardsAreRefused) {
    test::TemporaryFolder folder;
    const std::string out = (folder / "x.wav").string();
    const CliRun past = cli({"export", path("mono.wav"), "-o", out, "--range", "0:88201"});
    EXPECT_EQ(past.status, 1);
    EXPECT_NE(past.err.find("mono.wav"), std::string::npos) << past.err;
    EXPECT_NE(past.err.find("88200 frames"), std::string::npos) << past.err;
    for (const char* range : {"500:100", "7:7", "-5:10", "abc", "1.5:2", "2s:1s", "88200:"}) {
        const CliRun bad = cli({"export", path("mono.wav"), "-o", out, "--range", range});
        EXPECT_EQ(bad.status, 1) << range;
        EXPECT_EQ(bad.errLines().size(), 1u) << range << ": " << bad.err;
    }
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(CliExport, RangesInSecondsOrOpenEndedNameTheSameFramesAsApplysAndGainsStaySane) {
    test::TemporaryFolder folder;
    const std::string out = (folder / "x.wav").string();
    // mono.wav: 88,200 frames at 44.1 kHz.
    const struct {
        const char* range;
        int64_t frames;
    } cases[] = {{"0:1s", 44100},
                 {"0.5s:1s", 22050},
                 {"44100:", 44100},
                 {":22050", 22050},
                 {"1s:2s", 44100}};
    for (const auto& c : cases) {
        const CliRun run = cli({"export", path("mono.wav"), "-o", out, "--range", c.range});
        ASSERT_EQ(run.status, 0) << c.range << ": " << run.err;
        EXPECT_EQ(AudioLoader::load(out)->frameCount, c.frames) << c.range;
    }
    for (const char* gain : {"1e308", "-200", "48.5"}) {
        const CliRun run = cli({"export", path("mono.wav"), "-o", out, "--gain", gain});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(
            run.err,
            std::string("sonvale-cli export: --gain must be between -96 and +48 dB, not \u201C") +
                gain + "\u201D\n");
    }
    EXPECT_EQ(cli({"export", path("mono.wav"), "-o", out, "--gain", "48"}).status, 0);
}

TEST(CliExport, BadArgumentsGiveOneLineAndStatusOne) {
    test::TemporaryFolder folder;
    const std::string out = (folder / "x.wav").string();
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"info"},
             {"info", "--deep", path("mono.wav")},
             {"export"},
             {"export", path("mono.wav")},
             {"export", path("mono.wav"), "-o"},
             {"export", path("mono.wav"), "-o", out, "--format", "flac"},
             {"export", path("mono.wav"), "-o", out, "--gain", "loud"},
             {"export", path("mono.wav"), "-o", out, "--fast"},
             {"export", path("mono.wav"), path("low-8k.wav"), "-o", out}}) {
        const CliRun run = cli(args);
        EXPECT_EQ(run.status, 1) << args.size();
        EXPECT_EQ(run.errLines().size(), 1u) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

TEST(CliExport, UnreadableInputFullDiskAndImpossiblePathsFailNamingTheFile) {
    test::TemporaryFolder folder;
    std::ofstream(folder / "file.wav") << "x";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"export", (folder / "gone.wav").string(), "-o", (folder / "x.wav").string()},
         (folder / "gone.wav").string() +
             ": The file doesn't exist.\n  (details: No such file or directory)"},
        {{"export", path("mono.wav"), "-o", (folder / "file.wav" / "x.wav").string()},
         "Couldn't write \u201Cx.wav\u201D: Not a directory"},
        {{"export", path("mono.wav"), "-o", "/dev/full", "--format", "aac"},
         "Couldn't write \u201Cfull\u201D: No space left on device"},
        {{"export", path("empty.wav"), "-o", (folder / "x.wav").string()},
         path("empty.wav") + ": The file contains no audio."},
        {{"apply", path("empty.wav"), "-o", (folder / "x.wav").string(), "-e", "reverb"},
         path("empty.wav") + ": The file contains no audio."},
        {{"apply", path("empty.wav"), "-o", (folder / "x.wav").string(), "-e", "reverb", "--range",
          "0:10"},
         path("empty.wav") + ": The file contains no audio."}};
    for (const auto& [args, message] : cases) {
        const CliRun run = cli(args);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, "sonvale-cli " + args[0] + ": " + message + "\n");
    }
}

TEST(CliExport, AnExportKilledHalfWayLeavesTheFileItWouldReplace) {
    test::TemporaryFolder folder;
    const auto input = folder / "long.wav";
    std::vector<float> noise(size_t(120 * 48000));
    for (size_t i = 0; i < noise.size(); ++i)
        noise[i] = float((i * 7919) % 2000) / 4000.0f - 0.25f;
    AudioExporter::writeLossless(AudioClip{48000, {noise, noise}}, input);
    const auto keep = folder / "keep.m4a";
    ASSERT_EQ(cli({"export", path("stereo-s16.wav"), "-o", keep.string()}).status, 0);
    const std::string before = slurp(keep);

    const pid_t pid = spawnCli({"export", input.string(), "-o", keep.string()});
    ASSERT_NE(pid, 0);
    // Until the half-written temporary file has appeared, then a little longer.
    for (int i = 0; i < 500 && std::distance(std::filesystem::directory_iterator(folder.path()),
                                             std::filesystem::directory_iterator()) < 3;
         ++i)
        ::usleep(2000);
    ::usleep(50000);
    ::kill(pid, SIGKILL);
    int wstatus = 0;
    ::waitpid(pid, &wstatus, 0);
    ASSERT_TRUE(WIFSIGNALED(wstatus)) << "the export finished before it could be killed";
    EXPECT_EQ(slurp(keep), before);
}

} // namespace

// ---- loudness, normalize, trim-silence --------------------------------------------------

#include "audio/Loudness.h"

namespace {

// A WAV with `silence` seconds of digital silence around one second of a -12 dBFS tone.
std::filesystem::path toneWithSilence(const test::TemporaryFolder& folder, double silence) {
    const double rate = 48000;
    const auto pad = size_t(silence * rate);
    std::vector<float> samples(pad, 0.0f);
    for (int i = 0; i < 48000; ++i)
        samples.push_back(0.25f * float(std::sin(2 * M_PI * 440 * i / rate)));
    samples.insert(samples.end(), pad, 0.0f);
    const auto file = folder / "padded.wav";
    AudioExporter::writeLossless(AudioClip{rate, {samples, samples}}, file);
    return file;
}

} // namespace

TEST(CliLoudness, ReportsWhatTheMeterMeasuresAndWhyThereIsNone) {
    const CliRun run = cli({"loudness", "--json", path("speech.wav"), path("silence.wav")});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    ASSERT_EQ(json.size(), 2u);
    const auto expected = Loudness::integrated(*AudioLoader::load(fixture("speech.wav")));
    ASSERT_TRUE(expected);
    EXPECT_NEAR(json[0]["integratedLUFS"].get<double>(), *expected, 1e-9);
    EXPECT_TRUE(json[1]["integratedLUFS"].is_null());
    EXPECT_TRUE(json[1]["peakDBFS"].is_null());
    EXPECT_EQ(json[1]["reason"], "too quiet: nothing above the -70 LUFS gate");

    const CliRun text = cli({"loudness", path("silence.wav"), "/nonexistent/take.wav"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(
        text.out,
        path("silence.wav") +
            ": integrated none (too quiet: nothing above the -70 LUFS gate), peak -inf dBFS\n");
    ASSERT_EQ(text.errLines().size(), 2u);
    EXPECT_EQ(text.errLines()[0],
              "sonvale-cli loudness: /nonexistent/take.wav: The file doesn't exist.");
}

TEST(CliNormalize, PeakAndLoudnessTargetsSetTheGainOfTheExport) {
    test::TemporaryFolder folder;
    const CliRun peak = cli({"normalize", path("stereo-s16.wav"), "-o",
                             (folder / "peak.wav").string(), "--peak", "--format", "wav24"});
    ASSERT_EQ(peak.status, 0) << peak.err;
    EXPECT_EQ(peak.out, "+6.0 dB applied\n");
    EXPECT_NEAR(AudioLoader::load(folder / "peak.wav")->peak, 1.0f, 1e-4f);

    const CliRun target =
        cli({"normalize", path("speech.wav"), "-o", (folder / "speech.wav").string(), "--loudness",
             "-23", "--format", "wav24"});
    ASSERT_EQ(target.status, 0) << target.err;
    const auto measured = Loudness::integrated(*AudioLoader::load(folder / "speech.wav"));
    ASSERT_TRUE(measured);
    // Hard clipping on export can only lower it, and speech at -23 LUFS does not clip.
    EXPECT_NEAR(*measured, -23.0, 0.02);
}

TEST(CliNormalize, RefusesSilenceAndAmbiguousRequests) {
    test::TemporaryFolder folder;
    const std::string wav = (folder / "x.wav").string(), flac = (folder / "x.flac").string();
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{path("silence.wav"), "-o", wav, "--peak"}, "silence.wav: The whole track is silent."},
        {{path("speech.wav"), "-o", wav, "--peak", "--loudness", "-16"},
         "either --peak or --loudness"},
        {{path("speech.wav"), "-o", flac, "--peak"}, "can't tell the format"}};
    for (const auto& [args, message] : cases) {
        std::vector<std::string> all{"normalize"};
        all.insert(all.end(), args.begin(), args.end());
        const CliRun run = cli(all);
        EXPECT_EQ(run.status, 1) << message;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(wav));
}

TEST(CliTrimSilence, KeepsTheAudiblePartWithTenMillisecondsOfPadding) {
    test::TemporaryFolder folder;
    const auto input = toneWithSilence(folder, 0.5);
    const CliRun run = cli({"trim-silence", input.string(), "-o", (folder / "kept.wav").string(),
                            "--format", "wav24"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto kept = AudioLoader::load(folder / "kept.wav");
    // The tone's first sample is 0, so it is heard from frame 24001 to 72000.
    EXPECT_EQ(kept->frameCount, (72000 + 480) - (24001 - 480));
    EXPECT_EQ(run.out, "kept frames 23521:72480 of 96000\n");
}

TEST(CliTrimSilence, SaysWhenThereIsNothingToTrim) {
    test::TemporaryFolder folder;
    const CliRun silent =
        cli({"trim-silence", path("silence.wav"), "-o", (folder / "a.wav").string()});
    EXPECT_EQ(silent.status, 1);
    EXPECT_NE(silent.err.find("The whole track is silent."), std::string::npos);
    const CliRun tight = cli({"trim-silence", toneWithSilence(folder, 0.005).string(), "-o",
                              (folder / "b.wav").string()});
    EXPECT_EQ(tight.status, 1);
    EXPECT_NE(tight.err.find("There's no silence (below -60 dBFS) at the start or end."),
              std::string::npos)
        << tight.err;
    EXPECT_FALSE(std::filesystem::exists(folder / "b.wav"));
}
