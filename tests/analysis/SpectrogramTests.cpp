#include "analysis/Spectrogram.h"
#include "support/AudioFiles.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

using namespace sonvale;
using namespace sonvale::test;

TEST(Spectrogram, HopKeepsTheColumnsWithinTheBudget) {
    struct Case {
        int64_t frames;
        int fftSize;
        int hop;
    };
    const int64_t tenMinutes = 10 * 60 * 48000, tenHours = 10 * 3600 * int64_t(96000);
    for (const Case& c : std::vector<Case>{{0, 2048, 256},
                                           {1000, 512, 64},
                                           {tenMinutes, 4096, 1024},
                                           // 112,500 columns at hop 256 is over 65,536.
                                           {tenMinutes, 2048, 512},
                                           {int64_t(65536) * 256, 2048, 256},
                                           {int64_t(65536) * 256 + 1, 2048, 512},
                                           {tenHours, 512, 16384}}) {
        SCOPED_TRACE(testing::Message() << c.frames << " frames, FFT " << c.fftSize);
        EXPECT_EQ(Spectrogram::hopFor(c.frames, c.fftSize), c.hop);
    }
    EXPECT_EQ((tenMinutes + 511) / 512, 56250);
    for (int size : {512, 1024, 2048, 4096}) {
        const int hop = Spectrogram::hopFor(tenHours, size);
        EXPECT_LE((tenHours + hop - 1) / hop * (size / 2), Spectrogram::magnitudeBudget);
        EXPECT_GT((tenHours + hop / 2 - 1) / (hop / 2) * (size / 2), Spectrogram::magnitudeBudget);
    }
}

namespace {

// A stereo tone exactly on bin 43 of a 2048-point transform at 48 kHz (1,007.8 Hz), with a
// quiet one on bin 300 (7,031 Hz) in the right channel only.
std::shared_ptr<const Spectrogram> toneSpectrogram(bool cancel = false) {
    const double rate = 48000, low = 43 * rate / 2048, high = 300 * rate / 2048;
    auto left = sine(low, rate, 48000, 0.5);
    auto right = sine(low, rate, 48000, 0.5);
    const auto quiet = sine(high, rate, 48000, 0.02);
    for (size_t i = 0; i < right.size(); ++i)
        right[i] += quiet[i];
    Spectrogram::Progress progress;
    progress.cancelled = cancel;
    return Spectrogram::compute(makeAudio(rate, {left, right}), 2048, &progress);
}

} // namespace

TEST(Spectrogram, AToneLandsInItsBinAtItsLevel) {
    const auto spectrogram = toneSpectrogram();
    ASSERT_TRUE(spectrogram);
    EXPECT_EQ(spectrogram->hop, 256);
    EXPECT_EQ(spectrogram->columnCount, (48000 + 255) / 256);
    EXPECT_GE(spectrogram->memoryBytes(), spectrogram->columnCount * 1024 * 4);
    const float* column = spectrogram->column(spectrogram->columnCount / 2);
    EXPECT_EQ(std::max_element(column, column + 1024) - column, 43);
    EXPECT_NEAR(column[43], 0.5, 0.005);
    // Two channels are averaged: the right channel's tone counts half.
    EXPECT_NEAR(column[300], 0.01, 0.0005);
    EXPECT_LT(column[200], 1e-4);
    // The first column is centred on frame 0: half of its frame is silence before the audio.
    EXPECT_NEAR(spectrogram->column(0)[43], 0.25, 0.03);
    EXPECT_FALSE(toneSpectrogram(true));
}

TEST(Spectrogram, ColumnsMergedFromSeveralTransformsMissNoClick) {
    // A click between two columns' windows: one transform per column never sees it; the
    // transforms merged across each column do.
    const auto audio = makeAudio(48000, {impulse(96000, 30000)});
    const auto sampled = Spectrogram::compute(audio, 2048, {0, 96000}, 9600);
    const auto merged = Spectrogram::compute(audio, 2048, {0, 96000}, 9600, 1024);
    ASSERT_EQ(merged->columnCount, 10);
    EXPECT_EQ(sampled->column(3)[100], 0.0f);
    EXPECT_GT(merged->column(3)[100], 1e-4f);
    EXPECT_EQ(merged->column(5)[100], 0.0f);
}

