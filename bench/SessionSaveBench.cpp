// Saving a session of fifty tracks: ten edited ten-minute stereo 48 kHz tracks whose audio
// exists only in memory, and forty tracks that refer to files on disk.
//
//  - BM_SessionFirstSave: SessionBundle::write to a new bundle, next to `cp -r` of the same
//    audio as 32-bit float WAV (BM_SessionCopyEditedAudio; ...Synced also flushes the copy to
//    disk, as the bundle is flushed before it is swapped in).
//  - BM_SessionSaveUnchanged: the same session saved again, the edited tracks now read from
//    the bundle's own files. Fails when any audio file is rewritten or a snapshot is added.
//  - BM_SessionStoreSave: the automatic store's save through the editor, the time the calling
//    (main) thread spends; BM_SessionStoreWrite: the write that follows on the pool.
//
// 2.3 GB of audio in memory and several times that on disk: registered only when
// SONVALE_SESSION_BENCH_DIR names a folder to work in (bench/session-save.sh sets it). The
// audio is made once per process; each benchmark removes what it wrote.

#include "audio/AudioExporter.h"
#include "audio/AudioLoader.h"
#include "base/ThreadPoolExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "persistence/SessionBundle.h"
#include "persistence/SessionStore.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace sonvale;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int editedCount = 10;
constexpr int referencedCount = 40;
constexpr double sampleRate = 48000;
constexpr int64_t editedFrames = 10 * 60 * 48000;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Uncorrelated noise per channel, cheap to make in bulk.
AudioDataPtr makeNoise(int64_t frames, uint32_t seed) {
    std::vector<FloatBuffer> channels;
    for (int c = 0; c < 2; ++c) {
        FloatBuffer buffer(frames);
        uint32_t x = seed * 2654435761u + uint32_t(c) + 1;
        for (int64_t i = 0; i < frames; ++i) {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            buffer[i] = float(int32_t(x)) * (0.25f / 2147483648.0f);
        }
        channels.push_back(std::move(buffer));
    }
    return AudioLoader::makeAudioData(sampleRate, std::move(channels), frames);
}

std::string numbered(const char* name, int n) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %02d.wav", name, n);
    return text;
}

// The session, once per process: an editor holding the fifty tracks, the folder of the
// edited audio as WAV (what the copy copies), and the tracks as SessionBundle::write takes them.
struct Media {
    explicit Media(fs::path folder)
        : root(std::move(folder))
        , preferences(root / "preferences.json") {
        fs::create_directories(takes);
        fs::create_directories(references);
        const AudioDataPtr second = makeNoise(int64_t(sampleRate), 99);
        for (int i = 0; i < editedCount + referencedCount; ++i) {
            const bool edited = i < editedCount;
            const fs::path file = edited ? takes / numbered("Take", i + 1)
                                         : references / numbered("Reference", i - editedCount + 1);
            auto track = AudioTrack::create(file);
            if (edited) {
                track->finishLoading(makeNoise(editedFrames, uint32_t(i + 1)));
                AudioClip silence{sampleRate, {std::vector<float>(4800), std::vector<float>(4800)}};
                track->replace({0, 4800}, silence, std::nullopt, "Silence");
            } else {
                track->finishLoading(second);
            }
            AudioExporter::writeLossless(*track->audio(), file);
            model.addTrack(track);
        }
        model.attachSessionStore(store);
        const SessionState live = model.sessionState();
        for (size_t i = 0; i < live.tracks.size(); ++i) {
            const AudioTrack& track = *model.tracks()[i];
            tracks.push_back({live.tracks[i], track.url(),
                              track.audioEditDepth() > 0 ? track.audio() : nullptr, track.name(),
                              false});
        }
    }

    fs::path root;
    fs::path takes = root / "takes";
    fs::path references = root / "references";
    fs::path bundle = root / "Session.sonvale";
    ThreadPoolExecutor executor{2};
    Preferences preferences;
    std::shared_ptr<SessionStore> store = std::make_shared<SessionStore>(root / "store");
    EditorModel model{executor, preferences};
    std::vector<SessionBundle::Track> tracks;
};

Media& media() {
    static Media made(fs::absolute(std::getenv("SONVALE_SESSION_BENCH_DIR")) / "session-save");
    return made;
}

Media* mediaOrSkip(benchmark::State& state) {
    try {
        return &media();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return nullptr;
    }
}

// fsync of every file and folder below `root`, as the bundle writer does.
void syncTree(const fs::path& root) {
    auto sync = [](const fs::path& path, int flags) {
        const int fd = ::open(path.c_str(), flags);
        if (fd >= 0) {
            ::fsync(fd);
            ::close(fd);
        }
    };
    for (const auto& entry : fs::recursive_directory_iterator(root))
        sync(entry.path(), entry.is_directory() ? O_RDONLY | O_DIRECTORY : O_RDONLY);
    sync(root, O_RDONLY | O_DIRECTORY);
}

