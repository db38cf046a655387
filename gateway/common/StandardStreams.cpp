#include "StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace gwio {

void detachStandardStreams() {
    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (devNull < 0) {
        return;
    }
    ::dup2(devNull, STDIN_FILENO);
    ::dup2(devNull, STDOUT_FILENO);
    ::dup2(devNull, STDERR_FILENO);
    ::close(devNull);
}

}  // namespace gwio
