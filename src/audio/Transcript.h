#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

// One timed line of recognised speech, in seconds from the start of the track.
struct TranscriptSegment {
    std::string text;
    double start = 0;
    double end = 0;
    friend bool operator==(const TranscriptSegment&, const TranscriptSegment&) = default;
};

// A track's transcript. `revision` is the track's editRevision when it was made, so a later
// edit makes it stale.
struct Transcript {
    std::string locale;
    std::vector<TranscriptSegment> segments;
    int64_t revision = 0;
    std::optional<std::string> summary;
    std::optional<std::string> suggestedTitle;
    friend bool operator==(const Transcript&, const Transcript&) = default;
};

} // namespace sonvale
