// sonvale-cli spectrogram on a sweep made by sox, its picture read back with libpng.

#include "support/AudioFiles.h"
#include "support/CliCommand.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <png.h>

using namespace sonvale::test;
namespace fs = std::filesystem;

namespace {

struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;
    int brightestRow(int x) const {
        int best = 0, bestValue = -1;
        for (int y = 0; y < height; ++y) {
            const uint8_t* p = &rgb[3 * (size_t(y) * size_t(width) + size_t(x))];
            if (p[0] + p[1] + p[2] > bestValue) bestValue = p[0] + p[1] + p[2], best = y;
        }
        return best;
    }
};

Picture readPNG(const fs::path& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Picture picture;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return picture;
    image.format = PNG_FORMAT_RGB;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr)) {
        picture.width = int(image.width);
        picture.height = int(image.height);
    }
    return picture;
}

} // namespace

TEST(SpectrogramCli, ASweepDrawsARisingLine) {
    TemporaryFolder folder;
    const fs::path sweep = folder / "sweep.wav", out = folder / "sweep.png";
    ASSERT_EQ(
        std::system(
            ("sox -n -r 48000 -c 2 " + quoted(sweep) + " synth 4 sine 200-16000 gain -6").c_str()),
        0);
    struct Case {
        std::string options;
        int width, height;
    };
    for (const Case& c :
         {Case{"", 1024, 512},
          Case{"--linear --map viridis --fft 512 --width 300 --height 150", 300, 150},
          Case{"--range 1s:3s --width 64 --height 400", 64, 400}}) {
        SCOPED_TRACE(c.options);
        const CliOutput run =
            runCli("spectrogram " + quoted(sweep) + " -o " + quoted(out) + " " + c.options);
        ASSERT_EQ(run.status, 0) << run.output;
        const Picture picture = readPNG(out);
        ASSERT_EQ(picture.width, c.width);
        ASSERT_EQ(picture.height, c.height);
        // Frequency goes up as time goes right: the tone's row climbs (smaller y) across.
        int previous = picture.height;
        for (int x = picture.width / 8; x < picture.width; x += picture.width / 4) {
            const int row = picture.brightestRow(x);
            EXPECT_LT(row, previous) << "column " << x;
            previous = row;
        }
    }
    // sox sweeps exponentially: halfway, at 2 s, the tone is at 200 × 80^½ = 1,789 Hz.
    ASSERT_EQ(runCli("spectrogram " + quoted(sweep) + " -o " + quoted(out) +
                     " --linear --range 1.9s:2.1s --width 10 --height 240")
                  .status,
              0);
    EXPECT_NEAR(readPNG(out).brightestRow(5), 240 * (1 - 1789.0 / 24000), 1);
}

TEST(SpectrogramCli, BadRequestsSayWhyAndLeaveTheOutputAlone) {
    TemporaryFolder folder;
    const fs::path out = folder / "kept.png", tone = folder / "tone.wav",
                   broken = folder / "broken.wav";
    std::system(("sox -n -r 44100 -c 1 " + quoted(tone) + " synth 1 sine 440").c_str());
    sonvale::test::writeText(out, "the picture that was there");
    sonvale::test::writeText(broken, "RIFF and nothing else");
    struct Case {
        std::string arguments, message;
    };
    for (const Case& c : {
             Case{quoted(tone) + " -o " + quoted(out) + " --fft 3000",
                  "--fft must be 512, 1024, 2048 or 4096"},
             Case{quoted(tone) + " -o " + quoted(out) + " --map plasma", "--map must be inferno"},
             Case{quoted(tone) + " -o " + quoted(out) + " --width 0",
                  "--width must be a whole number"},
             Case{quoted(tone) + " -o " + quoted(out) + " --range 2s:3s", "reaches past the end"},
             Case{quoted(tone), "-o OUT.png are needed"},
             Case{quoted(broken) + " -o " + quoted(out), "broken.wav"},
             Case{quoted(folder / "missing.wav") + " -o " + quoted(out), "missing.wav"},
         }) {
        SCOPED_TRACE(c.arguments);
        const CliOutput run = runCli("spectrogram " + c.arguments);
        EXPECT_NE(run.status, 0);
        EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
        EXPECT_EQ(sonvale::test::readText(out), "the picture that was there");
    }
}
