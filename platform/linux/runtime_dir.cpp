// The runtime directory's pid file lock and the checks of the socket paths.
#include "platform/linux/runtime_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/linux/cmd_proto.h"

namespace linuxplat {

namespace {

std::mutex gMutex;
int gFd = -1;          // the locked pid file, open for as long as the lock is held
ino_t gIno = 0;        // its inode, so that only this file is removed
std::string& gPath = *new std::string;

// The pid written in an open pid file, 0 when there is none.
pid_t pidIn(int fd) {
    char buf[32] = {};
    ssize_t n = ::pread(fd, buf, sizeof(buf) - 1, 0);
    if (n <= 0) return 0;
    long v = 0;
    auto [end, ec] = std::from_chars(buf, buf + n, v);
    if (ec != std::errc() || v <= 0 || v > 0x3FFFFFFF) return 0;
    (void)end;
    return static_cast<pid_t>(v);
}

const char* kindOf(mode_t mode) {
    if (S_ISREG(mode)) return "a regular file";
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISLNK(mode)) return "a symbolic link";
    if (S_ISFIFO(mode)) return "a named pipe";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    return "not a socket";
}

}  // namespace

std::string runtimeDir() {
    // The sockets' directory is the one the runtime paths lead to.
    std::string sock = cmdp::runtimePath(cmdp::CMD_SOCKET);
    size_t slash = sock.rfind('/');
    return slash == 0 || slash == std::string::npos ? std::string("/") : sock.substr(0, slash);
}

std::string pidFilePath() {
    std::string dir = runtimeDir();
    return (dir == "/" ? std::string() : dir) + "/pppoeplusd.pid";
}

int runtimeLock(std::string& why, pid_t& holder) {
    std::lock_guard<std::mutex> lock(gMutex);
    holder = 0;
    if (gFd >= 0) return 0;
    std::string path = pidFilePath();
    std::string dir = runtimeDir();
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0) {
        // A directory of our own making (the parents the socket code would make too).
        std::string part;
        for (size_t at = 1; at != std::string::npos;) {
            size_t next = dir.find('/', at);
            part = dir.substr(0, next);
            if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
                why = "cannot create the runtime directory " + part + ": " + std::strerror(errno);
                return -1;
            }
            at = next == std::string::npos ? next : next + 1;
        }
    }
    // A lock on a file that another daemon removed meanwhile would be worth
    // nothing: the lock counts once it is held on the file the path names.
    for (int attempt = 0; attempt < 5; attempt++) {
        // Never through a symbolic link; a pid file someone else owns is refused.
        int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd < 0) {
            why = "cannot open the pid file " + path + ": " + std::strerror(errno);
            return -1;
        }
        struct stat fst;
        if (::fstat(fd, &fst) != 0 || !S_ISREG(fst.st_mode) || fst.st_uid != ::geteuid()) {
            ::close(fd);
            why = "the pid file " + path + " is not a regular file of this user; not used";
            return -1;
        }
        struct flock fl;
        std::memset(&fl, 0, sizeof(fl));
        fl.l_type = F_WRLCK;
        fl.l_whence = SEEK_SET;
        if (::fcntl(fd, F_SETLK, &fl) != 0) {
            int err = errno;
            struct flock q;
            std::memset(&q, 0, sizeof(q));
            q.l_type = F_WRLCK;
            q.l_whence = SEEK_SET;
            if (::fcntl(fd, F_GETLK, &q) == 0 && q.l_type != F_UNLCK && q.l_pid > 0) holder = q.l_pid;
            if (holder == 0) holder = pidIn(fd);
            ::close(fd);
            if (err == EAGAIN || err == EACCES) {
                why = "another pppoeplusd" + (holder > 0 ? " (pid " + std::to_string(holder) + ")" : std::string()) +
                      " holds the pid file " + path + " and owns " + dir;
            } else {
                why = "cannot lock the pid file " + path + ": " + std::strerror(err);
            }
            return -1;
        }
        struct stat now;
        if (::stat(path.c_str(), &now) != 0 || now.st_ino != fst.st_ino || now.st_dev != fst.st_dev) {
            ::close(fd);
            continue;
        }
        std::string text = std::to_string(::getpid()) + "\n";
        if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
            why = "cannot write the pid file " + path + ": " + std::strerror(errno);
            ::close(fd);
            return -1;
        }
        gFd = fd;
        gIno = fst.st_ino;
        gPath = path;
        return 0;
    }
    why = "the pid file " + path + " keeps changing; not started";
    return -1;
}

bool runtimeOwner() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gFd >= 0;
}

void runtimeUnlock() {
    std::lock_guard<std::mutex> lock(gMutex);
    if (gFd < 0) return;
    // Removed while the lock is still held, so that no other daemon holds a
    // lock on a file that is no longer there.
    struct stat st;
    if (::lstat(gPath.c_str(), &st) == 0 && st.st_ino == gIno) ::unlink(gPath.c_str());
    ::close(gFd);
    gFd = -1;
}

std::string runtimePathProblem(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return errno == ENOENT ? std::string() : path + ": " + std::strerror(errno);
    if (S_ISSOCK(st.st_mode)) return std::string();
    return path + " is " + kindOf(st.st_mode) + ", not a socket of pppoeplusd";
}

}  // namespace linuxplat
