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
    if (const char* user = std::getenv("HOME"); user != nullptr && user[0] != '\0') {
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

}  // namespace

std::string ZQ_Gateway_HomeDir() {
    static const std::string home = [] {
        std::string dir = resolveHome();
        while (dir.size() > 1 && dir.back() == '/') {
            dir.pop_back();
        }
        // Others may pass through the home and run/ (nginx's workers reach the front end's socket
        // there) but list nothing.
        return makeDirs(dir, 0711) && makeDirs(dir + "/run", 0711) && makeDirs(dir + "/log", 0700) ? dir
                                                                                                   : std::string();
    }();
    return home;
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
