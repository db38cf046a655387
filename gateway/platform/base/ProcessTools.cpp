#include "base/ProcessTools.h"

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace zqbase {
namespace {

std::string readProcFile(int pid, const char* name) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The state letter and the parent of /proc/<pid>/stat; the name may hold spaces and
// parentheses, so the fields are read after its last ')'.
bool readStat(int pid, char& state, int& parent) {
    const std::string stat = readProcFile(pid, "stat");
    const size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return false;
    }
    std::istringstream fields(stat.substr(close + 1));
    return static_cast<bool>(fields >> state >> parent);
}

}  // namespace

int runAndWait(const std::vector<std::string>& argv, const std::string& outputPath) {
    std::vector<char*> args;
    for (const std::string& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    int spawned = posix_spawn(&child, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        return -1;
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool processAlive(int pid) {
    char state = 0;
    int parent = 0;
    return pid > 0 && readStat(pid, state, parent) && state != 'Z' && state != 'X';
}

std::string processCommand(int pid) {
    std::string command = readProcFile(pid, "cmdline");
    for (char& c : command) {
        c = c == '\0' ? ' ' : c;
    }
    return command;
}

std::vector<std::string> processArguments(int pid) {
    const std::string command = readProcFile(pid, "cmdline");
    std::vector<std::string> arguments;
    for (size_t start = 0; start < command.size();) {
        const size_t end = std::min(command.find('\0', start), command.size());
        arguments.push_back(command.substr(start, end - start));
        start = end + 1;
    }
    return arguments;
}

std::string processExecutable(int pid) {
    char path[4096];
    const ssize_t length = ::readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), path, sizeof(path) - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

std::string processName(int pid) {
    std::string name = readProcFile(pid, "comm");
    while (!name.empty() && name.back() == '\n') {
        name.pop_back();
    }
    return name;
}

namespace {

// The pids /proc lists, zombies left out.
std::vector<int> liveProcesses(const std::function<bool(int pid, int parent)>& wanted) {
    std::vector<int> pids;
    DIR* proc = ::opendir("/proc");
    if (proc == nullptr) {
        return pids;
    }
    while (dirent* entry = ::readdir(proc)) {
        char* end = nullptr;
        long candidate = std::strtol(entry->d_name, &end, 10);
        char state = 0;
        int parent = 0;
        if (*end == '\0' && candidate > 0 && readStat(static_cast<int>(candidate), state, parent) && state != 'Z' &&
            wanted(static_cast<int>(candidate), parent)) {
            pids.push_back(static_cast<int>(candidate));
        }
    }
    ::closedir(proc);
    return pids;
}

}  // namespace

std::vector<int> childrenOf(int pid) {
    return liveProcesses([pid](int, int parent) { return parent == pid; });
}

std::vector<int> processesNamed(const std::string& name) {
    return liveProcesses([&name](int pid, int) { return processName(pid) == name; });
}

std::vector<int> allProcesses() {
    return liveProcesses([](int, int) { return true; });
}

bool holdsFileUnder(int pid, const std::string& directory) {
    char resolved[PATH_MAX];
    const char* real = ::realpath(directory.c_str(), resolved);
    const std::string prefix = std::string(real != nullptr ? real : directory.c_str()) + "/";
    DIR* fds = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (fds == nullptr) {
        return false;
    }
    bool held = false;
    while (dirent* entry = ::readdir(fds)) {
        char target[4096];
        const ssize_t n = ::readlinkat(::dirfd(fds), entry->d_name, target, sizeof(target) - 1);
        held = held || (n > 0 && std::string(target, static_cast<size_t>(n)).compare(0, prefix.size(), prefix) == 0);
    }
    ::closedir(fds);
    return held;
}

bool waitFor(int timeoutMs, const std::function<bool()>& ready) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (ready()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace zqbase
