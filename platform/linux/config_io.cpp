// Reading and writing configuration files: the daemon reads its file, and
// pppoeplusctl checks one and saves the running configuration into one.
#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "platform/linux/config.h"

namespace linuxplat {

bool configReadFile(const std::string& path, std::string& text, std::string& error, int* errnoOut) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        if (errnoOut != nullptr) *errnoOut = err;
        error = path + ": " + std::strerror(err);
        return false;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > static_cast<off_t>(CONFIG_MAX_FILE)) {
        error = path + ": not a regular file of at most " + std::to_string(CONFIG_MAX_FILE) + " bytes";
        ::close(fd);
        return false;
    }
    text.assign(static_cast<size_t>(st.st_size), '\0');
    size_t got = 0;
    while (got < text.size()) {
        ssize_t n = ::read(fd, text.data() + got, text.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = path + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    text.resize(got);
    return true;
}

namespace {

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool configWriteFile(const std::string& path, const std::string& text, std::string& error) {
    if (text.size() > CONFIG_MAX_FILE) {
        error = path + ": the text is larger than " + std::to_string(CONFIG_MAX_FILE) + " bytes";
        return false;
    }
    std::vector<char> dirBuf(path.begin(), path.end());
    dirBuf.push_back('\0');
    const std::string dir = ::dirname(dirBuf.data());

    // The old file's mode and owner are kept; a new file is 0644.
    struct stat old;
    const bool hadOld = ::lstat(path.c_str(), &old) == 0;
    if (hadOld && !S_ISREG(old.st_mode)) {
        error = path + ": not a regular file; nothing written";
        return false;
    }
    std::string tmp = path + ".tmp.XXXXXX";
    std::vector<char> tmpBuf(tmp.begin(), tmp.end());
    tmpBuf.push_back('\0');
    int fd = ::mkostemp(tmpBuf.data(), O_CLOEXEC);
    if (fd < 0) {
        error = path + ": cannot create a temporary file beside it: " + std::strerror(errno);
        return false;
    }
    tmp = tmpBuf.data();
    auto failed = [&](const std::string& what) {
        error = path + ": " + what + ": " + std::strerror(errno) + "; the file is unchanged";
        ::close(fd);
        ::unlink(tmp.c_str());
        return false;
    };
    if (::fchmod(fd, hadOld ? (old.st_mode & 07777) : 0644) != 0) return failed("setting the mode");
    if (hadOld && ::geteuid() == 0 && ::fchown(fd, old.st_uid, old.st_gid) != 0) return failed("setting the owner");
    if (!writeAll(fd, text)) return failed("writing");
    if (::fsync(fd) != 0) return failed("syncing");
    if (::close(fd) != 0) {
        fd = -1;
        error = path + ": closing the temporary file: " + std::strerror(errno) + "; the file is unchanged";
        ::unlink(tmp.c_str());
        return false;
    }
    // The previous file stays as FILE.bak (a second name of the same file),
    // then the new one takes its name in one step.
    if (hadOld) {
        const std::string bak = path + ".bak";
        if (::unlink(bak.c_str()) != 0 && errno != ENOENT) {
            error = bak + ": " + std::strerror(errno) + "; the file is unchanged";
            ::unlink(tmp.c_str());
            return false;
        }
        if (::link(path.c_str(), bak.c_str()) != 0) {
            error = bak + ": " + std::strerror(errno) + "; the file is unchanged";
            ::unlink(tmp.c_str());
            return false;
        }
    }
    if (::rename(tmp.c_str(), path.c_str()) != 0) {
        error = path + ": renaming the new file into place: " + std::strerror(errno) + "; the file is unchanged";
        ::unlink(tmp.c_str());
        return false;
    }
    int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        (void)::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

}  // namespace linuxplat
