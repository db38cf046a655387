#include "DetachedStart.h"

#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace gwio {

DetachedStart DetachedStart::fork(const char* program) {
    int verdict[2];
    if (::pipe2(verdict, O_CLOEXEC) != 0) {
        std::perror((std::string(program) + ": pipe").c_str());
        std::exit(1);
    }
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
        std::perror((std::string(program) + ": fork").c_str());
        std::exit(1);
    }
    if (child > 0) {
        ::close(verdict[1]);
        char ok = 0;
        const bool told = ::read(verdict[0], &ok, 1) == 1;
        std::_Exit(told && ok == 1 ? 0 : 1);
    }
    ::close(verdict[0]);
    ::setsid();
    return DetachedStart(verdict[1]);
}

void DetachedStart::started(bool ok) {
    if (ok) {
        detachStandardStreams();
    }
    const char verdict = ok ? 1 : 0;
    if (::write(fd_, &verdict, 1) != 1) {
        // The parent is gone; nobody is left to tell.
    }
    ::close(fd_);
}

}  // namespace gwio
