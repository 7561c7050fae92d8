#pragma once

#include "audio/AudioData.h"
#include "persistence/SessionState.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sonvale {

// A saved session: a directory ("Name.sonvale") holding "Session.json", the audio that
// exists only in memory ("Audio/", "Audio/Clips/") as 32-bit float WAV, and up to 20
// snapshots of earlier saves ("Snapshots/<id>/Session.json", "Window.jpg").
//
// A bundle is written whole into a sibling temporary folder and swapped in with one atomic
// exchange, so a failure or a crash at any point leaves the old bundle as it was.
// Any thread; the functions share no state.
namespace SessionBundle {

using Clock = std::chrono::system_clock;

// Snapshots kept at most; the oldest go first.
constexpr int snapshotLimit = 20;

// A track as the writer needs it.
struct Track {
    TrackState state;             // its path is filled in by write()
    std::filesystem::path source; // the track's current file
    AudioDataPtr edited;          // set when the audio differs from `source` and must be written
    std::string name;             // names the written audio file
    bool isMoved = false;         // the file was found again somewhere other than the saved path
};

// A timeline clip's audio that comes from a file rather than a track.
struct ClipAudioFile {
    std::string path;   // absolute, or relative to the bundle (in "Audio/Clips")
    AudioDataPtr audio; // set when it exists only in memory and must be written
    bool isInBundle = false;
};

// The snapshots of a bundle, carried forward by the next save.
struct History {
    struct Kept {
        std::string id;
        std::string json;            // the snapshot's "Session.json"
        std::set<std::string> paths; // the bundle-relative audio it refers to
    };
    std::optional<std::filesystem::path> bundle; // the bundle the snapshots live in
    std::vector<Kept> snapshots;                 // oldest first
};

struct NewSnapshot {
    Clock::time_point date;
    std::optional<std::vector<uint8_t>> image; // JPEG picture of the window
};

// What the snapshot list shows.
struct Snapshot {
    std::string id;
    Clock::time_point date;
    std::optional<std::filesystem::path> image;
    int64_t trackCount = 0;
    int64_t laneCount = 0;
    int64_t clipCount = 0;
};

// What write() did, for the caller's bookkeeping.
struct WriteResult {
    SessionState state;                  // as saved, track paths bundle-relative where inside
    std::string json;                    // the bytes of "Session.json"
    std::optional<std::string> snapshot; // the id of the snapshot added, if any
};

// Reports the fraction of audio written, 0 to 1.
using Progress = std::function<void(double)>;

// Writes the whole bundle at `url` (see the class comment). Tracks with `edited` audio are
// written to "Audio/<unique name>.wav"; a source inside the bundle being replaced (or inside
// `history.bundle`) is linked into the new one under the same relative path; others are
// referred to by absolute path. Throws FileError or SessionDataError; the old bundle is then
// untouched and no temporary folder is left.
WriteResult write(const std::vector<Track>& tracks, const std::vector<int64_t>& selectedIndices,
                  bool loopPlayback, const std::optional<TimelineState>& timeline,
                  const std::vector<ClipAudioFile>& clipFiles, const History& history,
                  const std::optional<NewSnapshot>& snapshot, const std::filesystem::path& url,
                  const Progress& progress = {});

// The session of the bundle with its track and clip-file paths made absolute. Throws
// SessionBundleFailure (not a session, a newer format), SessionDataError or FileError.
SessionState read(const std::filesystem::path& url);
// The session stored in snapshot `id`, with its track and clip-file paths made absolute.
SessionState read(const std::string& snapshotID, const std::filesystem::path& url);

// The kept snapshots, oldest first, with counts taken from each one's session.
std::vector<Snapshot> snapshots(const std::filesystem::path& url);
// The history of the bundle at `url`; empty without a URL or a bundle there.
History history(const std::optional<std::filesystem::path>& url);

// The bundle-relative audio paths a session refers to.
std::set<std::string> audioPaths(const SessionState& state);

// name.ext, or the first "name N.ext" (N = 2, 3, ...) whose lower-cased form is not in
// `used`; the chosen name's lower-cased form is added to `used`.
std::string uniqueName(const std::string& name, const std::string& extension,
                       std::set<std::string>& used);

// Puts the file at `destination` by hard link, else by copy, making its folder first.
void link(const std::filesystem::path& source, const std::filesystem::path& destination);

// A snapshot id: the date as "yyyy-MM-dd HH.mm.ss.SSS" in local time; parseID reads it back.
std::string snapshotID(Clock::time_point date);
std::optional<Clock::time_point> parseID(const std::string& id);

// "Untitled Session", or the bundle's name without ".sonvale".
std::string displayName(const std::optional<std::filesystem::path>& url);

} // namespace SessionBundle

} // namespace sonvale
