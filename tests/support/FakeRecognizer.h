#pragma once

#include "base/Errors.h"
#include "transcription/SpeechRecognizer.h"

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace sonvale::test {

// A recogniser that hears what it is told to: each result is reported once the feed has
// reached its end, and the samples it was fed are kept for inspection.
struct FakeRecognizer final : SpeechRecognizer {
    Mode engineMode = Mode::longDictation;
    std::vector<std::string> locales = {"en-US"};
    std::vector<RecognizerResult> script;
    mutable std::vector<float> heard;
    mutable std::vector<double> stamps;
    std::string failure; // start() throws it when set

    std::string engineName() const override { return "fake"; }
    Mode mode() const override { return engineMode; }
    std::vector<std::string> supportedLocales() const override { return locales; }
    double inputSampleRate() const override { return 16000; }
    std::unique_ptr<RecognizerRun> start(const std::string&,
                                         const std::atomic<bool>*) const override {
        if (!failure.empty()) throw UserError(failure);
        struct Run final : RecognizerRun {
            const FakeRecognizer& engine;
            size_t next = 0;
            explicit Run(const FakeRecognizer& e)
                : engine(e) {}
            void deliver(std::vector<RecognizerResult>& results, double upTo) {
                while (next < engine.script.size() && engine.script[next].end <= upTo)
                    results.push_back(engine.script[next++]);
            }
            void feed(std::span<const float> samples, double start,
                      std::vector<RecognizerResult>& results) override {
                engine.stamps.push_back(start);
                engine.heard.insert(engine.heard.end(), samples.begin(), samples.end());
                deliver(results, double(engine.heard.size()) / 16000);
            }
            void finish(std::vector<RecognizerResult>& results) override {
                deliver(results, INFINITY);
            }
        };
        return std::make_unique<Run>(*this);
    }
};

// A result made of timed words, its text their texts run together.
inline RecognizerResult words(std::vector<TranscriptSegment> pieces) {
    RecognizerResult r;
    for (const auto& p : pieces)
        r.text += p.text;
    r.start = pieces.front().start;
    r.end = pieces.back().end;
    r.words = std::move(pieces);
    return r;
}

} // namespace sonvale::test
