#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace {

struct Run {
    int status = -1;
    std::string output; // stdout and stderr together
};

Run runCLI(const std::string& arguments) {
    std::string command = std::string(SONVALE_CLI_PATH) + " " + arguments + " 2>&1";
    Run run;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buffer;
    while (size_t n = fread(buffer.data(), 1, buffer.size(), pipe)) run.output.append(buffer.data(), n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace

TEST(EffectsCommand, ListsEveryKindWithItsParametersAndPresets) {
    auto run = runCLI("effects");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("equalizer: Parametric EQ (Tone)"), std::string::npos);
    EXPECT_NE(run.output.find("Band 4 On"), std::string::npos);
    EXPECT_NE(run.output.find("Streaming Master   Gain=4, Ceiling=-1, Release=150"),
              std::string::npos);
    EXPECT_NE(run.output.find("spectrumAnalyzer"), std::string::npos);
}

TEST(EffectsCommand, JsonForOneKindCarriesRangesDefaultsUnitsAndPresets) {
    auto run = runCLI("effects --json 'Noise Gate'");
    ASSERT_EQ(run.status, 0) << run.output;
    auto json = nlohmann::json::parse(run.output);
    EXPECT_EQ(json["kind"], "noiseGate");
    ASSERT_EQ(json["parameters"].size(), 5u);
    EXPECT_EQ(json["parameters"][2]["name"], "Attack");
    EXPECT_EQ(json["parameters"][2]["minimum"], 0.1);
    EXPECT_EQ(json["parameters"][2]["logarithmic"], true);
    EXPECT_EQ(json["parameters"][2]["unit"], "milliseconds");
    EXPECT_EQ(json["presets"][0]["name"], "Vocal Cleanup");
    EXPECT_EQ(json["presets"][0]["values"]["Range"], -25);
    auto all = nlohmann::json::parse(runCLI("effects --json").output);
    EXPECT_EQ(all.size(), 13u);
}

TEST(EffectsCommand, UnknownKindIsRefusedWithTheValidKinds) {
    auto run = runCLI("effects wobble");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("noiseGate"), std::string::npos) << run.output;
}
