#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "ZQGatewayHome.h"

namespace {

std::string resolveHome() {
    if (const char* home = std::getenv("ZQ_GATEWAY_HOME"); home != nullptr && home[0] != '\0') {
        return home;
    }
    // root's services run as the service user, which cannot reach into root's own home.
    if (const char* user = std::getenv("HOME"); user != nullptr && user[0] != '\0' && ::geteuid() != 0) {
        return std::string(user) + "/.zqgateway";
    }
    return "/var/lib/zqgateway";
}

bool makeDirs(const std::string& path, mode_t mode) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) {
            return false;
        }
        if (slash == std::string::npos) {
            return true;
        }
    }
}

bool inside(const std::string& home, const std::string& path) {
    return !home.empty() && path.size() > home.size() + 1 && path.compare(0, home.size(), home) == 0 &&
           path[home.size()] == '/';
}

void giveToOwnerOf(const std::string& home, int fd) {
    struct stat owner {};
    struct stat file {};
    if (::geteuid() == 0 && ::stat(home.c_str(), &owner) == 0 && ::fstat(fd, &file) == 0 &&
        (file.st_uid != owner.st_uid || file.st_gid != owner.st_gid)) {
        ::fchown(fd, owner.st_uid, owner.st_gid);
    }
}

// Everything under the home is private to the user the gateway runs as: secrets (HA1s, the
// nonce key) live in it, and nginx's workers run as that user too. A home made earlier with
// looser bits, or by mkdir -p, is tightened by its owner.
bool makePrivateDir(const std::string& home, const std::string& dir) {
    if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        return false;
    }
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat now {};
    const bool ok = ::fstat(fd, &now) == 0;
    if (ok && dir != home) {
        giveToOwnerOf(home, fd);
    }
    if (ok && now.st_uid == ::geteuid() && (now.st_mode & 077) != 0) {
        ::fchmod(fd, 0700);
    }
    ::close(fd);
    return ok;
}

}  // namespace

std::string ZQ_Gateway_HomeDir() {
    static const std::string home = [] {
        std::string dir = resolveHome();
        while (dir.size() > 1 && dir.back() == '/') {
            dir.pop_back();
        }
        const size_t parent = dir.rfind('/');
        const bool made = (parent == 0 || parent == std::string::npos || makeDirs(dir.substr(0, parent), 0755)) &&
                          makePrivateDir(dir, dir) && makePrivateDir(dir, dir + "/run") &&
                          makePrivateDir(dir, dir + "/log");
        return made ? dir : std::string();
    }();
    return home;
}

void ZQ_Gateway_GiveToHomeOwner(int fd, const std::string& path) {
    const std::string home = ZQ_Gateway_HomeDir();
    if (inside(home, path)) {
        giveToOwnerOf(home, fd);
    }
}

std::string ZQ_Gateway_HomePath(const std::string& relative) {
    if (!relative.empty() && relative[0] == '/') {
        return relative;
    }
    const std::string home = ZQ_Gateway_HomeDir();
    return home.empty() ? std::string() : home + "/" + relative;
}

int ZQ_Gateway_WriteFileAtomically(const std::string& path, const std::string& content, unsigned mode, bool durable) {
    const std::string temp = path + ".tmp." + std::to_string(::getpid());
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0) {
        return errno;
    }
    ZQ_Gateway_GiveToHomeOwner(fd, path);
    size_t done = 0;
    while (done < content.size()) {
        ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            int err = errno != 0 ? errno : EIO;
            ::close(fd);
            ::unlink(temp.c_str());
            return err;
        }
        done += static_cast<size_t>(n);
    }
    int err = !durable || ::fsync(fd) == 0 ? 0 : errno;
    if (::close(fd) != 0 && err == 0) {
        err = errno;
    }
    if (err != 0) {
        ::unlink(temp.c_str());
        return err;
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        err = errno;
        ::unlink(temp.c_str());
        return err;
    }
    return 0;
}
