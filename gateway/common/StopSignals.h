// How the gateway's daemons are told to stop: SIGTERM or SIGINT, taken by one waiting thread (or
// a signalfd) rather than by a handler, so that stopping runs as ordinary code.
#pragma once

#include <signal.h>

namespace gwio {

// Blocks SIGTERM and SIGINT in the calling thread, and so in every thread it starts afterwards,
// and ignores SIGPIPE (a peer that went away is seen as a failed write). Returns the blocked set.
sigset_t blockStopSignals();

// Waits for one of the blocked stop signals; returns its number.
int waitForStopSignal(const sigset_t& stopSignals);

}  // namespace gwio
