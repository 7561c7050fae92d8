// Records through a real sound server: the private PulseAudio of scripts/sound-server.sh plays
// a tone into its null sink, whose monitor is the default input. Skipped, with the reason,
// where no server runs.

#include "engine/AudioRecorder.h"

#include "audio/AudioLoader.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"
#include "support/PlaybackTestAudio.h"
#include "support/SoundServer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>

using namespace sonvale;
using namespace sonvale::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

extern char** environ;

namespace {

class HeardRecording : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = useSoundServer()) GTEST_SKIP() << *reason;
    }

    // A 1 kHz tone at -6 dBFS playing into the sink until the test ends.
    void playTone() {
        player = std::make_unique<PlaybackEngine>();
        auto tone = makeSine(48000, 2, 48000, 1000, 0.5f);
        auto source =
            player->prepare(AudioDataContent::make(tone), std::make_shared<GainBox>(1.0f));
        source->start({0, tone->frameCount}, 0, true);
        player->start();
        std::this_thread::sleep_for(400ms); // until the monitor carries it
    }

    // Lets the model's live timer run in real time until `done` or `seconds` pass.
    bool runModel(const std::function<bool()>& done, double seconds) {
        const auto until =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (!done() && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(20ms);
            executor.advance(20ms);
            executor.drain();
        }
        return done();
    }

    std::unique_ptr<PlaybackEngine> player;
    ManualExecutor executor;
    Preferences preferences;
    TemporaryFolder folder;
};

} // namespace

TEST_F(HeardRecording, RecordsTheToneAtItsFrequencyLevelAndLengthInEachFormat) {
    playTone();
    for (int channels : {1, 2})
        for (RecordingFormat format :
             {RecordingFormat::wav16, RecordingFormat::wav24, RecordingFormat::wav32Float}) {
            SCOPED_TRACE(std::to_string(channels) + " " + std::string(rawValue(format)));
            const fs::path url =
                folder / (std::to_string(channels) + "-" + std::string(rawValue(format)) + ".wav");
            AudioRecorder recorder;
            RecordingWriter::Options options;
            options.secondsLimit = 1;
            recorder.start(url, format, std::nullopt, channels, options);
            const auto writer = recorder.currentWriter();
            for (int i = 0; i < 500 && !writer->isComplete(); ++i)
                std::this_thread::sleep_for(10ms);
            recorder.stop();
            EXPECT_FALSE(writer->writeError());
            const AudioDataPtr audio = AudioLoader::load(url);
            ASSERT_EQ(audio->channelCount(), channels);
            EXPECT_EQ(audio->frameCount, std::llround(audio->sampleRate));
            for (int c = 0; c < channels; ++c) {
                std::span<const float> middle(audio->samples(c) + audio->frameCount / 4,
                                              size_t(audio->frameCount / 2));
                EXPECT_NEAR(zeroCrossingFrequency(middle, audio->sampleRate), 1000.0, 2.0);
                EXPECT_NEAR(peakOf(middle), 0.5f, 0.02f);
            }
        }
}

TEST_F(HeardRecording, TheEditorRecordsIntoANewTrackAndOntoTheTimeline) {
    playTone();
    preferences.setRecordingsFolderPath((folder / "Recordings").string());
    EditorModel model(executor, preferences);
    model.setShowingTimeline(true);
    model.beginRecording(true);
    ASSERT_TRUE(model.isRecording()) << (model.alert() ? model.alert()->message : "");
    const auto track = model.activeTrack();
    ASSERT_TRUE(track && track->isRecording() && track->liveAudio());
    EXPECT_EQ(track->url().parent_path(), folder / "Recordings");
    EXPECT_TRUE(track->url().filename().string().starts_with("Recording "));
    ASSERT_TRUE(runModel([&] { return track->liveAudio()->duration() > 1.0; }, 5));
    ASSERT_FALSE(model.inputLevel().peaksDB.empty());
    EXPECT_NEAR(model.inputLevel().peaksDB[0], -6.0, 1.0);
    EXPECT_GT(model.recordedSeconds(), 1.0);

    model.stopRecording();
    EXPECT_FALSE(model.isRecording());
    EXPECT_FALSE(track->isRecording());
    ASSERT_TRUE(runModel([&] { return track->isReady(); }, 5));
    EXPECT_FALSE(model.alert());
    EXPECT_NEAR(track->audio()->duration(),
                model.timeline()->lanes().at(0).clips.at(0).length / track->sampleRate(), 1e-9);
    EXPECT_GT(track->audio()->duration(), 1.0);
    EXPECT_FALSE(track->liveAudio()) << "the opened file takes the live picture's place";
}

