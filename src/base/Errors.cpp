#include "base/Errors.h"

#include <cstring>
#include <filesystem>

namespace sonvale {

FileError::FileError(const std::string& what, const std::string& path, std::string problem,
                     std::string details)
    : UserError(describeFileError(what, path, problem), std::move(details))
    , plainWords(std::move(problem))
    , filePath(path) {}

std::string describeFileError(const std::string& what, const std::string& path,
                              const std::string& reason) {
    std::string name = std::filesystem::path(path).filename().string();
    if (name.empty()) name = path;
    return what + " \u201C" + name + "\u201D: " + reason;
}

FileError fileErrorFromErrno(const std::string& what, const std::string& path, int errnum) {
    return FileError(describeFileError(what, path, std::strerror(errnum)));
}

} // namespace sonvale
