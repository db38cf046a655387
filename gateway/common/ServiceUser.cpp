#include "ServiceUser.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

extern char** environ;

namespace gwio {
namespace {

// A home holds a handful of levels (nginx/temp/<kind>/<hash levels>); deeper is not ours.
constexpr int kMaxDepth = 16;

bool lookUp(const std::string& user, uid_t& uid, gid_t& gid) {
    std::vector<char> buffer(16384);
    passwd entry {};
    passwd* found = nullptr;
    if (::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return false;
    }
    uid = found->pw_uid;
    gid = found->pw_gid;
    return true;
}

bool createUser(const std::string& user, std::string& error) {
    const char* const argv[] = {"/usr/sbin/useradd", "--system", "--user-group",      "--no-create-home", "--home-dir",
                                "/nonexistent",      "--shell",  "/usr/sbin/nologin", user.c_str(),       nullptr};
    pid_t child = 0;
    const int spawned = ::posix_spawn(&child, argv[0], nullptr, nullptr, const_cast<char* const*>(argv), environ);
    if (spawned != 0) {
        error = std::string("cannot run /usr/sbin/useradd: ") + std::strerror(spawned);
        return false;
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // Another service starting at the same moment may have created it first (status 9).
    uid_t uid = 0;
    gid_t gid = 0;
    if (!lookUp(user, uid, gid)) {
        error = "useradd could not create the service user " + user + " (status " +
                std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")";
        return false;
    }
    return true;
}

// dir is open on a directory of the home; each entry is opened without following a link and
// changed through its descriptor, so that nothing renamed meanwhile can lead outside.
void giveTree(int dir, uid_t uid, gid_t gid, int depth) {
    struct stat self {};
    if (::fstat(dir, &self) == 0 && (self.st_uid != uid || self.st_gid != gid)) {
        ::fchown(dir, uid, gid);
    }
    const int listing = ::dup(dir);
    DIR* entries = listing < 0 ? nullptr : ::fdopendir(listing);
    if (entries == nullptr) {
        if (listing >= 0) {
            ::close(listing);
        }
        return;
    }
    while (const dirent* entry = ::readdir(entries)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        const int fd = ::openat(dir, entry->d_name, O_PATH | O_NOFOLLOW | O_CLOEXEC);
        struct stat st {};
        if (fd < 0 || ::fstat(fd, &st) != 0 || S_ISLNK(st.st_mode) || (!S_ISDIR(st.st_mode) && st.st_nlink > 1)) {
            if (fd >= 0) {
                ::close(fd);
            }
            continue;
        }
        if (S_ISDIR(st.st_mode)) {
            const int sub =
                depth < kMaxDepth ? ::openat(dir, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
            if (sub >= 0) {
                giveTree(sub, uid, gid, depth + 1);
                ::close(sub);
            }
        } else if (st.st_uid != uid || st.st_gid != gid) {
            ::fchownat(fd, "", uid, gid, AT_EMPTY_PATH);
        }
        ::close(fd);
    }
    ::closedir(entries);
}

}  // namespace

bool prepareServiceUser(const std::string& user, const std::string& home, std::string& error) {
    if (::geteuid() != 0) {
        return true;
    }
    uid_t uid = 0;
    gid_t gid = 0;
    if (!lookUp(user, uid, gid) && (!createUser(user, error) || !lookUp(user, uid, gid))) {
        return false;
    }
    if (uid == 0) {
        error = "the service user " + user + " is root";
        return false;
    }
    const int dir = ::open(home.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (dir < 0) {
        error = "the gateway home " + home + " cannot be opened: " + std::strerror(errno);
        return false;
    }
    giveTree(dir, uid, gid, 0);
    ::close(dir);
    return true;
}

bool runAsServiceUser(const std::string& user, const std::string& home, std::string& error) {
    if (::geteuid() != 0) {
        return true;
    }
    uid_t uid = 0;
    gid_t gid = 0;
    if (!prepareServiceUser(user, home, error) || !lookUp(user, uid, gid)) {
        return false;
    }
    if (::setgroups(1, &gid) != 0 || ::setresgid(gid, gid, gid) != 0 || ::setresuid(uid, uid, uid) != 0) {
        error = "cannot become the service user " + user + ": " + std::strerror(errno);
        return false;
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::setuid(0) == 0) {
        error = "the process could still regain root";
        return false;
    }
    if (::access(home.c_str(), R_OK | W_OK | X_OK) != 0) {
        error = "the service user " + user + " cannot reach the gateway home " + home +
                " (a directory above it is closed to it): choose a home it can reach, such as /var/lib/zqgateway";
        return false;
    }
    return true;
}

}  // namespace gwio
