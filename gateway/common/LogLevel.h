// The gateway's log levels, rising with severity; tvlog writes them as DEBUG, INFO, WARN and
// ERROR. The numbers are tvlog's, so a configured threshold keeps its meaning.
#pragma once

namespace gwlog {

enum Level : int {
    kDetail = 2,    // intermediate steps and values
    kStartEnd = 3,  // start and end of an operation
    kWarning = 4,   // a failed step the operation goes on past
    kError = 5,     // an error that decides the outcome
};

}  // namespace gwlog