bool run(std::vector<std::string> arguments) {
    std::vector<char*> argv;
    for (auto& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::map<std::string, ino_t> audioInodes(const fs::path& bundle) {
    std::map<std::string, ino_t> inodes;
    for (const auto& entry : fs::recursive_directory_iterator(bundle / "Audio")) {
        struct stat info {};
        if (entry.is_regular_file() && ::stat(entry.path().c_str(), &info) == 0)
            inodes[fs::relative(entry.path(), bundle).string()] = info.st_ino;
    }
    return inodes;
}

SessionBundle::WriteResult save(const Media& m, const std::vector<SessionBundle::Track>& tracks) {
    return SessionBundle::write(
        tracks, {}, false, std::nullopt, {}, SessionBundle::history(m.bundle),
        SessionBundle::NewSnapshot{SessionBundle::Clock::now(), std::nullopt}, m.bundle);
}

void copyEditedAudio(benchmark::State& state, bool synced) {
    Media* m = mediaOrSkip(state);
    if (!m) return;
    const fs::path copy = m->root / "copy";
    for (auto _ : state) {
        fs::remove_all(copy);
        ::sync();
        const auto start = Clock::now();
        if (!run({"cp", "-r", m->takes.string(), copy.string()})) {
            state.SkipWithError("cp -r failed");
            break;
        }
        if (synced) syncTree(copy);
        state.SetIterationTime(secondsSince(start));
    }
    fs::remove_all(copy);
}

void firstSave(benchmark::State& state) {
    Media* m = mediaOrSkip(state);
    if (!m) return;
    for (auto _ : state) {
        fs::remove_all(m->bundle);
        ::sync();
        const auto start = Clock::now();
        save(*m, m->tracks);
        state.SetIterationTime(secondsSince(start));
    }
}

void saveUnchanged(benchmark::State& state) {
    Media* m = mediaOrSkip(state);
    if (!m) return;
    if (!fs::exists(m->bundle / "Session.json")) save(*m, m->tracks);
    // As the editor has it after a save: the edited tracks' audio is the bundle's own.
    const SessionState saved = SessionBundle::read(m->bundle);
    std::vector<SessionBundle::Track> tracks = m->tracks;
    for (size_t i = 0; i < tracks.size(); ++i) {
        tracks[i].source = saved.tracks[i].path;
        tracks[i].edited = nullptr;
    }
    for (auto _ : state) {
        const auto inodes = audioInodes(m->bundle);
        const size_t snapshots = SessionBundle::snapshots(m->bundle).size();
        ::sync();
        const auto start = Clock::now();
        const auto result = save(*m, tracks);
        state.SetIterationTime(secondsSince(start));
        if (audioInodes(m->bundle) != inodes || inodes.size() != size_t(editedCount)) {
            state.SkipWithError("audio was rewritten");
            break;
        }
        if (result.snapshot || SessionBundle::snapshots(m->bundle).size() != snapshots) {
            state.SkipWithError("a snapshot was added");
            break;
        }
    }
    fs::remove_all(m->bundle);
}

// The editor's automatic save: reports the time on the calling thread, or with `background`
// the time from its return until the store has written everything.
void storeSave(benchmark::State& state, bool background) {
    Media* m = mediaOrSkip(state);
    if (!m) return;
    for (auto _ : state) {
        fs::remove_all(m->store->folder());
        fs::create_directories(m->store->folder());
        ::sync();
        const auto start = Clock::now();
        m->model.saveSession();
        const auto returned = Clock::now();
        m->store->flush();
        state.SetIterationTime(background
                                   ? secondsSince(returned)
                                   : std::chrono::duration<double>(returned - start).count());
        const auto stored = m->store->load();
        const auto written = std::distance(fs::directory_iterator(m->store->audioFolder()),
                                           fs::directory_iterator());
        if (!stored || stored->tracks.size() != m->tracks.size() || written != editedCount) {
            state.SkipWithError("the store did not save the session");
            break;
        }
    }
    fs::remove_all(m->store->folder());
}

[[maybe_unused]] const bool registered = [] {
    if (!std::getenv("SONVALE_SESSION_BENCH_DIR")) return false;
    auto configure = [](benchmark::internal::Benchmark* b) {
        b->Iterations(1)
            ->Repetitions(3)
            ->ReportAggregatesOnly(true)
            ->ComputeStatistics(
                "min",
                [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    configure(benchmark::RegisterBenchmark("BM_SessionCopyEditedAudio", copyEditedAudio, false));
    configure(
        benchmark::RegisterBenchmark("BM_SessionCopyEditedAudioSynced", copyEditedAudio, true));
    configure(benchmark::RegisterBenchmark("BM_SessionFirstSave", firstSave));
    configure(benchmark::RegisterBenchmark("BM_SessionSaveUnchanged", saveUnchanged));
    configure(benchmark::RegisterBenchmark("BM_SessionStoreSave", storeSave, false));
    configure(benchmark::RegisterBenchmark("BM_SessionStoreWrite", storeSave, true));
    return true;
}();

} // namespace
