#include "ChildProgram.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

namespace gwtest {

Program::Program(const std::vector<std::string>& argv) {
    int out[2];
    if (::pipe(out) != 0) {
        return;
    }
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        std::vector<char*> args;
        for (const auto& arg : argv) {
            args.push_back(const_cast<char*>(arg.c_str()));
        }
        args.push_back(nullptr);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    ::close(out[1]);
    output_ = ::fdopen(out[0], "r");
}

Program::~Program() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    if (output_ != nullptr) {
        std::fclose(output_);
    }
}

std::string Program::readLine() {
    char line[512] = {};
    return output_ != nullptr && std::fgets(line, sizeof(line), output_) != nullptr ? line : "";
}

int Program::stop() {
    int status = 0;
    const bool exited = ::kill(pid_, SIGTERM) == 0 && ::waitpid(pid_, &status, 0) == pid_;
    pid_ = -1;
    return exited && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string runShell(const std::string& command) {
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string output;
    char chunk[512];
    while (pipe && std::fgets(chunk, sizeof(chunk), pipe.get()) != nullptr) {
        output += chunk;
    }
    return output;
}

std::string ffprobe(unsigned short port) {
    return runShell("timeout 60 ffprobe -v error -rtsp_transport tcp -read_intervals %+#25 -count_packets"
                    " -show_entries stream=codec_name,sample_rate,nb_read_packets -of csv=p=0 rtsp://127.0.0.1:" +
                    std::to_string(port) + "/stream 2>&1");
}

}  // namespace gwtest
