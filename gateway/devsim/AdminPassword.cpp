#include "AdminPassword.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>

namespace devsim {

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

bool readFromTerminal(std::string& password) {
    std::fputs("gateway admin password: ", stderr);
    std::fflush(stderr);
    termios saved {};
    const bool terminal = ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    const bool got = readLine(std::cin, password);
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    }
    std::fputs("\n", stderr);
    return got;
}

}  // namespace

bool readAdminPassword(const std::string& path, std::string& password, std::string& error) {
    bool got = false;
    if (!path.empty()) {
        std::ifstream file(path);
        got = file && readLine(file, password);
    } else if (::isatty(STDIN_FILENO)) {
        got = readFromTerminal(password);
    } else {
        got = readLine(std::cin, password);
    }
    if (!got || password.empty()) {
        error = path.empty() ? "no admin password on standard input"
                             : "no admin password in " + path + " (it must be the file's first line)";
        return false;
    }
    return true;
}

}  // namespace devsim