TEST(Spectrogram, PicturesPutAToneOnTheRowOfItsFrequency) {
    const auto spectrogram = toneSpectrogram();
    const int width = 16, height = 200;
    struct Case {
        bool log;
        double expectedRow;
    };
    const double tone = 43 * 48000.0 / 2048;
    for (const Case& c :
         {Case{false, (1 - tone / 24000) * height},
          Case{true, (1 - std::log(tone / 20) / std::log(24000.0 / 20)) * height}}) {
        SCOPED_TRACE(c.log ? "logarithmic" : "linear");
        SpectrogramPicture picture;
        picture.framesPerColumn = 48000.0 / width;
        picture.frameCount = 48000;
        picture.logFrequency = c.log;
        picture.colorMap = SpectrogramColorMap::grayscale;
        std::vector<uint32_t> pixels(width * height);
        drawSpectrogram(*spectrogram, picture, pixels.data(), width, height, width);
        // The brightest row of a middle column; grayscale makes the blue byte the level.
        int brightest = 0;
        for (int y = 0; y < height; ++y)
            if ((pixels[y * width + 8] & 0xff) > (pixels[brightest * width + 8] & 0xff))
                brightest = y;
        EXPECT_NEAR(brightest, c.expectedRow, 1.0);
        // 0.5 is −6 dB, 94 % of the way up the 100 dB the palette spans.
        EXPECT_NEAR(pixels[brightest * width + 8] & 0xff, 0.94 * 255, 1.0);
        EXPECT_EQ(pixels[(height - 1) * width + 8] & 0xff000000u, 0xff000000u);
        // The axis maps the other way round to the same row.
        const FrequencyAxis axis{24000, c.log};
        EXPECT_NEAR((1 - axis.fractionOf(tone)) * height, c.expectedRow, 1e-9);
        EXPECT_NEAR(axis.frequencyAt(axis.fractionOf(tone)), tone, 1e-6);
    }
    // Past the audio's end the picture shows the outside colour.
    SpectrogramPicture beyond;
    beyond.startFrame = 48000;
    beyond.frameCount = 48000;
    beyond.outside = 0xff123456;
    std::vector<uint32_t> pixels(4 * 4);
    drawSpectrogram(*spectrogram, beyond, pixels.data(), 4, 4, 4);
    EXPECT_TRUE(
        std::all_of(pixels.begin(), pixels.end(), [](uint32_t p) { return p == 0xff123456; }));
}

TEST(SpectrogramColorMap, FitsFollowThePublishedMaps) {
    std::ifstream file(std::string(SONVALE_SOURCE_DIR) + "/tests/analysis/published-colormaps.txt");
    ASSERT_TRUE(file);
    std::string line;
    std::getline(file, line); // the heading
    // No polynomial of degree 6 comes closer than 2.65 % to inferno's blue channel (its
    // minimax fit, worked out by linear programming); every other channel is held to 2 %.
    const std::map<std::string, std::array<double, 3>> limits{{"inferno", {0.02, 0.02, 0.0266}},
                                                              {"magma", {0.02, 0.02, 0.02}},
                                                              {"viridis", {0.02, 0.02, 0.02}}};
    const std::map<std::string, SpectrogramColorMap> maps{
        {"inferno", SpectrogramColorMap::inferno},
        {"magma", SpectrogramColorMap::magma},
        {"viridis", SpectrogramColorMap::viridis}};
    int mapsRead = 0;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string name;
        fields >> name;
        SCOPED_TRACE(name);
        for (int i = 0; i < 256; ++i) {
            std::array<double, 3> published;
            fields >> published[0] >> published[1] >> published[2];
            ASSERT_TRUE(fields);
            const SpectrogramColor fit = color(maps.at(name), i / 255.0);
            const std::array<double, 3> ours{fit.red, fit.green, fit.blue};
            for (size_t channel = 0; channel < 3; ++channel)
                EXPECT_NEAR(ours[channel], published[channel], limits.at(name)[channel])
                    << "entry " << i << ", channel " << channel;
        }
        ++mapsRead;
    }
    EXPECT_EQ(mapsRead, 3);

    for (double t : {-1.0, 0.0, 0.25, 1.0, 7.0}) {
        const SpectrogramColor gray = color(SpectrogramColorMap::grayscale, t);
        EXPECT_EQ(gray.red, float(std::clamp(t, 0.0, 1.0)));
        EXPECT_EQ(gray.green, gray.red);
        EXPECT_EQ(gray.blue, gray.red);
    }
    const SpectrogramColor below = color(SpectrogramColorMap::viridis, -3);
    const SpectrogramColor zero = color(SpectrogramColorMap::viridis, 0);
    EXPECT_EQ(below.red, zero.red);
    EXPECT_EQ(color(SpectrogramColorMap::magma, std::nan("")).blue,
              color(SpectrogramColorMap::magma, 0).blue);
}
