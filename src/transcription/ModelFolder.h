#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonvale {

// The folder of model files a person adds for the on-device features:
// $XDG_DATA_HOME/Sonvale/Models. A GGUF file (".gguf") is a language model; a whisper file
// ("ggml-NAME.bin") is a speech model. Where there are several of a kind, the first by name
// is used.
struct ModelFolder {
    enum class Kind { language, speech };

    static std::filesystem::path standard();

    std::filesystem::path path = standard();

    // The kind a file's name says, or none for a file that is neither.
    static std::optional<Kind> kindOf(const std::filesystem::path& file);
    std::vector<std::filesystem::path> files(Kind kind) const;
    std::optional<std::filesystem::path> first(Kind kind) const;

    // Copies a model file in (beside its place first, renamed into it once whole and checked
    // to load), replacing one of the same name; `progress` hears 0…1. Throws a UserError
    // naming the file when it is no model or can't be copied, and ModelCopyCancelled when
    // `cancelled` was set; the folder is as it was then.
    std::filesystem::path add(const std::filesystem::path& source,
                              const std::function<void(double)>& progress,
                              const std::atomic<bool>* cancelled = nullptr) const;
    // Throws a UserError when it can't.
    void remove(const std::filesystem::path& file) const;
};

struct ModelCopyCancelled : std::exception {
    const char* what() const noexcept override { return "The copy was cancelled."; }
};

} // namespace sonvale
