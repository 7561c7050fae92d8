// sonvale-cli session: what a saved session bundle holds, read without decoding its audio.

#include "cli/Commands.h"
#include "cli/Options.h"

#include "audio/AudioLoader.h"
#include "base/Errors.h"
#include "persistence/SessionBundle.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace sonvale::cli {

namespace fs = std::filesystem;

namespace {

constexpr const char* sessionUsage = "usage: session info [--json] BUNDLE.sonvale";

// Wrong arguments: a line naming the usage, and status 2.
int usageFailure(const std::string& prefix, const std::string& message) {
    std::fprintf(stderr, "%s: %s (%s)\n", prefix.c_str(), message.c_str(), sessionUsage);
    return 2;
}

struct TrackSummary {
    std::string path;
    bool found = false;
    std::optional<double> duration; // seconds, from the file's header
    std::string unreadable;         // why a found file gave no duration, in plain words
    std::string details;            // the library's own line about it, if any
};

TrackSummary summarise(const TrackState& track) {
    TrackSummary summary;
    summary.path = track.path;
    std::error_code error;
    summary.found = fs::exists(track.path, error);
    if (!summary.found) return summary;
    try {
        // The header's length: the file is opened, not decoded.
        const auto info = AudioLoader::probe(track.path);
        if (info.sampleRate > 0)
            summary.duration = double(info.frames) / info.sampleRate;
        else
            summary.unreadable = "no sample rate";
    } catch (const std::exception& failure) {
        const auto* onFile = dynamic_cast<const FileError*>(&failure);
        summary.unreadable =
            onFile && !onFile->problem().empty() ? onFile->problem() : failure.what();
        if (const auto* user = dynamic_cast<const UserError*>(&failure))
            summary.details = user->details();
    }
    return summary;
}

// The "format" number of the bundle's Session.json, which the decoded state doesn't carry.
int64_t sessionFormat(const fs::path& bundle) {
    std::ifstream in(bundle / "Session.json", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const auto contents = nlohmann::json::parse(text, nullptr, false);
    if (contents.is_object() && contents.contains("format") &&
        contents["format"].is_number_integer())
        return contents["format"].get<int64_t>();
    throw SessionDataError("Session.json has no format number.");
}

// 2024-03-05T12:34:56.789Z
std::string isoDate(SessionBundle::Clock::time_point date) {
    const auto since = date.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const int millis =
        int(std::chrono::duration_cast<std::chrono::milliseconds>(since - seconds).count());
    const std::time_t t = std::time_t(seconds.count());
    std::tm utc{};
    gmtime_r(&t, &utc);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
    return text;
}

std::string counted(int64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

int64_t clipCount(const TimelineState::Lane& lane) { return int64_t(lane.clips.size()); }

const std::vector<TimelineState::Bus>& buses(const SessionState& state) {
    static const std::vector<TimelineState::Bus> none;
    return state.timeline && state.timeline->mixer ? state.timeline->mixer->buses : none;
}

// The name of the bus a lane feeds, none for the master.
std::optional<std::string> outputName(const SessionState& state, const TimelineState::Lane& lane) {
    const auto& all = buses(state);
    if (lane.output && *lane.output >= 0 && *lane.output < int64_t(all.size()))
        return all[size_t(*lane.output)].name;
    return std::nullopt;
}

std::vector<std::string> effectKinds(const ChainState& chain) {
    std::vector<std::string> kinds;
    for (const auto& effect : chain.effects)
        kinds.push_back(effect.kind);
    return kinds;
}

// "-3.0 dB, effects: reverb, compressor"
std::string channelText(float gainDB, const ChainState& chain) {
    char gain[32];
    std::snprintf(gain, sizeof gain, "%+.1f dB", double(gainDB));
    std::string text = gain;
    const auto kinds = effectKinds(chain);
    text += kinds.empty() ? ", no effects" : ", effects:";
    for (size_t i = 0; i < kinds.size(); ++i)
        text += (i ? ", " : " ") + kinds[i];
    if (chain.isBypassed && !kinds.empty()) text += " (bypassed)";
    return text;
}

void printText(const std::string& bundle, int64_t format, const SessionState& state,
               const std::vector<TrackSummary>& tracks,
               const std::vector<SessionBundle::Snapshot>& snapshots) {
    std::printf("%s: session format %lld\n", bundle.c_str(), (long long)format);
    std::printf("tracks: %zu\n", tracks.size());
    for (const auto& track : tracks) {
        if (!track.found)
            std::printf("  %s: missing\n", track.path.c_str());
        else if (track.duration)
            std::printf("  %s: found, %.3f s\n", track.path.c_str(), *track.duration);
        else {
            std::printf("  %s: found, unreadable (%s)\n", track.path.c_str(),
                        track.unreadable.c_str());
            if (!track.details.empty()) std::printf("    (details: %s)\n", track.details.c_str());
        }
    }
    if (state.timeline) {
        std::printf("lanes: %zu\n", state.timeline->lanes.size());
        for (const auto& lane : state.timeline->lanes)
            std::printf("  %s: %s into %s\n", lane.name.c_str(),
                        counted(clipCount(lane), "clip").c_str(),
                        outputName(state, lane).value_or("the master").c_str());
        std::printf("buses: %zu\n", buses(state).size());
        for (const auto& bus : buses(state))
            std::printf("  %s: %s\n", bus.name.c_str(), channelText(bus.gainDB, bus.chain).c_str());
        if (const auto& mixer = state.timeline->mixer)
            std::printf("master: %s\n", channelText(mixer->masterGainDB, mixer->master).c_str());
    }
    std::printf("snapshots: %zu\n", snapshots.size());
    for (const auto& s : snapshots)
        std::printf("  %s: saved %s, %s, %s, %s\n", s.id.c_str(), isoDate(s.date).c_str(),
                    counted(s.trackCount, "track").c_str(), counted(s.laneCount, "lane").c_str(),
                    counted(s.clipCount, "clip").c_str());
}

nlohmann::ordered_json toJSON(int64_t format, const SessionState& state,
                              const std::vector<TrackSummary>& tracks,
                              const std::vector<SessionBundle::Snapshot>& snapshots) {
    nlohmann::ordered_json object;
    object["format"] = format;
    auto trackArray = nlohmann::ordered_json::array();
    for (const auto& track : tracks) {
        nlohmann::ordered_json entry;
        entry["path"] = track.path;
        entry["found"] = track.found;
        entry["duration"] = track.duration ? nlohmann::ordered_json(*track.duration) : nullptr;
        trackArray.push_back(std::move(entry));
    }
    object["tracks"] = std::move(trackArray);
    auto lanes = nlohmann::ordered_json::array();
    if (state.timeline)
        for (const auto& lane : state.timeline->lanes)
            lanes.push_back(nlohmann::ordered_json{
                {"name", lane.name},
                {"clips", clipCount(lane)},
                {"output", outputName(state, lane)
                               ? nlohmann::ordered_json(*outputName(state, lane))
                               : nullptr}});
    object["lanes"] = std::move(lanes);
    auto busArray = nlohmann::ordered_json::array();
    for (const auto& bus : buses(state))
        busArray.push_back(nlohmann::ordered_json{
            {"name", bus.name}, {"gainDB", bus.gainDB}, {"effects", effectKinds(bus.chain)}});
    object["buses"] = std::move(busArray);
    if (state.timeline && state.timeline->mixer)
        object["master"] =
            nlohmann::ordered_json{{"gainDB", state.timeline->mixer->masterGainDB},
                                   {"effects", effectKinds(state.timeline->mixer->master)}};
    auto snapshotArray = nlohmann::ordered_json::array();
    for (const auto& s : snapshots) {
        nlohmann::ordered_json entry;
        entry["id"] = s.id;
        entry["date"] = isoDate(s.date);
        entry["tracks"] = s.trackCount;
        entry["lanes"] = s.laneCount;
        entry["clips"] = s.clipCount;
        snapshotArray.push_back(std::move(entry));
    }
    object["snapshots"] = std::move(snapshotArray);
    return object;
}

int sessionInfo(const Arguments& args) {
    const std::string prefix = "sonvale-cli session info";
    bool json = false;
    bool optionsEnded = false;
    std::vector<std::string> bundles;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (!optionsEnded && arg == "--")
            optionsEnded = true;
        else if (!optionsEnded && arg == "--json")
            json = true;
        else if (!optionsEnded && arg.size() > 1 && arg[0] == '-')
            return usageFailure(prefix, "unknown option " + curlyQuoted(arg));
        else
            bundles.push_back(arg);
    }
    if (bundles.empty()) return usageFailure(prefix, "no session given");
    if (bundles.size() > 1) return usageFailure(prefix, "one session at a time");

    const std::string& bundle = bundles.front();
    try {
        const SessionState state = SessionBundle::read(bundle);
        const int64_t format = sessionFormat(bundle);
        std::vector<TrackSummary> tracks;
        for (const auto& track : state.tracks)
            tracks.push_back(summarise(track));
        const auto snapshots = SessionBundle::snapshots(bundle);
        if (json)
            std::printf("%s\n", toJSON(format, state, tracks, snapshots).dump(2).c_str());
        else
            printText(bundle, format, state, tracks, snapshots);
        return 0;
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %s: %s\n", prefix.c_str(), bundle.c_str(), error.what());
        return 1;
    }
}

} // namespace

int session(const Arguments& args) {
    if (args.empty()) return usageFailure("sonvale-cli session", "no subcommand given");
    if (args[0] == "info") return sessionInfo(args);
    return usageFailure("sonvale-cli session", "unknown subcommand " + curlyQuoted(args[0]));
}

} // namespace sonvale::cli
