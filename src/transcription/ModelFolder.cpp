#include "transcription/ModelFolder.h"

#include "persistence/SessionStore.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace sonvale {

fs::path ModelFolder::standard() { return SessionStore::standardFolder() / "Models"; }

std::optional<ModelFolder::Kind> ModelFolder::kindOf(const fs::path& file) {
    const std::string name = file.filename().string();
    if (name.starts_with(".")) return std::nullopt; // a copy still being written
    if (file.extension() == ".gguf") return Kind::language;
    if (name.starts_with("ggml-") && file.extension() == ".bin") return Kind::speech;
    return std::nullopt;
}

std::vector<fs::path> ModelFolder::files(Kind kind) const {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        if (it->is_regular_file(error) && kindOf(it->path()) == kind) found.push_back(it->path());
    std::sort(found.begin(), found.end());
    return found;
}

std::optional<fs::path> ModelFolder::first(Kind kind) const {
    auto found = files(kind);
    if (found.empty()) return std::nullopt;
    return found.front();
}

} // namespace sonvale
