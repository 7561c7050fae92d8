#pragma once

#include "audio/Transcript.h"
#include "transcription/LanguageModel.h"
#include "transcription/ModelFolder.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

// Asks a language model on this computer for a recording's title and summary, and for the
// topics it falls into, from its transcript. Nothing leaves the machine.
class TranscriptAI {
public:
    struct Overview {
        std::string title;
        std::string summary;
        friend bool operator==(const Overview&, const Overview&) = default;
    };

    explicit TranscriptAI(std::shared_ptr<const LanguageModel> model);

    // Why the commands can't run, in words for the person, or none when they can: the
    // setting is off, this processor can't run the engine, or no model is installed.
    static std::optional<std::string> unavailableReason(bool showsAIFeatures,
                                                        const ModelFolder& folder);
    // Loads the folder's language model (slow: seconds for a large file); throws a UserError.
    static std::shared_ptr<const LanguageModel> installedModel(const ModelFolder& folder);

    // Titled and summarised from the first chunk of lines that fits the model's budget.
    // Throws a UserError when the model fails or answers out of form.
    Overview overview(const Transcript& transcript,
                      const std::atomic<bool>* cancelled = nullptr) const;
    // Every chunk's topics, in chunk order.
    std::vector<TopicStart> topics(const Transcript& transcript,
                                   const std::atomic<bool>* cancelled = nullptr) const;

    static const std::string instructions;
    static const ResponseFormat overviewFormat;
    static const ResponseFormat topicsFormat;
    static std::string overviewPrompt(const std::vector<std::string>& lines);
    static std::string topicsPrompt(size_t firstLine, const std::vector<std::string>& lines);

    // The records out of a model's answer; throw a UserError when it isn't one.
    static Overview parseOverview(const std::string& answer);
    static std::vector<TopicStart> parseTopics(const std::string& answer);

private:
    std::shared_ptr<const LanguageModel> model;
};

} // namespace sonvale
