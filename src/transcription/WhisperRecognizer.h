#pragma once

#include "transcription/SpeechRecognizer.h"

#include <filesystem>
#include <memory>
#include <mutex>

struct whisper_context;

namespace sonvale {

// The phrase-level engine: whisper.cpp with a model file the person added (ggml-NAME.bin).
// Its segments become lines. The weights load on the first run and stay loaded; each run has
// its own decoder state, so runs on several tracks don't meet.
class WhisperRecognizer final : public SpeechRecognizer {
public:
    // Audio goes to the engine in blocks this long; a phrase cut by a block's end is heard
    // again at the start of the next. The engine listens in 30-second windows.
    static constexpr double standardBlock = 120;

    // Reads the file's header; throws a UserError naming the file when it isn't a whisper
    // model. `threads` 0 takes up to four of this computer's cores.
    explicit WhisperRecognizer(std::filesystem::path file, int threads = 0,
                               double blockSeconds = standardBlock);
    ~WhisperRecognizer() override;

    // Loads the whole model and lets it go again: the check a file passes before it is kept.
    static void checkLoads(const std::filesystem::path& file);

    std::string engineName() const override { return "whisper"; }
    Mode mode() const override { return Mode::phraseLevel; }
    // Every language whisper knows for a multilingual model, "en" for an English-only one.
    std::vector<std::string> supportedLocales() const override;
    double inputSampleRate() const override { return 16000; }
    std::unique_ptr<RecognizerRun> start(const std::string& locale,
                                         const std::atomic<bool>* cancelled) const override;

    const std::filesystem::path& file() const { return path; }
    bool isMultilingual() const { return multilingual; }

private:
    whisper_context* context() const;

    std::filesystem::path path;
    int threadCount;
    double block;
    bool multilingual = false;
    mutable std::mutex loading;
    mutable whisper_context* loaded = nullptr;
};

// "German" for "de" from whisper's own table of languages, or "" when it has none.
std::string whisperLanguageName(const std::string& code);

} // namespace sonvale
