#include "transcription/Transcriber.h"

#include "transcription/ModelFolder.h"
#include "transcription/PocketSphinxRecognizer.h"
#include "transcription/WhisperRecognizer.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>

namespace sonvale {

namespace {

std::string describe(Transcriber::Failure::Kind kind, const std::string& language) {
    using Kind = Transcriber::Failure::Kind;
    switch (kind) {
    case Kind::unsupportedLanguage:
        return "Transcription doesn't support " + languageDisplayName(language) + ".";
    case Kind::unavailable: return "Speech transcription isn't available on this computer.";
    case Kind::audioFormat: return "The audio couldn't be converted for transcription.";
    }
    return {};
}

// "en_US.UTF-8" → "en-us": the form identifiers are compared in.
std::string normalised(std::string identifier) {
    if (auto dot = identifier.find_first_of(".@"); dot != std::string::npos) identifier.resize(dot);
    for (char& c : identifier)
        c = c == '_' ? '-' : char(std::tolower((unsigned char)c));
    return identifier;
}

std::string languagePart(const std::string& identifier) {
    return normalised(identifier.substr(0, identifier.find_first_of("-_")));
}

} // namespace

Transcriber::Failure::Failure(Kind kind, const std::string& language)
    : UserError(describe(kind, language))
    , failureKind(kind) {}

Transcriber::Transcriber(std::shared_ptr<const SpeechRecognizer> phraseLevel,
                         std::shared_ptr<const SpeechRecognizer> longDictation)
    : phraseEngine(std::move(phraseLevel))
    , dictationEngine(std::move(longDictation)) {}

std::shared_ptr<Transcriber> Transcriber::installed(const ModelFolder& folder) {
    std::shared_ptr<const SpeechRecognizer> phrases, dictation;
    if (const auto model = folder.first(ModelFolder::Kind::speech)) {
        try {
            phrases = std::make_shared<WhisperRecognizer>(*model);
        } catch (const std::exception&) {
            // A file that isn't a whisper model leaves pocketsphinx to do the work.
        }
    }
    if (PocketSphinxRecognizer::isInstalled())
        dictation = std::make_shared<PocketSphinxRecognizer>();
    return std::make_shared<Transcriber>(std::move(phrases), std::move(dictation));
}

// A language both engines have is offered once, as the phrase-level engine names it: whisper's
// "en" stands for pocketsphinx's "en-US" too.
std::vector<std::string> Transcriber::identifiers() const {
    std::vector<std::string> result;
    for (const auto* engine : {phraseEngine.get(), dictationEngine.get()}) {
        if (!engine) continue;
        for (const std::string& id : engine->supportedLocales()) {
            const bool offered = std::any_of(result.begin(), result.end(), [&](const auto& known) {
                return languagePart(known) == languagePart(id);
            });
            if (!offered) result.push_back(id);
        }
    }
    return result;
}

TranscriptionLanguages Transcriber::languages() const {
    TranscriptionLanguages result;
    result.identifiers = identifiers();
    const char* system = std::getenv("LC_ALL");
    if (!system || !*system) system = std::getenv("LANG");
    if (system && *system) result.automatic = locale(system);
    if (!result.automatic && !result.identifiers.empty())
        result.automatic = result.identifiers.front();
    return result;
}

std::optional<std::string> Transcriber::locale(const std::string& identifier) const {
    const std::string wanted = normalised(identifier);
    if (wanted.empty()) return std::nullopt;
    const std::vector<std::string> offered = identifiers();
    for (const std::string& id : offered)
        if (normalised(id) == wanted) return id;
    // "en" or "en-GB" takes an English engine when no exact match exists.
    for (const std::string& id : offered)
        if (languagePart(id) == languagePart(wanted)) return id;
    return std::nullopt;
}

std::string Transcriber::resolve(const std::optional<std::string>& chosen) const {
    if (!isAvailable()) throw Failure(Failure::Kind::unavailable);
    if (!chosen) {
        if (auto automatic = languages().automatic) return *automatic;
        throw Failure(Failure::Kind::unavailable);
    }
    if (auto supported = locale(*chosen)) return *supported;
    throw Failure(Failure::Kind::unsupportedLanguage, *chosen);
}

std::string Transcriber::engineSummary() const {
    std::string names;
    int count = 0;
    for (const auto* engine : {phraseEngine.get(), dictationEngine.get()}) {
        if (!engine) continue;
        const auto locales = engine->supportedLocales();
        std::string languages;
        for (const std::string& id : locales)
            languages += (languages.empty() ? "" : ", ") + languageDisplayName(id);
        if (locales.size() > 3) languages = std::to_string(locales.size()) + " languages";
        names += (names.empty() ? "" : "; ") + engine->engineName() + " (" + languages + ")";
        ++count;
    }
    if (count == 0) return "No speech engine is installed.";
    return (count == 1 ? "Speech engine: " : "Speech engines: ") + names;
}

// The phrase-level engine takes every language it has, so "en-US" from an earlier choice goes
// to whisper's "en" once a whisper model is installed.
const SpeechRecognizer* Transcriber::recognizerFor(const std::string& locale) const {
    for (const auto* engine : {phraseEngine.get(), dictationEngine.get()}) {
        if (!engine) continue;
        for (const std::string& id : engine->supportedLocales())
            if (id == locale || languagePart(id) == languagePart(locale)) return engine;
    }
    return nullptr;
}

std::vector<TranscriptSegment> Transcriber::transcribe(const AudioDataPtr& audio,
                                                       const std::string& locale,
                                                       const std::function<void(Stage)>& stage,
                                                       const std::atomic<bool>* cancelled) const {
    return transcribe(ConvertedInput::monoOf(audio), locale, stage, cancelled);
}

std::vector<TranscriptSegment> Transcriber::transcribe(ConvertedInput::Source audio,
                                                       const std::string& locale,
                                                       const std::function<void(Stage)>& stage,
                                                       const std::atomic<bool>* cancelled) const {
    if (!isAvailable()) throw Failure(Failure::Kind::unavailable);
    const SpeechRecognizer* engine = recognizerFor(locale);
    if (!engine) throw Failure(Failure::Kind::unsupportedLanguage, locale);
    const double duration = audio.sampleRate > 0 ? double(audio.frameCount) / audio.sampleRate : 0;
    const bool splitsAtPauses = engine->mode() == SpeechRecognizer::Mode::longDictation;

    ConvertedInput input(std::move(audio), engine->inputSampleRate());
    std::unique_ptr<RecognizerRun> run = engine->start(locale, cancelled);

    std::vector<TranscriptSegment> segments;
    std::vector<RecognizerResult> results;
    auto collect = [&] {
        for (RecognizerResult& result : results) {
            if (duration > 0) stage(AudioTrack::Transcribing{std::min(result.end / duration, 1.0)});
            if (splitsAtPauses && !result.words.empty()) {
                auto lines =
                    Transcript::phrases(result.words, dictationPause, dictationMaxDuration);
                segments.insert(segments.end(), std::make_move_iterator(lines.begin()),
                                std::make_move_iterator(lines.end()));
            } else {
                segments.push_back({std::move(result.text), result.start, result.end});
            }
        }
        results.clear();
    };
    auto checkCancelled = [cancelled] {
        if (cancelled && cancelled->load(std::memory_order_relaxed)) throw TranscriptionCancelled();
    };

    ConvertedInput::Buffer buffer;
    while (input.next(buffer)) {
        checkCancelled();
        run->feed(buffer.samples, buffer.start, results);
        collect();
    }
    checkCancelled();
    run->finish(results);
    collect();
    return segments;
}

std::string languageDisplayName(const std::string& identifier) {
    static const std::map<std::string, std::string> languages = {
        {"ar", "Arabic"},    {"ca", "Catalan"},   {"cs", "Czech"},    {"da", "Danish"},
        {"de", "German"},    {"el", "Greek"},     {"en", "English"},  {"es", "Spanish"},
        {"fi", "Finnish"},   {"fr", "French"},    {"he", "Hebrew"},   {"hi", "Hindi"},
        {"hu", "Hungarian"}, {"it", "Italian"},   {"ja", "Japanese"}, {"ko", "Korean"},
        {"nl", "Dutch"},     {"no", "Norwegian"}, {"pl", "Polish"},   {"pt", "Portuguese"},
        {"ro", "Romanian"},  {"ru", "Russian"},   {"sv", "Swedish"},  {"tr", "Turkish"},
        {"uk", "Ukrainian"}, {"zh", "Chinese"},
    };
    static const std::map<std::string, std::string> regions = {
        {"au", "Australia"}, {"br", "Brazil"}, {"ca", "Canada"},        {"cn", "China"},
        {"de", "Germany"},   {"es", "Spain"},  {"fr", "France"},        {"gb", "United Kingdom"},
        {"in", "India"},     {"it", "Italy"},  {"jp", "Japan"},         {"mx", "Mexico"},
        {"pt", "Portugal"},  {"tw", "Taiwan"}, {"us", "United States"},
    };
    const std::string id = normalised(identifier);
    const auto dash = id.find('-');
    const auto language = languages.find(id.substr(0, dash));
    if (language == languages.end()) {
        const std::string named = whisperLanguageName(id.substr(0, dash));
        return named.empty() || dash != std::string::npos ? identifier : named;
    }
    if (dash == std::string::npos) return language->second;
    std::string region = id.substr(dash + 1);
    if (const auto known = regions.find(region); known != regions.end())
        region = known->second;
    else
        for (char& c : region)
            c = char(std::toupper((unsigned char)c));
    return language->second + " (" + region + ")";
}

} // namespace sonvale
