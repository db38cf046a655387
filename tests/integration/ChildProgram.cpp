#include "ChildProgram.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "GatewayTestHome.h"  // fileText

namespace gwtest {

Program::Program(const std::vector<std::string>& argv) {
    // The shell names its pid, then becomes the program.
    std::string command = "echo $$; exec";
    for (const auto& arg : argv) {
        command += " " + shellQuoted(arg);
    }
    output_ = ::popen(command.c_str(), "r");
    pid_ = std::atoi(readLine().c_str());
}

Program::~Program() { stop(SIGKILL); }

std::string Program::readLine() {
    char line[512] = {};
    return output_ != nullptr && std::fgets(line, sizeof(line), output_) != nullptr ? line : "";
}

int Program::stop(int signal) {
    if (output_ == nullptr) {
        return -1;
    }
    if (pid_ > 0) {
        ::kill(pid_, signal);
    }
    const int status = ::pclose(output_);
    output_ = nullptr;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Json::Value parseJson(const std::string& text) {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
}

Json::Value Outcome::json() const { return parseJson(out); }

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
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

namespace {

// Splits "<text>\n<status>" as the shell's "echo $?", curl -w and the Python client print it.
Outcome splitStatusLast(const std::string& output) {
    Outcome outcome;
    const size_t newline = output.rfind('\n');
    outcome.status = std::atoi(output.c_str() + (newline == std::string::npos ? 0 : newline + 1));
    outcome.out = newline == std::string::npos ? "" : output.substr(0, newline);
    return outcome;
}

}  // namespace

Outcome runCommand(const std::string& command, const std::string& input) {
    // Files of their own for every call: a test's threads run commands at once.
    static std::atomic<unsigned> calls {0};
    const std::string files =
        ::testing::TempDir() + "command-" + std::to_string(::getpid()) + "-" + std::to_string(calls++);
    std::ofstream(files + ".in") << input;
    Outcome outcome = splitStatusLast(runShell(command + " <" + files + ".in 2>" + files + ".err; printf '\\n%s' $?"));
    outcome.err = fileText(files + ".err");
    std::remove((files + ".in").c_str());
    std::remove((files + ".err").c_str());
    return outcome;
}

Outcome curl(const std::string& arguments, const std::string& credentials) {
    std::string quoted;
    for (char c : credentials) {
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    const std::string config = credentials.empty() ? "" : "user = \"" + quoted + "\"\n";
    return splitStatusLast(runCommand("curl -s -g --max-time 60 -w '\\n%{http_code}' " +
                                          std::string(config.empty() ? "" : "-K - ") + arguments,
                                      config)
                               .out);
}

std::string runPython(const char* script, const std::vector<std::string>& args) {
    // Debian's interpreter, whose requests module the install script provides.
    std::string command = "/usr/bin/python3 -c " + shellQuoted(script);
    for (const std::string& arg : args) {
        command += " " + shellQuoted(arg);
    }
    return runShell(command);
}

Outcome pythonDigestGet(const std::string& url, const std::string& user, const std::string& password,
                        const std::string& againAfterSec) {
    static const char* const kScript =
        "import sys, time, requests\n"
        "from requests.auth import HTTPDigestAuth\n"
        "auth = HTTPDigestAuth(sys.argv[2], sys.argv[3])\n"
        "r = requests.get(sys.argv[1], auth=auth, timeout=60)\n"
        "if len(sys.argv) > 4:\n"
        "    time.sleep(float(sys.argv[4]))\n"
        "    r = requests.get(sys.argv[1], auth=auth, timeout=60)\n"
        "    print(''.join(h.headers['WWW-Authenticate'] + '\\n' for h in r.history), end='')\n"
        "print(r.text + '\\n' + str(r.status_code), end='')\n";
    std::vector<std::string> args {url, user, password};
    if (!againAfterSec.empty()) {
        args.push_back(againAfterSec);
    }
    return splitStatusLast(runPython(kScript, args));
}

std::string ffprobe(unsigned short port) {
    return runShell(
        "timeout 60 ffprobe -v error -rtsp_transport tcp -read_intervals %+#25 -count_packets"
        " -show_entries stream=codec_name,sample_rate,nb_read_packets -of csv=p=0 rtsp://127.0.0.1:" +
        std::to_string(port) + "/stream 2>&1");
}

std::unique_ptr<Program> simulatedCamera(unsigned short firstPort, std::string& rtspAddress) {
    auto camera = std::make_unique<Program>(
        std::vector<std::string> {ZQ_DEVSIM_PATH, "--count", "1", "--first-http-port", std::to_string(firstPort),
                                  "--first-rtsp-port", std::to_string(firstPort + 1)});
    EXPECT_FALSE(camera->readLine().empty()) << "the simulator serves once it prints its device";
    rtspAddress = "rtsp://127.0.0.1:" + std::to_string(firstPort + 1) + "/stream";
    return camera;
}

}  // namespace gwtest
