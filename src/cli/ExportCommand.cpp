// sonvale-cli export: writes a file, or a range of it, in an export format with a gain.

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"

#include <cmath>
#include <filesystem>
#include <optional>

namespace sonvale::cli {

namespace {

constexpr const char* usage =
    "usage: export IN -o OUT [--format wav16|wav24|aiff16|aac] [--gain DB] [--range START:END]";

struct Options {
    std::string input;
    std::string output;
    std::optional<ExportFormat> format;
    double gainDB = 0;
    std::optional<FrameRange> range;
};

Options parse(const Arguments& args) {
    Options options;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "-o" || arg == "--output") {
            options.output = cursor.value();
        } else if (arg == "--format") {
            options.format = parseExportFormat(cursor.value());
        } else if (arg == "--gain") {
            options.gainDB = parseNumber(cursor.value(), arg, "a number of decibels");
        } else if (arg == "--range") {
            options.range = parseFrameRange(cursor.value());
        } else if (cursor.isOption()) {
            cursor.unknownOption();
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{"only one input file can be exported at a time (" + std::string(usage) + ")"};
        }
    }
    if (options.input.empty()) throw UsageError{std::string("no input file given (") + usage + ")"};
    if (options.output.empty()) throw UsageError{std::string("no output file given (") + usage + ")"};
    options.format = resolveExportFormat(options.format, options.output);
    return options;
}

} // namespace

int exportCommand(const Arguments& args) {
    const Options options = parse(args);

    AudioDataPtr audio;
    {
        ProgressLine progress("Reading " + options.input);
        audio = AudioLoader::load(options.input, progress.callback());
    }
    FrameRange range{0, audio->frameCount};
    if (options.range) {
        range = *options.range;
        checkRangeWithin(range, *audio, options.input);
    }
    const float gain = float(std::pow(10.0, options.gainDB / 20.0));
    ProgressLine progress("Writing " + options.output);
    AudioExporter::exportAudio(*audio, range, gain, *options.format, options.output,
                               progress.callback());
    return 0;
}

} // namespace sonvale::cli
