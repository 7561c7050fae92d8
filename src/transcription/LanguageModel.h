#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace sonvale {

// The form an answer must take: a GBNF grammar that constrains decoding to it, and the same
// form described to the model in words (each field with its guide).
struct ResponseFormat {
    std::string grammar;
    std::string description;
    // Enough tokens for the longest answer the grammar allows.
    int maxTokens = 1024;
};

// A language model running on this computer. Each respond() is a fresh session: the
// instructions, then one prompt, answered with text the format's grammar allows.
class LanguageModel {
public:
    virtual ~LanguageModel() = default;
    // The context size in tokens, when the model states one.
    virtual std::optional<int64_t> contextTokens() const = 0;
    // Throws a UserError when the model fails; `cancelled` is read between tokens, and
    // setting it makes respond() throw ResponseCancelled.
    virtual std::string respond(const std::string& instructions, const std::string& prompt,
                                const ResponseFormat& format,
                                const std::atomic<bool>* cancelled = nullptr) const = 0;
};

struct ResponseCancelled : std::exception {
    const char* what() const noexcept override { return "The request was cancelled."; }
};

} // namespace sonvale
