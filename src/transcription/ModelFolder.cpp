#include "transcription/ModelFolder.h"

#include "base/Errors.h"
#include "persistence/SessionStore.h"
#include "transcription/LlamaLanguageModel.h"
#include "transcription/WhisperRecognizer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

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

namespace {

struct Descriptor {
    int fd = -1;
    ~Descriptor() {
        if (fd >= 0) ::close(fd);
    }
};

} // namespace

fs::path ModelFolder::add(const fs::path& source, const std::function<void(double)>& progress,
                          const std::atomic<bool>* cancelled) const {
    const std::string name = source.filename().string();
    const auto kind = kindOf(source);
    if (!kind)
        throw UserError("“" + name +
                        "” isn't a model file Sonvale can use: language models end "
                        "in .gguf, and speech models are named ggml-NAME.bin.");
    std::error_code error;
    fs::create_directories(path, error);
    const fs::path target = path / name;
    const fs::path partial = path / ("." + name + ".partial");
    auto failed = [&](const std::string& what) {
        const std::string reason = std::strerror(errno);
        fs::remove(partial, error);
        return UserError("“" + name + "” couldn't be " + what + ": " + reason + ".");
    };

    Descriptor in, out;
    in.fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0) throw failed("read");
    out.fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out.fd < 0) throw failed("copied into " + path.string());
    const auto size = double(std::max<uintmax_t>(fs::file_size(source, error), 1));
    std::vector<char> block(4 << 20);
    double copied = 0;
    for (;;) {
        if (cancelled && cancelled->load()) {
            fs::remove(partial, error);
            throw ModelCopyCancelled();
        }
        const ssize_t n = ::read(in.fd, block.data(), block.size());
        if (n < 0) throw failed("read");
        if (n == 0) break;
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(out.fd, block.data() + done, size_t(n - done));
            if (w < 0) throw failed("copied into " + path.string());
            done += w;
        }
        copied += double(n);
        progress(std::min(copied / size, 1.0));
    }
    if (::fsync(out.fd) != 0) throw failed("copied into " + path.string());

    // Only a file that loads is kept.
    bool loads = true;
    try {
        if (*kind == Kind::language)
            LlamaLanguageModel check(partial);
        else
            WhisperRecognizer::checkLoads(partial);
    } catch (const std::exception&) {
        loads = false;
    }
    if (!loads) {
        fs::remove(partial, error);
        throw UserError("“" + name + "” couldn't be loaded as a " +
                        (*kind == Kind::language ? "language" : "speech") +
                        " model. It may be damaged or of a kind this version can't run.");
    }
    if (::rename(partial.c_str(), target.c_str()) != 0)
        throw failed("copied into " + path.string());
    return target;
}

void ModelFolder::remove(const fs::path& file) const {
    std::error_code error;
    if (!fs::remove(file, error) && error)
        throw UserError("“" + file.filename().string() +
                        "” couldn't be removed: " + error.message() + ".");
}

} // namespace sonvale
