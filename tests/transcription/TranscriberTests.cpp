#include "transcription/ConvertedInput.h"
#include "transcription/PocketSphinxRecognizer.h"
#include "transcription/Transcriber.h"
#include "transcription/WhisperRecognizer.h"

#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/FakeRecognizer.h"
#include "support/ModelTestAudio.h"
#include "support/Signals.h"
#include "support/TinyWhisperModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

using namespace sonvale;
using sonvale::test::FakeRecognizer;
using sonvale::test::words;

namespace {

std::vector<double> progressOf(const Transcriber& t, const AudioDataPtr& audio,
                               std::vector<TranscriptSegment>* lines = nullptr,
                               const std::string& locale = "en-US") {
    std::vector<double> seen;
    auto result = t.transcribe(audio, locale, [&](Transcriber::Stage stage) {
        seen.push_back(std::get<AudioTrack::Transcribing>(stage).progress);
    });
    if (lines) *lines = result;
    return seen;
}

template <typename Run> std::string failureOf(Run&& run) {
    try {
        run();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no failure";
}

// A random-weight whisper model in a models folder of its own.
struct TinyWhisper {
    explicit TinyWhisper(bool multilingual = true) {
        sonvale::test::writeTinyWhisperModel(file, multilingual);
    }
    sonvale::test::TemporaryFolder folder;
    std::filesystem::path file = folder / "ggml-tiny-test.bin";
};

} // namespace

TEST(ConvertedInput, MixesToMonoAndConvertsInStampedChunks) {
    // Left +x, right −x cancel in the mono mix; the third channel's sine stays at a third.
    const auto tone = test::sine(440, 44100, 44100 * 3, 0.9);
    std::vector<float> inverted(tone.size());
    for (size_t i = 0; i < tone.size(); ++i)
        inverted[i] = -tone[i];
    ConvertedInput input(test::makeAudio(44100, {tone, inverted, tone}), 16000, 20000);
    ConvertedInput::Buffer buffer;
    std::vector<float> all;
    double expectedStart = 0;
    while (input.next(buffer)) {
        EXPECT_DOUBLE_EQ(buffer.start, expectedStart);
        expectedStart += double(buffer.samples.size()) / 16000;
        all.insert(all.end(), buffer.samples.begin(), buffer.samples.end());
    }
    EXPECT_TRUE(input.finished);
    EXPECT_EQ(input.position, 44100 * 3);
    EXPECT_NEAR(double(all.size()), 16000 * 3, 1);
    // Away from the edges the level is the third channel's share: 0.9 / 3 = 0.3 peak.
    EXPECT_NEAR(test::peak(all.data() + 8000, 32000), 0.3f, 0.01f);

    ConvertedInput empty(test::makeAudio(48000, {{}}), 16000);
    EXPECT_FALSE(empty.next(buffer));
    EXPECT_THROW(ConvertedInput(test::makeAudio(0, {{0.f}}), 16000), Transcriber::Failure);
}

TEST(Transcriber, LongDictationWordsBecomeLinesAndProgressFollowsResults) {
    auto engine = std::make_shared<FakeRecognizer>();
    engine->script = {
        words({{" go", 0.5, 0.8}, {" forward", 1.39, 1.9}, {" now", 2.5, 2.7}}),
        words({{"   ", 4.0, 4.2}}),
        words({{" late", 9.0, 12.5}}),
    };
    Transcriber transcriber(nullptr, engine);
    std::vector<TranscriptSegment> lines;
    // 10 s of audio; the last result ends after it, and progress stops at 1.
    const auto seen = progressOf(transcriber, sonvale::test::makeNoise(48000, 2, 480000), &lines);
    EXPECT_THAT(seen, ::testing::Pointwise(::testing::DoubleNear(1e-12),
                                           std::vector<double>{0.27, 0.42, 1.0}));
    // 0.59 s joins, 0.6 s parts; a piece of spaces alone is dropped.
    EXPECT_EQ(lines, (std::vector<TranscriptSegment>{
                         {"go forward", 0.5, 1.9}, {"now", 2.5, 2.7}, {"late", 9.0, 12.5}}));
    // The whole signal reached the engine, once, in order.
    EXPECT_NEAR(double(engine->heard.size()), 160000, 1);
    EXPECT_TRUE(std::is_sorted(engine->stamps.begin(), engine->stamps.end()));

    // No audio: no progress at all.
    engine->script.clear();
    EXPECT_TRUE(progressOf(transcriber, test::makeAudio(48000, {{}})).empty());
}

TEST(Transcriber, ThePhraseEngineTakesItsLanguagesAndPhrasesStayWhole) {
    auto phrases = std::make_shared<FakeRecognizer>();
    phrases->engineMode = SpeechRecognizer::Mode::phraseLevel;
    phrases->locales = {"de-DE", "en-US"};
    phrases->script = {words({{" Guten", 0.1, 0.4}, {" Tag", 1.5, 1.9}})};
    auto dictation = std::make_shared<FakeRecognizer>();
    Transcriber transcriber(phrases, dictation);
    std::vector<TranscriptSegment> lines;
    progressOf(transcriber, sonvale::test::makeNoise(16000, 1, 32000), &lines);
    EXPECT_EQ(lines, (std::vector<TranscriptSegment>{{" Guten Tag", 0.1, 1.9}}));
    EXPECT_TRUE(dictation->heard.empty());
    EXPECT_EQ(transcriber.languages().identifiers, (std::vector<std::string>{"de-DE", "en-US"}));
}

TEST(Transcriber, LanguagesFailuresAndCancelling) {
    auto dictation = std::make_shared<FakeRecognizer>();
    Transcriber transcriber(nullptr, dictation);
    for (const char* id : {"en-US", "en_US", "en-us", "en", "en-GB", "en_US.UTF-8"})
        EXPECT_EQ(transcriber.locale(id), "en-US") << id;
    EXPECT_EQ(transcriber.locale("fr-FR"), std::nullopt);
    EXPECT_EQ(transcriber.resolve(std::nullopt), "en-US");

    auto failure = [&](auto&& run) -> std::string {
        try {
            run();
        } catch (const Transcriber::Failure& f) {
            return f.what();
        }
        return "no failure";
    };
    EXPECT_EQ(failure([&] { transcriber.resolve("de-CH"); }),
              "Transcription doesn't support German (CH).");
    EXPECT_EQ(failure([&] { transcriber.resolve("fr-FR"); }),
              "Transcription doesn't support French (France).");
    Transcriber none(nullptr, nullptr);
    EXPECT_FALSE(none.isAvailable());
    EXPECT_EQ(failure([&] { none.resolve("en-US"); }),
              "Speech transcription isn't available on this computer.");

    std::atomic<bool> cancelled{true};
    EXPECT_THROW(transcriber.transcribe(
                     sonvale::test::makeNoise(16000, 1, 16000), "en-US", [](Transcriber::Stage) {},
                     &cancelled),
                 TranscriptionCancelled);
}

TEST(PocketSphinx, WordsLoseFillersAndPronunciationMarks) {
    const std::pair<const char*, const char*> cases[] = {
        {"that(2)", "that"}, {"<s>", ""},    {"</s>", ""},         {"<sil>", ""},
        {"[NOISE]", ""},     {"++UH++", ""}, {"meters", "meters"}, {"o'clock", "o'clock"},
    };
    for (auto [token, word] : cases)
        EXPECT_EQ(spokenWord(token), word) << token;
}

TEST(PocketSphinx, TranscribesReadSpeechAtItsPlaceInAStereoFile) {
    ASSERT_TRUE(PocketSphinxRecognizer::isInstalled()) << "scripts/setup-deps.sh installs it";
    const auto audio = AudioLoader::load(test::fixture("read-speech.flac"));
    const Transcriber transcriber(nullptr, std::make_shared<PocketSphinxRecognizer>());
    std::vector<TranscriptSegment> lines;
    const auto seen = progressOf(transcriber, audio, &lines);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "go forward ten meters");
    // The words start 0.46 s into the clip, which follows 3 s of silence.
    EXPECT_NEAR(lines[0].start, 3.46, 0.1);
    EXPECT_NEAR(lines[0].end, 5.1, 0.2);
    EXPECT_NE(lines[1].text.find("young man"), std::string::npos) << lines[1].text;
    // The second clip starts at 7.79 s.
    EXPECT_GT(lines[1].start, 7.8);
    EXPECT_LE(lines[1].end, 10.78);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_NEAR(seen[0], lines[0].end / 10.78, 0.01);
}

