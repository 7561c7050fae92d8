#include "persistence/SessionState.h"

#include "persistence/Preferences.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace sonvale {

using nlohmann::json;

SessionBundleFailure SessionBundleFailure::newerFormat(int64_t format) {
    return {Kind::newerFormat, format,
            "The session was saved by a newer version of Sonvale. Update the app to open it."};
}

SessionBundleFailure SessionBundleFailure::notASession() {
    return {Kind::notASession, 0, "The file isn't a Sonvale session."};
}

namespace {

// ---- writing

json number(double value, const char* key) {
    if (!std::isfinite(value))
        throw SessionDataError(std::string("The session can't be saved: its value “") + key +
                               "” isn't a finite number.");
    return value;
}

json markersJSON(const std::vector<Marker>& markers) {
    json list = json::array();
    for (const auto& m : markers) {
        json o = {{"id", m.id.text()}, {"name", m.name}, {"start", m.start}};
        if (m.end) o["end"] = *m.end;
        list.push_back(std::move(o));
    }
    return list;
}

json transcriptJSON(const Transcript& t) {
    json segments = json::array();
    for (const auto& s : t.segments)
        segments.push_back(
            {{"text", s.text}, {"start", number(s.start, "start")}, {"end", number(s.end, "end")}});
    json o = {{"locale", t.locale}, {"segments", std::move(segments)}, {"revision", t.revision}};
    if (t.summary) o["summary"] = *t.summary;
    if (t.suggestedTitle) o["suggestedTitle"] = *t.suggestedTitle;
    return o;
}

json chainJSON(const ChainState& chain) {
    json effects = json::array();
    for (const auto& e : chain.effects) {
        json values = json::array();
        for (double v : e.values)
            values.push_back(number(v, "values"));
        json o = {{"kind", e.kind}, {"values", std::move(values)}};
        if (e.isBypassed) o["isBypassed"] = true;
        effects.push_back(std::move(o));
    }
    json o = {{"effects", std::move(effects)}};
    if (chain.isBypassed) o["isBypassed"] = true;
    return o;
}

json clipJSON(const TimelineState::Clip& clip) {
    json source;
    if (const auto* t = std::get_if<TimelineState::Clip::TrackSource>(&clip.source))
        source = {{"track", {{"_0", t->index}}}};
    else
        source = {{"file", {{"_0", std::get<TimelineState::Clip::FileSource>(clip.source).path}}}};
    json o = {{"name", clip.name},
              {"source", std::move(source)},
              {"sourceStart", clip.sourceStart},
              {"length", clip.length},
              {"start", clip.start}};
    if (clip.fadeIn) o["fadeIn"] = *clip.fadeIn;
    if (clip.fadeOut) o["fadeOut"] = *clip.fadeOut;
    if (clip.track) o["track"] = *clip.track;
    return o;
}

json timelineJSON(const TimelineState& t) {
    json lanes = json::array();
    for (const auto& lane : t.lanes) {
        json clips = json::array();
        for (const auto& clip : lane.clips)
            clips.push_back(clipJSON(clip));
        json o = {{"name", lane.name},
                  {"gainDB", number(lane.gainDB, "gainDB")},
                  {"pan", number(lane.pan, "pan")},
                  {"isMuted", lane.isMuted},
                  {"clips", std::move(clips)}};
        if (lane.output) o["output"] = *lane.output;
        if (lane.color) o["color"] = *lane.color;
        lanes.push_back(std::move(o));
    }
    json o = {{"sampleRate", number(t.sampleRate, "sampleRate")},
              {"cursor", t.cursor},
              {"lanes", std::move(lanes)},
              {"isShowing", t.isShowing}};
    if (t.mixer) {
        json buses = json::array();
        for (const auto& bus : t.mixer->buses) {
            json b = {{"name", bus.name},
                      {"gainDB", number(bus.gainDB, "gainDB")},
                      {"isMuted", bus.isMuted},
                      {"chain", chainJSON(bus.chain)}};
            if (bus.hue) b["hue"] = number(*bus.hue, "hue");
            if (bus.isMinimized) b["isMinimized"] = true;
            buses.push_back(std::move(b));
        }
        json mixer = {{"buses", std::move(buses)},
                      {"master", chainJSON(t.mixer->master)},
                      {"masterGainDB", number(t.mixer->masterGainDB, "masterGainDB")}};
        if (t.mixer->isMasterMinimized) mixer["isMasterMinimized"] = true;
        o["mixer"] = std::move(mixer);
    }
    if (!t.markers.empty()) o["markers"] = markersJSON(t.markers);
    return o;
}

json stateJSON(const SessionState& state) {
    json tracks = json::array();
    for (const auto& t : state.tracks) {
        json o = {{"path", t.path},
                  {"gainDB", number(t.gainDB, "gainDB")},
                  {"verticalZoom", number(t.verticalZoom, "verticalZoom")},
                  {"cursor", t.cursor},
                  {"viewportStart", number(t.viewportStart, "viewportStart")},
                  {"samplesPerPoint", number(t.samplesPerPoint, "samplesPerPoint")},
                  {"viewportWidth", number(t.viewportWidth, "viewportWidth")}};
        if (t.selection) o["selection"] = {t.selection->first, t.selection->second};
        if (!t.markers.empty()) o["markers"] = markersJSON(t.markers);
        if (t.transcript) o["transcript"] = transcriptJSON(*t.transcript);
        tracks.push_back(std::move(o));
    }
    json o = {{"tracks", std::move(tracks)},
              {"selectedIndices", state.selectedIndices},
              {"loopPlayback", state.loopPlayback}};
    if (state.timeline) o["timeline"] = timelineJSON(*state.timeline);
    return o;
}

// ---- reading

// Reads the members of one JSON object, naming the key that is missing or wrong.
class Reader {
public:
    Reader(const json& object, std::string where)
        : object(object)
        , where(std::move(where)) {
        if (!object.is_object()) fail("isn't an object");
    }

