#include "StopSignals.h"

#include <pthread.h>

namespace gwio {

sigset_t blockStopSignals() {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    return stopSignals;
}

int waitForStopSignal(const sigset_t& stopSignals, const std::function<void()>& onHangUp) {
    for (;;) {
        int signal = 0;
        ::sigwait(&stopSignals, &signal);
        if (signal != SIGHUP) {
            return signal;
        }
        if (onHangUp) {
            onHangUp();
        }
    }
}

}  // namespace gwio
