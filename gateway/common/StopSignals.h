// How the gateway's daemons are told to stop: SIGTERM or SIGINT, taken by one waiting thread (or
// a signalfd) rather than by a handler, so that stopping runs as ordinary code. SIGHUP, sent
// after log files were rotated, asks to reopen them and never stops a daemon.
#pragma once

#include <signal.h>

#include <functional>

namespace gwio {

// Blocks SIGTERM, SIGINT and SIGHUP in the calling thread, and so in every thread it starts afterwards,
// and ignores SIGPIPE (a peer that went away is seen as a failed write). Returns the blocked set.
sigset_t blockStopSignals();

// Waits for SIGTERM or SIGINT; returns its number. Each SIGHUP meanwhile calls onHangUp.
int waitForStopSignal(const sigset_t& stopSignals, const std::function<void()>& onHangUp = {});

}  // namespace gwio
