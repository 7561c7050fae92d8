#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace sonvale {

// Every error whose what() is written for the person using Sonvale derives from this:
// editor commands catch it and show the text in an alert.
class UserError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    UserError(const std::string& message, std::string details)
        : std::runtime_error(message)
        , technical(std::move(details)) {}

    // The technical line behind the message, in a library's or the system's own words
    // ("Invalid data found when processing input"): shown apart from it, on request. Empty
    // when there is none.
    const std::string& details() const { return technical; }

private:
    std::string technical;
};

// A failure reported by the file system or a codec library, with its own description
// ("Couldn't write “take.wav”: No space left on device").
class FileError : public UserError {
public:
    using UserError::UserError;
    // About one file: what() is `what`, the file's name and `problem` (as describeFileError
    // makes it), and problem() and path() keep the parts for those who name the file
    // their own way.
    FileError(const std::string& what, const std::string& path, std::string problem,
              std::string details);

    // The plain words about the file ("This is not an audio file."); empty for an error
    // made from a whole message.
    const std::string& problem() const { return plainWords; }
    const std::string& path() const { return filePath; }

private:
    std::string plainWords;
    std::string filePath;
};

// Builds a FileError's text: what + the file's name in curly quotes + the reason.
std::string describeFileError(const std::string& what, const std::string& path,
                              const std::string& reason);
// The same with strerror(errnum) as the reason.
FileError fileErrorFromErrno(const std::string& what, const std::string& path, int errnum);

} // namespace sonvale