    const json* find(const char* key) const {
        auto it = object.find(key);
        return it == object.end() || it->is_null() ? nullptr : &*it;
    }
    const json& required(const char* key) const {
        const json* value = find(key);
        if (!value) throw SessionDataError(prefix() + "“" + key + "” is missing.");
        return *value;
    }
    std::string string(const char* key) const { return asString(required(key), key); }
    std::optional<std::string> optionalString(const char* key) const {
        const json* v = find(key);
        return v ? std::optional(asString(*v, key)) : std::nullopt;
    }
    int64_t integer(const char* key) const { return asInteger(required(key), key); }
    std::optional<int64_t> optionalInteger(const char* key) const {
        const json* v = find(key);
        return v ? std::optional(asInteger(*v, key)) : std::nullopt;
    }
    double real(const char* key) const { return asReal(required(key), key); }
    std::optional<double> optionalReal(const char* key) const {
        const json* v = find(key);
        return v ? std::optional(asReal(*v, key)) : std::nullopt;
    }
    float real32(const char* key) const { return float(real(key)); }
    bool boolean(const char* key) const { return asBool(required(key), key); }
    bool optionalBoolean(const char* key) const {
        const json* v = find(key);
        return v && asBool(*v, key);
    }
    const json& array(const char* key) const { return asArray(required(key), key); }
    const json* optionalArray(const char* key) const {
        const json* v = find(key);
        return v ? &asArray(*v, key) : nullptr;
    }
    std::string child(const char* key, size_t index) const {
        return where + "." + key + "[" + std::to_string(index) + "]";
    }
    std::string child(const char* key) const { return where + "." + key; }

    [[noreturn]] void fail(const std::string& what) const {
        throw SessionDataError(prefix() + what + ".");
    }

private:
    std::string prefix() const { return "The session file is damaged: at " + where + ", "; }
    [[noreturn]] void wrongType(const char* key, const char* type) const {
        fail(std::string("“") + key + "” isn't " + type);
    }
    std::string asString(const json& v, const char* key) const {
        if (!v.is_string()) wrongType(key, "text");
        return v.get<std::string>();
    }
    int64_t asInteger(const json& v, const char* key) const {
        if (v.is_number_integer()) return v.get<int64_t>();
        if (v.is_number_float()) {
            const double d = v.get<double>();
            if (d == std::trunc(d) && std::abs(d) < 9.2e18) return int64_t(d);
        }
        wrongType(key, "a whole number");
    }
    double asReal(const json& v, const char* key) const {
        if (!v.is_number()) wrongType(key, "a number");
        return v.get<double>();
    }
    bool asBool(const json& v, const char* key) const {
        if (!v.is_boolean()) wrongType(key, "true or false");
        return v.get<bool>();
    }
    const json& asArray(const json& v, const char* key) const {
        if (!v.is_array()) wrongType(key, "a list");
        return v;
    }

