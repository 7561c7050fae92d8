// The recording writer, the live waveform, the recording's file name and a start that fails,
// without a real device: buffers are handed to the writer as the capture thread would.

#include "engine/RecordingWriter.h"

#include "audio/AudioLoader.h"
#include "audio/LiveAudio.h"
#include "editor/EditorModel.h"
#include "support/AllocationCounter.h"
#include "support/AudioFiles.h"
#include "support/LockCounter.h"
#include "support/Signals.h"

#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <thread>

using namespace sonvale;
using namespace sonvale::test;
namespace fs = std::filesystem;

namespace {

constexpr double rate = 48000;

// Hands `samples` (one array per input channel) to the writer in buffers of the given sizes,
// over and over until all is written.
void feed(RecordingWriter& writer, const std::vector<std::vector<float>>& samples,
          std::initializer_list<int64_t> sizes = {4096}) {
    const int64_t total = int64_t(samples[0].size());
    std::vector<const float*> pointers(samples.size());
    int64_t at = 0;
    for (size_t k = 0; at < total; ++k) {
        const int64_t n = std::min(total - at, *(sizes.begin() + k % sizes.size()));
        for (size_t c = 0; c < samples.size(); ++c)
            pointers[c] = samples[c].data() + at;
        writer.write(pointers.data(), int(samples.size()), n);
        at += n;
    }
}

} // namespace

TEST(RecordingWriter, WritesEachFormatAndAMonoInputFillsEveryChannel) {
    struct Case {
        RecordingFormat format;
        const char* codec;
        float tolerance;
    };
    TemporaryFolder folder;
    // Past full scale at the end: integer formats clip it rather than wrap it around.
    std::vector<float> input = sine(440, rate, 20000, 0.9);
    input.push_back(1.5f);
    for (const Case& c : {Case{RecordingFormat::wav16, "pcm_s16le", 1.0f / 16384},
                          Case{RecordingFormat::wav24, "pcm_s24le", 1.0f / 4000000},
                          Case{RecordingFormat::wav32Float, "pcm_f32le", 0}}) {
        SCOPED_TRACE(c.codec);
        const fs::path url = folder / (std::string(c.codec) + ".wav");
        RecordingWriter writer(url, rate, 2, c.format);
        feed(writer, {input}, {1000, 4096, 7, 5000});
        writer.finish();
        EXPECT_EQ(writer.frames(), int64_t(input.size()));
        EXPECT_FALSE(writer.writeError());
        EXPECT_EQ(AudioLoader::probe(url).codec, c.codec);
        const AudioDataPtr audio = AudioLoader::load(url);
        ASSERT_EQ(audio->channelCount(), 2);
        ASSERT_EQ(audio->frameCount, int64_t(input.size()));
        for (int ch = 0; ch < 2; ++ch)
            for (size_t i = 0; i + 1 < input.size(); ++i)
                ASSERT_NEAR(audio->samples(ch)[i], input[i], c.tolerance) << ch << " " << i;
        const float last = audio->samples(1)[input.size() - 1];
        if (c.format == RecordingFormat::wav32Float)
            EXPECT_EQ(last, 1.5f);
        else
            EXPECT_NEAR(last, 1.0f, 0.001f);
    }
}

TEST(RecordingWriter, InputLevelIsThePeakSinceTheLastReadingFlooredAtMinus120dB) {
    TemporaryFolder folder;
    RecordingWriter writer(folder / "level.wav", rate, 2, RecordingFormat::wav24);
    feed(writer, {std::vector<float>(4096, 0.0f), std::vector<float>(4096, 0.0f)});
    EXPECT_EQ(writer.peaksDB(), (std::vector<float>{-120.0f, -120.0f}));
    feed(writer, {sine(1000, rate, 4096, 0.5), sine(1000, rate, 4096, 0.25)});
    const auto levels = writer.peaksDB();
    EXPECT_NEAR(levels[0], -6.02, 0.05);
    EXPECT_NEAR(levels[1], -12.04, 0.05);
    EXPECT_TRUE(writer.peaksDB().empty()) << "no input since the last reading";
    feed(writer, {sine(1000, rate, 4096, 0.125), sine(1000, rate, 4096, 0.125)});
    EXPECT_NEAR(writer.peaksDB()[0], -18.06, 0.05) << "a reading starts the next one afresh";
}

