#pragma once

namespace gwio {

// Points standard input, output and error at /dev/null: a daemon that left its terminal must not
// block on, or die by, writing to it.
void detachStandardStreams();

}  // namespace gwio
