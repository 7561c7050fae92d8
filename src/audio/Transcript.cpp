#include "audio/Transcript.h"

#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace sonvale {

namespace {

constexpr std::string_view whiteSpace = " \t\n\r\v\f";

std::string trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos) return {};
    const size_t last = text.find_last_not_of(whiteSpace);
    return std::string(text.substr(first, last - first + 1));
}

// Characters as a person counts them: UTF-8 continuation bytes don't start one.
int64_t characterCount(std::string_view text) {
    return std::count_if(text.begin(), text.end(),
                         [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; });
}

} // namespace

std::vector<TranscriptSegment> Transcript::phrases(const std::vector<TranscriptSegment>& pieces,
                                                   double pause, double maxDuration) {
    std::vector<TranscriptSegment> lines;
    for (const TranscriptSegment& piece : pieces) {
        // The pause test is strict and the length test inclusive: a gap of exactly `pause`
        // starts a new line, a line of exactly `maxDuration` still takes the piece.
        if (!lines.empty() && piece.start - lines.back().end < pause &&
            piece.end - lines.back().start <= maxDuration) {
            lines.back().text += piece.text;
            lines.back().end = std::max(lines.back().end, piece.end);
        } else {
            lines.push_back(piece);
        }
    }
    for (TranscriptSegment& line : lines)
        line.text = trimmed(line.text);
    std::erase_if(lines, [](const TranscriptSegment& line) { return line.text.empty(); });
    return lines;
}

std::string Transcript::clock(double seconds) {
    const auto whole = std::isfinite(seconds) && seconds > 0 ? int64_t(seconds) : 0;
    char text[32];
    if (whole < 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld", (long long)(whole / 60),
                      (long long)(whole % 60));
    else
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", (long long)(whole / 3600),
                      (long long)(whole / 60 % 60), (long long)(whole % 60));
    return text;
}

std::vector<std::string> Transcript::numberedLines(std::optional<LineRange> range) const {
    const size_t lower = range ? std::min(range->lower, segments.size()) : 0;
    const size_t upper = range ? std::clamp(range->upper, lower, segments.size()) : segments.size();
    std::vector<std::string> lines;
    for (size_t i = lower; i < upper; ++i)
        lines.push_back("[" + std::to_string(i) + "] (" + clock(segments[i].start) + ") " +
                        trimmed(segments[i].text));
    return lines;
}

std::string Transcript::text() const {
    std::string lines;
    for (const auto& segment : segments)
        lines += clock(segment.start) + " " + segment.text + "\n";
    return lines;
}

std::optional<size_t> Transcript::lineAt(double seconds) const {
    const auto after = std::upper_bound(segments.begin(), segments.end(), seconds,
                                        [](double t, const auto& line) { return t < line.start; });
    if (after == segments.begin()) return std::nullopt;
    const auto line = std::prev(after);
    if (seconds >= line->end) return std::nullopt;
    return size_t(line - segments.begin());
}

std::vector<LineRange> Transcript::chunks(int64_t characterBudget) const {
    std::vector<LineRange> result;
    const std::vector<std::string> lines = numberedLines();
    LineRange current;
    int64_t size = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const int64_t added = characterCount(lines[i]) + 1; // and its line break
        if (size + added > characterBudget && current.upper > current.lower) {
            result.push_back(current);
            current = {i, i};
            size = 0;
        }
        size += added;
        current.upper = i + 1;
    }
    if (current.upper > current.lower) result.push_back(current);
    return result;
}

std::vector<Marker> Transcript::regions(const std::vector<TopicStart>& topics, double sampleRate,
                                        int64_t frameCount) const {
    std::vector<TopicStart> sorted = topics;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const TopicStart& a, const TopicStart& b) { return a.line < b.line; });
    std::vector<TopicStart> kept;
    // A topic that repeats the kept one's title (as chunks' edges make) merges into it, and
    // its line then counts as that topic's: a later topic on the same line is a repeat too.
    int64_t lastLine = -1;
    for (const TopicStart& topic : sorted) {
        const std::string title = trimmed(topic.title);
        if (topic.line < 0 || topic.line >= int64_t(segments.size()) || title.empty()) continue;
        if (topic.line == lastLine) continue;
        lastLine = topic.line;
        if (!kept.empty() && lowercased(title) == lowercased(kept.back().title)) continue;
        kept.push_back({title, topic.line});
    }
    auto frameAt = [&](double seconds) {
        // llround rounds halves away from zero.
        return std::clamp<int64_t>(std::llround(sampleRate * seconds), 0, frameCount);
    };
    std::vector<Marker> regions;
    for (size_t i = 0; i < kept.size(); ++i) {
        const int64_t start = frameAt(segments[size_t(kept[i].line)].start);
        const int64_t end = frameAt(i + 1 < kept.size() ? segments[size_t(kept[i + 1].line)].start
                                                        : segments.back().end);
        if (start < end) regions.push_back({Uuid::random(), kept[i].title, start, end});
    }
    return regions;
}

int64_t transcriptCharacterBudget(std::optional<int64_t> contextTokens) {
    return std::max<int64_t>(2000, (contextTokens.value_or(4096) - 2500) * 3);
}

} // namespace sonvale
