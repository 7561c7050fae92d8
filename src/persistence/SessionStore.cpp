#include "persistence/SessionStore.h"

#include "audio/AudioExporter.h"
#include "base/AtomicFile.h"
#include "base/Executor.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>

namespace sonvale {

namespace fs = std::filesystem;

struct SessionStore::Queue {
    std::mutex mutex;
    std::condition_variable idle;
    struct Job {
        SessionState state;
        std::vector<PendingAudio> audio;
    };
    std::optional<Job> waiting;
    bool running = false;
};

SessionStore::SessionStore(fs::path folder)
    : root(fs::absolute(folder).lexically_normal())
    , queue(std::make_shared<Queue>()) {}

SessionStore::~SessionStore() = default;

fs::path SessionStore::standardFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return fs::path(data) / "Sonvale";
    const char* home = std::getenv("HOME");
    return fs::path(home && home[0] ? home : "/tmp") / ".local" / "share" / "Sonvale";
}

namespace {
void logFailure(const std::string& reason) {
    std::fprintf(stderr, "Sonvale: failed to save session: %s\n", reason.c_str());
}
} // namespace

bool SessionStore::save(const SessionState& state, const std::vector<PendingAudio>& audio) {
    return saveTo(root, state, audio);
}

bool SessionStore::saveTo(const fs::path& root, const SessionState& state,
                          const std::vector<PendingAudio>& audio) {
    const fs::path audioFolder = root / "Audio";
    try {
        std::error_code error;
        for (const auto& pending : audio) {
            if (!pending.audio || fs::exists(pending.file, error)) continue;
            // The writer syncs the file and gives it its name only when it is whole, so it is
            // on disk before the state that refers to it.
            AudioExporter::writeLossless(*pending.audio, pending.file);
        }
        writeFileAtomically(root / "Session.json", encodeSessionState(state));

        std::set<fs::path> referred;
        for (const auto& track : state.tracks)
            referred.insert(fs::path(track.path).lexically_normal());
        if (state.timeline)
            for (const auto& lane : state.timeline->lanes)
                for (const auto& clip : lane.clips)
                    if (const auto* file =
                            std::get_if<TimelineState::Clip::FileSource>(&clip.source))
                        referred.insert(fs::path(file->path).lexically_normal());
        for (fs::directory_iterator it(audioFolder, error), end; !error && it != end;
             it.increment(error))
            if (!referred.count(it->path().lexically_normal())) fs::remove(it->path(), error);
        return true;
    } catch (const std::exception& failure) {
        logFailure(failure.what());
        return false;
    }
}

void SessionStore::saveInBackground(Executor& executor, SessionState state,
                                    std::vector<PendingAudio> audio) {
    {
        std::lock_guard lock(queue->mutex);
        queue->waiting = Queue::Job{std::move(state), std::move(audio)};
        if (queue->running) return;
        queue->running = true;
    }
    executor.runInBackground([root = root, q = queue] {
        for (;;) {
            std::optional<Queue::Job> job;
            {
                std::lock_guard lock(q->mutex);
                if (!q->waiting) {
                    q->running = false;
                    q->idle.notify_all();
                    return;
                }
                job = std::move(q->waiting);
                q->waiting.reset();
            }
            saveTo(root, job->state, job->audio);
        }
    });
}

void SessionStore::flush() {
    std::unique_lock lock(queue->mutex);
    queue->idle.wait(lock, [&] { return !queue->running; });
}

std::optional<std::string> SessionStore::contents() const {
    std::ifstream in(fileURL(), std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::optional<SessionState> SessionStore::load() const {
    const auto text = contents();
    if (!text) return std::nullopt;
    try {
        return decodeSessionState(*text);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Sonvale: failed to restore session: %s\n", failure.what());
        return std::nullopt;
    }
}

void SessionStore::restore(const std::optional<std::string>& data) {
    try {
        if (data) {
            writeFileAtomically(fileURL(), *data);
        } else {
            std::error_code ignored;
            fs::remove(fileURL(), ignored);
        }
    } catch (const std::exception& failure) {
        logFailure(failure.what());
    }
}

} // namespace sonvale