    const json& object;
    std::string where;
};

std::vector<Marker> readMarkers(const Reader& owner, const char* key) {
    std::vector<Marker> markers;
    const json* list = owner.optionalArray(key);
    if (!list) return markers;
    for (size_t i = 0; i < list->size(); ++i) {
        Reader r((*list)[i], owner.child(key, i));
        Marker m;
        const auto id = Uuid::parse(r.string("id"));
        if (!id) r.fail("“id” isn't a UUID");
        m.id = *id;
        m.name = r.string("name");
        m.start = r.integer("start");
        m.end = r.optionalInteger("end");
        markers.push_back(std::move(m));
    }
    return markers;
}

Transcript readTranscript(const Reader& r) {
    Transcript t;
    t.locale = r.string("locale");
    const json& segments = r.array("segments");
    for (size_t i = 0; i < segments.size(); ++i) {
        Reader s(segments[i], r.child("segments", i));
        t.segments.push_back({s.string("text"), s.real("start"), s.real("end")});
    }
    t.revision = r.integer("revision");
    t.summary = r.optionalString("summary");
    t.suggestedTitle = r.optionalString("suggestedTitle");
    return t;
}

ChainState readChain(const Reader& r) {
    ChainState chain;
    const json& effects = r.array("effects");
    for (size_t i = 0; i < effects.size(); ++i) {
        Reader e(effects[i], r.child("effects", i));
        EffectState effect;
        effect.kind = e.string("kind");
        const json& values = e.array("values");
        for (const json& v : values) {
            if (!v.is_number()) e.fail("“values” holds something that isn't a number");
            effect.values.push_back(v.get<double>());
        }
        effect.isBypassed = e.optionalBoolean("isBypassed");
        chain.effects.push_back(std::move(effect));
    }
    chain.isBypassed = r.optionalBoolean("isBypassed");
    return chain;
}

TimelineState::Clip readClip(const Reader& r) {
    TimelineState::Clip clip;
    clip.name = r.string("name");
    const json& source = r.required("source");
    const std::string sourceWhere = r.child("source");
    if (!source.is_object() || source.size() != 1)
        Reader(source, sourceWhere).fail("it must hold exactly one of “track” and “file”");
    if (source.contains("track")) {
        Reader payload(source["track"], sourceWhere + ".track");
        clip.source = TimelineState::Clip::TrackSource{payload.integer("_0")};
    } else if (source.contains("file")) {
        Reader payload(source["file"], sourceWhere + ".file");
        clip.source = TimelineState::Clip::FileSource{payload.string("_0")};
    } else {
        Reader(source, sourceWhere).fail("it must hold exactly one of “track” and “file”");
    }
    clip.sourceStart = r.integer("sourceStart");
    clip.length = r.integer("length");
    clip.start = r.integer("start");
    clip.fadeIn = r.optionalInteger("fadeIn");
    clip.fadeOut = r.optionalInteger("fadeOut");
    clip.track = r.optionalInteger("track");
    return clip;
}

TimelineState readTimeline(const Reader& r) {
    TimelineState t;
    t.sampleRate = r.real("sampleRate");
    t.cursor = r.integer("cursor");
    const json& lanes = r.array("lanes");
    for (size_t i = 0; i < lanes.size(); ++i) {
        Reader l(lanes[i], r.child("lanes", i));
        TimelineState::Lane lane;
        lane.name = l.string("name");
        lane.gainDB = l.real32("gainDB");
        lane.pan = l.real32("pan");
        lane.isMuted = l.boolean("isMuted");
        lane.output = l.optionalInteger("output");
        lane.color = l.optionalInteger("color");
        const json& clips = l.array("clips");
        for (size_t c = 0; c < clips.size(); ++c)
            lane.clips.push_back(readClip(Reader(clips[c], l.child("clips", c))));
        t.lanes.push_back(std::move(lane));
    }
    t.isShowing = r.boolean("isShowing");
    if (const json* m = r.find("mixer")) {
        Reader mr(*m, r.child("mixer"));
        TimelineState::Mixer mixer;
        const json& buses = mr.array("buses");
        for (size_t i = 0; i < buses.size(); ++i) {
            Reader b(buses[i], mr.child("buses", i));
            TimelineState::Bus bus;
            bus.name = b.string("name");
            bus.gainDB = b.real32("gainDB");
            bus.isMuted = b.boolean("isMuted");
            bus.hue = b.optionalReal("hue");
            bus.chain = readChain(Reader(b.required("chain"), b.child("chain")));
            bus.isMinimized = b.optionalBoolean("isMinimized");
            mixer.buses.push_back(std::move(bus));
        }
        mixer.master = readChain(Reader(mr.required("master"), mr.child("master")));
        mixer.masterGainDB = mr.real32("masterGainDB");
        mixer.isMasterMinimized = mr.optionalBoolean("isMasterMinimized");
        t.mixer = std::move(mixer);
    }
    t.markers = readMarkers(r, "markers");
    return t;
}

SessionState readState(const Reader& r) {
    SessionState state;
    const json& tracks = r.array("tracks");
    for (size_t i = 0; i < tracks.size(); ++i) {
        Reader t(tracks[i], r.child("tracks", i));
        TrackState track;
        track.path = t.string("path");
        if (auto text = t.optionalString("bookmark")) {
            track.bookmark = base64Decode(*text);
            if (!track.bookmark) t.fail("“bookmark” isn't base64");
        }
        track.gainDB = t.real32("gainDB");
        track.verticalZoom = t.real32("verticalZoom");
        track.cursor = t.integer("cursor");
        if (const json* s = t.find("selection")) {
            if (!s->is_array() || s->size() != 2 || !(*s)[0].is_number_integer() ||
                !(*s)[1].is_number_integer())
                t.fail("“selection” isn't a pair of whole numbers");
            const int64_t lower = (*s)[0].get<int64_t>(), upper = (*s)[1].get<int64_t>();
            if (lower > upper) t.fail("“selection” starts after it ends");
            if (lower < upper) track.selection = std::pair(lower, upper);
        }
        track.viewportStart = t.real("viewportStart");
        track.samplesPerPoint = t.real("samplesPerPoint");
        track.viewportWidth = t.real("viewportWidth");
        track.markers = readMarkers(t, "markers");
        if (const json* transcript = t.find("transcript"))
            track.transcript = readTranscript(Reader(*transcript, t.child("transcript")));
        state.tracks.push_back(std::move(track));
    }
    const json& selected = r.array("selectedIndices");
    for (const json& index : selected) {
        if (!index.is_number_integer())
            r.fail("“selectedIndices” holds something that isn't a whole number");
        state.selectedIndices.push_back(index.get<int64_t>());
    }
    state.loopPlayback = r.boolean("loopPlayback");
    if (const json* timeline = r.find("timeline"))
        state.timeline = readTimeline(Reader(*timeline, r.child("timeline")));
    return state;
}

json parse(std::string_view text) {
    json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded())
        throw SessionDataError("The session file is damaged: it isn't valid JSON.");
    return parsed;
}

} // namespace

std::string encodeSessionFile(const SessionState& state) {
    const json contents = {{"format", state.timeline ? 2 : 1}, {"session", stateJSON(state)}};
    return contents.dump(2) + "\n";
}

SessionState decodeSessionFile(std::string_view text) {
    const json contents = parse(text);
    Reader root(contents, "the top");
    const int64_t format = root.integer("format");
    if (format > newestSessionFormat) throw SessionBundleFailure::newerFormat(format);
    return readState(Reader(root.required("session"), "session"));
}

std::string encodeTranscript(const Transcript& transcript) {
    return transcriptJSON(transcript).dump(2) + "\n";
}

std::string encodeSessionState(const SessionState& state) { return stateJSON(state).dump(); }

SessionState decodeSessionState(std::string_view text) {
    return readState(Reader(parse(text), "session"));
}

} // namespace sonvale
