// sonvale-cli mixdown: a saved session's timeline rendered to a stereo 32-bit float WAV.

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Progress.h"

#include "audio/AudioDecoder.h"
#include "audio/AudioErrors.h"
#include "audio/AudioLoader.h"
#include "persistence/SessionBundle.h"
#include "timeline/Timeline.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sonvale::cli {

namespace fs = std::filesystem;

namespace {

constexpr const char* mixdownUsage =
    "usage: mixdown SESSION.sonvale -o OUT.wav [--range START:END]";

int usageFailure(const std::string& message) {
    std::fprintf(stderr, "sonvale-cli mixdown: %s (%s)\n", message.c_str(), mixdownUsage);
    return 2;
}

// One file the timeline plays, decoded once as the mix reaches it: read no further than
// the length it states when that is exact, as loading reads it.
struct StreamedFile {
    std::string path;
    std::unique_ptr<AudioDecoder> decoder;
    int64_t limit = 0;
    int64_t frames = 0;     // decoded so far
    bool exhausted = false; // the decoder had no more before the limit
    // What the timeline's clips hold in its place: its rate and channels, no samples.
    AudioDataPtr standIn;

    DecodeReport report() const {
        DecodeReport report = decoder->report();
        // A file that stopped short of its stated length, not one the mix needed less of.
        if (decoder->lengthIsExact() && exhausted && frames < limit && !report.endsEarly) {
            report.endsEarly = true;
            report.framesRead = frames;
            report.statedFrames = limit;
        }
        return report;
    }
};

class FileStream final : public TimelineMixer::Stream {
public:
    explicit FileStream(std::shared_ptr<StreamedFile> file)
        : file(std::move(file)) {}
    int channelCount() const override { return this->file->decoder->info().channels; }
    int64_t read(float* const* channels, int64_t maxFrames) override {
        const int64_t wanted = std::min(maxFrames, file->limit - file->frames);
        const int64_t got = wanted > 0 ? file->decoder->read(channels, wanted) : 0;
        if (wanted > 0 && got <= 0) {
            if (file->frames == 0) throw AudioLoaderError::empty();
            file->exhausted = true;
        }
        file->frames += std::max<int64_t>(got, 0);
        return got;
    }

private:
    std::shared_ptr<StreamedFile> file;
};

// The tracks and clip files the timeline plays, each opened once.
struct StreamedFiles {
    std::vector<std::shared_ptr<StreamedFile>> files; // in the order they were first asked for

    AudioDataPtr open(const std::string& path) {
        for (const auto& file : files)
            if (file->path == path) return file->standIn;
        auto file = std::make_shared<StreamedFile>();
        file->path = path;
        try {
            file->decoder = openAudioDecoder(path);
        } catch (...) {
            rethrowNamingInput(path);
        }
        const auto& info = file->decoder->info();
        const bool exact = file->decoder->lengthIsExact();
        if (exact && info.frames < 1)
            throw FileError("Couldn't open", path, AudioLoaderError::empty().what(), {});
        file->limit = exact ? info.frames : std::numeric_limits<int64_t>::max();
        file->standIn = AudioLoader::makeAudioDataForPlaying(
            info.sampleRate, std::vector<FloatBuffer>(size_t(info.channels)), 0);
        files.push_back(file);
        return file->standIn;
    }

    std::unique_ptr<TimelineMixer::Stream> stream(const AudioDataPtr& audio) const {
        for (const auto& file : files)
            if (file->standIn == audio) return std::make_unique<FileStream>(file);
        return nullptr;
    }

    // Warns about what decoding the files lost, once each, after the mix.
    void warn() const {
        for (const auto& file : files)
            if (file->frames > 0)
                warnAboutDamage(file->path, file->report(), file->decoder->info().sampleRate);
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
        // Opened here, so that a file that can't be read fails before anything is written;
        // decoded while mixing, a stretch at a time.
        StreamedFiles files;
        Timeline::Sources sources;
        for (size_t i = 0; i < state.tracks.size(); ++i)
            sources.tracks.emplace_back(Uuid::random(),
                                        used[i] ? files.open(state.tracks[i].path) : nullptr);
        sources.clipFile = [&](const std::string& file) { return files.open(file); };

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
        TimelineMixer::writeMixdown(*snapshot, *output, progress.callback(),
                                    [&](const AudioDataPtr& audio) { return files.stream(audio); });
        progress.clear();
        files.warn();
        std::printf("%s: %lld frames at %g Hz, stereo 32-bit float\n", output->c_str(),
                    static_cast<long long>(snapshot->frameCount), snapshot->sampleRate);
        return 0;
    } catch (const UsageError& failure) {
        std::fprintf(stderr, "sonvale-cli mixdown: %s\n", failure.message.c_str());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "sonvale-cli mixdown: %s\n", failureText(failure).c_str());
    }
    return 1;
}

} // namespace sonvale::cli
