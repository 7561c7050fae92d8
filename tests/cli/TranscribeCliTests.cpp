// sonvale-cli transcribe on read speech, as text and as JSON, and its refusals.

#include "support/AudioFiles.h"
#include "support/CliCommand.h"
#include "support/TinyWhisperModel.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using namespace sonvale::test;

TEST(TranscribeCli, ReadSpeechAsTimedLinesOrJSON) {
    const std::string file = "'" + fixture("read-speech.flac").string() + "'";
    const CliOutput text = runCli("transcribe " + file + " 2>&1");
    ASSERT_EQ(text.status, 0) << text.output;
    EXPECT_EQ(text.output.rfind("0:03 go forward ten meters\n0:08 ", 0), 0u) << text.output;
    EXPECT_EQ(std::count(text.output.begin(), text.output.end(), '\n'), 2);

    const CliOutput json = runCli("transcribe --json --language en_US " + file + " 2>/dev/null");
    ASSERT_EQ(json.status, 0);
    const auto parsed = nlohmann::json::parse(json.output);
    EXPECT_EQ(parsed["locale"], "en-US");
    EXPECT_EQ(parsed["revision"], 0);
    ASSERT_EQ(parsed["segments"].size(), 2u);
    EXPECT_EQ(parsed["segments"][0]["text"], "go forward ten meters");
    EXPECT_NEAR(parsed["segments"][0]["start"].get<double>(), 3.46, 0.1);
}

TEST(TranscribeCli, AWhisperModelGivenTakesAnyOfItsLanguages) {
    TemporaryFolder folder;
    writeTinyWhisperModel(folder / "ggml-tiny.bin");
    const CliOutput run =
        runCli("transcribe --json --language de --model '" + (folder / "ggml-tiny.bin").string() +
               "' '" + fixture("read-speech.flac").string() + "' 2>/dev/null");
    ASSERT_EQ(run.status, 0) << run.output;
    const auto parsed = nlohmann::json::parse(run.output);
    EXPECT_EQ(parsed["locale"], "de");
    ASSERT_FALSE(parsed["segments"].empty());
    EXPECT_LE(parsed["segments"].back()["end"].get<double>(), 10.78);
}

TEST(TranscribeCli, RefusalsSayWhyAndExitWithOne) {
    const std::pair<std::string, std::string> cases[] = {
        {"--language fr-FR " + fixture("read-speech.flac").string(),
         "Transcription doesn't support French (France)."},
        {fixture("tone-then-silence.wav").string(),
         "the transcriber didn't recognise any speech in"},
        {fixture("noise.wav").string(), "This is not an audio file."},
        {"/nonexistent/talk.wav", "The file doesn't exist."},
        {"", "a file is needed"},
        {"--model /nonexistent/ggml-base.bin " + fixture("read-speech.flac").string(),
         "No such model file: /nonexistent/ggml-base.bin"},
        {"--model " + fixture("noise.wav").string() + " " + fixture("read-speech.flac").string(),
         "The speech model file “noise.wav” couldn't be loaded."},
    };
    for (const auto& [arguments, message] : cases) {
        const CliOutput run = runCli("transcribe " + arguments + " 2>&1");
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_NE(run.output.find(message), std::string::npos) << arguments << ": " << run.output;
    }
}
