#include "base/AtomicFile.h"

#include "base/Errors.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace sonvale {

namespace {
struct FdCloser {
    int fd;
    ~FdCloser() {
        if (fd >= 0) ::close(fd);
    }
};
} // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents) {
    const std::string target = path.string();
    std::filesystem::path folder = path.parent_path();
    if (folder.empty()) folder = ".";
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) throw fileErrorFromErrno("Couldn't create the folder for", target, ec.value());

    std::string hidden = path.filename().string();
    hidden.insert(hidden.begin(), '.');
    hidden.append(".XXXXXX");
    std::string temp = (folder / hidden).string();
    int fd = ::mkstemp(temp.data());
    if (fd < 0) throw fileErrorFromErrno("Couldn't write", target, errno);
    FdCloser closer{fd};
    auto fail = [&](int errnum) {
        ::unlink(temp.c_str());
        return fileErrorFromErrno("Couldn't write", target, errnum);
    };

    const char* data = contents.data();
    size_t left = contents.size();
    while (left > 0) {
        ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            throw fail(errno);
        }
        data += written;
        left -= size_t(written);
    }
    // mkstemp makes the file 0600; a settings or session file is an ordinary document.
    ::fchmod(fd, 0644);
    if (::fsync(fd) != 0) throw fail(errno);
    closer.fd = -1;
    if (::close(fd) != 0) throw fail(errno);
    if (::rename(temp.c_str(), target.c_str()) != 0) throw fail(errno);

    // Make the rename itself durable.
    int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
}

} // namespace sonvale
