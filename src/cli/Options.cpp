#include "cli/Options.h"

#include "audio/AudioErrors.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace sonvale::cli {

std::string curlyQuoted(const std::string& text) { return "\u201C" + text + "\u201D"; }

void rethrowNamingInput(const std::string& input) {
    try {
        throw;
    } catch (const AudioLoaderError& error) {
        throw FileError("Couldn't open", input, error.what(), error.details());
    }
}

std::string failureText(const std::exception& error, const std::string& file) {
    const auto* onFile = dynamic_cast<const FileError*>(&error);
    std::string text = onFile && !onFile->problem().empty()
                           ? onFile->path() + ": " + onFile->problem()
                           : (file.empty() ? "" : file + ": ") + error.what();
    const auto* user = dynamic_cast<const UserError*>(&error);
    if (user && !user->details().empty()) text += "\n  (details: " + user->details() + ")";
    return text;
}

std::string exportFormatList() {
    std::string list;
    for (size_t i = 0; i < allExportFormats.size(); ++i) {
        if (i > 0) list += i + 1 == allExportFormats.size() ? " or " : ", ";
        list += rawValue(allExportFormats[i]);
    }
    return list;
}

ExportFormat parseExportFormat(const std::string& raw) {
    if (auto format = exportFormatFromRawValue(raw)) return *format;
    throw UsageError{"unknown format " + curlyQuoted(raw) + "; use " + exportFormatList()};
}

ExportFormat resolveExportFormat(std::optional<ExportFormat> given, const std::string& output) {
    if (given) return *given;
    if (auto format = exportFormatForExtension(std::filesystem::path(output).extension().string()))
        return *format;
    throw UsageError{"can't tell the format from " + curlyQuoted(output) +
                     "; name it .wav, .aiff or .m4a, or give --format " + exportFormatList()};
}

namespace {
// One end: "48000" frames or "1.5s"; none when empty.
std::optional<RangeOption::End> parseEnd(const std::string& text) {
    if (text.empty()) return std::nullopt;
    const bool seconds = text.back() == 's';
    const std::string digits = seconds ? text.substr(0, text.size() - 1) : text;
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        value < 0 || !std::isfinite(value) || (!seconds && value != std::floor(value)))
        throw UsageError{curlyQuoted(text) +
                         " in --range is neither a frame number nor seconds such as 1.5s"};
    return RangeOption::End{value, seconds};
}
} // namespace

RangeOption parseRange(const std::string& raw) {
    const size_t colon = raw.find(':');
    if (colon == std::string::npos)
        throw UsageError{"--range needs START:END in frames or seconds (1.5s:3s), not " +
                         curlyQuoted(raw)};
    return {raw, parseEnd(raw.substr(0, colon)), parseEnd(raw.substr(colon + 1))};
}

FrameRange RangeOption::resolve(double sampleRate, int64_t frameCount) const {
    auto frames = [&](const End& e) {
        return e.seconds ? int64_t(std::llround(e.value * sampleRate)) : int64_t(e.value);
    };
    const FrameRange range{start ? frames(*start) : 0, end ? frames(*end) : frameCount};
    if (range.isEmpty())
        throw UsageError{"the range " + text + " is empty: END must be after START"};
    return range;
}

double parseGain(const std::string& raw, const std::string& option) {
    const double dB = parseNumber(raw, option, "a number of decibels");
    if (dB < minimumGainDB || dB > maximumGainDB)
        throw UsageError{option + " must be between -96 and +48 dB, not " + curlyQuoted(raw)};
    return dB;
}

void checkRangeWithin(const FrameRange& range, int64_t frameCount, const std::string& file) {
    if (range.upper > frameCount)
        throw UsageError{"the range " + std::to_string(range.lower) + ":" +
                         std::to_string(range.upper) + " reaches past the end of " +
                         curlyQuoted(file) + " (" + std::to_string(frameCount) + " frames)"};
}

double parseNumber(const std::string& raw, const std::string& option, const std::string& what) {
    char* end = nullptr;
    const double value = std::strtod(raw.c_str(), &end);
    if (raw.empty() || *end != '\0' || !std::isfinite(value))
        throw UsageError{option + " needs " + what + ", not " + curlyQuoted(raw)};
    return value;
}

bool ArgumentCursor::next() { return ++index < args.size(); }

const std::string& ArgumentCursor::value() {
    if (index + 1 >= args.size()) throw UsageError{current() + " needs a value (" + usage + ")"};
    return args[++index];
}

void ArgumentCursor::unknownOption() const {
    throw UsageError{"unknown option " + curlyQuoted(current()) + " (" + usage + ")"};
}

} // namespace sonvale::cli
