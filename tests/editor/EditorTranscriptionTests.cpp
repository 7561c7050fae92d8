#include "editor/EditorModel.h"

#include "base/ManualExecutor.h"
#include "persistence/Preferences.h"
#include "support/FakeLanguageModel.h"
#include "support/FakeRecognizer.h"
#include "support/ModelTestAudio.h"
#include "support/TinyLanguageModel.h"
#include "support/TinyWhisperModel.h"

#include "support/AudioFiles.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace sonvale;
namespace fs = std::filesystem;
using sonvale::test::FakeLanguageModel;
using sonvale::test::FakeRecognizer;
using sonvale::test::words;

namespace {

struct TranscriptionEditor {
    ManualExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    std::shared_ptr<FakeRecognizer> engine = std::make_shared<FakeRecognizer>();
    std::vector<AudioTrack::TranscriptWork> works; // each work the track showed

    TranscriptionEditor() { model.setTranscriber(std::make_shared<Transcriber>(nullptr, engine)); }

    AudioTrackPtr add(int64_t frames = 160000) {
        auto track = AudioTrack::create("/talks/interview.wav");
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        track->finishLoading(sonvale::test::makeNoise(16000, 1, frames));
        executor.drain();
        track->transcriptChanged.connect([this, t = track.get()] {
            if (t->transcriptWork()) works.push_back(*t->transcriptWork());
        });
        return track;
    }
    std::string alertMessage() const {
        return model.alert() && model.alert()->title == EditorModel::transcriptionFailedTitle
                   ? model.alert()->message
                   : "";
    }
};

} // namespace

TEST(EditorTranscription, AJobShowsItsStagesAndLeavesATranscriptOfThatAudio) {
    TranscriptionEditor e;
    const auto track = e.add();
    e.engine->script = {words({{" hello", 1.0, 1.5}, {" there", 1.6, 2.0}}),
                        words({{" again", 5.0, 6.0}})};
    EXPECT_EQ(EditorModel::transcribeTitle(*track), "Transcribe");
    e.model.transcribe(track);
    EXPECT_EQ(track->transcriptWork(), AudioTrack::TranscriptWork{AudioTrack::Transcribing{0}});
    EXPECT_FALSE(e.model.canTranscribe(*track)); // one job per track
    e.executor.drain();
    EXPECT_FALSE(track->transcriptWork());
    ASSERT_EQ(e.works.size(), 3u);
    EXPECT_EQ(e.works[1], AudioTrack::TranscriptWork{AudioTrack::Transcribing{0.2}});
    EXPECT_EQ(e.works[2], AudioTrack::TranscriptWork{AudioTrack::Transcribing{0.6}});
    ASSERT_TRUE(track->transcript());
    const Transcript expected{"en-US",
                              {{"hello there", 1.0, 2.0}, {"again", 5.0, 6.0}},
                              track->editRevision(),
                              std::nullopt,
                              std::nullopt};
    EXPECT_EQ(*track->transcript(), expected);
    EXPECT_EQ(EditorModel::transcribeTitle(*track), "Transcribe Again");
    EXPECT_FALSE(e.model.alert());

    // The line at a time, the copy, and going to a line.
    const std::pair<double, std::optional<size_t>> heard[] = {
        {0.5, std::nullopt}, {1.0, 0}, {1.99, 0}, {2.0, std::nullopt}, {5.5, 1}, {9, std::nullopt}};
    for (auto [seconds, line] : heard)
        EXPECT_EQ(track->transcript()->lineAt(seconds), line) << seconds;
    std::string copied;
    e.model.textCopied.connect([&](std::string text) { copied = std::move(text); });
    e.model.copyTranscript(*track);
    EXPECT_EQ(copied, "0:01 hello there\n0:05 again\n");
    e.model.go(track->transcript()->segments[1], track);
    EXPECT_EQ(track->cursor(), 80000);

    // An edit makes it stale; it stays until a new job replaces it.
    track->setSelection(FrameRange{0, 16000});
    e.model.deleteSelection();
    EXPECT_TRUE(track->isTranscriptStale());
    EXPECT_EQ(EditorModel::transcribeTitle(*track), "Transcribe Again (audio was edited)");
    e.engine->script = {words({{" new", 0.0, 0.5}})};
    e.model.transcribe(track);
    e.executor.drain();
    EXPECT_FALSE(track->isTranscriptStale());
    EXPECT_EQ(track->transcript()->segments.size(), 1u);
}

