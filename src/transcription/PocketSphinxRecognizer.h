#pragma once

#include "transcription/SpeechRecognizer.h"

#include <filesystem>

namespace sonvale {

// The long-dictation engine: CMU pocketsphinx with the US English model the system's package
// installs. It times single words (100 frames a second) and ends an utterance at each pause
// its voice detector hears.
class PocketSphinxRecognizer final : public SpeechRecognizer {
public:
    static std::filesystem::path defaultModelFolder();
    static bool isInstalled(const std::filesystem::path& folder = defaultModelFolder());

    explicit PocketSphinxRecognizer(std::filesystem::path modelFolder = defaultModelFolder());

    std::string engineName() const override { return "pocketsphinx"; }
    Mode mode() const override { return Mode::longDictation; }
    std::vector<std::string> supportedLocales() const override { return {"en-US"}; }
    double inputSampleRate() const override { return 16000; }
    std::unique_ptr<RecognizerRun> start(const std::string& locale,
                                         const std::atomic<bool>* cancelled) const override;

    // An utterance that runs this long without a pause is ended anyway, which keeps the
    // decoder's memory and its final pass bounded.
    static constexpr double longestUtterance = 30.0;

private:
    std::filesystem::path folder;
};

// A recogniser's word as a transcript takes it: fillers ("<s>", "<sil>", "[NOISE]",
// "++UH++") give an empty text, and alternative pronunciations lose their mark ("that(2)" is
// "that").
std::string spokenWord(const std::string& token);

} // namespace sonvale
