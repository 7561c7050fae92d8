#include "support/CliCommand.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace {} // namespace

TEST(EffectsCommand, ListsEveryKindWithItsParametersAndPresets) {
    auto run = sonvale::test::runCli("effects");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("equalizer: Parametric EQ (Tone)"), std::string::npos);
    EXPECT_NE(run.output.find("Band 4 On"), std::string::npos);
    EXPECT_NE(run.output.find("Streaming Master   Gain=4, Ceiling=-1, Release=150"),
              std::string::npos);
    EXPECT_NE(run.output.find("spectrumAnalyzer"), std::string::npos);
}

TEST(EffectsCommand, JsonForOneKindCarriesRangesDefaultsUnitsAndPresets) {
    auto run = sonvale::test::runCli("effects --json 'Noise Gate'");
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
    auto all = nlohmann::json::parse(sonvale::test::runCli("effects --json").output);
    EXPECT_EQ(all.size(), 13u);
}

TEST(EffectsCommand, UnknownKindIsRefusedWithTheValidKinds) {
    auto run = sonvale::test::runCli("effects wobble");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("noiseGate"), std::string::npos) << run.output;
}
