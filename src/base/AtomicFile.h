#pragma once

#include <filesystem>
#include <string_view>

namespace sonvale {

// Replaces `path` with `contents` so that a reader sees either the old file or the whole
// new one, never a mixture, even across a crash: the bytes go to a temporary file in the
// same folder, are flushed to disk, and the temporary file is renamed over the target.
// Creates missing parent folders. Throws FileError (the target is untouched) on failure.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents);

} // namespace sonvale
