#include "persistence/SessionBundle.h"

#include "audio/AudioExporter.h"
#include "base/AtomicFile.h"
#include "base/Errors.h"
#include "base/ParallelFor.h"
#include "base/Text.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace sonvale::SessionBundle {

namespace fs = std::filesystem;

namespace {

constexpr const char* sessionFile = "Session.json";
constexpr const char* windowPicture = "Window.jpg";

std::string readWholeFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw fileErrorFromErrno("Couldn't read", path.string(), errno);
    std::ostringstream contents;
    contents << in.rdbuf();
    if (in.bad()) throw fileErrorFromErrno("Couldn't read", path.string(), errno);
    return contents.str();
}

// Flushes a file or folder to disk; what was written before a rename must be there after a
// crash.
void syncPath(const fs::path& path, bool folder) {
    const int fd = ::open(path.c_str(), folder ? (O_RDONLY | O_DIRECTORY) : O_RDONLY);
    if (fd < 0) throw fileErrorFromErrno("Couldn't write", path.string(), errno);
    const int result = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    // Some file systems refuse to sync a folder; the files in it are synced already.
    if (result != 0 && !(folder && (error == EINVAL || error == EROFS)))
        throw fileErrorFromErrno("Couldn't write", path.string(), error);
}

void createFolder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error)
        throw FileError(
            describeFileError("Couldn't create the folder", path.string(), error.message()));
}

// The path of `file` below `folder`, when it lies inside it.
std::optional<std::string> relativeInside(const fs::path& file, const fs::path& folder) {
    std::error_code error;
    const fs::path f = fs::weakly_canonical(file, error);
    if (error) return std::nullopt;
    const fs::path d = fs::weakly_canonical(folder, error);
    if (error) return std::nullopt;
    const std::string fs = f.string(), ds = d.string() + "/";
    if (fs.size() <= ds.size() || fs.compare(0, ds.size(), ds) != 0) return std::nullopt;
    return fs.substr(ds.size());
}

fs::path resolved(const std::string& path, const fs::path& bundle) {
    return !path.empty() && path[0] == '/' ? fs::path(path) : (bundle / path).lexically_normal();
}

SessionState resolveTrackPaths(SessionState state, const fs::path& bundle) {
    for (auto& track : state.tracks)
        track.path = resolved(track.path, bundle).string();
    if (state.timeline)
        for (auto& lane : state.timeline->lanes)
            for (auto& clip : lane.clips)
                if (auto* file = std::get_if<TimelineState::Clip::FileSource>(&clip.source))
                    file->path = resolved(file->path, bundle).string();
    return state;
}

// A temporary folder beside `url` that removes itself unless released.
class BuildFolder {
public:
    explicit BuildFolder(const fs::path& url) {
        fs::path parent = url.parent_path();
        if (parent.empty()) parent = ".";
        removeLeftovers(parent, url.filename().string());
        std::string pattern = (parent / ("." + url.filename().string() + ".XXXXXX")).string();
        if (!::mkdtemp(pattern.data()))
            throw fileErrorFromErrno("Couldn't save", url.string(), errno);
        folder = pattern;
    }
    ~BuildFolder() {
        if (!folder.empty()) {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
        }
    }
    const fs::path& path() const { return folder; }
    void release() { folder.clear(); }

private:
    // What a save that was killed half-way left beside the bundle: ".<name>.XXXXXX", or the
    // old bundle moved aside as ".<name>.XXXXXX.old".
    static void removeLeftovers(const fs::path& parent, const std::string& name) {
        const std::string prefix = "." + name + ".";
        std::error_code error;
        for (fs::directory_iterator it(parent, error), end; !error && it != end;
             it.increment(error)) {
            const std::string entry = it->path().filename().string();
            if (entry.size() < prefix.size() + 6 || entry.compare(0, prefix.size(), prefix) != 0)
                continue;
            const std::string rest = entry.substr(prefix.size());
            if (rest.size() == 6 || (rest.size() == 10 && rest.substr(6) == ".old")) {
                std::error_code ignored;
                fs::remove_all(it->path(), ignored);
            }
        }
    }

    fs::path folder;
};

