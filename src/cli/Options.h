#pragma once

#include "audio/AudioData.h"
#include "audio/ExportFormat.h"
#include "cli/Commands.h"

#include <optional>
#include <string>
#include <string_view>

namespace sonvale::cli {

// Shared pieces of the commands' argument handling, so every command words its errors alike.

std::string curlyQuoted(const std::string& text);
// Inside a catch block: rethrows the error being handled, naming `input` in front of it when
// it is about the input's audio ("in.wav: The file contains no audio.") as `info` does.
[[noreturn]] void rethrowNamingInput(const std::string& input);
// "wav16, wav24, aiff16 or aac"
std::string exportFormatList();
// --format's value, or a UsageError listing the formats.
ExportFormat parseExportFormat(const std::string& raw);
// The format given, else the one OUT's extension implies, else a UsageError.
ExportFormat resolveExportFormat(std::optional<ExportFormat> given, const std::string& output);
// A --range as given, START:END with each end in frames ("48000") or seconds ("1.5s"); an
// empty end is the file's own start or end. Every command reads ranges this way.
struct RangeOption {
    struct End {
        double value = 0;
        bool seconds = false;
    };
    std::string text;
    std::optional<End> start, end;
    // The frames it names at `sampleRate` in a file `frameCount` long (INT64_MAX when the
    // length is not known yet); a UsageError when that is empty.
    FrameRange resolve(double sampleRate, int64_t frameCount) const;
};
RangeOption parseRange(const std::string& raw);
// --gain's decibels: finite and between minimumGainDB and maximumGainDB, or a UsageError.
constexpr double minimumGainDB = -96, maximumGainDB = 48;
double parseGain(const std::string& raw, const std::string& option);
// A range must lie within the file it applies to, `frameCount` frames long.
void checkRangeWithin(const FrameRange& range, int64_t frameCount, const std::string& file);
// A finite number, or a UsageError naming the option.
double parseNumber(const std::string& raw, const std::string& option, const std::string& what);

// Walks the arguments: value() takes the next argument as the current option's value.
class ArgumentCursor {
public:
    ArgumentCursor(const Arguments& args, std::string usage)
        : args(args)
        , usage(std::move(usage)) {}
    bool next();
    const std::string& current() const { return args[index]; }
    const std::string& value();
    bool isOption() const { return current().size() > 1 && current()[0] == '-'; }
    [[noreturn]] void unknownOption() const;
    const std::string& usageText() const { return usage; }

private:
    const Arguments& args;
    std::string usage;
    size_t index = size_t(-1);
};

} // namespace sonvale::cli
