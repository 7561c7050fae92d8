// sonvale-cli mixdown: a saved session's timeline rendered to a stereo 32-bit float WAV.

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include "audio/AudioLoader.h"
#include "persistence/SessionBundle.h"
#include "timeline/Timeline.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace sonvale::cli {

namespace fs = std::filesystem;

namespace {

constexpr const char* mixdownUsage =
    "usage: mixdown SESSION.sonvale -o OUT.wav [--range START:END]";

int usageFailure(const std::string& message) {
    std::fprintf(stderr, "sonvale-cli mixdown: %s (%s)\n", message.c_str(), mixdownUsage);
    return 2;
}

// The tracks and clip files the timeline plays, decoded once each.
struct LoadedAudio {
    std::map<std::string, AudioDataPtr> files;

    AudioDataPtr load(const std::string& path) {
        auto& audio = files[path];
        if (!audio) {
            DecodeReport report;
            audio = AudioLoader::load(path, {}, &report);
            warnAboutDamage(path, report, audio->sampleRate);
        }
        return audio;
    }
};

} // namespace

int mixdown(const Arguments& args) {
    std::optional<std::string> bundle, output;
    std::optional<RangeOption> range;
    try {
        ArgumentCursor cursor(args, mixdownUsage);
        while (cursor.next()) {
            const std::string& arg = cursor.current();
            if (arg == "-o" || arg == "--output")
                output = cursor.value();
            else if (arg == "--range")
                range = parseRange(cursor.value());
            else if (cursor.isOption())
                cursor.unknownOption();
            else if (bundle)
                return usageFailure("one session at a time");
            else
                bundle = arg;
        }
    } catch (const UsageError& error) {
        return usageFailure(error.message);
    }
    if (!bundle) return usageFailure("no session given");
    if (!output) return usageFailure("no output given (-o OUT.wav)");
    const fs::path path = fs::path(*bundle).lexically_normal();
    if (path.filename().extension() != ".sonvale" && path.parent_path().extension() != ".sonvale")
        return usageFailure(curlyQuoted(*bundle) + " isn't a session (a folder whose name ends in "
                                                   "\u201C.sonvale\u201D)");

    try {
        const SessionState state = SessionBundle::read(*bundle);
        if (!state.timeline || state.timeline->lanes.empty()) {
            std::fprintf(stderr, "sonvale-cli mixdown: %s has no timeline: nothing was written\n",
                         curlyQuoted(*bundle).c_str());
            return 1;
        }
        // Only the tracks that clips play are decoded.
        std::vector<bool> used(state.tracks.size());
        for (const auto& lane : state.timeline->lanes)
            for (const auto& clip : lane.clips)
                if (const auto* track = std::get_if<TimelineState::Clip::TrackSource>(&clip.source))
                    if (track->index >= 0 && track->index < int64_t(used.size()))
                        used[size_t(track->index)] = true;
        LoadedAudio loaded;
        Timeline::Sources sources;
        for (size_t i = 0; i < state.tracks.size(); ++i)
            sources.tracks.emplace_back(Uuid::random(),
                                        used[i] ? loaded.load(state.tracks[i].path) : nullptr);
        sources.clipFile = [&](const std::string& file) { return loaded.load(file); };

        auto timeline = Timeline::create(state.timeline->sampleRate);
        timeline->restore(*state.timeline, sources);
        if (timeline->frameCount() < 1) {
            std::fprintf(stderr,
                         "sonvale-cli mixdown: the timeline of %s is empty: nothing was "
                         "written\n",
                         curlyQuoted(*bundle).c_str());
            return 1;
        }
        std::optional<std::pair<int64_t, int64_t>> frames;
        if (range) {
            const FrameRange r = range->resolve(timeline->sampleRate(), timeline->frameCount());
            frames = std::pair{r.lower, r.upper};
        }
        const auto snapshot = timeline->mixdownSnapshot(frames);
        ProgressLine progress("Mixing down");
        TimelineMixer::writeMixdown(*snapshot, *output, progress.callback());
        progress.clear();
        std::printf("%s: %lld frames at %g Hz, stereo 32-bit float\n", output->c_str(),
                    static_cast<long long>(snapshot->frameCount), snapshot->sampleRate);
        return 0;
    } catch (const UsageError& failure) {
        std::fprintf(stderr, "sonvale-cli mixdown: %s\n", failure.message.c_str());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "sonvale-cli mixdown: %s\n", failure.what());
    }
    return 1;
}

} // namespace sonvale::cli
