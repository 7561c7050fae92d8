#include "persistence/Preferences.h"

#include "base/AtomicFile.h"
#include "base/Errors.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace sonvale {

using nlohmann::json;

namespace {

const char* const effectsKey = "effects";

std::optional<json> optionalString(const std::optional<std::string>& value) {
    if (!value) return std::nullopt;
    return json(*value);
}

std::optional<std::string> readString(const json& values, const char* key) {
    const auto it = values.find(key);
    if (it == values.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

bool readBool(const json& values, const char* key, bool fallback) {
    const auto it = values.find(key);
    return it != values.end() && it->is_boolean() ? it->get<bool>() : fallback;
}

CanvasThemeID readTheme(const json& values, const char* key, CanvasThemeID fallback) {
    const auto name = readString(values, key);
    if (!name) return fallback;
    return canvasThemeFromRawValue(*name).value_or(fallback);
}

bool allFinite(const std::vector<double>& values) {
    for (double v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

std::optional<std::vector<double>> numberArray(const json& value) {
    if (!value.is_array()) return std::nullopt;
    std::vector<double> numbers;
    numbers.reserve(value.size());
    for (const json& element : value) {
        if (!element.is_number()) return std::nullopt;
        numbers.push_back(element.get<double>());
    }
    return numbers;
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) return entry->pw_dir;
    return "/";
}

std::filesystem::path configHome() {
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config) {
        std::filesystem::path path(config);
        if (path.is_absolute()) return path;
    }
    return std::filesystem::path(homeFolder()) / ".config";
}

// What `xdg-user-dir MUSIC` prints, when it can be run.
std::optional<std::string> askXdgUserDir() {
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) return std::nullopt;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char program[] = "xdg-user-dir";
    char which[] = "MUSIC";
    char* argv[] = {program, which, nullptr};
    pid_t child = 0;
    const int spawned = posix_spawnp(&child, program, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    std::string output;
    if (spawned == 0) {
        char buffer[512];
        for (;;) {
            const ssize_t got = ::read(pipeEnds[0], buffer, sizeof buffer);
            if (got > 0) {
                output.append(buffer, size_t(got));
                continue;
            }
            if (got < 0 && errno == EINTR) continue;
            break;
        }
    }
    close(pipeEnds[0]);
    if (spawned != 0) return std::nullopt;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    while (!output.empty() && (output.back() == '\n' || output.back() == '\r'))
        output.pop_back();
    return output;
}

// XDG_MUSIC_DIR from user-dirs.dirs: a quoted absolute path or one starting with "$HOME/".
std::optional<std::string> readUserDirsFile() {
    std::ifstream file(configHome() / "user-dirs.dirs");
    if (!file) return std::nullopt;
    std::string line;
    std::optional<std::string> found;
    while (std::getline(file, line)) {
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        const std::string prefix = "XDG_MUSIC_DIR=";
        if (line.compare(first, prefix.size(), prefix) != 0) continue;
        std::string value = line.substr(first + prefix.size());
        while (!value.empty() &&
               (value.back() == ' ' || value.back() == '\t' || value.back() == '\r'))
            value.pop_back();
        if (value.size() < 2 || value.front() != '"' || value.back() != '"') continue;
        value = value.substr(1, value.size() - 2);
        std::string unescaped;
        for (size_t i = 0; i < value.size(); ++i) {
            if (value[i] == '\\' && i + 1 < value.size()) ++i;
            unescaped += value[i];
        }
        if (unescaped.rfind("$HOME", 0) == 0 && (unescaped.size() == 5 || unescaped[5] == '/'))
            unescaped = homeFolder() + unescaped.substr(5);
        if (!unescaped.empty() && unescaped.front() == '/') found = unescaped; // the last one wins
    }
    return found;
}

std::filesystem::path musicFolder() {
    const std::string home = homeFolder();
    // xdg-user-dir answers $HOME itself when no music folder is configured.
    if (auto answer = askXdgUserDir();
        answer && !answer->empty() && answer->front() == '/' &&
        std::filesystem::path(*answer) != std::filesystem::path(home))
        return *answer;
    if (auto configured = readUserDirsFile(); configured && *configured != home) return *configured;
    return std::filesystem::path(home) / "Music";
}

} // namespace

std::string_view rawValue(Preferences::LaunchSession value) {
    return value == Preferences::LaunchSession::empty ? "empty" : "lastSession";
}

Preferences::Preferences() = default;

Preferences::Preferences(std::filesystem::path file)
    : storeFile(std::move(file)) {
    read();
}

Preferences::~Preferences() { flush(); }

void Preferences::deferWrites(Executor& executor) { writeScheduler = &executor; }

void Preferences::flush() {
    pendingWrite.cancel();
    if (std::exchange(writePending, false)) write();
}

std::filesystem::path Preferences::standardStorePath() {
    return configHome() / "sonvale" / "preferences.json";
}

void Preferences::read() {
    std::ifstream file(*storeFile, std::ios::binary);
    if (!file) return; // no file yet: the defaults
    std::stringstream text;
    text << file.rdbuf();
    const std::string contents = text.str();
    if (contents.find_first_not_of(" \t\r\n") == std::string::npos) return;
    json parsed = json::parse(contents, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) {
        fileWasUnreadable = true;
        std::cerr << "Sonvale: the preferences file " << *storeFile
                  << " isn't valid JSON; using the default settings.\n";
        return;
    }
    values = std::move(parsed);

    if (auto effects = values.find(effectsKey); effects != values.end() && effects->is_object()) {
        for (const auto& [kind, entry] : effects->items())
            if (auto numbers = numberArray(entry)) effectMemory[kind] = std::move(*numbers);
    }
    theme = readTheme(values, "canvasTheme", CanvasThemeID::classic);
    followsAppearance = readBool(values, "followsSystemAppearance", false);
    lightTheme = readTheme(values, "lightCanvasTheme", CanvasThemeID::nativeLight);
    darkTheme = readTheme(values, "darkCanvasTheme", CanvasThemeID::classic);
    spectrogram = SpectrogramSettings::load(values);
    snap = readBool(values, "snapToZeroCrossings", true);
    if (auto it = values.find("customLoudnessTarget");
        it != values.end() && it->is_number() && std::isfinite(it->get<double>()))
        loudnessTarget = it->get<double>();
    chosenRecordingsFolder = readString(values, "recordingsFolder");
    format = recordingFormatFromRawValue(readString(values, "recordingFormat").value_or(""))
                 .value_or(RecordingFormat::wav24);
    inputDevice = readString(values, "inputDeviceUID");
    language = readString(values, "transcriptionLanguage");
    showsAI = readBool(values, "showsAIFeatures", true);
    launch = readString(values, "launchSession") == std::optional<std::string>("empty")
                 ? LaunchSession::empty
                 : LaunchSession::lastSession;
    if (auto text = readString(values, "lastSessionDocument")) bookmark = base64Decode(*text);
    if (auto text = readString(values, "windowLayout")) layout = base64Decode(*text);
    if (auto it = values.find("recentSessions"); it != values.end() && it->is_array())
        for (const json& entry : *it)
            if (entry.is_string() && recents.size() < recentSessionLimit)
                recents.push_back(entry.get<std::string>());
}

void Preferences::write() {
    if (!storeFile) return;
    try {
        if (fileWasUnreadable) {
            // Keep what could not be read rather than silently replacing it.
            std::filesystem::path aside = *storeFile;
            aside += ".corrupt";
            std::error_code ec;
            std::filesystem::rename(*storeFile, aside, ec);
            if (ec && std::filesystem::exists(*storeFile))
                std::cerr << "Sonvale: couldn't keep the unreadable preferences file as " << aside
                          << ": " << ec.message() << "\n";
            fileWasUnreadable = false;
        }
        writeFileAtomically(*storeFile, values.dump(2) + "\n");
    } catch (const std::exception& error) {
        std::cerr << "Sonvale: couldn't save the preferences: " << error.what() << "\n";
    }
}

void Preferences::commit(Setting setting, const char* key, std::optional<json> value) {
    if (value)
        values[key] = std::move(*value);
    else
        values.erase(key);
    if (writeScheduler && storeFile) {
        writePending = true;
        pendingWrite.cancel();
        std::weak_ptr<Preferences*> token = self;
        pendingWrite = writeScheduler->postAfter(std::chrono::seconds(1), [token] {
            if (auto alive = token.lock()) (*alive)->flush();
        });
    } else {
        write();
    }
    changed.emit(setting);
}

// ---- effects ---------------------------------------------------------------------------

std::optional<std::vector<double>> Preferences::effectValues(const std::string& kind) const {
    const auto it = effectMemory.find(kind);
    if (it == effectMemory.end()) return std::nullopt;
    return it->second;
}

void Preferences::rememberEffectValues(const std::string& kind, std::vector<double> numbers) {
    if (!allFinite(numbers)) return;
    if (auto it = effectMemory.find(kind); it != effectMemory.end() && it->second == numbers)
        return;
    json dictionary = json::object();
    if (auto it = values.find(effectsKey); it != values.end() && it->is_object()) dictionary = *it;
    dictionary[kind] = numbers;
    effectMemory[kind] = std::move(numbers);
    commit(Setting::memoryEffectValues, effectsKey, std::move(dictionary));
}

// ---- themes ------------------------------------------------------------------------------

void Preferences::setCanvasTheme(CanvasThemeID value) {
    if (value == theme) return;
    theme = value;
    commit(Setting::canvasTheme, "canvasTheme", json(std::string(rawValue(value))));
}

void Preferences::setFollowsSystemAppearance(bool value) {
    if (value == followsAppearance) return;
    followsAppearance = value;
    commit(Setting::followsSystemAppearance, "followsSystemAppearance", json(value));
}

void Preferences::setLightCanvasTheme(CanvasThemeID value) {
    if (value == lightTheme) return;
    lightTheme = value;
    commit(Setting::lightCanvasTheme, "lightCanvasTheme", json(std::string(rawValue(value))));
}

void Preferences::setDarkCanvasTheme(CanvasThemeID value) {
    if (value == darkTheme) return;
    darkTheme = value;
    commit(Setting::darkCanvasTheme, "darkCanvasTheme", json(std::string(rawValue(value))));
}

CanvasThemeID Preferences::canvasTheme(bool darkAppearance) const {
    if (!followsAppearance) return theme;
    return darkAppearance ? darkTheme : lightTheme;
}

// ---- the rest ------------------------------------------------------------------------------

void Preferences::setSpectrogramSettings(const SpectrogramSettings& value) {
    SpectrogramSettings settings = value;
    if (!SpectrogramSettings::isValidFFTSize(settings.fftSize)) settings.fftSize = 2048;
    if (settings == spectrogram) return;
    spectrogram = settings;
    settings.save(values);
    write();
    changed.emit(Setting::spectrogramSettings);
}

void Preferences::setSnapToZeroCrossings(bool value) {
    if (value == snap) return;
    snap = value;
    commit(Setting::snapToZeroCrossings, "snapToZeroCrossings", json(value));
}

void Preferences::setCustomLoudnessTarget(std::optional<double> value) {
    if (value && !std::isfinite(*value)) value.reset();
    if (value == loudnessTarget) return;
    loudnessTarget = value;
    commit(Setting::customLoudnessTarget, "customLoudnessTarget",
           value ? std::optional<json>(json(*value)) : std::nullopt);
}

void Preferences::setRecordingsFolderPath(std::optional<std::string> value) {
    if (value == chosenRecordingsFolder) return;
    chosenRecordingsFolder = std::move(value);
    commit(Setting::recordingsFolderPath, "recordingsFolder",
           optionalString(chosenRecordingsFolder));
}

std::filesystem::path Preferences::defaultRecordingsFolder() { return musicFolder() / "Sonvale"; }

std::filesystem::path Preferences::recordingsFolder() const {
    if (chosenRecordingsFolder && !chosenRecordingsFolder->empty()) return *chosenRecordingsFolder;
    return defaultRecordingsFolder();
}

void Preferences::setRecordingFormat(RecordingFormat value) {
    if (value == format) return;
    format = value;
    commit(Setting::recordingFormat, "recordingFormat", json(std::string(rawValue(value))));
}

void Preferences::setInputDeviceUID(std::optional<std::string> value) {
    if (value == inputDevice) return;
    inputDevice = std::move(value);
    commit(Setting::inputDeviceUID, "inputDeviceUID", optionalString(inputDevice));
}

void Preferences::setTranscriptionLanguage(std::optional<std::string> value) {
    if (value == language) return;
    language = std::move(value);
    commit(Setting::transcriptionLanguage, "transcriptionLanguage", optionalString(language));
}

void Preferences::setShowsAIFeatures(bool value) {
    if (value == showsAI) return;
    showsAI = value;
    commit(Setting::showsAIFeatures, "showsAIFeatures", json(value));
}

void Preferences::setLaunchSession(LaunchSession value) {
    if (value == launch) return;
    launch = value;
    commit(Setting::launchSession, "launchSession", json(std::string(rawValue(value))));
}

void Preferences::setLastDocumentBookmark(std::optional<std::vector<uint8_t>> value) {
    if (value == bookmark) return;
    bookmark = std::move(value);
    commit(Setting::lastDocumentBookmark, "lastSessionDocument",
           bookmark ? std::optional<json>(json(base64Encode(*bookmark))) : std::nullopt);
}

void Preferences::setWindowLayout(std::optional<std::vector<uint8_t>> value) {
    if (value == layout) return;
    layout = std::move(value);
    commit(Setting::windowLayout, "windowLayout",
           layout ? std::optional<json>(json(base64Encode(*layout))) : std::nullopt);
}

void Preferences::noteRecentSession(const std::string& path) {
    std::vector<std::string> list{path};
    for (const auto& entry : recents)
        if (entry != path && list.size() < recentSessionLimit) list.push_back(entry);
    if (list == recents) return;
    recents = std::move(list);
    commit(Setting::recentSessions, "recentSessions", json(recents));
}

void Preferences::clearRecentSessions() {
    if (recents.empty()) return;
    recents.clear();
    commit(Setting::recentSessions, "recentSessions", std::nullopt);
}

// ---- base64 ----------------------------------------------------------------------------------

namespace {
constexpr char base64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}

std::string base64Encode(const std::vector<uint8_t>& data) {
    std::string text;
    text.reserve((data.size() + 2) / 3 * 4);
    for (size_t i = 0; i < data.size(); i += 3) {
        const size_t n = std::min<size_t>(3, data.size() - i);
        uint32_t group = uint32_t(data[i]) << 16;
        if (n > 1) group |= uint32_t(data[i + 1]) << 8;
        if (n > 2) group |= uint32_t(data[i + 2]);
        text += base64Alphabet[(group >> 18) & 63];
        text += base64Alphabet[(group >> 12) & 63];
        text += n > 1 ? base64Alphabet[(group >> 6) & 63] : '=';
        text += n > 2 ? base64Alphabet[group & 63] : '=';
    }
    return text;
}

std::optional<std::vector<uint8_t>> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    auto valueOf = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::vector<uint8_t> data;
    data.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int v[4];
        int padding = 0;
        for (int k = 0; k < 4; ++k) {
            const char c = text[i + size_t(k)];
            if (c == '=' && last && k >= 2) {
                v[k] = 0;
                ++padding;
                continue;
            }
            if (padding > 0) return std::nullopt; // data after padding
            v[k] = valueOf(c);
            if (v[k] < 0) return std::nullopt;
        }
        const uint32_t group =
            uint32_t(v[0]) << 18 | uint32_t(v[1]) << 12 | uint32_t(v[2]) << 6 | uint32_t(v[3]);
        data.push_back(uint8_t(group >> 16));
        if (padding < 2) data.push_back(uint8_t(group >> 8));
        if (padding < 1) data.push_back(uint8_t(group));
    }
    return data;
}

} // namespace sonvale
