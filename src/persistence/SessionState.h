#pragma once

#include "audio/Marker.h"
#include "audio/Transcript.h"
#include "base/Errors.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sonvale {

// The persisted forms of a session: plain values, encoded as JSON whose keys are the member
// names. Optional members that are not set are left out when writing and read as not set
// when absent or null; unknown keys are ignored when reading.

// One effect of a mixer channel's chain, at rest.
struct EffectState {
    std::string kind; // the effect kind's identifier
    std::vector<double> values;
    bool isBypassed = false;
    friend bool operator==(const EffectState&, const EffectState&) = default;
};

struct ChainState {
    std::vector<EffectState> effects;
    bool isBypassed = false;
    friend bool operator==(const ChainState&, const ChainState&) = default;
};

// The multitrack timeline.
struct TimelineState {
    struct Clip {
        struct TrackSource {
            int64_t index; // into SessionState::tracks
            friend bool operator==(const TrackSource&, const TrackSource&) = default;
        };
        struct FileSource {
            std::string path; // relative to the bundle inside "Audio/Clips", absolute otherwise
            friend bool operator==(const FileSource&, const FileSource&) = default;
        };
        using Source = std::variant<TrackSource, FileSource>;

        std::string name;
        Source source = TrackSource{0};
        int64_t sourceStart = 0;
        int64_t length = 0;
        int64_t start = 0;
        std::optional<int64_t> fadeIn;
        std::optional<int64_t> fadeOut;
        std::optional<int64_t> track; // the track the clip was made from
        friend bool operator==(const Clip&, const Clip&) = default;
    };
    struct Lane {
        std::string name;
        float gainDB = 0;
        float pan = 0;
        bool isMuted = false;
        std::optional<int64_t> output; // index into mixer->buses; none feeds the master
        std::optional<int64_t> color;
        std::vector<Clip> clips;
        friend bool operator==(const Lane&, const Lane&) = default;
    };
    struct Bus {
        std::string name;
        float gainDB = 0;
        bool isMuted = false;
        std::optional<double> hue;
        ChainState chain;
        bool isMinimized = false;
        friend bool operator==(const Bus&, const Bus&) = default;
    };
    struct Mixer {
        std::vector<Bus> buses;
        ChainState master;
        float masterGainDB = 0;
        bool isMasterMinimized = false;
        friend bool operator==(const Mixer&, const Mixer&) = default;
    };

    double sampleRate = 48000;
    int64_t cursor = 0;
    std::vector<Lane> lanes;
    bool isShowing = false;
    std::optional<Mixer> mixer;
    std::vector<Marker> markers;
    friend bool operator==(const TimelineState&, const TimelineState&) = default;
};

// One track of the list.
struct TrackState {
    std::string path;                             // absolute ("/...") or relative to the bundle
    std::optional<std::vector<uint8_t>> bookmark; // never written on this platform
    float gainDB = 0;
    float verticalZoom = 1;
    int64_t cursor = 0;
    std::optional<std::pair<int64_t, int64_t>> selection; // half-open
    double viewportStart = 0;
    double samplesPerPoint = 0;
    double viewportWidth = 0;
    std::vector<Marker> markers;
    std::optional<Transcript> transcript;
    friend bool operator==(const TrackState&, const TrackState&) = default;
};

struct SessionState {
    std::vector<TrackState> tracks;
    std::vector<int64_t> selectedIndices;
    bool loopPlayback = false;
    std::optional<TimelineState> timeline;
    friend bool operator==(const SessionState&, const SessionState&) = default;
};

// A session file that is malformed: bad JSON, a missing key, a value of the wrong type, or a
// value that can't be written (not finite).
class SessionDataError : public UserError {
public:
    using UserError::UserError;
};

// Why a bundle can't be opened.
class SessionBundleFailure : public UserError {
public:
    enum class Kind { newerFormat, notASession };
    static SessionBundleFailure newerFormat(int64_t format);
    static SessionBundleFailure notASession();
    Kind kind() const { return failureKind; }
    int64_t format() const { return fileFormat; }

private:
    SessionBundleFailure(Kind kind, int64_t format, const char* message)
        : UserError(message)
        , failureKind(kind)
        , fileFormat(format) {}
    Kind failureKind;
    int64_t fileFormat;
};

// The newest session file format this version reads and writes.
constexpr int64_t newestSessionFormat = 2;

// "Session.json" of a bundle: {"format": 1 or 2, "session": ...}, pretty-printed with sorted
// keys, so that the same state always gives the same bytes. Throws SessionDataError when a
// value is not finite.
std::string encodeSessionFile(const SessionState& state);
// Throws SessionBundleFailure::newerFormat for a format above the newest, SessionDataError
// for anything malformed.
SessionState decodeSessionFile(std::string_view json);

// A transcript's JSON as a session keeps it, pretty-printed.
std::string encodeTranscript(const Transcript& transcript);

// The bare state as the automatic store keeps it: compact JSON.
std::string encodeSessionState(const SessionState& state);
SessionState decodeSessionState(std::string_view json);

} // namespace sonvale