TEST(Whisper, TakesEveryLanguageItHasIncludingEnglishFromPocketSphinx) {
    const TinyWhisper multilingual;
    const auto both = Transcriber::installed(ModelFolder{multilingual.folder.path()});
    const auto ids = both->languages().identifiers;
    EXPECT_EQ(ids.size(), 100u);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), "en"), 1);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), "en-US"), 0) << "English is offered once";
    for (const char* id : {"en-US", "en", "en_GB.UTF-8"})
        EXPECT_EQ(both->recognizerFor(both->resolve(id))->engineName(), "whisper") << id;
    EXPECT_EQ(both->resolve("de-CH"), "de");
    EXPECT_EQ(both->engineSummary(),
              "Speech engines: whisper (100 languages); pocketsphinx (English (United States))");
    EXPECT_EQ(languageDisplayName("haw"), "Hawaiian");

    const TinyWhisper english(false);
    const auto englishOnly = Transcriber::installed(ModelFolder{english.folder.path()});
    EXPECT_EQ(englishOnly->languages().identifiers, std::vector<std::string>{"en"});
    EXPECT_EQ(failureOf([&] { englishOnly->resolve("de"); }),
              "Transcription doesn't support German.");
}

TEST(Whisper, SegmentsBecomeOrderedLinesInsideTheAudioAcrossBlocks) {
    const TinyWhisper model;
    const Transcriber transcriber(std::make_shared<WhisperRecognizer>(model.file, 1, 10.0),
                                  nullptr);
    std::vector<TranscriptSegment> lines;
    const auto seen =
        progressOf(transcriber, sonvale::test::makeNoise(44100, 2, 44100 * 25), &lines, "de");
    ASSERT_FALSE(lines.empty());
    double previousEnd = 0;
    for (const auto& line : lines) {
        EXPECT_THAT(line.text, ::testing::MatchesRegex("w[0-9]+( w[0-9]+)*"));
        EXPECT_GE(line.start, previousEnd);
        EXPECT_GE(line.end, line.start);
        EXPECT_LE(line.end, 25.0);
        previousEnd = line.end;
    }
    EXPECT_EQ(seen.size(), lines.size());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(Whisper, CancellingStopsTheEngineAndBadFilesAreNamed) {
    const TinyWhisper model;
    const WhisperRecognizer engine(model.file, 1);
    std::atomic<bool> cancelled{true};
    const auto run = engine.start("en", &cancelled);
    std::vector<RecognizerResult> results;
    const std::vector<float> speech(16000 * 5, 0.1f);
    run->feed(speech, 0, results);
    EXPECT_THROW(run->finish(results), TranscriptionCancelled);

    // Half a model, as an interrupted download leaves it, passes the header check only.
    std::filesystem::copy_file(model.file, model.folder / "ggml-damaged.bin");
    std::filesystem::resize_file(model.folder / "ggml-damaged.bin",
                                 std::filesystem::file_size(model.file) / 2);
    std::ofstream(model.folder / "ggml-text.bin") << "not a model";
    const WhisperRecognizer damaged(model.folder / "ggml-damaged.bin");
    EXPECT_THAT(failureOf([&] { damaged.start("en", nullptr); }),
                ::testing::HasSubstr("“ggml-damaged.bin” couldn't be loaded"));
    EXPECT_THAT(failureOf([&] { WhisperRecognizer(model.folder / "ggml-text.bin"); }),
                ::testing::HasSubstr("“ggml-text.bin” couldn't be loaded"));
    // A folder whose first speech model is no model leaves pocketsphinx in charge.
    std::filesystem::remove(model.file);
    std::filesystem::remove(model.folder / "ggml-damaged.bin");
    EXPECT_EQ(Transcriber::installed(ModelFolder{model.folder.path()})->engineSummary(),
              "Speech engine: pocketsphinx (English (United States))");
}
