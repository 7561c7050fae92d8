// sonvale-cli play, run as a separate process.

#include "support/SoundServer.h"

#include "support/CliCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace sonvale::test;

namespace {

// A two-second 440 Hz tone made by sox, in the temporary directory.
std::string toneFile() {
    auto path = std::filesystem::temp_directory_path() / "sonvale-play-tone.wav";
    std::string command = "sox -n -r 48000 -c 2 -b 16 " + path.string() +
                          " synth 2 sine 440 vol 0.5 2>/dev/null";
    if (std::system(command.c_str()) != 0) return {};
    return path.string();
}

} // namespace

TEST(PlayCommand, RejectsBadArgumentsWithAClearMessage) {
    auto run = runCli("play");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("play needs a FILE"), std::string::npos) << run.output;

    run = runCli("play x.wav --speed 3");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("--speed must lie between 0.5 and 2"), std::string::npos) << run.output;

    run = runCli("play x.wav --speed fast");
    EXPECT_NE(run.output.find("--speed needs a number, not “fast”"), std::string::npos) << run.output;
}

// The effect syntax is the one `apply` takes; its messages are tested with EffectSetup.
// Here: a bad effect is refused before the file is even opened.
TEST(PlayCommand, RejectsABadEffectBeforeOpeningTheFile) {
    auto run = runCli("play /nonexistent/x.wav --effect eq");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output.find("x.wav"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("eq"), std::string::npos) << run.output;

    run = runCli("play /nonexistent/x.wav --effect 'limiter,Gain=40'");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("Gain"), std::string::npos) << run.output;
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
    int error = posix_spawn(&pid, SONVALE_CLI_PATH, &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    ASSERT_EQ(error, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill(pid, SIGINT);
    std::string output;
    std::array<char, 4096> buffer;
    for (ssize_t n; (n = read(fds[0], buffer.data(), buffer.size())) > 0;) output.append(buffer.data(), size_t(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (output.find("not built yet") != std::string::npos)
        GTEST_SKIP() << "decoding is not available in this build: " << output;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;
    EXPECT_NE(output.find("interrupted at"), std::string::npos) << output;
}