TEST(EditorTranscription, FailuresSayWhatWentWrongAndCancellingSaysNothing) {
    TranscriptionEditor e;
    const auto track = e.add();

    e.model.transcribe(track); // the engine hears nothing
    e.executor.drain();
    EXPECT_EQ(e.alertMessage(), "The transcriber didn't recognise any speech in interview.");
    e.model.dismissAlert();

    e.engine->failure = "The speech model couldn't be loaded.";
    e.model.transcribe(track);
    e.executor.drain();
    EXPECT_EQ(e.alertMessage(), "The speech model couldn't be loaded.");
    EXPECT_FALSE(track->transcriptWork());
    e.model.dismissAlert();

    e.preferences.setTranscriptionLanguage("fr-FR");
    e.model.transcribe(track);
    EXPECT_EQ(e.alertMessage(), "Transcription doesn't support French (France).");
    EXPECT_FALSE(track->transcriptWork());
    e.model.dismissAlert();
    e.preferences.setTranscriptionLanguage(std::nullopt);

    // Cancelled, or its track removed: the job ends without a word and changes nothing.
    e.engine->failure.clear();
    e.engine->script = {words({{" hello", 1.0, 1.5}})};
    e.model.transcribe(track);
    e.model.cancelTranscription(*track);
    EXPECT_FALSE(track->transcriptWork());
    EXPECT_TRUE(e.model.canTranscribe(*track));
    e.executor.drain();
    EXPECT_FALSE(track->transcript());
    e.model.transcribe(track);
    e.model.removeTracks({track->id()});
    e.executor.drain();
    EXPECT_FALSE(track->transcript());
    EXPECT_FALSE(e.model.alert());
}

TEST(EditorTranscription, TitleSummaryAndTopicRegionsComeFromTheModel) {
    TranscriptionEditor e;
    const auto track = e.add(); // 10 s at 16 kHz
    auto model = std::make_shared<FakeLanguageModel>();
    e.model.setLanguageModel(model);
    EXPECT_FALSE(e.model.canSummarize(*track)) << "no transcript yet";
    track->setTranscript(Transcript{"en-US",
                                    {{"hello", 0, 2}, {"the news", 2, 5}, {"goodbye", 5, 9}},
                                    track->editRevision(),
                                    std::nullopt,
                                    std::nullopt});
    auto alert = [&] {
        auto text = e.model.alert() ? e.model.alert()->title + ": " + e.model.alert()->message : "";
        e.model.dismissAlert();
        return text;
    };

    model->answers = {R"({"title": "Morning News", "summary": "The news, briefly."})"};
    e.model.summarizeTranscript(track);
    EXPECT_EQ(track->transcriptWork(),
              AudioTrack::TranscriptWork{AudioTrack::Thinking{"Summarizing…"}});
    EXPECT_FALSE(e.model.canCreateRegionsFromTopics(*track)) << "one job per track";
    e.executor.drain();
    EXPECT_FALSE(track->transcriptWork());
    EXPECT_EQ(track->transcript()->suggestedTitle, "Morning News");
    EXPECT_EQ(track->transcript()->summary, "The news, briefly.");

    int shown = 0;
    e.model.markerListShown.connect([&] { ++shown; });
    model->answers = {R"({"topics": [{"title": "Hello", "line": 0}, {"title": " News ", "line": 1},
                                     {"title": "Bye", "line": 2}]})"};
    e.model.createRegionsFromTopics(track);
    EXPECT_EQ(track->transcriptWork(),
              AudioTrack::TranscriptWork{AudioTrack::Thinking{"Finding topics…"}});
    e.executor.drain();
    const auto regions = track->regions();
    ASSERT_EQ(regions.size(), 3u);
    EXPECT_EQ(regions[1].name, "News");
    EXPECT_EQ(std::make_pair(regions[1].start, *regions[1].end), std::make_pair(32000L, 80000L));
    EXPECT_EQ(*regions[2].end, 144000);
    EXPECT_EQ(shown, 1);
    e.model.undo();
    EXPECT_TRUE(track->regions().empty()) << "the regions came as one step";

    // Nothing distinct, a failing model, the setting off; a stale transcript does nothing.
    model->answers = {R"({"topics": [{"title": "Elsewhere", "line": 7}]})"};
    e.model.createRegionsFromTopics(track);
    e.executor.drain();
    EXPECT_EQ(alert(),
              "Couldn't find topics: The model didn't find distinct topics in this transcript.");
    model->failure = "The on-device language model failed while answering.";
    e.model.summarizeTranscript(track);
    e.executor.drain();
    EXPECT_EQ(alert(), "Couldn't summarize: The on-device language model failed while answering.");
    EXPECT_FALSE(track->transcriptWork());
    e.preferences.setShowsAIFeatures(false);
    e.model.createRegionsFromTopics(track);
    EXPECT_EQ(alert(), "Couldn't find topics: Turn on AI features in Settings to use this.");
    e.preferences.setShowsAIFeatures(true);
    track->setSelection(FrameRange{0, 16000});
    e.model.deleteSelection();
    const auto asked = model->requests.size();
    e.model.createRegionsFromTopics(track);
    e.executor.drain();
    EXPECT_EQ(model->requests.size(), asked);
    EXPECT_EQ(alert(), "");
    EXPECT_TRUE(e.model.canSummarize(*track)) << "a stale transcript can still be summarised";
}