// Puts the built folder at `url` in one step, replacing what is there.
void swapIn(BuildFolder& built, const fs::path& url) {
    const fs::path temp = built.path();
    std::error_code error;
    if (!fs::exists(fs::symlink_status(url, error))) {
        if (::rename(temp.c_str(), url.c_str()) != 0)
            throw fileErrorFromErrno("Couldn't save", url.string(), errno);
        built.release();
    } else if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, url.c_str(), RENAME_EXCHANGE) == 0) {
        // The old bundle now lies at the temporary path, and goes with it.
    } else if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) {
        // A file system without the exchange: move the old one aside, then the new one in.
        std::string aside = temp.string() + ".old";
        if (::rename(url.c_str(), aside.c_str()) != 0)
            throw fileErrorFromErrno("Couldn't save", url.string(), errno);
        if (::rename(temp.c_str(), url.c_str()) != 0) {
            const int failure = errno;
            ::rename(aside.c_str(), url.c_str());
            throw fileErrorFromErrno("Couldn't save", url.string(), failure);
        }
        built.release();
        fs::remove_all(aside, error);
    } else {
        throw fileErrorFromErrno("Couldn't save", url.string(), errno);
    }
    fs::path parent = url.parent_path();
    if (parent.empty()) parent = ".";
    syncPath(parent, true);
}

// Writes the files side by side: making a float WAV is copying, and while one file is synced
// (each is, before it takes its name) the others are being made. The first failure is thrown once
// all have stopped.
void writeAll(const std::vector<std::pair<const AudioData*, fs::path>>& files, int64_t totalFrames,
              const std::function<void(double)>& progress) {
    std::atomic<int64_t> framesDone{0};
    parallelFor(files.size(), [&](size_t i) {
        const AudioData& audio = *files[i].first;
        int64_t reported = 0;
        AudioExporter::writeLossless(audio, files[i].second, [&](double fraction) {
            const int64_t now = int64_t(fraction * double(audio.frameCount));
            const int64_t total = framesDone += now - reported;
            reported = now;
            if (progress && totalFrames > 0) progress(double(total) / double(totalFrames));
        });
    });
}

// Every regular file and folder below `root` on disk (files linked from an old bundle are
// there already and cost nothing).
void syncAll(const fs::path& root) {
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (!entry.is_symlink()) syncPath(entry.path(), entry.is_directory());
    syncPath(root, true);
}

} // namespace

std::string uniqueName(const std::string& name, const std::string& extension,
                       std::set<std::string>& used) {
    std::string candidate = name + "." + extension;
    for (int n = 2; used.count(lowercased(candidate)); ++n)
        candidate = name + " " + std::to_string(n) + "." + extension;
    used.insert(lowercased(candidate));
    return candidate;
}

void link(const fs::path& source, const fs::path& destination) {
    if (destination.has_parent_path()) createFolder(destination.parent_path());
    if (::link(source.c_str(), destination.c_str()) == 0) return;
    if (errno == EEXIST) throw fileErrorFromErrno("Couldn't write", destination.string(), errno);
    std::error_code error;
    fs::copy_file(source, destination, error);
    if (error) {
        fs::remove(destination);
        throw FileError(describeFileError("Couldn't copy", source.string(), error.message()));
    }
    syncPath(destination, false);
}

std::set<std::string> audioPaths(const SessionState& state) {
    std::set<std::string> paths;
    auto add = [&](const std::string& path) {
        if (!path.empty() && path[0] != '/') paths.insert(path);
    };
    for (const auto& track : state.tracks)
        add(track.path);
    if (state.timeline)
        for (const auto& lane : state.timeline->lanes)
            for (const auto& clip : lane.clips)
                if (const auto* file = std::get_if<TimelineState::Clip::FileSource>(&clip.source))
                    add(file->path);
    return paths;
}

std::string snapshotID(Clock::time_point date) {
    const auto since = date.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const int millis =
        int(std::chrono::duration_cast<std::chrono::milliseconds>(since - seconds).count());
    const std::time_t t = std::time_t(seconds.count());
    std::tm local{};
    localtime_r(&t, &local);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d.%02d.%02d.%03d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  millis);
    return text;
}

std::optional<Clock::time_point> parseID(const std::string& id) {
    std::tm local{};
    int millis = 0, consumed = 0;
    if (std::sscanf(id.c_str(), "%4d-%2d-%2d %2d.%2d.%2d.%3d%n", &local.tm_year, &local.tm_mon,
                    &local.tm_mday, &local.tm_hour, &local.tm_min, &local.tm_sec, &millis,
                    &consumed) != 7 ||
        size_t(consumed) != id.size() || id.size() != 23)
        return std::nullopt;
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    local.tm_isdst = -1;
    const std::time_t t = std::mktime(&local);
    if (t == std::time_t(-1)) return std::nullopt;
    return Clock::from_time_t(t) + std::chrono::milliseconds(millis);
}

