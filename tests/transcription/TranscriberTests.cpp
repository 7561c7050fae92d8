#include "transcription/ConvertedInput.h"
#include "transcription/PocketSphinxRecognizer.h"
#include "transcription/Transcriber.h"

#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/FakeRecognizer.h"
#include "support/ModelTestAudio.h"
#include "support/Signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

using namespace sonvale;
using sonvale::test::FakeRecognizer;
using sonvale::test::words;

namespace {

std::vector<double> progressOf(const Transcriber& t, const AudioDataPtr& audio,
                               std::vector<TranscriptSegment>* lines = nullptr) {
    std::vector<double> seen;
    auto result = t.transcribe(audio, "en-US", [&](Transcriber::Stage stage) {
        seen.push_back(std::get<AudioTrack::Transcribing>(stage).progress);
    });
    if (lines) *lines = result;
    return seen;
}

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
    const auto seen =
        progressOf(transcriber, sonvale::testing::makeNoise(48000, 2, 480000), &lines);
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
    progressOf(transcriber, sonvale::testing::makeNoise(16000, 1, 32000), &lines);
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
                     sonvale::testing::makeNoise(16000, 1, 16000), "en-US",
                     [](Transcriber::Stage) {}, &cancelled),
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
    const auto transcriber = Transcriber::installed();
    std::vector<TranscriptSegment> lines;
    const auto seen = progressOf(*transcriber, audio, &lines);
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
