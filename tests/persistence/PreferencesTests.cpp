#include "persistence/Preferences.h"

#include "base/ManualExecutor.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <functional>
#include <limits>

using namespace sonvale;
using namespace sonvale::test;
using nlohmann::json;

namespace {

class PreferencesFile : public ::testing::Test {
protected:
    TempFolder folder;
    std::filesystem::path file = folder / "sonvale/preferences.json";

    json stored() const { return json::parse(readText(file)); }
    void store(const json& values) { writeText(file, values.dump()); }
};

void expectDefaults(const Preferences& p) {
    EXPECT_TRUE(p.memoryEffectValues().empty());
    EXPECT_EQ(p.canvasTheme(), CanvasThemeID::classic);
    EXPECT_FALSE(p.followsSystemAppearance());
    EXPECT_EQ(p.lightCanvasTheme(), CanvasThemeID::nativeLight);
    EXPECT_EQ(p.darkCanvasTheme(), CanvasThemeID::classic);
    EXPECT_EQ(p.spectrogramSettings(),
              (SpectrogramSettings{2048, SpectrogramColorMap::inferno, true}));
    EXPECT_TRUE(p.snapToZeroCrossings());
    EXPECT_FALSE(p.customLoudnessTarget());
    EXPECT_FALSE(p.recordingsFolderPath());
    EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav24);
    EXPECT_FALSE(p.inputDeviceUID());
    EXPECT_FALSE(p.transcriptionLanguage());
    EXPECT_TRUE(p.showsAIFeatures());
    EXPECT_EQ(p.launchSession(), Preferences::LaunchSession::lastSession);
    EXPECT_FALSE(p.lastDocumentBookmark());
}

} // namespace

// ---- fallbacks ---------------------------------------------------------------------------

TEST(Preferences, WithoutAStoreEverythingHasItsDefaultAndNothingIsWritten) {
    TempFolder config;
    ScopedEnvironment xdg("XDG_CONFIG_HOME", config.path().string());
    Preferences preferences;
    expectDefaults(preferences);
    EXPECT_FALSE(preferences.defaults());
    preferences.setShowsAIFeatures(false);
    EXPECT_FALSE(preferences.showsAIFeatures());
    EXPECT_TRUE(std::filesystem::is_empty(config.path()));
}

TEST_F(PreferencesFile, MissingEmptyOrCorruptFileGivesDefaultsAndIsNotWrittenByReading) {
    for (const std::optional<std::string> content :
         {std::optional<std::string>(), std::optional<std::string>("  \n"),
          std::optional<std::string>("{\"canvasTheme\": \"paper\", \"snapTo")}) {
        SCOPED_TRACE(content.value_or("(no file)"));
        std::filesystem::remove(file);
        if (content) writeText(file, *content);
        {
            Preferences preferences(file);
            expectDefaults(preferences);
            preferences.setSnapToZeroCrossings(true); // no change: no write
        }
        EXPECT_EQ(std::filesystem::exists(file), content.has_value());
        if (content) EXPECT_EQ(readText(file), *content);
    }
}

TEST_F(PreferencesFile, RealChangeAfterACorruptFileWritesValidJSONAndKeepsTheOldBytes) {
    const std::string garbage = "[1, 2, 3]"; // JSON, but not a dictionary
    writeText(file, garbage);
    Preferences preferences(file);
    preferences.setCanvasTheme(CanvasThemeID::ocean);
    EXPECT_EQ(stored(), (json{{"canvasTheme", "ocean"}}));
    auto aside = file;
    aside += ".corrupt";
    EXPECT_EQ(readText(aside), garbage);
    EXPECT_EQ(Preferences(file).canvasTheme(), CanvasThemeID::ocean);
}

TEST_F(PreferencesFile, WrongTypesGiveEachSettingItsDefault) {
    store({{"canvasTheme", 3},
           {"followsSystemAppearance", "yes"},
           {"lightCanvasTheme", true},
           {"darkCanvasTheme", json::array({"classic"})},
           {"spectrogramFFTSize", "1024"},
           {"spectrogramColorMap", 1},
           {"spectrogramLogFrequency", 0},
           {"snapToZeroCrossings", 0},
           {"customLoudnessTarget", "-14"},
           {"recordingsFolder", 12},
           {"recordingFormat", 16},
           {"inputDeviceUID", false},
           {"transcriptionLanguage", json::object()},
           {"showsAIFeatures", "false"},
           {"launchSession", json()},
           {"lastSessionDocument", 5},
           {"effects", json::array()}});
    const std::string before = readText(file);
    Preferences preferences(file);
    expectDefaults(preferences);
    EXPECT_EQ(readText(file), before);
}

