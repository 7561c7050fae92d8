// sonvale-cli info: what each file holds, decoded in full for its peak.

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include "audio/AudioLoader.h"
#include "audio/Decibels.h"

#include <cmath>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>

namespace sonvale::cli {

namespace {

struct FileSummary {
    std::string file;
    AudioLoader::FileInfo info;
    int64_t frames = 0;
    double duration = 0;
    float peak = 0;
    DecodeReport report;
};

std::string formatLine(const FileSummary& s) {
    char peak[32];
    if (s.peak > 0 && std::isfinite(s.peak))
        std::snprintf(peak, sizeof peak, "%.2f", decibelsFromGain(double(s.peak)));
    else
        std::snprintf(peak, sizeof peak, "-inf");
    char line[512];
    std::snprintf(
        line, sizeof line, "%s, %s, %g Hz, %d channel%s, %lld frames, %.3f s, peak %s dBFS",
        s.info.container.c_str(), s.info.codec.c_str(), s.info.sampleRate, s.info.channels,
        s.info.channels == 1 ? "" : "s", (long long)s.frames, s.duration, peak);
    return s.file + ": " + line;
}

nlohmann::ordered_json toJSON(const FileSummary& s) {
    nlohmann::ordered_json object;
    object["file"] = s.file;
    object["container"] = s.info.container;
    object["codec"] = s.info.codec;
    // Rates are whole numbers of hertz in practice; write them as such.
    if (s.info.sampleRate == std::floor(s.info.sampleRate) && s.info.sampleRate < 1e15)
        object["sampleRate"] = int64_t(s.info.sampleRate);
    else
        object["sampleRate"] = s.info.sampleRate;
    object["channels"] = s.info.channels;
    object["frames"] = s.frames;
    object["duration"] = s.duration;
    // Silence has no level in dB: null rather than -inf, which JSON can't hold.
    if (s.peak > 0 && std::isfinite(s.peak))
        object["peakDBFS"] = decibelsFromGain(double(s.peak));
    else
        object["peakDBFS"] = nullptr;
    // What decoding could not recover: silent stretches, an early end, replaced samples.
    const double rate = s.info.sampleRate > 0 ? s.info.sampleRate : 1;
    auto damaged = nlohmann::ordered_json::array();
    for (const FrameRange& range : s.report.damaged)
        damaged.push_back({{"startFrame", range.lower},
                           {"frames", range.length()},
                           {"start", double(range.lower) / rate},
                           {"duration", double(range.length()) / rate}});
    object["damaged"] = std::move(damaged);
    object["endsEarly"] = s.report.endsEarly;
    if (s.report.endsEarly) {
        object["framesRead"] = s.report.framesRead;
        object["statedFrames"] = s.report.statedFrames > 0
                                     ? nlohmann::ordered_json(s.report.statedFrames)
                                     : nlohmann::ordered_json(nullptr);
    }
    object["nonFiniteSamples"] = s.report.nonFiniteSamples;
    return object;
}

} // namespace

int info(const Arguments& args) {
    bool json = false;
    bool optionsEnded = false;
    std::vector<std::string> files;
    for (const std::string& arg : args) {
        if (!optionsEnded && arg == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && arg == "--json") {
            json = true;
        } else if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
            throw UsageError{"unknown option \"" + arg + "\" (usage: info [--json] FILE...)"};
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty()) throw UsageError{"no files given (usage: info [--json] FILE...)"};

    int status = 0;
    auto array = nlohmann::ordered_json::array();
    for (const std::string& file : files) {
        try {
            FileSummary summary;
            summary.file = file;
            summary.info = AudioLoader::probe(file);
            ProgressLine progress("Reading " + file);
            const AudioDataPtr audio =
                AudioLoader::load(file, progress.callback(), &summary.report);
            progress.clear();
            warnAboutDamage(file, summary.report, audio->sampleRate);
            summary.frames = audio->frameCount;
            summary.duration = audio->duration();
            summary.peak = audio->peak;
            if (json)
                array.push_back(toJSON(summary));
            else
                std::printf("%s\n", formatLine(summary).c_str());
        } catch (const std::exception& error) {
            std::fflush(stdout);
            std::fprintf(stderr, "sonvale-cli info: %s\n", failureText(error, file).c_str());
            status = 1;
        }
    }
    if (json) std::printf("%s\n", array.dump(2).c_str());
    return status;
}

} // namespace sonvale::cli