TEST(RecordingWriter, CapturingNeitherAllocatesNorLocks) {
    TemporaryFolder folder;
    RecordingWriter writer(folder / "rt.wav", rate, 2, RecordingFormat::wav32Float);
    const auto left = noise(5000, 1), right = noise(5000, 2);
    const float* channels[] = {left.data(), right.data()};
    writer.write(channels, 2, 4096); // first use of everything
    AllocationCounter::Scope allocations;
    LockCounter::Scope locks;
    for (int i = 0; i < 8; ++i)
        writer.write(channels, i % 2 ? 1 : 2, 4096 + 100 * i);
    EXPECT_EQ(allocations.allocations(), 0);
    EXPECT_EQ(allocations.frees(), 0);
    if (LockCounter::available) {
        EXPECT_EQ(locks.locks() + locks.tryLocks(), 0);
    }
}

TEST(RecordingWriter, ASlowDiskLosesNothingWhileTheRingHasRoom) {
    TemporaryFolder folder;
    RecordingWriter::Options options;
    options.ringSeconds = 4;
    options.beforeWrite = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    RecordingWriter writer(folder / "slow.wav", rate, 1, RecordingFormat::wav32Float, options);
    const auto input = noise(int64_t(3 * rate), 7, 0.5);
    feed(writer, {input}); // three seconds at once: far faster than the disk takes them
    writer.finish();
    EXPECT_EQ(writer.droppedFrames(), 0);
    const AudioDataPtr audio = AudioLoader::load(writer.url);
    ASSERT_EQ(audio->frameCount, int64_t(input.size()));
    EXPECT_TRUE(std::equal(input.begin(), input.end(), audio->samples(0)));
}

