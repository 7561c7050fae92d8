#pragma once

#include "analysis/SpectrogramSettings.h"
#include "base/Executor.h"
#include "engine/RecordingFormat.h"
#include "persistence/CanvasThemeID.h"

#include <nlohmann/json.hpp>
#include <sigc++/signal.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

class Executor;

// The user's settings. Every setting is read from the preferences file when the object is
// made and written back under its key the moment it changes; there is no separate save.
// The file is JSON ($XDG_CONFIG_HOME/sonvale/preferences.json), replaced atomically (once a
// second at most when writes are deferred, as the program does), and keys
// Sonvale does not know are kept. A missing, empty or unreadable file gives the defaults and
// is left alone until a setting really changes; an unreadable one is then kept beside the new
// file as preferences.json.corrupt. A value of the wrong type gives that setting's default.
// Made without a file, every setting has its default and nothing is written.
// Main thread only.
class Preferences {
public:
    enum class LaunchSession { lastSession, empty };

    // Names the setting in `changed`.
    enum class Setting {
        memoryEffectValues,
        canvasTheme,
        followsSystemAppearance,
        lightCanvasTheme,
        darkCanvasTheme,
        spectrogramSettings,
        snapToZeroCrossings,
        customLoudnessTarget,
        recordingsFolderPath,
        recordingFormat,
        inputDeviceUID,
        transcriptionLanguage,
        showsAIFeatures,
        launchSession,
        lastDocumentBookmark,
        recentSessions,
        windowLayout,
    };

    Preferences();
    explicit Preferences(std::filesystem::path storeFile);
    // Writes what is still pending.
    ~Preferences();
    Preferences(const Preferences&) = delete;
    Preferences& operator=(const Preferences&) = delete;

    // $XDG_CONFIG_HOME/sonvale/preferences.json, with ~/.config when the variable is unset
    // or not an absolute path.
    static std::filesystem::path standardStorePath();
    // From now on a change is written one second after the last of a burst (a dragged
    // slider writes once), through `executor`'s delayed work, instead of at once.
    void deferWrites(Executor& executor);
    // Writes a change still waiting for its delay (at quit).
    void flush();

    // The file the settings live in; none when made without one.
    const std::optional<std::filesystem::path>& defaults() const { return storeFile; }

    // Remembered parameter values per effect kind identifier (the "effects" dictionary).
    const std::map<std::string, std::vector<double>>& memoryEffectValues() const {
        return effectMemory;
    }
    // The remembered values of a kind, if any.
    std::optional<std::vector<double>> effectValues(const std::string& kindIdentifier) const;
    // Remembers the values an applied effect had; values that are not finite are not kept.
    void rememberEffectValues(const std::string& kindIdentifier, std::vector<double> values);

    CanvasThemeID canvasTheme() const { return theme; }
    void setCanvasTheme(CanvasThemeID value);
    bool followsSystemAppearance() const { return followsAppearance; }
    void setFollowsSystemAppearance(bool value);
    CanvasThemeID lightCanvasTheme() const { return lightTheme; }
    void setLightCanvasTheme(CanvasThemeID value);
    CanvasThemeID darkCanvasTheme() const { return darkTheme; }
    void setDarkCanvasTheme(CanvasThemeID value);
    // The theme the canvas uses under the given system appearance.
    CanvasThemeID canvasTheme(bool darkAppearance) const;

    const SpectrogramSettings& spectrogramSettings() const { return spectrogram; }
    void setSpectrogramSettings(const SpectrogramSettings& value);

    bool snapToZeroCrossings() const { return snap; }
    void setSnapToZeroCrossings(bool value);

    // LUFS. A value that is not finite counts as not set.
    std::optional<double> customLoudnessTarget() const { return loudnessTarget; }
    void setCustomLoudnessTarget(std::optional<double> value);

    const std::optional<std::string>& recordingsFolderPath() const {
        return chosenRecordingsFolder;
    }
    void setRecordingsFolderPath(std::optional<std::string> value);
    // The XDG music folder (as xdg-user-dir or user-dirs.dirs name it, else ~/Music) with the
    // subfolder "Sonvale".
    static std::filesystem::path defaultRecordingsFolder();
    // Where recordings and new tracks go: the chosen folder, else the default one.
    std::filesystem::path recordingsFolder() const;

    RecordingFormat recordingFormat() const { return format; }
    void setRecordingFormat(RecordingFormat value);

    const std::optional<std::string>& inputDeviceUID() const { return inputDevice; }
    void setInputDeviceUID(std::optional<std::string> value);

    const std::optional<std::string>& transcriptionLanguage() const { return language; }
    void setTranscriptionLanguage(std::optional<std::string> value);

    bool showsAIFeatures() const { return showsAI; }
    void setShowsAIFeatures(bool value);

    LaunchSession launchSession() const { return launch; }
    void setLaunchSession(LaunchSession value);

    // Stored as base64 text under "lastSessionDocument".
    const std::optional<std::vector<uint8_t>>& lastDocumentBookmark() const { return bookmark; }
    void setLastDocumentBookmark(std::optional<std::vector<uint8_t>> value);

    // The session bundles opened or saved most recently, newest first, at most ten
    // ("recentSessions").
    static constexpr size_t recentSessionLimit = 10;
    const std::vector<std::string>& recentSessions() const { return recents; }
    // Puts `path` first, dropping an older entry for it and the oldest past the limit.
    void noteRecentSession(const std::string& path);
    void clearRecentSessions();

    // The window's size, place, splitters and panels as the window packs them, kept as base64
    // text under "windowLayout"; none until a window has closed.
    const std::optional<std::vector<uint8_t>>& windowLayout() const { return layout; }
    void setWindowLayout(std::optional<std::vector<uint8_t>> value);

    // Fires after a setting changed (and was written).
    sigc::signal<void(Setting)> changed;

private:
    void read();
    // Puts `value` under `key` (removes the key for none), writes the file and signals.
    void commit(Setting setting, const char* key, std::optional<nlohmann::json> value);
    void write();

    std::optional<std::filesystem::path> storeFile;
    Executor* writeScheduler = nullptr;
    DelayedTask pendingWrite;
    bool writePending = false;
    // Delayed writes hold a weak reference and check it before touching the object.
    std::shared_ptr<Preferences*> self = std::make_shared<Preferences*>(this);
    nlohmann::json values = nlohmann::json::object(); // everything the file holds
    bool fileWasUnreadable = false;

    std::map<std::string, std::vector<double>> effectMemory;
    CanvasThemeID theme = CanvasThemeID::classic;
    bool followsAppearance = false;
    CanvasThemeID lightTheme = CanvasThemeID::nativeLight;
    CanvasThemeID darkTheme = CanvasThemeID::classic;
    SpectrogramSettings spectrogram;
    bool snap = true;
    std::optional<double> loudnessTarget;
    std::optional<std::string> chosenRecordingsFolder;
    RecordingFormat format = RecordingFormat::wav24;
    std::optional<std::string> inputDevice;
    std::optional<std::string> language;
    bool showsAI = true;
    LaunchSession launch = LaunchSession::lastSession;
    std::optional<std::vector<uint8_t>> bookmark;
    std::optional<std::vector<uint8_t>> layout;
    std::vector<std::string> recents;
};

std::string_view rawValue(Preferences::LaunchSession value);

// Base64 (RFC 4648, with padding) as the preferences file keeps binary data.
std::string base64Encode(const std::vector<uint8_t>& data);
// Nothing for text that is not canonical base64.
std::optional<std::vector<uint8_t>> base64Decode(std::string_view text);

} // namespace sonvale