TEST_F(HeardRecording, AFullDiskEndsTheRecordingIncompleteWithTheEarlierAudioKept) {
    playTone();
    SmallDisk disk(300 * 1024);
    preferences.setRecordingsFolderPath(disk.path().string());
    EditorModel model(executor, preferences);
    model.beginRecording(true);
    ASSERT_TRUE(model.isRecording());
    const auto track = model.activeTrack();
    runModel([&] { return model.recordedSeconds() > 2.5; }, 2.5);
    model.stopRecording();
    ASSERT_TRUE(model.alert());
    EXPECT_EQ(model.alert()->title, EditorModel::recordingIncompleteTitle);
    EXPECT_NE(model.alert()->message.find("The recording up to there is kept."), std::string::npos);
    ASSERT_TRUE(runModel([&] { return track->isReady(); }, 5));
    EXPECT_GT(track->audio()->duration(), 0.3);
}

TEST_F(HeardRecording, AnInputThatVanishesStopsTheRecordingAndKeepsWhatCame) {
    // A sound server of this test's own, killed while the editor records from it.
    const fs::path script = fs::path(SONVALE_SOURCE_DIR) / "scripts/sound-server.sh";
    const fs::path dir = folder / "server";
    ASSERT_EQ(std::system((script.string() + " start " + dir.string() + " 2>/dev/null").c_str()),
              0);
    std::ifstream env(dir / "env");
    ASSERT_TRUE(env) << "the private server did not start";
    for (std::string line; std::getline(env, line);)
        if (auto eq = line.find('='); eq != std::string::npos)
            setenv(line.substr(0, eq).c_str(), line.substr(eq + 1).c_str(), 1);

    preferences.setRecordingsFolderPath(folder.path().string());
    EditorModel model(executor, preferences);
    model.beginRecording(true);
    ASSERT_TRUE(model.isRecording());
    const auto track = model.activeTrack();
    ASSERT_TRUE(runModel([&] { return model.recordedSeconds() > 0.5; }, 10));
    std::ifstream pid(dir / "pid");
    int serverPid = 0;
    pid >> serverPid;
    ASSERT_GT(serverPid, 0);
    ::kill(serverPid, SIGKILL);
    EXPECT_TRUE(runModel([&] { return !model.isRecording(); }, 10));
    std::system((script.string() + " stop " + dir.string()).c_str());
    ASSERT_TRUE(model.alert());
    EXPECT_EQ(model.alert()->title, EditorModel::recordingStoppedTitle);
    EXPECT_EQ(model.alert()->message, EditorModel::inputChangedMessage);
    ASSERT_TRUE(runModel([&] { return track->isReady(); }, 5));
    EXPECT_GT(track->audio()->duration(), 0.5);
}

TEST_F(HeardRecording, ARecordingKilledMidwayOpensWithAllButItsLastSecond) {
    const std::string out = (folder / "killed.wav").string();
    const char* argv[] = {SONVALE_CLI_PATH, "record", "-o",   out.c_str(),
                          "--seconds",      "30",     nullptr};
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ASSERT_EQ(
        posix_spawn(&pid, SONVALE_CLI_PATH, &actions, nullptr, const_cast<char**>(argv), environ),
        0);
    posix_spawn_file_actions_destroy(&actions);
    // Until the file holds three seconds of audio, then without warning.
    for (int i = 0; i < 1000 && !(fs::exists(out) && fs::file_size(out) > 3 * 44100 * 6); ++i)
        std::this_thread::sleep_for(10ms);
    ::kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    const AudioDataPtr audio = AudioLoader::load(out);
    // About three seconds were written; the header is at most a second behind.
    EXPECT_GT(audio->duration(), 1.9);
    EXPECT_LT(audio->duration(), 3.5);
}
