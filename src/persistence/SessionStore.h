#pragma once

#include "audio/AudioData.h"
#include "persistence/SessionState.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

class Executor;

// The automatic last session: "Session.json" (a bare session state, compact JSON, replaced
// atomically) in $XDG_DATA_HOME/Sonvale, and beside it "Audio/", the edited audio that
// exists only in memory, so that the next launch brings the edits back too.
//
// save() may run on any thread; saveInBackground() queues writes so that they happen one
// at a time, in order, with only the newest of those waiting kept. Failures are logged as
// "Sonvale: failed to save session: ..." and otherwise ignored.
class SessionStore {
public:
    // Audio the state refers to that must be on disk before the state is.
    struct PendingAudio {
        AudioDataPtr audio;
        std::filesystem::path file;
    };

    explicit SessionStore(std::filesystem::path folder);
    ~SessionStore();
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    // $XDG_DATA_HOME/Sonvale, with ~/.local/share when the variable is unset or relative.
    static std::filesystem::path standardFolder();
    const std::filesystem::path& folder() const { return root; }
    std::filesystem::path fileURL() const { return root / "Session.json"; }
    std::filesystem::path audioFolder() const { return root / "Audio"; }

    // Writes the missing audio files, then the state; then removes the files in the audio
    // folder that the state no longer refers to. False after a failure (logged).
    bool save(const SessionState& state, const std::vector<PendingAudio>& audio = {});
    void saveInBackground(Executor& executor, SessionState state, std::vector<PendingAudio> audio);
    // Waits until no queued save is running or waiting.
    void flush();

    // The state kept, if any; a damaged file is logged and gives none.
    std::optional<SessionState> load() const;
    // The file's bytes, if any (what restore() takes back).
    std::optional<std::string> contents() const;
    // Puts back earlier contents: writes them, or deletes the file when none.
    void restore(const std::optional<std::string>& data);

private:
    struct Queue;
    static bool saveTo(const std::filesystem::path& root, const SessionState& state,
                       const std::vector<PendingAudio>& audio);
    std::filesystem::path root;
    std::shared_ptr<Queue> queue;
};

} // namespace sonvale
