// Programs the integration tests run as separate processes: the gateway's own, and clients that
// are not ours (curl, ffprobe, Python).
#pragma once

#include <json/json.h>
#include <signal.h>
#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace gwtest {

// A program the test runs, its stdout on a pipe; killed if the test leaves it running.
class Program {
public:
    explicit Program(const std::vector<std::string>& argv);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return pid_; }
    // The next line the program prints, with its newline; empty once stdout is closed.
    std::string readLine();
    // The signal, then the exit status; -1 when it did not exit normally.
    int stop(int signal = SIGTERM);

private:
    pid_t pid_ = -1;
    FILE* output_ = nullptr;
};

// What a program run to its end gave back. An HTTP client's status is the answer's HTTP status
// (0 when the client failed) and its out the answer's body (after the headers when asked for).
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
    Json::Value json() const;
    // "<status> <out>" and "<status> <err>", to check a status and a text in one comparison.
    std::string withOut() const { return std::to_string(status) + " " + out; }
    std::string withErr() const { return std::to_string(status) + " " + err; }
};

// text as JSON; null when it is none.
Json::Value parseJson(const std::string& text);

// text as one word for /bin/sh.
std::string shellQuoted(const std::string& text);

// Runs command with /bin/sh; what it prints on stdout.
std::string runShell(const std::string& command);

// Runs command with /bin/sh and input on its standard input.
Outcome runCommand(const std::string& command, const std::string& input = "");

// curl with the given arguments (shell syntax), and credentials ("user:password") when given,
// handed to curl on its standard input, never on its command line.
Outcome curl(const std::string& arguments, const std::string& credentials = "");

// The standard output of the Python script run with these arguments.
std::string runPython(const char* script, const std::vector<std::string>& args);

// A GET with Python requests' HTTPDigestAuth. With againAfterSec, a second GET that much later,
// which requests opens with the first one's nonce; its text is then preceded by the challenges
// it had to answer, one a line.
Outcome pythonDigestGet(const std::string& url, const std::string& user, const std::string& password,
                        const std::string& againAfterSec = "");

// What ffprobe finds in the stream at port after reading 25 RTP packets of it (interleaved on
// the RTSP connection): "codec,rate,packets\n".
std::string ffprobe(unsigned short port);

// One simulated camera (zqdevsim) serving TELMI on firstPort and RTSP on firstPort + 1, once it
// serves; its RTSP address goes to rtspAddress.
std::unique_ptr<Program> simulatedCamera(unsigned short firstPort, std::string& rtspAddress);

}  // namespace gwtest
