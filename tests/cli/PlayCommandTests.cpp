// sonvale-cli play, run as a separate process.

#include "support/SoundServer.h"

#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/CliCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace sonvale::test;

namespace {

// A two-second 440 Hz tone made by sox, in the temporary directory.
std::string toneFile() {
    auto path = std::filesystem::temp_directory_path() / "sonvale-play-tone.wav";
    std::string command =
        "sox -n -r 48000 -c 2 -b 16 " + path.string() + " synth 2 sine 440 vol 0.5 2>/dev/null";
    if (std::system(command.c_str()) != 0) return {};
    return path.string();
}

// Two seconds of clicks (5 ms bursts of 1 kHz), three in the first second, at other times and
// levels in every channel, then silence for the echoes; written as a float WAV by sox.
std::string clickFile(const TemporaryFolder& folder, int channels) {
    const int64_t frames = 96000;
    std::vector<float> interleaved(size_t(frames * channels));
    for (int c = 0; c < channels; ++c)
        for (int k = 0; k < 3; ++k)
            for (int64_t i = 0; i < 240; ++i) {
                const double window = std::sin(M_PI * double(i) / 240);
                interleaved[size_t((9600 + 16800 * k + 1200 * c + i) * channels + c)] =
                    float((0.4 - 0.07 * c) * window * window * std::sin(2 * M_PI * double(i) / 48));
            }
    const auto raw = folder / "clicks.f32", wav = folder / "clicks.wav";
    std::ofstream(raw, std::ios::binary)
        .write(reinterpret_cast<const char*>(interleaved.data()),
               std::streamsize(interleaved.size() * sizeof(float)));
    const std::string command = "sox -t raw -r 48000 -e floating-point -b 32 -c " +
                                std::to_string(channels) + " " + raw.string() + " " + wav.string() +
                                " 2>/dev/null";
    return std::system(command.c_str()) == 0 ? wav.string() : std::string();
}

// The largest difference between `heard`, from frame `lag` on, and `expected`.
float largestDifference(const std::vector<float>& heard, int64_t lag, const float* expected,
                        int64_t frames) {
    float largest = 0;
    for (int64_t i = 0; i < frames; ++i) {
        const int64_t at = i + lag;
        const float h = at >= 0 && at < int64_t(heard.size()) ? heard[size_t(at)] : 0.0f;
        largest = std::max(largest, std::fabs(h - expected[i]));
    }
    return largest;
}

} // namespace

// The effect syntax is the one `apply` takes; its messages are tested with EffectSetup. Here:
// a bad effect is refused before the file is even opened, so the message never names it.
TEST(PlayCommand, RejectsBadArgumentsWithAClearMessageBeforeOpeningTheFile) {
    const std::pair<const char*, const char*> cases[] = {
        {"play", "play needs a FILE"},
        {"play /nonexistent/x.wav --speed 3", "--speed must lie between 0.5 and 2"},
        {"play /nonexistent/x.wav --speed fast", "--speed needs a number, not “fast”"},
        {"play /nonexistent/x.wav --effect eq", "eq"},
        {"play /nonexistent/x.wav --effect 'limiter,Gain=40'", "Gain"}};
    for (const auto& [arguments, message] : cases) {
        const auto run = runCli(arguments);
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
        EXPECT_EQ(run.output.find("x.wav"), std::string::npos) << run.output;
    }
}

