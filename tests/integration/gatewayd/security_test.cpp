// What a local user or a remote client must not be able to lift from a running gateway
// (scripts/gateway.sh over a temporary home): the services' users, the home's files, passwords
// on command lines, and device addresses that lead back into the gateway.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "GatewayRun.h"
#include "ZQGatewayDevices.h"

using namespace gwtest;
using testing::HasSubstr;
using testing::Not;

namespace {

// Its own, since the watch sees the command lines of tests that run beside it.
const std::string kUserPassword = "Watch3d!Pass";

// The file's text; what was read when the file vanishes meanwhile (a process that ended).
std::string readText(const std::string& path) {
    std::string text;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char chunk[4096];
    for (ssize_t n; fd >= 0 && (n = ::read(fd, chunk, sizeof(chunk))) > 0;) {
        text.append(chunk, static_cast<size_t>(n));
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return text;
}

// Every process's command line, over and over until stopped, as ps would show them.
class CommandLineWatch {
public:
    CommandLineWatch()
        : thread_([this] {
              while (!stop_) {
                  sample();
              }
          }) {}
    std::set<std::string> stop() {
        stop_ = true;
        thread_.join();
        return seen_;
    }

private:
    void sample() {
        DIR* proc = ::opendir("/proc");
        while (const dirent* entry = proc == nullptr ? nullptr : ::readdir(proc)) {
            if (std::isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
                std::string line = readText(std::string("/proc/") + entry->d_name + "/cmdline");
                std::replace(line.begin(), line.end(), '\0', ' ');
                seen_.insert(line);
            }
        }
        if (proc != nullptr) {
            ::closedir(proc);
        }
    }
    std::atomic<bool> stop_ {false};
    std::set<std::string> seen_;
    std::thread thread_;
};

// The Uid: line of a process's status: real, effective, saved and file system uids.
std::string uidsOf(pid_t pid) {
    std::istringstream status(readText("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Uid:", 0) == 0) {
            return line;
        }
    }
    return "";
}

pid_t pidIn(const std::string& file) { return static_cast<pid_t>(std::atoi(readText(file).c_str())); }

// The daemons, nginx's master and its workers.
std::vector<pid_t> gatewayProcesses(const std::string& home) {
    std::vector<pid_t> pids {pidIn(home + "/run/gatewayd.pid"), pidIn(home + "/run/mediad.pid"),
                             pidIn(home + "/nginx/nginx.pid")};
    const std::string master = std::to_string(pids.back());
    DIR* proc = ::opendir("/proc");
    while (const dirent* entry = proc == nullptr ? nullptr : ::readdir(proc)) {
        std::istringstream stat(readText(std::string("/proc/") + entry->d_name + "/stat"));
        std::string pid, name, state, parent;
        if (stat >> pid >> name >> state >> parent && parent == master) {
            pids.push_back(std::atoi(pid.c_str()));
        }
    }
    if (proc != nullptr) {
        ::closedir(proc);
    }
    return pids;
}

// path -> lstat of everything under dir.
void listTree(const std::string& dir, std::map<std::string, struct stat>& entries) {
    DIR* listing = ::opendir(dir.c_str());
    while (const dirent* entry = listing == nullptr ? nullptr : ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        struct stat st {};
        ::lstat((dir + "/" + name).c_str(), &st);
        entries[dir + "/" + name] = st;
        if (S_ISDIR(st.st_mode)) {
            listTree(dir + "/" + name, entries);
        }
    }
    if (listing != nullptr) {
        ::closedir(listing);
    }
}

// How many of the paths the user nobody can open for reading (run in a child that becomes it).
int readableByNobody(const std::vector<std::string>& paths) {
    const passwd* nobody = ::getpwnam("nobody");
    const pid_t child = ::fork();
    if (child == 0) {
        int opened = 0;
        if (nobody == nullptr || ::setgroups(0, nullptr) != 0 || ::setgid(nobody->pw_gid) != 0 ||
            ::setuid(nobody->pw_uid) != 0) {
            ::_exit(100);
        }
        for (const std::string& path : paths) {
            const int fd = ::open(path.c_str(), O_RDONLY);
            opened += fd >= 0 ? 1 : 0;
        }
        ::_exit(opened);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(GatewaySecurity, ServicesRunAsTheServiceUserInAPrivateHomeAndNoPasswordIsShown) {
    GatewayRun gateway;
    const std::string home = gateway.home().path();
    CommandLineWatch commandLines;
    gateway.start();
    ASSERT_EQ(gateway.api("PUT", "/api/telmi", R"({"enabled":1})").status, 200);
    gateway.registerDevice(2, "CAM001", gateway.freePort(0));
    const Outcome added =
        runCommand(std::string(ZQ_TELMICTL_PATH) + " --gateway " + gateway.apiUrl("") + " user add alice=CAM001",
                   gateway.adminPassword() + "\n" + kUserPassword + "\n");
    ASSERT_EQ(added.status, 0) << added.out << added.err;
    EXPECT_EQ(curl("http://127.0.0.1:" + std::to_string(gateway.userPort()) + "/TELMI/x").status, 401)
        << "a challenge: the nonce key exists";
    const std::set<std::string> seen = commandLines.stop();

    EXPECT_TRUE(std::any_of(seen.begin(), seen.end(), [](const std::string& line) {
        return line.find("zqmediad --home") != std::string::npos;
    })) << "the watch saw the gateway's programs";
    for (const std::string& secret : {gateway.adminPassword(), gateway.portPassword(), kUserPassword}) {
        for (const std::string& line : seen) {
            EXPECT_THAT(line, Not(HasSubstr(secret))) << "a password on a command line";
        }
        EXPECT_THAT(gateway.startOutput(), Not(HasSubstr(secret)));
        EXPECT_THAT(readText(home + "/log/gateway.log"), Not(HasSubstr(secret)));
    }

    const bool root = ::geteuid() == 0;
    const passwd* serviceUser = ::getpwnam("zqgateway");
    ASSERT_TRUE(!root || serviceUser != nullptr) << "started by root, the gateway made its service user";
    const uid_t expected = root ? serviceUser->pw_uid : ::getuid();
    const std::string uids = "Uid:\t" + std::to_string(expected) + "\t" + std::to_string(expected) + "\t" +
                             std::to_string(expected) + "\t" + std::to_string(expected);
    const std::vector<pid_t> processes = gatewayProcesses(home);
    EXPECT_GE(processes.size(), 4u) << "the daemons, nginx's master and at least one worker";
    for (const pid_t pid : processes) {
        EXPECT_EQ(uidsOf(pid), uids) << "process " << pid << ": "
                                     << readText("/proc/" + std::to_string(pid) + "/cmdline");
    }
    EXPECT_THAT(readText(home + "/nginx/nginx.conf"), Not(HasSubstr("\nuser "))) << "no user line to switch to";

    std::map<std::string, struct stat> entries;
    listTree(home, entries);
    const std::vector<std::string> secrets = {home + "/devices.db",     home + "/devices.db-wal",
                                              home + "/devices.db-shm", home + "/gateway.json",
                                              home + "/nonce.key",      home + "/admin-password"};
    for (const std::string& path : secrets) {
        EXPECT_EQ(entries.count(path), 1u) << path << " exists in a running home";
    }
    struct stat self {};
    ::stat(home.c_str(), &self);
    entries[home] = self;
    for (const auto& [path, st] : entries) {
        EXPECT_EQ(st.st_mode & 077, 0u) << path << " is open to others: " << std::oct << st.st_mode;
        EXPECT_EQ(st.st_uid, expected) << path;
    }
    if (root) {
        EXPECT_EQ(readableByNobody(secrets), 0) << "another local user reads none of the secrets";
    }
}

TEST(GatewaySecurity, DeviceAddressesLeadingBackIntoTheGatewayAreRefused) {
    GatewayRun gateway;  // its settings allow loopback devices (127.0.0.0/8), as the tests' devices need
    gateway.start();
    const auto add = [&gateway](const std::string& id, const std::string& telmi, const std::string& rtsp) {
        return gateway.api("POST", "/api/devices",
                           R"({"protocol":2,"deviceID":")" + id + R"(","telmiAddress":")" + telmi +
                               R"(","rtspAddress":")" + rtsp + R"("})");
    };
    const std::string api = std::to_string(gateway.apiPort()), user = std::to_string(gateway.userPort());
    for (const auto& [telmi, rtsp] : std::vector<std::pair<std::string, std::string>> {
             {"", "rtsp://127.0.0.1:" + api},  // the loopback-only API on a public RTSP port
             {"http://127.0.0.1:" + api, ""},
             {"http://[::ffff:127.0.0.1]:" + user, ""},
             {"", "rtsp://0.0.0.0:" + std::to_string(gateway.firstHttpPort())},
             {"http://169.254.10.1:80", ""},  // link-local, no allowed network holds it
             {"", "rtsp://[fe80::1]:554"},
             {"", "rtsp://[ff02::1]:554"},
             {"http://camera.example:80", ""}}) {
        const Outcome refused = add("BAD", telmi, rtsp);
        EXPECT_EQ(refused.status, 400) << telmi << rtsp << ": " << refused.out;
        EXPECT_EQ(refused.json()["error"]["code"].asInt(), ZQGateway::storeAddressRefused) << refused.out;
    }
    const Outcome allowed = add("GOOD", "http://127.0.0.1:" + std::to_string(gateway.freePort(0)),
                                "rtsp://127.0.0.1:" + std::to_string(gateway.freePort(0)));
    EXPECT_EQ(allowed.status, 201) << allowed.out;
}