// Names match exactly, a boolean is no number, and each key falls back on its own.
TEST_F(PreferencesFile, StoredValuesCountOnlyInTheirExactForm) {
    using P = const Preferences&;
    const struct {
        json stored;
        std::function<void(P)> check;
    } cases[] = {
        {{{"customLoudnessTarget", true}}, [](P p) { EXPECT_FALSE(p.customLoudnessTarget()); }},
        {{{"canvasTheme", "Ocean"}, {"lightCanvasTheme", "nope"}, {"darkCanvasTheme", "paper"}},
         [](P p) {
             EXPECT_EQ(p.canvasTheme(), CanvasThemeID::classic);
             EXPECT_EQ(p.lightCanvasTheme(), CanvasThemeID::nativeLight);
             EXPECT_EQ(p.darkCanvasTheme(), CanvasThemeID::paper);
         }},
        {{{"recordingFormat", "wav16"}},
         [](P p) { EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav16); }},
        {{{"recordingFormat", "wav32Float"}},
         [](P p) { EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav32Float); }},
        {{{"recordingFormat", "WAV16"}},
         [](P p) { EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav24); }},
        {{{"recordingFormat", "wav32float"}},
         [](P p) { EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav24); }},
        {{{"launchSession", "empty"}},
         [](P p) { EXPECT_EQ(p.launchSession(), Preferences::LaunchSession::empty); }},
        {{{"launchSession", "Empty"}},
         [](P p) { EXPECT_EQ(p.launchSession(), Preferences::LaunchSession::lastSession); }},
        {{{"spectrogramFFTSize", 3000}, {"spectrogramColorMap", "viridis"}},
         [](P p) {
             EXPECT_EQ(p.spectrogramSettings(),
                       (SpectrogramSettings{2048, SpectrogramColorMap::viridis, true}));
         }},
        {{{"spectrogramFFTSize", 512.0},
          {"spectrogramColorMap", "plasma"},
          {"spectrogramLogFrequency", false}},
         [](P p) {
             EXPECT_EQ(p.spectrogramSettings(),
                       (SpectrogramSettings{512, SpectrogramColorMap::inferno, false}));
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.stored.dump());
        store(c.stored);
        c.check(Preferences(file));
    }
}

// ---- writing ---------------------------------------------------------------------------

TEST_F(PreferencesFile, EverySettingRoundTripsUnderItsKey) {
    {
        Preferences p(file);
        p.rememberEffectValues("compressor", {-18, 4, 10, 100});
        p.setCanvasTheme(CanvasThemeID::midnight);
        p.setFollowsSystemAppearance(true);
        p.setLightCanvasTheme(CanvasThemeID::paper);
        p.setDarkCanvasTheme(CanvasThemeID::nativeDark);
        p.setSpectrogramSettings({4096, SpectrogramColorMap::grayscale, false});
        p.setSnapToZeroCrossings(false);
        p.setCustomLoudnessTarget(-19.5);
        p.setRecordingsFolderPath("/srv/takes");
        p.setRecordingFormat(RecordingFormat::wav32Float);
        p.setInputDeviceUID("ALSA: USB Audio");
        p.setTranscriptionLanguage("de_DE");
        p.setShowsAIFeatures(false);
        p.setLaunchSession(Preferences::LaunchSession::empty);
        p.setLastDocumentBookmark(std::vector<uint8_t>{0, 1, 2, 250, 255});
    }
    EXPECT_EQ(stored(), (json{{"effects", {{"compressor", {-18.0, 4.0, 10.0, 100.0}}}},
                              {"canvasTheme", "midnight"},
                              {"followsSystemAppearance", true},
                              {"lightCanvasTheme", "paper"},
                              {"darkCanvasTheme", "nativeDark"},
                              {"spectrogramFFTSize", 4096},
                              {"spectrogramColorMap", "grayscale"},
                              {"spectrogramLogFrequency", false},
                              {"snapToZeroCrossings", false},
                              {"customLoudnessTarget", -19.5},
                              {"recordingsFolder", "/srv/takes"},
                              {"recordingFormat", "wav32Float"},
                              {"inputDeviceUID", "ALSA: USB Audio"},
                              {"transcriptionLanguage", "de_DE"},
                              {"showsAIFeatures", false},
                              {"launchSession", "empty"},
                              {"lastSessionDocument", "AAEC+v8="}}));

    Preferences p(file);
    EXPECT_EQ(p.effectValues("compressor"), (std::vector<double>{-18, 4, 10, 100}));
    EXPECT_EQ(p.canvasTheme(), CanvasThemeID::midnight);
    EXPECT_TRUE(p.followsSystemAppearance());
    EXPECT_EQ(p.lightCanvasTheme(), CanvasThemeID::paper);
    EXPECT_EQ(p.darkCanvasTheme(), CanvasThemeID::nativeDark);
    EXPECT_EQ(p.spectrogramSettings(),
              (SpectrogramSettings{4096, SpectrogramColorMap::grayscale, false}));
    EXPECT_FALSE(p.snapToZeroCrossings());
    EXPECT_EQ(p.customLoudnessTarget(), -19.5);
    EXPECT_EQ(p.recordingsFolderPath(), "/srv/takes");
    EXPECT_EQ(p.recordingsFolder(), "/srv/takes");
    EXPECT_EQ(p.recordingFormat(), RecordingFormat::wav32Float);
    EXPECT_EQ(p.inputDeviceUID(), "ALSA: USB Audio");
    EXPECT_EQ(p.transcriptionLanguage(), "de_DE");
    EXPECT_FALSE(p.showsAIFeatures());
    EXPECT_EQ(p.launchSession(), Preferences::LaunchSession::empty);
    EXPECT_EQ(p.lastDocumentBookmark(), (std::vector<uint8_t>{0, 1, 2, 250, 255}));
}