TEST(HeardPlayCommand, PlaysAFileReportingPositionAndPeakThenFinishes) {
    if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
    auto file = toneFile();
    ASSERT_FALSE(file.empty()) << "sox could not make the tone";
    auto run = runCli("play " + file + " --effect 'limiter@Safety'");
    if (run.output.find("not built yet") != std::string::npos)
        GTEST_SKIP() << "decoding is not available in this build: " << run.output;
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("peak   -6.0 dB   -6.0 dB"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("finished at"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("0 output underruns"), std::string::npos) << run.output;
}

TEST(HeardPlayCommand, SecondsCountsAudioHeardNotTimeSinceTheStart) {
    if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
    auto file = toneFile();
    ASSERT_FALSE(file.empty()) << "sox could not make the tone";
    MonitorRecorder recorder;
    recorder.start();
    auto run = runCli("play " + file + " --seconds 1");
    recorder.stop();
    ASSERT_EQ(run.status, 0) << run.output;
    auto loud = [](float x) { return std::abs(x) > 0.05f; };
    const auto first = std::find_if(recorder.left.begin(), recorder.left.end(), loud);
    const auto last = std::find_if(recorder.left.rbegin(), recorder.left.rend(), loud);
    ASSERT_NE(first, recorder.left.end()) << "nothing was heard";
    const double heard = double(std::distance(first, last.base())) / MonitorRecorder::sampleRate;
    // Within two 20 ms polls of the second asked for.
    EXPECT_NEAR(heard, 1.0, 0.05) << run.output;
}

TEST(HeardPlayCommand, InterruptStopsCleanly) {
    if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
    auto file = toneFile();
    ASSERT_FALSE(file.empty());
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    const char* argv[] = {SONVALE_CLI_PATH, "play", file.c_str(), "--loop", nullptr};
    pid_t pid = -1;
    int error =
        posix_spawn(&pid, SONVALE_CLI_PATH, &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    ASSERT_EQ(error, 0);
    // The interrupt goes once the tool says it plays (its handler is in place by then; a slow
    // start under a sanitizer must not meet the signal first), and after some of it was heard.
    std::string output;
    std::array<char, 4096> buffer;
    for (ssize_t n; output.find("playing ") == std::string::npos &&
                    (n = read(fds[0], buffer.data(), buffer.size())) > 0;)
        output.append(buffer.data(), size_t(n));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill(pid, SIGINT);
    for (ssize_t n; (n = read(fds[0], buffer.data(), buffer.size())) > 0;)
        output.append(buffer.data(), size_t(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (output.find("not built yet") != std::string::npos)
        GTEST_SKIP() << "decoding is not available in this build: " << output;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;
    EXPECT_NE(output.find("interrupted at"), std::string::npos) << output;
}

// `play --effect` and `apply` of a chain that treats the channels differently (ping-pong echoes,
// a chorus spread across the channels, a reverb fed from all of them): what the sink records is
// the applied file laid out as playback lays out any file, mono on both sides and the first
// two of four channels.
TEST(HeardPlayCommand, WhatIsHeardIsWhatApplyWritesOnEveryChannelCount) {
    if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
    const std::string chain =
        " --effect delay@Ping-Pong --effect 'chorus@Wide Stereo' --effect reverb@Hall";
    for (int channels : {1, 2, 4}) {
        SCOPED_TRACE(std::to_string(channels) + " channels");
        TemporaryFolder folder;
        const auto file = clickFile(folder, channels);
        ASSERT_FALSE(file.empty()) << "sox could not make the clicks";
        const auto written = folder / "applied.wav";
        auto run = runCli("apply " + file + " -o " + written.string() + chain);
        ASSERT_EQ(run.status, 0) << run.output;
        const auto applied = sonvale::AudioLoader::load(written.string());
        const auto dry = sonvale::AudioLoader::load(file);
        ASSERT_EQ(applied->channelCount(), channels);

        MonitorRecorder recorder;
        recorder.start();
        run = runCli("play " + file + chain);
        recorder.stop();
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_NE(run.output.find("0 output underruns"), std::string::npos) << run.output;

        // The first two seconds, less the last tenth that the end of playback may cut short,
        // from where the first click starts in the recording.
        const int64_t frames = dry->frameCount - 4800;
        auto onset = [](const float* samples, int64_t count) {
            return std::find_if(samples, samples + count,
                                [](float x) { return std::fabs(x) > 0.02f; }) -
                   samples;
        };
        const int64_t heardOnset = onset(recorder.left.data(), int64_t(recorder.left.size()));
        ASSERT_LT(heardOnset, int64_t(recorder.left.size())) << "nothing was heard";
        const int64_t lag = heardOnset - onset(applied->samples(0), frames);
        for (int c = 0; c < 2; ++c) {
            SCOPED_TRACE(c == 0 ? "left" : "right");
            const auto& heard = c == 0 ? recorder.left : recorder.right;
            const int source = std::min(c, channels - 1);
            EXPECT_LT(largestDifference(heard, lag, applied->samples(source), frames), 1e-6f);
            // The effects are heard at all: far from the file as it is.
            EXPECT_GT(largestDifference(heard, lag, dry->samples(source), frames), 0.05f);
        }
    }
}
