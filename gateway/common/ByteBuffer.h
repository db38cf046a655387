// A byte queue between a socket and its reader or writer. Reading from a socket stops at the
// capacity, which is how a slow side holds back a fast one; storage grows on demand up to it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace gwio {

enum class IoResult {
    progress,    // some bytes moved
    wouldBlock,  // nothing moved now; wait for the socket
    closed,      // the peer ended its side of the stream
    failed,      // the socket reported an error (errno tells which)
};

class ByteBuffer {
public:
    explicit ByteBuffer(size_t capacity) : capacity_(capacity) {}

    size_t size() const { return tail_ - head_; }
    bool empty() const { return head_ == tail_; }
    bool full() const { return size() >= capacity_; }
    const char* data() const { return storage_.data() + head_; }

    // Reads from fd as much as the capacity leaves room for.
    IoResult fillFrom(int fd);
    // Sends as much as the socket takes.
    IoResult drainTo(int fd);
    // Queues bytes regardless of the capacity (a whole answer is never split or dropped).
    void append(const std::string& bytes);
    void consume(size_t count);

private:
    // Makes room for at least one byte at the tail when the capacity allows; false when full.
    bool reserveTail();

    const size_t capacity_;
    std::vector<char> storage_;
    size_t head_ = 0, tail_ = 0;
};

}  // namespace gwio