TEST_F(PreferencesFile, UnsettingAnOptionalOrANonFiniteTargetRemovesItsKey) {
    Preferences p(file);
    p.setCustomLoudnessTarget(-16);
    p.setRecordingsFolderPath("/x");
    p.setLastDocumentBookmark(std::vector<uint8_t>{1});
    p.setCustomLoudnessTarget(std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(p.customLoudnessTarget());
    p.setRecordingsFolderPath(std::nullopt);
    p.setLastDocumentBookmark(std::nullopt);
    EXPECT_EQ(stored(), json::object());
}

TEST_F(PreferencesFile, KeysSonvaleDoesNotKnowSurviveAWrite) {
    store({{"futureSetting", {{"a", 1}}}, {"showsAIFeatures", true}});
    Preferences p(file);
    p.setShowsAIFeatures(false);
    EXPECT_EQ(stored(), (json{{"futureSetting", {{"a", 1}}}, {"showsAIFeatures", false}}));
}

TEST_F(PreferencesFile, SettingTheSameValueNeitherWritesNorSignals) {
    writeText(file, "{ \"snapToZeroCrossings\" :  false }");
    Preferences p(file);
    int signals = 0;
    p.changed.connect([&](Preferences::Setting) { ++signals; });
    p.setSnapToZeroCrossings(false);
    p.setCanvasTheme(CanvasThemeID::classic);
    EXPECT_EQ(signals, 0);
    EXPECT_EQ(readText(file), "{ \"snapToZeroCrossings\" :  false }");
}

TEST_F(PreferencesFile, WriteFailureKeepsTheValueAndDoesNotThrow) {
    writeText(folder / "blocker", "a file where a folder should be");
    Preferences p(folder / "blocker/preferences.json");
    EXPECT_NO_THROW(p.setShowsAIFeatures(false));
    EXPECT_FALSE(p.showsAIFeatures());
}

// ---- effect memory ---------------------------------------------------------------------

TEST_F(PreferencesFile, RememberingAnEffectKeepsOtherEntriesAndOnlyFiniteNumbersCount) {
    store({{"effects",
            {{"reverb", {0.5, 0.3}}, {"broken", "x"}, {"eq", {1, "2", 3}}, {"gate", {1, true}}}}});
    Preferences p(file);
    EXPECT_EQ(p.effectValues("reverb"), (std::vector<double>{0.5, 0.3}));
    for (const char* unusable : {"broken", "eq", "gate"})
        EXPECT_FALSE(p.effectValues(unusable)) << unusable;
    p.rememberEffectValues("delay", {250, 0.4});
    p.rememberEffectValues("limiter", {1, std::nan("")});
    EXPECT_FALSE(p.effectValues("limiter"));
    EXPECT_EQ(stored()["effects"], (json{{"reverb", {0.5, 0.3}},
                                         {"broken", "x"},
                                         {"eq", {1, "2", 3}},
                                         {"gate", {1, true}},
                                         {"delay", {250.0, 0.4}}}));
}

// ---- themes ------------------------------------------------------------------------------

TEST(Preferences, CanvasThemeFollowsTheAppearanceOnlyWhenAskedTo) {
    Preferences p;
    p.setCanvasTheme(CanvasThemeID::forest);
    p.setLightCanvasTheme(CanvasThemeID::paper);
    p.setDarkCanvasTheme(CanvasThemeID::midnight);
    EXPECT_EQ(p.canvasTheme(true), CanvasThemeID::forest);
    EXPECT_EQ(p.canvasTheme(false), CanvasThemeID::forest);
    p.setFollowsSystemAppearance(true);
    EXPECT_EQ(p.canvasTheme(true), CanvasThemeID::midnight);
    EXPECT_EQ(p.canvasTheme(false), CanvasThemeID::paper);
}

// ---- locations ---------------------------------------------------------------------------

TEST(Preferences, StorePathIsUnderTheXDGConfigFolder) {
    ScopedEnvironment home("HOME", "/home/someone");
    const std::string inHome = "/home/someone/.config/sonvale/preferences.json";
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {"/tmp/cfg", "/tmp/cfg/sonvale/preferences.json"},
        {"relative/cfg", inHome},
        {std::nullopt, inHome}};
    for (const auto& [xdgValue, expected] : cases) {
        ScopedEnvironment xdg("XDG_CONFIG_HOME", xdgValue);
        EXPECT_EQ(Preferences::standardStorePath(), expected) << xdgValue.value_or("(unset)");
    }
}

