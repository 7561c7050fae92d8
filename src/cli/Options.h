#pragma once

#include "audio/AudioData.h"
#include "audio/ExportFormat.h"
#include "cli/Commands.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace sonvale::cli {

// Shared pieces of the commands' argument handling, so every command words its errors alike.

std::string curlyQuoted(const std::string& text);
// Inside a catch block: rethrows the error being handled, as a FileError about `input` when
// it is about the input's audio but doesn't name a file ("The file contains no audio.").
[[noreturn]] void rethrowNamingInput(const std::string& input);
// What the tool prints for a failure: the file it is about (the error's own, else `file`),
// the plain words, and the technical line on a line of its own:
//   in.wav: This is not an audio file.
//     (details: Invalid data found when processing input)
std::string failureText(const std::exception& error, const std::string& file = {});
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
