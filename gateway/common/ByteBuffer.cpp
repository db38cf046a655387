#include "ByteBuffer.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace gwio {

namespace {

constexpr size_t kMinimumGrowth = 16 * 1024;

bool transient(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

}  // namespace

bool ByteBuffer::reserveTail() {
    if (tail_ < storage_.size()) {
        return true;
    }
    if (head_ > 0) {
        std::memmove(storage_.data(), storage_.data() + head_, size());
        tail_ -= head_;
        head_ = 0;
    }
    if (tail_ < storage_.size()) {
        return true;
    }
    if (storage_.size() >= capacity_) {
        return false;
    }
    storage_.resize(std::min(capacity_, std::max(kMinimumGrowth, storage_.size() * 2)));
    return true;
}

IoResult ByteBuffer::fillFrom(int fd) {
    if (full() || !reserveTail()) {
        return IoResult::wouldBlock;
    }
    const size_t room = std::min(storage_.size() - tail_, capacity_ - size());
    const ssize_t got = ::recv(fd, storage_.data() + tail_, room, 0);
    if (got > 0) {
        tail_ += static_cast<size_t>(got);
        return IoResult::progress;
    }
    if (got == 0) {
        return IoResult::closed;
    }
    return transient(errno) ? IoResult::wouldBlock : IoResult::failed;
}

IoResult ByteBuffer::drainTo(int fd) {
    if (empty()) {
        return IoResult::wouldBlock;
    }
    const ssize_t sent = ::send(fd, data(), size(), MSG_NOSIGNAL);
    if (sent >= 0) {
        consume(static_cast<size_t>(sent));
        return IoResult::progress;
    }
    return transient(errno) ? IoResult::wouldBlock : IoResult::failed;
}

void ByteBuffer::append(const std::string& bytes) {
    if (bytes.empty()) {
        return;
    }
    if (storage_.size() - tail_ < bytes.size()) {
        if (head_ > 0) {
            std::memmove(storage_.data(), storage_.data() + head_, size());
            tail_ -= head_;
            head_ = 0;
        }
        if (storage_.size() - tail_ < bytes.size()) {
            storage_.resize(tail_ + bytes.size());
        }
    }
    std::memcpy(storage_.data() + tail_, bytes.data(), bytes.size());
    tail_ += bytes.size();
}

void ByteBuffer::consume(size_t count) {
    head_ += std::min(count, size());
    if (head_ == tail_) {
        head_ = tail_ = 0;
    }
}

}  // namespace gwio