std::string displayName(const std::optional<fs::path>& url) {
    if (!url) return "Untitled Session";
    fs::path name = url->filename();
    if (name.empty()) name = url->parent_path().filename();
    if (lowercased(name.extension().string()) == ".sonvale") name.replace_extension();
    return name.string();
}

WriteResult write(const std::vector<Track>& tracks, const std::vector<int64_t>& selectedIndices,
                  bool loopPlayback, const std::optional<TimelineState>& timeline,
                  const std::vector<ClipAudioFile>& clipFiles, const History& history,
                  const std::optional<NewSnapshot>& snapshot, const fs::path& url,
                  const Progress& progress) {
    BuildFolder built(url);
    const fs::path& root = built.path();
    createFolder(root / "Audio");

    // Bundles whose audio is carried over: the one being replaced and the one the history
    // comes from (they differ for Save As).
    std::vector<fs::path> oldBundles{url};
    if (history.bundle && *history.bundle != url) oldBundles.push_back(*history.bundle);
    auto insideOld = [&](const fs::path& file) -> std::optional<std::pair<fs::path, std::string>> {
        for (const auto& bundle : oldBundles)
            if (auto relative = relativeInside(file, bundle)) return std::pair(bundle, *relative);
        return std::nullopt;
    };

    // Names already taken in "Audio/" and "Audio/Clips/" by what is carried over, so that
    // newly written audio never lands on them.
    std::set<std::string> usedAudio, usedClips;
    auto reserve = [&](const std::string& relative) {
        const fs::path p(relative);
        if (p.parent_path() == "Audio") usedAudio.insert(lowercased(p.filename().string()));
        if (p.parent_path() == "Audio/Clips") usedClips.insert(lowercased(p.filename().string()));
    };
    for (const auto& track : tracks)
        if (!track.edited)
            if (auto inside = insideOld(track.source)) reserve(inside->second);
    for (const auto& file : clipFiles)
        if (!file.audio && file.isInBundle) reserve(file.path);
    for (const auto& kept : history.snapshots)
        for (const auto& path : kept.paths)
            reserve(path);

    int64_t totalFrames = 0;
    for (const auto& track : tracks)
        if (track.edited) totalFrames += track.edited->frameCount;
    for (const auto& file : clipFiles)
        if (file.audio) totalFrames += file.audio->frameCount;
    // Audio to write, written after the names are chosen, two files at a time.
    std::vector<std::pair<const AudioData*, fs::path>> toWrite;
    auto written = [&](const AudioData& audio, const fs::path& path) {
        toWrite.emplace_back(&audio, path);
    };

    WriteResult result;
    SessionState& state = result.state;
    state.selectedIndices = selectedIndices;
    state.loopPlayback = loopPlayback;
    state.timeline = timeline;
    for (const auto& track : tracks) {
        TrackState saved = track.state;
        saved.bookmark.reset();
        if (track.edited) {
            saved.path =
                "Audio/" + uniqueName(track.name.empty() ? "Track" : track.name, "wav", usedAudio);
            written(*track.edited, root / saved.path);
        } else if (auto inside = insideOld(track.source)) {
            saved.path = inside->second;
            if (!fs::exists(root / saved.path))
                link(inside->first / inside->second, root / saved.path);
        } else {
            saved.path = fs::absolute(track.source).lexically_normal().string();
        }
        state.tracks.push_back(std::move(saved));
    }

    // Clip audio: carried over or written into "Audio/Clips", referred to by that path.
    std::map<std::string, std::string> clipPaths;
    for (const auto& file : clipFiles) {
        std::string relative;
        if (file.audio) {
            relative =
                "Audio/Clips/" + uniqueName(fs::path(file.path).stem().string(), "wav", usedClips);
            written(*file.audio, root / relative);
        } else if (auto inside =
                       insideOld(file.path[0] == '/' ? fs::path(file.path) : url / file.path)) {
            relative = inside->second;
            if (!fs::exists(root / relative)) link(inside->first / relative, root / relative);
        } else {
            continue;
        }
        clipPaths[file.path] = relative;
    }
    writeAll(toWrite, totalFrames, progress);
    if (state.timeline)
        for (auto& lane : state.timeline->lanes)
            for (auto& clip : lane.clips)
                if (auto* source = std::get_if<TimelineState::Clip::FileSource>(&clip.source))
                    if (auto it = clipPaths.find(source->path); it != clipPaths.end())
                        source->path = it->second;

    result.json = encodeSessionFile(state);
    writeFileAtomically(root / sessionFile, result.json);

    // Snapshots: one per save that changed the session, at most snapshotLimit kept.
    const bool adds =
        snapshot && (history.snapshots.empty() || history.snapshots.back().json != result.json);
    const size_t keep =
        std::min(history.snapshots.size(), size_t(adds ? snapshotLimit - 1 : snapshotLimit));
    const std::vector<History::Kept> kept(history.snapshots.end() - std::ptrdiff_t(keep),
                                          history.snapshots.end());
    createFolder(root / "Snapshots");
    const fs::path oldRoot = history.bundle.value_or(url);
    std::set<std::string> ids;
    for (const auto& old : kept) {
        const fs::path from = oldRoot / "Snapshots" / old.id, to = root / "Snapshots" / old.id;
        createFolder(to);
        std::error_code error;
        if (fs::exists(from / sessionFile, error))
            link(from / sessionFile, to / sessionFile);
        else
            writeFileAtomically(to / sessionFile, old.json);
        if (fs::exists(from / windowPicture, error)) link(from / windowPicture, to / windowPicture);
        for (const auto& path : old.paths)
            if (fs::exists(oldRoot / path, error) && !fs::exists(root / path, error))
                link(oldRoot / path, root / path);
        ids.insert(old.id);
    }
    if (adds) {
        auto date = snapshot->date;
        std::string id = snapshotID(date);
        while (ids.count(id) || (!kept.empty() && id <= kept.back().id)) {
            date += std::chrono::milliseconds(1);
            id = snapshotID(date);
        }
        const fs::path folder = root / "Snapshots" / id;
        createFolder(folder);
        writeFileAtomically(folder / sessionFile, result.json);
        if (snapshot->image) {
            const auto& image = *snapshot->image;
            writeFileAtomically(
                folder / windowPicture,
                std::string_view(reinterpret_cast<const char*>(image.data()), image.size()));
        }
        result.snapshot = id;
    }

    syncAll(root);
    swapIn(built, url);
    if (progress) progress(1.0);
    return result;
}

