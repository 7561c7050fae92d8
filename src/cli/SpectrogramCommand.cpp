// sonvale-cli spectrogram: a file's spectrogram as a PNG picture, time across and frequency up.

#include "analysis/Spectrogram.h"
#include "base/AtomicFile.h"
#include "base/Errors.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <png.h>
#include <vector>

namespace sonvale::cli {

namespace {

constexpr const char* spectrogramUsage =
    "usage: spectrogram IN -o OUT.png [--fft 512|1024|2048|4096] "
    "[--map inferno|magma|viridis|grayscale] [--linear] [--width W --height H] "
    "[--range START:END]";
constexpr int largestSide = 16384;

struct Options {
    std::string input, output;
    int fftSize = 2048;
    SpectrogramColorMap map = SpectrogramColorMap::inferno;
    bool linear = false;
    int width = 1024, height = 512;
    std::optional<RangeOption> range;
};

int parseSide(const std::string& raw, const std::string& option) {
    const double value = parseNumber(raw, option, "a number of pixels");
    if (value != std::floor(value) || value < 1 || value > largestSide)
        throw UsageError{option + " must be a whole number of pixels from 1 to " +
                         std::to_string(largestSide) + ", not " + curlyQuoted(raw)};
    return int(value);
}

Options parse(const Arguments& args) {
    Options options;
    ArgumentCursor cursor(args, spectrogramUsage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "-o" || arg == "--output") {
            options.output = cursor.value();
        } else if (arg == "--fft") {
            const std::string& raw = cursor.value();
            const double size = parseNumber(raw, arg, "an FFT size");
            if (size != std::floor(size) || !SpectrogramSettings::isValidFFTSize(int(size)))
                throw UsageError{"--fft must be 512, 1024, 2048 or 4096, not " + curlyQuoted(raw)};
            options.fftSize = int(size);
        } else if (arg == "--map") {
            const std::string& raw = cursor.value();
            auto map = spectrogramColorMapFromRawValue(raw);
            if (!map)
                throw UsageError{"--map must be inferno, magma, viridis or grayscale, not " +
                                 curlyQuoted(raw)};
            options.map = *map;
        } else if (arg == "--linear") {
            options.linear = true;
        } else if (arg == "--width") {
            options.width = parseSide(cursor.value(), arg);
        } else if (arg == "--height") {
            options.height = parseSide(cursor.value(), arg);
        } else if (arg == "--range") {
            options.range = parseRange(cursor.value());
        } else if (cursor.isOption()) {
            cursor.unknownOption();
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{std::string("only one input file at a time (") + spectrogramUsage +
                             ")"};
        }
    }
    if (options.input.empty() || options.output.empty())
        throw UsageError{std::string("an input and -o OUT.png are needed (") + spectrogramUsage +
                         ")"};
    return options;
}

// The picture as PNG bytes (8-bit RGB).
std::string encodePNG(const std::vector<uint32_t>& pixels, int width, int height) {
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    for (size_t i = 0; i < pixels.size(); ++i) {
        rgb[3 * i] = uint8_t(pixels[i] >> 16);
        rgb[3 * i + 1] = uint8_t(pixels[i] >> 8);
        rgb[3 * i + 2] = uint8_t(pixels[i]);
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(width);
    image.height = png_uint_32(height);
    image.format = PNG_FORMAT_RGB;
    image.flags = PNG_IMAGE_FLAG_FAST; // a picture for looking at, not for archiving
    png_alloc_size_t size = 0;
    std::string bytes;
    if (png_image_write_get_memory_size(image, size, 0, rgb.data(), 0, nullptr)) {
        bytes.resize(size);
        if (png_image_write_to_memory(&image, bytes.data(), &size, 0, rgb.data(), 0, nullptr))
            bytes.resize(size);
        else
            bytes.clear();
    }
    if (bytes.empty())
        throw UsageError{"the picture could not be encoded (" + std::string(image.message) + ")"};
    return bytes;
}

} // namespace

int spectrogram(const Arguments& args) {
    const Options options = parse(args);
    const AudioDataPtr audio = loadWithProgress(options.input);
    FrameRange range{0, audio->frameCount};
    if (options.range) {
        range = options.range->resolve(audio->sampleRate, audio->frameCount);
        checkRangeWithin(range, audio->frameCount, options.input);
    }
    // About one column per pixel column, each the loudest of transforms half a window apart
    // across it: the picture shows every moment of the range, a click as much as a chord.
    // Ten hours at 96 kHz in a picture a pixel wide is more frames per column than an int
    // holds: the hop stops there and a second column takes the rest.
    const int hop = int(std::clamp<int64_t>(range.length() / options.width, 1, INT_MAX));
    const auto spectrogram =
        Spectrogram::compute(audio, options.fftSize, range, hop, options.fftSize / 2);

    SpectrogramPicture picture;
    picture.framesPerColumn = double(range.length()) / options.width;
    picture.frameCount = range.length();
    picture.colorMap = options.map;
    picture.logFrequency = !options.linear;
    std::vector<uint32_t> pixels(size_t(options.width) * size_t(options.height));
    drawSpectrogram(*spectrogram, picture, pixels.data(), options.width, options.height,
                    options.width);
    writeFileAtomically(options.output, encodePNG(pixels, options.width, options.height));
    std::printf("%s: %d x %d, FFT %d, %lld frames from %lld\n", options.output.c_str(),
                options.width, options.height, options.fftSize, (long long)range.length(),
                (long long)range.lower);
    return 0;
}

} // namespace sonvale::cli
