// sonvale-cli mixdown on a bundle whose Session.json is written out by hand, run as its own
// process, against the mix worked out here from the tracks' samples.

#include "audio/AudioLoader.h"
#include "support/AudioFiles.h"
#include "support/CliCommand.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <fstream>

using namespace sonvale;
using namespace sonvale::test;
namespace fs = std::filesystem;

namespace {

// A bundle with two tracks made by sox: a stereo float tone and a mono one.
struct Show {
    TemporaryFolder folder;
    fs::path bundle = folder / "Show.sonvale";
    fs::path stereo = folder / "stereo.wav", mono = folder / "mono.wav";

    Show() {
        std::system(("sox -n -r 48000 -c 2 -e floating-point -b 32 " + quoted(stereo) +
                     " synth 1 sine 440 sine 660 gain -3")
                        .c_str());
        std::system(("sox -n -r 48000 -c 1 -e floating-point -b 32 " + quoted(mono) +
                     " synth 1 square 100 gain -10")
                        .c_str());
    }
    void write(const std::string& timeline) {
        writeText(bundle / "Session.json",
                  R"({"format": 2, "session": {"tracks": [)" + track(stereo) + ", " + track(mono) +
                      R"(], "selectedIndices": [], "loopPlayback": false, "timeline": )" +
                      timeline + "}}");
    }
    static std::string track(const fs::path& path) {
        return R"({"path": ")" + path.string() +
               R"(", "gainDB": 0, "verticalZoom": 1, "cursor": 0, "viewportStart": 0,
                  "samplesPerPoint": 0, "viewportWidth": 0, "markers": []})";
    }
};

// A lane of the stereo track panned half left at -6 dB with a 480-frame fade-in, and a lane of
// the mono track through a bus at +2 dB; the master at -3 dB.
const std::string arrangement = R"({"sampleRate": 48000, "cursor": 0, "isShowing": true,
    "lanes": [
      {"name": "Tone", "gainDB": -6, "pan": -0.5, "isMuted": false, "color": 2, "clips": [
        {"name": "A", "source": {"track": {"_0": 0}}, "sourceStart": 100, "length": 24000,
         "start": 0, "fadeIn": 480, "track": 0}]},
      {"name": "Buzz", "gainDB": 0, "pan": 0, "isMuted": false, "output": 0, "clips": [
        {"name": "B", "source": {"track": {"_0": 1}}, "sourceStart": 0, "length": 12000,
         "start": 12000}]}],
    "mixer": {"buses": [{"name": "Bus 1", "gainDB": 2, "isMuted": false,
                         "chain": {"effects": []}}],
              "master": {"effects": []}, "masterGainDB": -3}})";

} // namespace

TEST(MixdownCli, WritesTheSamplesTheMixingRulesPredict) {
    Show show;
    show.write(arrangement);
    const auto out = show.folder / "mix.wav";
    auto run = runCli("mixdown " + quoted(show.bundle) + " -o " + quoted(out));
    ASSERT_EQ(run.status, 0) << run.output;
    const auto mix = AudioLoader::load(out);
    const auto a = AudioLoader::load(show.stereo), b = AudioLoader::load(show.mono);
    ASSERT_EQ(mix->frameCount, 24000);
    ASSERT_EQ(mix->channelCount(), 2);

    const float halfPi = std::bit_cast<float>(0x3FC90FDAu);
    auto db = [](float d) { return std::pow(10.0f, d / 20.0f); };
    float largest = 0;
    for (int64_t i = 0; i < 24000; ++i) {
        const float fade = i < 480 ? std::sin(float(i) * halfPi / 480.0f) : 1.0f;
        float left = fade * (db(-6) * 1.0f * a->samples(0)[i + 100]);
        float right = fade * (db(-6) * 0.5f * a->samples(1)[i + 100]);
        if (i >= 12000) {
            left += db(2) * b->samples(0)[i - 12000];
            right += db(2) * b->samples(0)[i - 12000];
        }
        largest = std::max({largest, std::fabs(mix->samples(0)[i] - left * db(-3)),
                            std::fabs(mix->samples(1)[i] - right * db(-3))});
    }
    EXPECT_LT(largest, 1e-6f);

    // A selection: the clips stop at its end, and there is no effect to ring on.
    run = runCli("mixdown " + quoted(show.bundle) + " -o " + quoted(out) + " --range 6000:0.375s");
    ASSERT_EQ(run.status, 0) << run.output;
    const auto part = AudioLoader::load(out);
    ASSERT_EQ(part->frameCount, 12000);
    EXPECT_EQ(part->samples(0)[0], mix->samples(0)[6000]);
    EXPECT_EQ(part->samples(1)[11999], mix->samples(1)[17999]);
}

TEST(MixdownCli, RefusesWhatItCannotMixAndWritesNothing) {
    Show show;
    const auto out = show.folder / "mix.wav";
    struct Case {
        std::string name, timeline, arguments;
        int status;
        std::string message;
    } cases[] = {
        {"no timeline", "null", "", 1, "has no timeline"},
        {"no clips",
         R"({"sampleRate": 48000, "cursor": 0, "isShowing": false, "lanes": [
             {"name": "L", "gainDB": 0, "pan": 0, "isMuted": false, "clips": []}]})",
         "", 1, "is empty"},
        {"no output", arrangement, "-o", 2, "usage: mixdown"},
        {"not a bundle", arrangement, "NOT", 2, "isn't a session"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        show.write(c.timeline);
        const std::string target = c.arguments == "NOT" ? quoted(show.stereo) : quoted(show.bundle);
        const std::string output = c.arguments == "-o" ? "" : " -o " + quoted(out);
        const auto run = runCli("mixdown " + target + output);
        EXPECT_EQ(run.status, c.status) << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
        EXPECT_FALSE(fs::exists(out));
    }
    // A track file that is gone: the decoder's message names it.
    show.write(arrangement);
    fs::remove(show.mono);
    const auto run = runCli("mixdown " + quoted(show.bundle) + " -o " + quoted(out));
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("mono.wav"), std::string::npos) << run.output;
    EXPECT_FALSE(fs::exists(out));
}
