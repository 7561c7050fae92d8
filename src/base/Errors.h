#pragma once

#include <stdexcept>
#include <string>

namespace sonvale {

// Every error whose what() is written for the person using Sonvale derives from this:
// editor commands catch it and show the text in an alert.
class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure reported by the file system or a codec library, with its own description
// ("Couldn't write “take.wav”: No space left on device").
class FileError : public UserError {
public:
    using UserError::UserError;
};

// Builds a FileError's text: what + the file's name in curly quotes + the reason.
std::string describeFileError(const std::string& what, const std::string& path,
                              const std::string& reason);
// The same with strerror(errnum) as the reason.
FileError fileErrorFromErrno(const std::string& what, const std::string& path, int errnum);

} // namespace sonvale
