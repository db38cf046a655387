// Starting in the background the way a start script needs it: the process forks before any
// thread exists, the parent waits until the child reports its start-up's outcome and exits
// with it, so a failed start is seen by the script, with the child's message on its stderr.
#pragma once

namespace gwio {

class DetachedStart {
public:
    // Forks; returns in the child only, which has left its session. The parent exits with 0 once
    // the child calls started(true), 1 when it reports failure or dies first. program prefixes
    // the message of a failed fork.
    static DetachedStart fork(const char* program);

    // Tells the parent; on success the child drops the terminal.
    void started(bool ok);

private:
    explicit DetachedStart(int fd) : fd_(fd) {}
    int fd_;
};

}  // namespace gwio
