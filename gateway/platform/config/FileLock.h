#pragma once

#include <string>

namespace zqgw {

// An exclusive flock on a file, held for the object's life: serialises read-modify-write of a
// gateway file between processes sharing the home.
class FileLock {
public:
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool held() const { return fd_ >= 0; }

private:
    int fd_;
};

}  // namespace zqgw
