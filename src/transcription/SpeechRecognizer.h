#pragma once

#include "audio/Transcript.h"

#include <atomic>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace sonvale {

// One result of a recogniser: its text over a stretch of time and, where the engine times
// single words, those words (each carrying its own leading space).
struct RecognizerResult {
    std::string text;
    double start = 0;
    double end = 0;
    std::vector<TranscriptSegment> words;
};

// One pass of a recogniser over a stream of mono audio at its input rate. feed() takes the
// next buffer, stamped with its start in seconds, and finish() ends the stream; both append
// the results that became final to `results`, in time order.
class RecognizerRun {
public:
    virtual ~RecognizerRun() = default;
    virtual void feed(std::span<const float> samples, double start,
                      std::vector<RecognizerResult>& results) = 0;
    virtual void finish(std::vector<RecognizerResult>& results) = 0;
};

// A speech recognition engine. A phrase-level engine returns whole phrases; a long-dictation
// engine returns timed words that the transcriber merges into lines at pauses.
class SpeechRecognizer {
public:
    enum class Mode { phraseLevel, longDictation };

    virtual ~SpeechRecognizer() = default;
    virtual std::string engineName() const = 0;
    virtual Mode mode() const = 0;
    // Language identifiers such as "en-US", in the engine's order of preference.
    virtual std::vector<std::string> supportedLocales() const = 0;
    // Mono samples per second that feed() expects.
    virtual double inputSampleRate() const = 0;
    // Throws a UserError when the engine or its model can't be started. An engine that works
    // on long stretches at once reads `cancelled` as it goes and throws TranscriptionCancelled.
    virtual std::unique_ptr<RecognizerRun> start(const std::string& locale,
                                                 const std::atomic<bool>* cancelled) const = 0;
};

} // namespace sonvale
