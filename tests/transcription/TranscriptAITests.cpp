#include "transcription/LlamaLanguageModel.h"
#include "transcription/TranscriptAI.h"

#include "base/Errors.h"
#include "support/AudioFiles.h"
#include "support/FakeLanguageModel.h"
#include "support/TinyLanguageModel.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace sonvale;
using namespace sonvale::test;

namespace {

Transcript transcriptOf(size_t lines, size_t characters) {
    Transcript transcript;
    for (size_t i = 0; i < lines; ++i)
        transcript.segments.push_back({std::string(characters, 'a'), double(i), double(i) + 1});
    return transcript;
}

} // namespace

TEST(TranscriptAI, TheOverviewReadsTheFirstChunkOnly) {
    auto model = std::make_shared<FakeLanguageModel>();
    model->answers = {R"({"title": "Go Forward", "summary": "Someone gives directions."})"};
    // 2000 characters at the smallest context: lines of 1000 go one to a chunk.
    model->context = 2600;
    const auto transcript = transcriptOf(3, 990);
    EXPECT_EQ(TranscriptAI(model).overview(transcript),
              (TranscriptAI::Overview{"Go Forward", "Someone gives directions."}));
    ASSERT_EQ(model->requests.size(), 1u);
    EXPECT_EQ(model->requests[0].instructions, TranscriptAI::instructions);
    EXPECT_EQ(model->requests[0].prompt,
              "Give this recording a title and a short summary.\n\nTranscript:\n[0] (0:00) " +
                  std::string(990, 'a'));
    EXPECT_EQ(model->requests[0].grammar, TranscriptAI::overviewFormat.grammar);
}

TEST(TranscriptAI, TopicsAskEachChunkAndCollectInOrder) {
    auto model = std::make_shared<FakeLanguageModel>();
    model->context = 2600;
    model->answers = {R"({"topics": [{"title": "Start", "line": 0}]})", R"({"topics": []})",
                      R"({"topics": [{"title": "End", "line": 2}, {"title": "Coda", "line": 9}]})"};
    const auto topics = TranscriptAI(model).topics(transcriptOf(3, 990));
    EXPECT_EQ(topics, (std::vector<TopicStart>{{"Start", 0}, {"End", 2}, {"Coda", 9}}));
    ASSERT_EQ(model->requests.size(), 3u);
    EXPECT_TRUE(model->requests[1].prompt.starts_with(
        "Split this part of the transcript into topics. For each topic give a short title and "
        "the [number] of the line where it starts. The first topic starts at line 1.\n\n"
        "Transcript:\n[1] (0:01) "));
}

TEST(TranscriptAI, AnswersOutOfFormAndModelFailuresAreUserErrors) {
    for (const char* answer :
         {"", "[]", R"({"title": "x"})", R"({"title": 3, "summary": ""})", "not json"})
        EXPECT_THROW(TranscriptAI::parseOverview(answer), UserError) << answer;
    for (const char* answer : {R"({"topics": {}})", R"({"topics": [{"title": "x"}]})",
                               R"({"topics": [{"title": "x", "line": 1.5}]})"})
        EXPECT_THROW(TranscriptAI::parseTopics(answer), UserError) << answer;

    auto model = std::make_shared<FakeLanguageModel>();
    model->failure = "The on-device language model failed while answering.";
    EXPECT_THROW(TranscriptAI(model).overview(transcriptOf(1, 10)), UserError);
    EXPECT_THROW(TranscriptAI(model).overview(Transcript{}), UserError) << "no lines";
}

// A real llama.cpp run over a tiny model with random weights: whatever it says, the grammar
// holds it to the record asked for.
TEST(LlamaLanguageModel, GrammarHoldsARandomModelToEachRecord) {
    TemporaryFolder folder;
    const auto file = folder / "tiny.gguf";
    writeTinyLanguageModel(file);
    auto model = std::make_shared<LlamaLanguageModel>(file);
    EXPECT_EQ(model->contextTokens(), 4096);
    const auto transcript = transcriptOf(4, 40);
    const TranscriptAI ai(model);
    const auto overview = ai.overview(transcript);
    EXPECT_FALSE(overview.title.empty());
    EXPECT_NO_THROW(ai.topics(transcript));

    std::atomic<bool> cancelled{true};
    EXPECT_THROW(ai.overview(transcript, &cancelled), ResponseCancelled);
}

TEST(LlamaLanguageModel, AFileThatIsNoModelIsNamedInTheError) {
    TemporaryFolder folder;
    const auto file = folder / "notes.gguf";
    std::ofstream(file) << "not a model";
    try {
        LlamaLanguageModel model(file);
        FAIL() << "loaded";
    } catch (const UserError& error) {
        EXPECT_NE(std::string(error.what()).find("“notes.gguf”"), std::string::npos);
    }
    EXPECT_THROW(LlamaLanguageModel(folder / "missing.gguf"), UserError);
}
