#pragma once

#include "transcription/LanguageModel.h"

#include <filesystem>
#include <memory>

struct llama_model;

namespace sonvale {

// A GGUF language model run by llama.cpp on this computer's processor. The weights load
// once; each response gets a fresh context sized to its prompt and answer, and decoding is
// held to the format's grammar.
class LlamaLanguageModel final : public LanguageModel {
public:
    // Whether this processor can run the engine (built for AVX2 and FMA).
    static bool isSupported();
    static constexpr const char* unsupportedMessage =
        "The on-device language model isn't supported on this computer.";

    // Throws a UserError naming the file when it can't be loaded.
    explicit LlamaLanguageModel(const std::filesystem::path& file);
    ~LlamaLanguageModel() override;

    // The context the model was trained with, at most `largestContext`.
    std::optional<int64_t> contextTokens() const override;
    std::string respond(const std::string& instructions, const std::string& prompt,
                        const ResponseFormat& format,
                        const std::atomic<bool>* cancelled = nullptr) const override;

    // Longer contexts would cost more memory than a summary is worth.
    static constexpr int64_t largestContext = 8192;

    const std::filesystem::path& file() const { return path; }

private:
    std::string chatText(const std::string& instructions, const std::string& prompt) const;

    std::filesystem::path path;
    llama_model* model = nullptr;
};

} // namespace sonvale
