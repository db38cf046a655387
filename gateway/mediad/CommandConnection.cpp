#include "CommandConnection.h"

#include <sys/epoll.h>

#include "MediadLog.h"
#include "ZQMediaFrame.h"

namespace mediad {

CommandConnection::CommandConnection(EventLoop& loop, MediaCommands& commands, UniqueFd socket,
                                     std::function<void()> onClosed)
    : commands_(commands),
      onClosed_(std::move(onClosed)),
      fd_(std::move(socket)),
      watch_(loop, fd_.get(), [this](uint32_t events) { onEvents(events); }),
      in_(ZQGateway::kMediaFrameHeader + ZQGateway::kMaxMediaFrame),
      out_(kMaxPendingAnswerBytes) {}

bool CommandConnection::start() {
    updateInterest();
    return !closed_;
}

void CommandConnection::onEvents(uint32_t events) {
    if (closed_) {
        return;
    }
    if ((events & EPOLLERR) != 0) {
        close("socket error");
        return;
    }
    if ((events & (EPOLLIN | EPOLLHUP)) != 0 && reading()) {
        switch (in_.fillFrom(fd_.get())) {
            case IoResult::failed: close("read failed"); return;
            case IoResult::closed: ended_ = true; break;
            case IoResult::progress:
            case IoResult::wouldBlock: break;
        }
    }
    answerCompleteFrames();
    if (out_.drainTo(fd_.get()) == IoResult::failed) {
        close("write failed");
        return;
    }
    // Draining may have made room for answers to commands already read; when nothing is left
    // to send after that, no complete command is left either.
    answerCompleteFrames();
    if ((ended_ || refusing_) && out_.empty()) {
        close(refusing_ ? "frame too large" : "client done");
        return;
    }
    updateInterest();
}

bool CommandConnection::reading() const { return !ended_ && !refusing_ && !out_.full(); }

void CommandConnection::answerCompleteFrames() {
    while (!refusing_ && !out_.full() && in_.size() >= ZQGateway::kMediaFrameHeader) {
        const uint32_t length = ZQGateway::decodeMediaFrameLength(reinterpret_cast<const unsigned char*>(in_.data()));
        if (length > ZQGateway::kMaxMediaFrame) {
            MEDIAD_LOG(gwlog::kWarning, "command frame of %u bytes refused; closing the connection", length);
            queueAnswer(MediaCommands::refusal(
                refusedTooLarge, "Command frame larger than " + std::to_string(ZQGateway::kMaxMediaFrame) + " bytes"));
            refusing_ = true;
            return;
        }
        if (in_.size() < ZQGateway::kMediaFrameHeader + length) {
            return;
        }
        const std::string command(in_.data() + ZQGateway::kMediaFrameHeader, length);
        in_.consume(ZQGateway::kMediaFrameHeader + length);
        queueAnswer(commands_.answer(command));
    }
}

void CommandConnection::queueAnswer(const std::string& answer) {
    if (answer.size() > ZQGateway::kMaxMediaFrame) {
        MEDIAD_LOG(gwlog::kWarning, "answer of %zu bytes replaced by a refusal", answer.size());
        out_.append(ZQGateway::encodeMediaFrame(MediaCommands::refusal(refusedTooLarge, "Answer too large")));
        return;
    }
    out_.append(ZQGateway::encodeMediaFrame(answer));
}

void CommandConnection::updateInterest() {
    uint32_t events = 0;
    if (reading()) {
        events |= EPOLLIN;
    }
    if (!out_.empty()) {
        events |= EPOLLOUT;
    }
    if (!watch_.setEvents(events) && events != 0) {
        close("cannot watch the socket");
    }
}

void CommandConnection::close(const char* reason) {
    if (closed_) {
        return;
    }
    closed_ = true;
    watch_.stop();
    fd_.reset();
    MEDIAD_LOG(gwlog::kDetail, "command client closed: %s", reason);
    onClosed_();
}

}  // namespace mediad
