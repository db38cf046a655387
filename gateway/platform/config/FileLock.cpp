#include "config/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "ZQGatewayHome.h"

namespace zqgw {

FileLock::FileLock(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (fd_ >= 0) {
        ZQ_Gateway_GiveToHomeOwner(fd_, path);
    }
    if (fd_ >= 0 && ::flock(fd_, LOCK_EX) != 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

FileLock::~FileLock() {
    if (fd_ >= 0) {
        ::close(fd_);  // releases the flock
    }
}

}  // namespace zqgw
