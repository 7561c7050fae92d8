// sonvale-cli loudness, normalize and trim-silence: what the gain controls and Trim Silence
// do in the program, for files.

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "audio/Decibels.h"
#include "audio/Loudness.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace sonvale::cli {

namespace {

std::string fileName(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

// Why a file has no integrated loudness.
std::string noLoudnessReason(const AudioData& audio) {
    const int64_t subBlock = std::llround(audio.sampleRate * 0.1);
    if (subBlock < 1 || audio.frameCount / subBlock < 4) return "shorter than 0.4 s";
    return "too quiet: nothing above the -70 LUFS gate";
}

std::optional<double> peakDBFS(float peak) {
    if (!(peak > 0)) return std::nullopt;
    return decibelsFromGain(double(peak));
}

void exportWithGain(const AudioData& audio, FrameRange range, float gainDB, ExportFormat format,
                    const std::string& output) {
    ProgressLine progress("Writing " + output);
    AudioExporter::exportAudio(audio, range, float(gainFromDecibels(gainDB)), format, output,
                               progress.callback());
}

} // namespace

int loudness(const Arguments& args) {
    constexpr const char* usage = "usage: loudness [--json] FILE...";
    bool json = false;
    std::vector<std::string> files;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        if (cursor.current() == "--json")
            json = true;
        else if (cursor.isOption())
            cursor.unknownOption();
        else
            files.push_back(cursor.current());
    }
    if (files.empty()) throw UsageError{std::string("no file given (") + usage + ")"};

    nlohmann::json array = nlohmann::json::array();
    int status = 0;
    for (const auto& file : files) {
        try {
            auto audio = loadWithProgress(file);
            const auto lufs = Loudness::integrated(*audio);
            const auto peak = peakDBFS(audio->peak);
            if (json) {
                nlohmann::json entry{
                    {"file", file},
                    {"integratedLUFS", lufs ? nlohmann::json(*lufs) : nlohmann::json()},
                    {"peakDBFS", peak ? nlohmann::json(*peak) : nlohmann::json()}};
                if (!lufs) entry["reason"] = noLoudnessReason(*audio);
                array.push_back(std::move(entry));
                continue;
            }
            char loudnessText[96], peakText[32];
            if (lufs)
                std::snprintf(loudnessText, sizeof loudnessText, "%.2f LUFS", *lufs);
            else
                std::snprintf(loudnessText, sizeof loudnessText, "none (%s)",
                              noLoudnessReason(*audio).c_str());
            if (peak)
                std::snprintf(peakText, sizeof peakText, "%.2f dBFS", *peak);
            else
                std::snprintf(peakText, sizeof peakText, "-inf dBFS");
            std::printf("%s: integrated %s, peak %s\n", file.c_str(), loudnessText, peakText);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "sonvale-cli loudness: %s\n", failureText(error, file).c_str());
            status = 1;
        }
    }
    if (json) std::printf("%s\n", array.dump(2).c_str());
    return status;
}

int normalize(const Arguments& args) {
    constexpr const char* usage =
        "usage: normalize IN -o OUT (--peak | --loudness LUFS) [--format F]";
    std::string input, output;
    bool toPeak = false;
    std::optional<double> target;
    std::optional<ExportFormat> format;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "-o" || arg == "--output")
            output = cursor.value();
        else if (arg == "--peak")
            toPeak = true;
        else if (arg == "--loudness")
            target = parseNumber(cursor.value(), arg, "a loudness in LUFS");
        else if (arg == "--format")
            format = parseExportFormat(cursor.value());
        else if (cursor.isOption())
            cursor.unknownOption();
        else if (input.empty())
            input = arg;
        else
            throw UsageError{std::string("only one input file at a time (") + usage + ")"};
    }
    if (input.empty() || output.empty())
        throw UsageError{std::string("an input and -o OUT are needed (") + usage + ")"};
    if (toPeak == target.has_value())
        throw UsageError{std::string("give either --peak or --loudness LUFS (") + usage + ")"};
    const ExportFormat outputFormat = resolveExportFormat(format, output);

    auto audio = loadWithProgress(input);
    float gainDB;
    if (toPeak) {
        auto gain = peakNormalizationGain(audio->peak);
        if (!gain) throw UsageError{fileName(input) + ": The whole track is silent."};
        gainDB = *gain;
    } else {
        auto measured = Loudness::integrated(*audio);
        if (!measured)
            throw UsageError{fileName(input) + ": has no integrated loudness (" +
                             noLoudnessReason(*audio) + ")"};
        gainDB = loudnessNormalizationGain(*target, *measured);
    }
    exportWithGain(*audio, {0, audio->frameCount}, gainDB, outputFormat, output);
    std::printf("%+.1f dB applied\n", double(gainDB));
    return 0;
}

int trimSilence(const Arguments& args) {
    constexpr const char* usage = "usage: trim-silence IN -o OUT [--format F]";
    std::string input, output;
    std::optional<ExportFormat> format;
    ArgumentCursor cursor(args, usage);
    while (cursor.next()) {
        const std::string& arg = cursor.current();
        if (arg == "-o" || arg == "--output")
            output = cursor.value();
        else if (arg == "--format")
            format = parseExportFormat(cursor.value());
        else if (cursor.isOption())
            cursor.unknownOption();
        else if (input.empty())
            input = arg;
        else
            throw UsageError{std::string("only one input file at a time (") + usage + ")"};
    }
    if (input.empty() || output.empty())
        throw UsageError{std::string("an input and -o OUT are needed (") + usage + ")"};
    const ExportFormat outputFormat = resolveExportFormat(format, output);

    auto audio = loadWithProgress(input);
    const auto range = audio->audibleRange(-60, 0.01);
    if (!range) throw UsageError{fileName(input) + ": The whole track is silent."};
    if (*range == FrameRange{0, audio->frameCount}) {
        char message[128];
        std::snprintf(message, sizeof message,
                      "There's no silence (below %.0f dBFS) at the start or end.", -60.0);
        throw UsageError{fileName(input) + ": " + message};
    }
    exportWithGain(*audio, *range, 0, outputFormat, output);
    std::printf("kept frames %lld:%lld of %lld\n", (long long)range->lower, (long long)range->upper,
                (long long)audio->frameCount);
    return 0;
}

} // namespace sonvale::cli
