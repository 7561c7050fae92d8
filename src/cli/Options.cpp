#include "cli/Options.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace sonvale::cli {

std::string curlyQuoted(const std::string& text) {
    return "\u201C" + text + "\u201D";
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
std::optional<int64_t> parseFrame(std::string_view text) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}
} // namespace

FrameRange parseFrameRange(const std::string& raw) {
    const size_t colon = raw.find(':');
    std::optional<int64_t> start, end;
    if (colon != std::string::npos) {
        start = parseFrame(std::string_view(raw).substr(0, colon));
        end = parseFrame(std::string_view(raw).substr(colon + 1));
    }
    if (!start || !end)
        throw UsageError{"--range needs START:END in frames, not " + curlyQuoted(raw)};
    if (*end <= *start) throw UsageError{"the range " + raw + " is empty: END must be after START"};
    return {*start, *end};
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

bool ArgumentCursor::next() {
    return ++index < args.size();
}

const std::string& ArgumentCursor::value() {
    if (index + 1 >= args.size()) throw UsageError{current() + " needs a value (" + usage + ")"};
    return args[++index];
}

void ArgumentCursor::unknownOption() const {
    throw UsageError{"unknown option " + curlyQuoted(current()) + " (" + usage + ")"};
}

} // namespace sonvale::cli
