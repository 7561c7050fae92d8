// sonvale-cli export: writes a file, or a range of it, in an export format with a gain.

#include "cli/Commands.h"
#include "cli/Progress.h"

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>

namespace sonvale::cli {

namespace {

constexpr const char* usage =
    "usage: export IN -o OUT [--format wav16|wav24|aiff16|aac] [--gain DB] [--range START:END]";

std::string curlyQuoted(const std::string& text) { return "\u201C" + text + "\u201D"; }

std::string formatList() {
    std::string list;
    for (size_t i = 0; i < allExportFormats.size(); ++i) {
        if (i > 0) list += i + 1 == allExportFormats.size() ? " or " : ", ";
        list += rawValue(allExportFormats[i]);
    }
    return list;
}

std::optional<int64_t> parseFrame(std::string_view text) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

struct Options {
    std::string input;
    std::string output;
    std::optional<ExportFormat> format;
    double gainDB = 0;
    std::optional<FrameRange> range;
};

Options parse(const Arguments& args) {
    Options options;
    auto value = [&](size_t& i, const std::string& option) -> const std::string& {
        if (i + 1 >= args.size()) throw UsageError{option + " needs a value (" + usage + ")"};
        return args[++i];
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-o" || arg == "--output") {
            options.output = value(i, arg);
        } else if (arg == "--format") {
            const std::string& raw = value(i, arg);
            options.format = exportFormatFromRawValue(raw);
            if (!options.format)
                throw UsageError{"unknown format " + curlyQuoted(raw) + "; use " + formatList()};
        } else if (arg == "--gain") {
            const std::string& raw = value(i, arg);
            char* end = nullptr;
            options.gainDB = std::strtod(raw.c_str(), &end);
            if (raw.empty() || *end != '\0' || !std::isfinite(options.gainDB))
                throw UsageError{"--gain needs a number of decibels, not " + curlyQuoted(raw)};
        } else if (arg == "--range") {
            const std::string& raw = value(i, arg);
            const size_t colon = raw.find(':');
            std::optional<int64_t> start, end;
            if (colon != std::string::npos) {
                start = parseFrame(std::string_view(raw).substr(0, colon));
                end = parseFrame(std::string_view(raw).substr(colon + 1));
            }
            if (!start || !end)
                throw UsageError{"--range needs START:END in frames, not " + curlyQuoted(raw)};
            if (*end <= *start)
                throw UsageError{"the range " + raw + " is empty: END must be after START"};
            options.range = FrameRange{*start, *end};
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw UsageError{"unknown option " + curlyQuoted(arg) + " (" + usage + ")"};
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            throw UsageError{"only one input file can be exported at a time (" + std::string(usage) + ")"};
        }
    }
    if (options.input.empty()) throw UsageError{std::string("no input file given (") + usage + ")"};
    if (options.output.empty()) throw UsageError{std::string("no output file given (") + usage + ")"};
    if (!options.format) {
        options.format = exportFormatForExtension(std::filesystem::path(options.output).extension().string());
        if (!options.format)
            throw UsageError{"can't tell the format from " + curlyQuoted(options.output) +
                             "; name it .wav, .aiff or .m4a, or give --format " + formatList()};
    }
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
        if (range.upper > audio->frameCount)
            throw UsageError{"the range " + std::to_string(range.lower) + ":" +
                             std::to_string(range.upper) + " reaches past the end of " +
                             curlyQuoted(options.input) + " (" + std::to_string(audio->frameCount) +
                             " frames)"};
    }
    const float gain = float(std::pow(10.0, options.gainDB / 20.0));
    ProgressLine progress("Writing " + options.output);
    AudioExporter::exportAudio(*audio, range, gain, *options.format, options.output,
                               progress.callback());
    return 0;
}

} // namespace sonvale::cli
