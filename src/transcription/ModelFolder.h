#pragma once

#include <filesystem>
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
};

} // namespace sonvale
