#pragma once

#include "audio/Marker.h"

#include <cstddef>
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

// Where a topic starts, as the region builder takes it: its title and the index of its
// first transcript line.
struct TopicStart {
    std::string title;
    int64_t line = 0;
    friend bool operator==(const TopicStart&, const TopicStart&) = default;
};

// A half-open range of transcript line indices.
struct LineRange {
    size_t lower = 0;
    size_t upper = 0;
    friend bool operator==(const LineRange&, const LineRange&) = default;
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

    // Merges timed pieces (words, in time order) into lines: a piece joins the last line when
    // it starts less than `pause` seconds after the line's end and the line with it lasts no
    // more than `maxDuration`; its text is appended as it is (pieces carry their own
    // spacing). Lines are then trimmed, and those left empty dropped.
    static std::vector<TranscriptSegment> phrases(const std::vector<TranscriptSegment>& pieces,
                                                  double pause, double maxDuration);

    // "0:59", "1:02:05": whole seconds (truncated), with hours from an hour on.
    static std::string clock(double seconds);
    // "[index] (clock) text" for each line in `range` (all of them without one), the index
    // counted in the whole transcript and the text trimmed.
    std::vector<std::string> numberedLines(std::optional<LineRange> range = std::nullopt) const;
    // The transcript as plain text: one "0:12 text" line per segment.
    std::string text() const;
    // The line being heard at `seconds`: the last one that starts at or before it, unless it
    // has ended by then.
    std::optional<size_t> lineAt(double seconds) const;
    // Consecutive ranges of lines whose numbered lines, each with a line break, fit
    // `characterBudget` characters; a line longer than that is a chunk on its own.
    std::vector<LineRange> chunks(int64_t characterBudget) const;
    // The region markers for topics: sorted by line, dropping topics on a line that isn't
    // there, with an empty title, repeating the title kept before them (they merge into that
    // topic), or on the line of the topic kept or merged before them; each runs from its
    // line's start to the next kept topic's (the last to the end of the last line), in
    // frames at `sampleRate` rounded half away from zero, within 0…frameCount.
    std::vector<Marker> regions(const std::vector<TopicStart>& topics, double sampleRate,
                                int64_t frameCount) const;
};

// How many characters of numbered transcript lines a language model with a context of
// `contextTokens` (4096 when unknown) is given at once: (context − 2500) × 3, at least 2000.
int64_t transcriptCharacterBudget(std::optional<int64_t> contextTokens);

} // namespace sonvale