SessionState read(const fs::path& url) {
    std::error_code error;
    if (!fs::is_regular_file(url / sessionFile, error)) throw SessionBundleFailure::notASession();
    return resolveTrackPaths(decodeSessionFile(readWholeFile(url / sessionFile)), url);
}

SessionState read(const std::string& snapshotID, const fs::path& url) {
    const fs::path file = url / "Snapshots" / snapshotID / sessionFile;
    std::error_code error;
    if (!fs::is_regular_file(file, error)) throw SessionBundleFailure::notASession();
    return resolveTrackPaths(decodeSessionFile(readWholeFile(file)), url);
}

namespace {
// The snapshot folders of a bundle, oldest first (the ids sort by date).
std::vector<std::string> snapshotIDs(const fs::path& url) {
    std::vector<std::string> ids;
    std::error_code error;
    for (fs::directory_iterator it(url / "Snapshots", error), end; !error && it != end;
         it.increment(error))
        if (parseID(it->path().filename().string()) &&
            fs::is_regular_file(it->path() / sessionFile, error))
            ids.push_back(it->path().filename().string());
    std::sort(ids.begin(), ids.end());
    return ids;
}
} // namespace

History history(const std::optional<fs::path>& url) {
    History result;
    if (!url) return result;
    std::error_code error;
    if (!fs::is_directory(*url, error)) return result;
    result.bundle = *url;
    for (const auto& id : snapshotIDs(*url)) {
        try {
            std::string json = readWholeFile(*url / "Snapshots" / id / sessionFile);
            auto paths = audioPaths(decodeSessionFile(json));
            result.snapshots.push_back({id, std::move(json), std::move(paths)});
        } catch (const std::exception&) {
            // A damaged snapshot is left behind rather than carried forward.
        }
    }
    return result;
}

std::vector<Snapshot> snapshots(const fs::path& url) {
    std::vector<Snapshot> list;
    for (const auto& kept : history(url).snapshots) {
        Snapshot s;
        s.id = kept.id;
        s.date = parseID(kept.id).value_or(Clock::time_point{});
        std::error_code error;
        if (fs::is_regular_file(url / "Snapshots" / kept.id / windowPicture, error))
            s.image = url / "Snapshots" / kept.id / windowPicture;
        const SessionState state = decodeSessionFile(kept.json);
        s.trackCount = int64_t(state.tracks.size());
        if (state.timeline) {
            s.laneCount = int64_t(state.timeline->lanes.size());
            for (const auto& lane : state.timeline->lanes)
                s.clipCount += int64_t(lane.clips.size());
        }
        list.push_back(std::move(s));
    }
    return list;
}

} // namespace sonvale::SessionBundle
