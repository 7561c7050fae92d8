// sonvale-cli export: writes a file, or a range of it, in an export format with a gain.

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "audio/AudioExporter.h"
#include "audio/AudioFileWriter.h"
#include "audio/AudioLoader.h"
#include "audio/Decibels.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <filesystem>
#include <optional>
#include <vector>

namespace sonvale::cli {

namespace {

constexpr const char* exportUsage =
    "usage: export IN -o OUT [--format wav16|wav24|aiff16|aac] [--gain DB] [--range START:END]";

struct Options {
    std::string input;
    std::string output;
    std::optional<ExportFormat> format;
    double gainDB = 0;
    std::optional<RangeOption> range;
};

Options parse(const Arguments& args) {
    Options options;
    ArgumentCursor cursor(args, exportUsage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "-o" || arg == "--output") {
            options.output = cursor.value();
        } else if (arg == "--format") {
            options.format = parseExportFormat(cursor.value());
        } else if (arg == "--gain") {
            options.gainDB = parseGain(cursor.value(), arg);
        } else if (arg == "--range") {
            options.range = parseRange(cursor.value());
        } else if (cursor.isOption()) {
            cursor.unknownOption();
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{"only one input file can be exported at a time (" +
                             std::string(exportUsage) + ")"};
        }
    }
    if (options.input.empty())
        throw UsageError{std::string("no input file given (") + exportUsage + ")"};
    if (options.output.empty())
        throw UsageError{std::string("no output file given (") + exportUsage + ")"};
    options.format = resolveExportFormat(options.format, options.output);
    return options;
}

// The file streamed: decoded and written 65,536 frames at a time, so that exporting a long
// file costs what reading and writing it cost and never holds it in memory. The samples
// written are those the program's export writes from the loaded file. A failure part-way
// (a full disk, a range past the end of a file that did not say how long it was) removes
// what was written.
void exportStreamed(const Options& options) {
    auto decoder = openAudioDecoder(options.input);
    const double rate = decoder->info().sampleRate;
    const int channels = decoder->info().channels;
    // As when loading: a file that says exactly how long it is is read no further.
    const bool exact = decoder->lengthIsExact();
    const int64_t limit = exact ? decoder->info().frames : INT64_MAX;
    if (channels < 1 || limit < 1) throw AudioLoaderError::empty();
    const std::optional<FrameRange> range =
        options.range ? std::optional(options.range->resolve(rate, limit)) : std::nullopt;
    if (range) checkRangeWithin(*range, limit, options.input);
    const int64_t lower = range ? range->lower : 0;
    const int64_t upper = range ? range->upper : limit;
    // A range to the end of a file of unknown length ends where the file does.
    const bool rangeHasEnd = range && upper != INT64_MAX;
    const double expected =
        double(rangeHasEnd ? upper - lower : std::max<int64_t>(decoder->info().frames - lower, 1));

    constexpr int64_t chunk = 65536;
    const auto planes = static_cast<size_t>(channels);
    std::vector<std::vector<float>> decoded(planes, std::vector<float>(static_cast<size_t>(chunk)));
    std::vector<std::vector<float>> written(planes, std::vector<float>(static_cast<size_t>(chunk)));
    std::vector<float*> into(planes);
    std::vector<const float*> out(planes);
    for (int c = 0; c < channels; ++c)
        out[size_t(c)] = written[size_t(c)].data();

    ProgressLine progress("Writing " + options.output);
    const auto report = progress.callback();
    const float gain = float(gainFromDecibels(options.gainDB));
    std::unique_ptr<AudioFileWriter> writer;
    try {
        int64_t position = 0; // frames decoded so far
        double reported = 0;
        while (position < upper) {
            for (int c = 0; c < channels; ++c)
                into[size_t(c)] = decoded[size_t(c)].data();
            const int64_t got = decoder->read(into.data(), std::min(chunk, upper - position));
            if (got <= 0) break;
            // The part of this chunk inside the range.
            const int64_t from = std::max(position, lower), to = position + got;
            if (from < to) {
                for (int c = 0; c < channels; ++c)
                    AudioExporter::applyGainAndClip(decoded[size_t(c)].data() + (from - position),
                                                    written[size_t(c)].data(), to - from, gain);
                if (!writer)
                    writer = openAudioFileWriter(settings(*options.format, rate, channels),
                                                 options.output);
                writer->write(out.data(), to - from);
            }
            position = to;
            const double fraction = double(position - lower) / expected;
            if (report && fraction - reported >= 0.02 && fraction < 1) report(reported = fraction);
        }
        if (position == 0) throw AudioLoaderError::empty();
        if (rangeHasEnd) checkRangeWithin(*range, position, options.input);
        if (range && position <= lower)
            throw UsageError{"the range " + options.range->text + " starts after the end of " +
                             curlyQuoted(options.input)};
        if (!writer) // a range that starts where the file ends: nothing to write
            writer = openAudioFileWriter(settings(*options.format, rate, channels), options.output);
        writer->finish();
        progress.clear();
        warnAboutDamage(options.input, decoder->report(), rate);
    } catch (...) {
        writer.reset(); // takes its unfinished file away; the output stays as it was
        throw;
    }
}

} // namespace

int exportCommand(const Arguments& args) {
    const Options options = parse(args);
    try {
        exportStreamed(options);
    } catch (...) {
        rethrowNamingInput(options.input);
    }
    return 0;
}

} // namespace sonvale::cli
