#include "SecretInput.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>

namespace gwapi {

namespace {

bool readLine(std::istream& in, std::string& line) {
    if (!std::getline(in, line)) {
        return false;
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return true;
}

bool readFromTerminal(const std::string& what, std::string& secret) {
    std::fprintf(stderr, "%s: ", what.c_str());
    std::fflush(stderr);
    termios saved {};
    const bool terminal = ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    const bool got = readLine(std::cin, secret);
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    }
    std::fputs("\n", stderr);
    return got;
}

}  // namespace

bool secretsAreTyped() { return ::isatty(STDIN_FILENO) != 0; }

bool readSecret(const std::string& what, const std::string& path, std::string& secret, std::string& error) {
    bool got = false;
    if (!path.empty()) {
        std::ifstream file(path);
        got = file && readLine(file, secret);
    } else if (secretsAreTyped()) {
        got = readFromTerminal(what, secret);
    } else {
        got = readLine(std::cin, secret);
    }
    if (!got || secret.empty()) {
        error = path.empty() ? "no " + what + " on standard input"
                             : "no " + what + " in " + path + " (it must be the file's first line)";
        return false;
    }
    return true;
}

bool readNewSecret(const std::string& what, std::string& secret, std::string& error) {
    if (!readSecret(what, "", secret, error)) {
        return false;
    }
    std::string again;
    if (secretsAreTyped() && (!readSecret(what + " again", "", again, error) || again != secret)) {
        error = "the two passwords differ";
        return false;
    }
    return true;
}

}  // namespace gwapi
