#pragma once

#include "audio/AudioData.h"
#include "audio/AudioTrack.h"
#include "base/Errors.h"
#include "transcription/ConvertedInput.h"
#include "transcription/ModelFolder.h"
#include "transcription/SpeechRecognizer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace sonvale {

// The languages a person can choose for transcription: those of the installed engines, and
// the one "Automatic" stands for (the system's language when an engine has it).
struct TranscriptionLanguages {
    std::vector<std::string> identifiers;
    std::optional<std::string> automatic;
};

// Thrown out of Transcriber::transcribe when the job was cancelled: not a failure to report.
struct TranscriptionCancelled : std::exception {
    const char* what() const noexcept override { return "Transcription was cancelled."; }
};

// Turns a track's audio into timed lines of speech with the engines installed on this
// computer: the phrase-level engine when it has the language, else the long-dictation one.
class Transcriber {
public:
    using Stage = std::variant<AudioTrack::Transcribing, AudioTrack::DownloadingModel>;

    class Failure : public UserError {
    public:
        enum class Kind { unsupportedLanguage, unavailable, audioFormat };
        // `language` is the requested identifier, for unsupportedLanguage.
        explicit Failure(Kind kind, const std::string& language = {});
        Kind kind() const { return failureKind; }

    private:
        Kind failureKind;
    };

    Transcriber(std::shared_ptr<const SpeechRecognizer> phraseLevel,
                std::shared_ptr<const SpeechRecognizer> longDictation);

    // The engines this computer has: whisper when the models folder holds a speech model, and
    // pocketsphinx with its English model.
    static std::shared_ptr<Transcriber> installed(const ModelFolder& folder = {});

    bool isAvailable() const { return phraseEngine || dictationEngine; }
    TranscriptionLanguages languages() const;
    // The supported identifier equivalent to `identifier` ("en_US", "en-us" and "en" all find
    // "en-US"), or none.
    std::optional<std::string> locale(const std::string& identifier) const;
    // The locale a job runs with for the chosen setting (none = automatic); throws Failure
    // (unsupportedLanguage or unavailable) when there is none.
    std::string resolve(const std::optional<std::string>& chosen) const;
    // "Speech engine: pocketsphinx (English (United States))", for the settings.
    std::string engineSummary() const;
    // The engine that would transcribe `locale`.
    const SpeechRecognizer* recognizerFor(const std::string& locale) const;

    // Runs the job on the calling thread. `stage` hears each new stage; `cancelled` is read
    // between buffers, and setting it ends the job with TranscriptionCancelled.
    std::vector<TranscriptSegment> transcribe(const AudioDataPtr& audio, const std::string& locale,
                                              const std::function<void(Stage)>& stage,
                                              const std::atomic<bool>* cancelled = nullptr) const;
    // The same over mono audio read as it goes (a file decoded a chunk at a time).
    std::vector<TranscriptSegment> transcribe(ConvertedInput::Source audio,
                                              const std::string& locale,
                                              const std::function<void(Stage)>& stage,
                                              const std::atomic<bool>* cancelled = nullptr) const;

    // Pauses and line length with which a long-dictation engine's words become lines.
    static constexpr double dictationPause = 0.6;
    static constexpr double dictationMaxDuration = 15.0;

private:
    std::vector<std::string> identifiers() const;

    std::shared_ptr<const SpeechRecognizer> phraseEngine;
    std::shared_ptr<const SpeechRecognizer> dictationEngine;
};

// "English (United States)" for "en-US"; the identifier itself for a language it doesn't
// know.
std::string languageDisplayName(const std::string& identifier);

} // namespace sonvale
