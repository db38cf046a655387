// The simulated device's RTSP requests: complete ones answered in order, partial ones kept,
// malformed and oversized ones ending the connection.
#include <gmock/gmock.h>

#include <random>
#include <string>

#include "RtspSession.h"

using devsim::RtspSession;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class RtspSessionTest : public testing::Test {
protected:
    // Feeds input in one piece; the answers, with how much was used and whether to close.
    std::string receive(const std::string& input) {
        output_.clear();
        used_ = session_.receive(input.data(), input.size(), output_, close_);
        return output_;
    }

    devsim::StreamSource source_;
    std::mt19937 random_ {7};
    RtspSession session_ {source_, random_};
    std::string output_;
    size_t used_ = 0;
    bool close_ = false;
};

TEST_F(RtspSessionTest, CompleteRequestsAreAnsweredInOrderAndAPartialOneWaits) {
    const std::string options = "OPTIONS rtsp://d/ RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    const std::string rtcp = std::string("$\x01\x00\x02", 4) + "ab";
    const std::string partial = "OPTIONS rtsp://d/ RTSP/1.0\r\nCSeq: 2\r\n";
    EXPECT_THAT(receive("\r\n" + options + rtcp + partial), StartsWith("RTSP/1.0 200 OK\r\nCSeq: 1\r\n"));
    EXPECT_EQ(used_, 2 + options.size() + rtcp.size()) << "the partial request is left for later";
    EXPECT_FALSE(close_);
    EXPECT_EQ(receive(std::string("$\x01\x00\x05", 4) + "ab"), "");
    EXPECT_EQ(used_, 0u) << "a partial interleaved frame waits too";
    EXPECT_THAT(receive("DESCRIBE rtsp://d/s RTSP/1.0\r\nCSeq: 3\r\nContent-Length: 2\r\n\r\nxy"),
                HasSubstr("Content-Base: rtsp://d/s/\r\n"));
    EXPECT_THAT(receive("RECORD rtsp://d/ RTSP/1.0\r\nCSeq: 4\r\n\r\n"), StartsWith("RTSP/1.0 501 "));
    EXPECT_THAT(receive("OPTIONS rtsp://d/ RTSP/2.0\r\nCSeq: 5\r\n\r\n"), StartsWith("RTSP/1.0 505 "));
    EXPECT_FALSE(close_);
}

TEST_F(RtspSessionTest, MalformedRequestsAreRefusedAndOversizedOnesUnansweredBothEndingTheConnection) {
    for (const char* malformed :
         {"OPTIONS\r\nCSeq: 1\r\n\r\n", "OPTIONS rtsp://d/ RTSP/1.0\r\nno colon\r\n\r\n",
          "OPTIONS rtsp://d/ RTSP/1.0\r\n: empty name\r\n\r\n", "OPTIONS rtsp://d/ RTSP/1.0\r\nAccept: x\r\n\r\n"}) {
        EXPECT_THAT(receive(malformed), StartsWith("RTSP/1.0 400 ")) << malformed;
        EXPECT_TRUE(close_) << malformed;
    }

    const std::string head = "OPTIONS rtsp://d/ RTSP/1.0\r\nCSeq: 1\r\nX: ";
    const std::string padding(RtspSession::kMaxRequest - head.size() - 4, 'p');
    EXPECT_THAT(receive(head + padding + "\r\n\r\n"), StartsWith("RTSP/1.0 200 ")) << "exactly at the limit";
    EXPECT_EQ(receive(head + padding + "p\r\n\r\n"), "");
    EXPECT_TRUE(close_);
    EXPECT_EQ(receive(std::string(RtspSession::kMaxRequest + 1, 'x')), "") << "no end of head in sight";
    EXPECT_TRUE(close_);
    for (const char* length : {"9000", "18446744073709551547"}) {  // the second wraps the request's size around
        EXPECT_EQ(
            receive(std::string("OPTIONS rtsp://d/ RTSP/1.0\r\nCSeq: 1\r\nContent-Length: ") + length + "\r\n\r\n"),
            "");
        EXPECT_TRUE(close_) << length;
    }
}

}  // namespace
