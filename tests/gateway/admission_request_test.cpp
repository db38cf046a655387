// nginx's admission questions as the check's server reads them: split anywhere, several in one
// read, and anything nginx would not send refused with the status that says why.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "AdmissionRequestReader.h"

using gatewayd::AdmissionRequestReader;
using State = AdmissionRequestReader::State;

namespace {

const std::string kQuestion =
    "GET /.zq-telmi-admission HTTP/1.1\r\nHost: telmi_auth\r\nX-TELMI-Mode: port\r\nX-TELMI-Port: 20001\r\n"
    "x-telmi-client: ::1\r\nX-TELMI-Method: PUT\r\nX-TELMI-Target: /TELMI/a%20b?x=1\r\n"
    "Authorization: Digest username=\"admin\"\r\nAuthorization: Digest username=\"other\"\r\n\r\n";

// Feeds text in pieces of `step` bytes; the state after the last piece.
State feedInPieces(AdmissionRequestReader& reader, const std::string& text, size_t step, size_t& used) {
    State state = State::incomplete;
    for (used = 0; used < text.size() && state == State::incomplete;) {
        size_t consumed = 0;
        state = reader.feed(text.data() + used, std::min(step, text.size() - used), consumed);
        used += consumed;
    }
    return state;
}

}  // namespace

TEST(AdmissionRequestReader, ReadsQuestionsSplitAnywhereOneAfterAnotherAndRefusesWhatNginxWouldNotAsk) {
    for (size_t step : {size_t {1}, size_t {7}, kQuestion.size() * 2}) {
        AdmissionRequestReader reader;
        const std::string twice = kQuestion + "GET / HTTP/1.1\r\nConnection: close\r\n\r\n";
        size_t used = 0;
        ASSERT_EQ(feedInPieces(reader, twice, step, used), State::complete) << step;
        EXPECT_EQ(used, kQuestion.size());
        const gatewayd::AdmissionRequest& q = reader.request();
        // Of two Authorization headers, the first one counts.
        EXPECT_EQ(std::tie(q.target, q.mode, q.port, q.client, q.method, q.authorization),
                  std::make_tuple("/TELMI/a%20b?x=1", "port", "20001", "::1", "PUT", "Digest username=\"admin\""));
        EXPECT_TRUE(reader.keepAlive());

        reader.next();
        const std::string rest = twice.substr(used);
        ASSERT_EQ(feedInPieces(reader, rest, step, used), State::complete);
        EXPECT_EQ(reader.request().target, "");
        EXPECT_EQ(reader.request().authorization, "");
        EXPECT_FALSE(reader.keepAlive());
    }

    const struct {
        std::string text;
        int status;
    } cases[] = {
        {"POST / HTTP/1.1\r\n\r\n", 405},
        {"GET / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", 413},
        {"GET / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n", 413},
        {"GET / HTTP/1.1\r\nX-Pad: " + std::string(70 * 1024, 'a'), 431},
        {"GET / HTTP/1.1\r\nBad Header\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n\r\n", 400},
    };
    for (const auto& [text, status] : cases) {
        AdmissionRequestReader reader;
        size_t used = 0;
        EXPECT_EQ(feedInPieces(reader, text, 1000, used), State::refused) << text.substr(0, 60);
        EXPECT_EQ(reader.refusalStatus(), status) << text.substr(0, 60);
    }
}