TEST(Preferences, DefaultRecordingsFolderIsTheConfiguredMusicFolderOrMusicInHome) {
    TempFolder home;
    ScopedEnvironment homeVariable("HOME", home.path().string());
    ScopedEnvironment xdg("XDG_CONFIG_HOME", (home / "cfg").string());
    const std::pair<std::optional<std::string>, std::filesystem::path> cases[] = {
        {std::nullopt, home / "Music/Sonvale"},
        {"# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
         "XDG_MUSIC_DIR=\"$HOME/Tunes\"\n",
         home / "Tunes/Sonvale"},
        {"XDG_MUSIC_DIR=\"$HOME\"\n", home / "Music/Sonvale"}, // home itself means "none"
        {"XDG_MUSIC_DIR=\"/media/music\"\n", "/media/music/Sonvale"},
    };
    for (const auto& [dirs, expected] : cases) {
        SCOPED_TRACE(dirs.value_or("(no user-dirs.dirs)"));
        std::filesystem::remove(home / "cfg/user-dirs.dirs");
        if (dirs) writeText(home / "cfg/user-dirs.dirs", *dirs);
        EXPECT_EQ(Preferences::defaultRecordingsFolder(), expected);
        EXPECT_EQ(Preferences().recordingsFolder(), expected);
    }
}

// ---- base64 ------------------------------------------------------------------------------

TEST_F(PreferencesFile, BookmarkDataSurvivesBase64AndTextThatIsNotBase64IsNotSet) {
    std::vector<uint8_t> data;
    for (size_t n = 0; n < 8; data.push_back(uint8_t(n++ * 97 + 3)))
        EXPECT_EQ(base64Decode(base64Encode(data)), data);
    EXPECT_EQ(base64Encode({'f', 'o', 'o', 'b'}), "Zm9vYg==");
    for (const char* text : {"Zm9vYg=", "Zm9v!g==", "Zm=vYg==", "Zg==Zg=="}) {
        store({{"lastSessionDocument", text}});
        EXPECT_FALSE(Preferences(file).lastDocumentBookmark()) << text;
    }
}

TEST(Preferences, DeferredWritesLandOnceASecondAfterTheLastChangeAndAtTheEnd) {
    TempFolder folder;
    const auto file = folder / "preferences.json";
    ManualExecutor executor;
    {
        Preferences preferences(file);
        preferences.deferWrites(executor);
        for (int i = 0; i < 10; ++i) {
            preferences.setCustomLoudnessTarget(-10.0 - i);
            executor.advance(std::chrono::milliseconds(100));
        }
        EXPECT_FALSE(std::filesystem::exists(file));
        executor.advance(std::chrono::milliseconds(899));
        EXPECT_FALSE(std::filesystem::exists(file));
        executor.advance(std::chrono::milliseconds(1));
        EXPECT_EQ(Preferences(file).customLoudnessTarget(), -19.0);
        EXPECT_EQ(executor.pendingDelayed(), 0u);
        // A change still waiting when the program ends is written then.
        preferences.setShowsAIFeatures(false);
    }
    EXPECT_FALSE(Preferences(file).showsAIFeatures());
}