TEST(EditorTranscription, ModelsAreAddedCheckedAndRemovedInTheModelsFolder) {
    TranscriptionEditor e;
    sonvale::test::TemporaryFolder models, elsewhere;
    e.model.setModelFolder(ModelFolder{models / "Models"});
    EXPECT_EQ(e.model.languageModelUnavailableReason(), "The on-device model isn't installed.");
    auto added = [&](const std::string& name) {
        e.model.addModel(elsewhere / name);
        EXPECT_TRUE(e.model.modelCopyProgress());
        e.executor.drain();
        EXPECT_FALSE(e.model.modelCopyProgress());
        auto message = e.model.alert() ? e.model.alert()->message : "";
        e.model.dismissAlert();
        return message;
    };

    // Refused and nothing left behind: no model by its name, a damaged one, a missing one.
    std::ofstream(elsewhere / "notes.txt") << "notes";
    std::ofstream(elsewhere / "broken.gguf") << "not a model";
    std::ofstream(elsewhere / "ggml-base.en.bin") << "not a whisper model either";
    EXPECT_NE(added("notes.txt").find("isn't a model file"), std::string::npos);
    EXPECT_NE(added("broken.gguf").find("“broken.gguf” couldn't be loaded"), std::string::npos);
    EXPECT_NE(added("ggml-base.en.bin").find("couldn't be loaded as a speech model"),
              std::string::npos);
    EXPECT_NE(added("gone.gguf").find("“gone.gguf” couldn't be read"), std::string::npos);
    EXPECT_TRUE(fs::is_empty(models / "Models"));

    sonvale::test::writeTinyLanguageModel(elsewhere / "tiny.gguf");
    EXPECT_EQ(added("tiny.gguf"), "");
    EXPECT_EQ(e.model.modelFolder().files(ModelFolder::Kind::language),
              std::vector<fs::path>{models / "Models" / "tiny.gguf"});
    EXPECT_FALSE(e.model.languageModelUnavailableReason());
    e.model.removeModel(models / "Models" / "tiny.gguf");
    EXPECT_TRUE(e.model.languageModelUnavailableReason());

    // The engines made from the folder are remade when a speech model arrives.
    e.model.setTranscriber(nullptr);
    EXPECT_EQ(e.model.transcriber().engineSummary().find("whisper"), std::string::npos);
    sonvale::test::writeTinyWhisperModel(elsewhere / "ggml-tiny.bin");
    EXPECT_EQ(added("ggml-tiny.bin"), "");
    EXPECT_NE(e.model.transcriber().engineSummary().find("whisper"), std::string::npos);
}

TEST(EditorTranscription, TheSuggestedTitleNamesTheFileButNeverOverAnother) {
    TranscriptionEditor e;
    sonvale::test::TemporaryFolder folder;
    const auto track = e.add();
    std::ofstream(folder / "take 1.wav") << "take";
    std::ofstream(folder / "News.wav") << "other";
    track->setURL(folder / "take 1.wav");
    auto titled = [&](std::string title) {
        track->setTranscript(
            Transcript{"en-US", {{"hi", 0, 1}}, track->editRevision(), "A summary.", title});
    };
    titled("News");
    e.model.renameToSuggestedTitle(track);
    ASSERT_TRUE(e.model.alert());
    EXPECT_EQ(e.model.alert()->message,
              "A file named “News.wav” is already in " + folder.path().string() + ".");
    EXPECT_EQ(track->url(), folder / "take 1.wav");
    e.model.dismissAlert();

    titled(" ../A/B:\tthe end. ");
    EXPECT_EQ(e.model.suggestedFileName(*track), "AB:the end");
    e.model.renameToSuggestedTitle(track);
    EXPECT_EQ(track->url(), folder / "AB:the end.wav");
    std::ifstream renamed(track->url());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(renamed), {}), "take");
    EXPECT_FALSE(e.model.suggestedFileName(*track)) << "already its name";
}