TEST(RecordingWriter, InputThatFindsTheRingFullIsCountedAndKeptAsSilence) {
    TemporaryFolder folder;
    RecordingWriter::Options options;
    options.ringSeconds = 0; // the smallest ring: four slots
    std::atomic<bool> writing{false}, stalled{true};
    options.beforeWrite = [&] {
        writing = true;
        while (stalled.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    RecordingWriter writer(folder / "stalled.wav", rate, 1, RecordingFormat::wav32Float, options);
    const int64_t slot = RecordingWriter::slotFrames;
    auto wait = [](auto done) {
        for (int i = 0; i < 5000 && !done(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_TRUE(done());
    };
    // The writer stalls on the first buffer, which keeps its slot; three more fill the ring
    // and the other five are lost.
    feed(writer, {std::vector<float>(size_t(slot), 0.25f)});
    wait([&] { return writing.load(); });
    feed(writer, {std::vector<float>(size_t(8 * slot), 0.5f)});
    EXPECT_EQ(writer.droppedFrames(), 5 * slot);
    stalled = false;
    wait([&] { return writer.frames() == 4 * slot; });
    feed(writer, {std::vector<float>(size_t(slot), 0.75f)});
    writer.finish();
    const int64_t total = 10 * slot;
    EXPECT_EQ(writer.frames(), total) << "lost input is written as silence of its length";
    const AudioDataPtr audio = AudioLoader::load(writer.url);
    ASSERT_EQ(audio->frameCount, total);
    const float* s = audio->samples(0);
    EXPECT_EQ(s[4 * slot - 1], 0.5f);
    EXPECT_EQ(std::count(s, s + total, 0.0f), 5 * slot);
    EXPECT_EQ(s[total - slot - 1], 0.0f) << "the silence comes right before the next buffer";
    EXPECT_EQ(s[total - slot], 0.75f);
}

TEST(RecordingWriter, ARecordingOfSetLengthEndsEvenWhenItsLastInputIsLost) {
    TemporaryFolder folder;
    RecordingWriter::Options options;
    options.ringSeconds = 0;
    options.secondsLimit = 10.0 * double(RecordingWriter::slotFrames) / rate;
    std::atomic<bool> stalled{true};
    options.beforeWrite = [&] {
        while (stalled.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    RecordingWriter writer(folder / "end.wav", rate, 1, RecordingFormat::wav16, options);
    feed(writer, {std::vector<float>(size_t(12 * RecordingWriter::slotFrames), 0.5f)});
    EXPECT_TRUE(writer.isComplete()) << "all its input has come, lost or not";
    EXPECT_GT(writer.droppedFrames(), 0);
    stalled = false;
    writer.finish();
    EXPECT_EQ(writer.frames(), 10 * RecordingWriter::slotFrames);
    EXPECT_EQ(AudioLoader::load(writer.url)->frameCount, 10 * RecordingWriter::slotFrames);
}

TEST(RecordingWriter, AFullDiskKeepsWhatWasWrittenAndSaysSo) {
    SmallDisk disk(256 * 1024);
    RecordingWriter writer(disk / "full.wav", rate, 2, RecordingFormat::wav32Float);
    const auto tone = sine(1000, rate, int64_t(rate), 0.5);
    feed(writer, {tone, tone}); // 375 KiB
    writer.finish();
    ASSERT_TRUE(writer.writeError());
    const std::string error = writer.writeError().value_or("");
    EXPECT_NE(error.find(disk.isFileSystem() ? "the disk is full" : "larger than the disk allows"),
              std::string::npos)
        << error;
    EXPECT_NE(error.find("“full.wav”"), std::string::npos);
    const AudioDataPtr kept = AudioLoader::load(writer.url);
    EXPECT_GT(kept->frameCount, int64_t(rate / 4));
    // The failed write may have put part of its buffer in, never more.
    EXPECT_GE(kept->frameCount, writer.frames());
    EXPECT_LT(kept->frameCount, writer.frames() + RecordingWriter::slotFrames);
    EXPECT_NEAR(kept->peak, 0.5f, 0.001f);
}

TEST(Recording, FileNameIsTheLocalTimeInFixedDigitsMadeUnique) {
    setenv("TZ", "UTC", 1);
    tzset();
    std::tm when{};
    when.tm_year = 2026 - 1900;
    when.tm_mon = 1;
    when.tm_mday = 3;
    when.tm_hour = 9;
    when.tm_min = 5;
    when.tm_sec = 7;
    const auto date = std::chrono::system_clock::from_time_t(timegm(&when));
    std::setlocale(LC_ALL, "");
    EXPECT_EQ(EditorModel::recordingName(date), "Recording 2026-02-03 at 09.05.07");
    TemporaryFolder folder;
    EXPECT_EQ(EditorModel::recordingURL(folder.path(), date).filename(),
              "Recording 2026-02-03 at 09.05.07.wav");
    std::ofstream(folder / "Recording 2026-02-03 at 09.05.07.wav") << "taken";
    EXPECT_EQ(EditorModel::recordingURL(folder.path(), date).filename(),
              "Recording 2026-02-03 at 09.05.07 2.wav");
}

TEST(LiveAudio, GrowingAudioDrawsAsTheSameAudioOpenedWhole) {
    const int64_t frames = 400000;
    const auto left = noise(frames, 3, 0.8), right = sine(50, rate, frames, 0.3);
    LiveAudio live(rate, 2);
    std::mt19937 random(5);
    for (int64_t at = 0; at < frames;) {
        const int64_t n = std::min<int64_t>(frames - at, random() % 5000 + 1);
        live.append({{left.begin() + at, left.begin() + at + n},
                     {right.begin() + at, right.begin() + at + n}});
        at += n;
    }
    ASSERT_EQ(live.frameCount(), frames);
    const AudioDataPtr whole = makeAudio(rate, {left, right});
    for (auto [range, columns] :
         {std::pair{FrameRange{0, frames}, 900}, std::pair{FrameRange{1234, 98765}, 300},
          std::pair{FrameRange{frames - 5000, frames}, 640}, std::pair{FrameRange{100, 140}, 40}}) {
        const auto grown = live.waveColumns(range, columns);
        const auto opened = whole->waveColumns(range, columns);
        ASSERT_EQ(grown.size(), opened.size());
        for (size_t c = 0; c < grown.size(); ++c) {
            ASSERT_EQ(grown[c].min, opened[c].min) << c;
            ASSERT_EQ(grown[c].max, opened[c].max) << c;
            ASSERT_NEAR(grown[c].rms, opened[c].rms, 1e-4) << c;
        }
    }
    const AudioDataPtr copy = live.snapshot();
    EXPECT_TRUE(std::equal(left.begin(), left.end(), copy->samples(0)));
    EXPECT_EQ(copy->peak, whole->peak);
    EXPECT_LT(double(live.memoryBytes()), 1.3 * double(frames) * 2 * sizeof(float));
}

// The device layer refusing to open: the editor says why and leaves no track and no file.
TEST(Recording, AnInputThatWontOpenLeavesNothingBehind) {
    struct MissingInput final : AudioInput {
        Format open(const std::optional<std::string>&, int) override {
            throw RecordingError(RecordingFailure::noInput);
        }
        void start(Client*) override {}
        void stop() override {}
        void close() override {}
        bool hasFailed() const override { return false; }
        double inputLatency() const override { return 0; }
        std::string deviceName() const override { return {}; }
        int64_t overflowCount() const override { return 0; }
    };
    ManualExecutor executor;
    Preferences preferences;
    TemporaryFolder folder;
    preferences.setRecordingsFolderPath(folder.path().string());
    EditorModel model(executor, preferences);
    model.setAudioInputFactory([] { return std::make_unique<MissingInput>(); });
    model.toggleRecording();
    EXPECT_FALSE(model.isRecording());
    ASSERT_TRUE(model.alert());
    EXPECT_EQ(model.alert()->title, EditorModel::recordingFailedTitle);
    EXPECT_EQ(model.alert()->message, recordingFailureText(RecordingFailure::noInput));
    EXPECT_TRUE(model.tracks().empty());
    EXPECT_TRUE(fs::is_empty(folder.path()));
}
