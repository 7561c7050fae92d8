// sonvale-cli summarize and topics over read speech with a tiny random model, and their
// refusals.

#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/CliCommand.h"
#include "support/TinyLanguageModel.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>

using namespace sonvale;
using namespace sonvale::test;

namespace {

// XDG_DATA_HOME for the commands a test runs, put back afterwards.
struct DataHome {
    explicit DataHome(const std::filesystem::path& folder) {
        if (const char* old = std::getenv("XDG_DATA_HOME")) previous = old;
        setenv("XDG_DATA_HOME", folder.c_str(), 1);
    }
    ~DataHome() {
        previous ? setenv("XDG_DATA_HOME", previous->c_str(), 1) : unsetenv("XDG_DATA_HOME");
    }
    std::optional<std::string> previous;
};

} // namespace

// A random model says nonsense, but the answers still take their form, and regions lie end to
// end within the file.
TEST(SummarizeCli, TitleSummaryAndTopicRegionsFromATinyModel) {
    TemporaryFolder folder;
    writeTinyLanguageModel(folder / "tiny.gguf");
    const auto speech = fixture("read-speech.flac");
    const auto info = AudioLoader::probe(speech);
    const std::string arguments =
        quoted(speech) + " --json --model " + quoted(folder / "tiny.gguf");

    const CliOutput summary = runCli("summarize " + arguments);
    ASSERT_EQ(summary.status, 0) << summary.output;
    const auto overview = nlohmann::json::parse(summary.output);
    ASSERT_TRUE(overview["title"].is_string()) << summary.output;
    EXPECT_FALSE(overview["title"].get<std::string>().empty());
    EXPECT_TRUE(overview["summary"].is_string()) << summary.output;

    const CliOutput topics = runCli("topics " + arguments);
    if (topics.status == 1) {
        EXPECT_NE(topics.output.find("The model didn't find distinct topics in this transcript."),
                  std::string::npos)
            << topics.output;
        return;
    }
    ASSERT_EQ(topics.status, 0) << topics.output;
    const auto regions = nlohmann::json::parse(topics.output);
    ASSERT_TRUE(regions.is_array() && !regions.empty()) << topics.output;
    int64_t previousEnd = std::max<int64_t>(0, regions[0]["start"]);
    for (const auto& region : regions) {
        const int64_t start = region["start"], end = region["end"];
        EXPECT_TRUE(start == previousEnd && start < end && end <= info.frames) << topics.output;
        EXPECT_DOUBLE_EQ(region["endSeconds"].get<double>(), double(end) / info.sampleRate);
        previousEnd = end;
    }
}

// Each fails before the file is transcribed: the model is looked for once the file is open.
TEST(SummarizeCli, RefusalsNameTheModelOrFileAndExitWithOne) {
    TemporaryFolder dataHome;
    const DataHome noModels(dataHome.path());
    const auto notAModel = dataHome / "notes.gguf";
    std::ofstream(notAModel) << "not a model";
    const std::string speech = quoted(fixture("read-speech.flac"));
    const std::pair<std::string, std::string> cases[] = {
        {"summarize " + speech + " --model /nonexistent.gguf",
         "No such model file: /nonexistent.gguf"},
        {"topics " + speech + " --model " + quoted(notAModel), "“notes.gguf” couldn't be loaded"},
        {"summarize " + speech, "The on-device model isn't installed."},
        {"topics /nonexistent/talk.wav", "/nonexistent/talk.wav: The file doesn't exist."},
    };
    for (const auto& [arguments, message] : cases) {
        const CliOutput run = runCli(arguments);
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_NE(run.output.find(message), std::string::npos) << arguments << ": " << run.output;
    }
}
