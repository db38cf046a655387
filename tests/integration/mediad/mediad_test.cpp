// The media daemon zqmediad as the gateway runs it: a separate process over a temporary home,
// driven through the real libDriverMgr (also with no daemon and a stopped one), relaying RTSP
// clients that are not ours (ffmpeg) to a simulated camera (zqdevsim). The library drives it in
// the library's own tests, where ffprobe plays a whole session through the relay.
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include "DriverCif.h"
#include "GatewayTestHome.h"
#include "ZQMediaFrame.h"

using namespace gwtest;

namespace {

int connectCommandSocket(const TempHome& home) { return connectUnix(home.path() + "/" + ZQGateway::kMediaSocketPath); }

// Whether the peer closes the connection within a minute (a wide margin over any limit here).
bool closedByPeer(int fd) {
    pollfd watched {fd, POLLIN, 0};
    char byte = 0;
    return ::poll(&watched, 1, 60000) == 1 && ::recv(fd, &byte, 1, 0) <= 0;
}

// Reads until text appears, or with no text until the peer closes; what was read.
std::string readUntil(int fd, const std::string& text) {
    std::string got;
    char chunk[4096];
    for (ssize_t n;
         (text.empty() || got.find(text) == std::string::npos) && (n = ::recv(fd, chunk, sizeof(chunk), 0)) > 0;) {
        got.append(chunk, static_cast<size_t>(n));
    }
    return got;
}

std::string rtspOptions(int fd, int cseq) {
    const std::string request =
        "OPTIONS rtsp://127.0.0.1/stream RTSP/1.0\r\nCSeq: " + std::to_string(cseq) + "\r\n\r\n";
    ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    return readUntil(fd, "\r\n\r\n");
}

// One command through libDriverMgr, as the library sends it: its result, and the answer (with a
// NUL past its end) or the error.
int exchange(const std::string& command, int timeoutSec, std::string& reply) {
    char* answer = nullptr;
    int length = 0;
    const int result = DriverCif_InputCmdToMediaSyn(command.c_str(), static_cast<int>(command.size()), &answer, &length,
                                                    &reply, 0, timeoutSec);
    EXPECT_EQ(result == 0, answer != nullptr);
    if (answer != nullptr) {
        EXPECT_EQ(answer[length], '\0');
        reply.assign(answer, static_cast<size_t>(length));
        DriverCif_FreeBuffer(answer);
    }
    return result;
}

// One command with params (JSON text) through libDriverMgr; the answer.
Json::Value media(const std::string& method, const std::string& params) {
    std::string reply;
    EXPECT_EQ(exchange(R"({"method":")" + method + R"(","moduleType":10,"params":)" + params + "}", 5, reply), 0)
        << reply;
    return parseJson(reply);
}

// The items as a JSON array, each item's text made by text.
template <class Item, class Text>
std::string jsonArray(const std::vector<Item>& items, Text text) {
    std::string array;
    for (const Item& item : items) {
        array += (array.empty() ? "[" : ",") + text(item);
    }
    return array.empty() ? "[]" : array + "]";
}

// PutMediaPort's answers: every order carried out, or not.
const Json::Value kAllDone = parseJson(R"({"code":"0"})"), kSomeRefused = parseJson(R"({"code":"1"})");

using Order = std::tuple<std::string, unsigned short, bool>;
Json::Value putMediaPort(const std::vector<Order>& orders) {
    return media("PutMediaPort", "{\"devices\":" + jsonArray(orders, [](const Order& order) {
                                     return "{\"devIndex\":\"" + std::get<0>(order) +
                                            "\",\"rtspPort\":" + std::to_string(std::get<1>(order)) +
                                            ",\"rtspPortBind\":" + (std::get<2>(order) ? "true}" : "false}");
                                 }) + "}");
}

// The rsp of a gateway request asking for the device's listener on portNo.
Json::Value refresh(const std::string& devIndex, const std::string& portNo,
                    const std::string& path = "/TELMI/ContentMgmt/DeviceMgmt/refreshDevicePort") {
    return media("gatewayProtocol", R"({"method":"PUT","body":null,"uri":")" + path +
                                        "?format=json&devIndex=" + devIndex +
                                        "&newPort=false&portType=rtsp&portNo=" + portNo + "\"}")["data"]["rsp"];
}

Json::Value portStatus(const std::vector<std::string>& devIndexes) {
    return media("GetMediaPortStatus", "{\"devindexCodeList\":" + jsonArray(devIndexes, [](const std::string& i) {
                                           return "\"" + i + "\"";
                                       }) + "}");
}

Json::Value listenStatus(const std::string& devIndex, unsigned short port, const char* status) {
    return parseJson("{\"deviceIndex\":\"" + devIndex + "\",\"rtspPort\":" + std::to_string(port) + ",\"status\":\"" +
                     status + "\"}");
}

class MediadTest : public ::testing::Test {
protected:
    void SetUp() override {
        inChild(home_, [] {  // the daemon's lines go to stderr, next to the test's output
            changeSettings([](ZQGateway::tagGatewaySettings& s) {
                s.logFile = "";
                s.allowedDeviceNetworks = {"127.0.0.0/8"};  // the simulated camera and the test's own devices
            });
        });
        startDaemon({});
    }
    void startDaemon(const std::vector<std::string>& options) {
        std::vector<std::string> argv {ZQ_MEDIAD_PATH, "--home", home_.path(), "--foreground"};
        argv.insert(argv.end(), options.begin(), options.end());
        daemon_ = std::make_unique<Program>(argv);
        ASSERT_TRUE(eventually([this] {
            const int fd = connectCommandSocket(home_);
            return fd >= 0 && ::close(fd) == 0;
        }));
    }
    void TearDown() override { EXPECT_EQ(daemon_->stop(), 0) << "the daemon stops cleanly on SIGTERM"; }

    TempHome home_;
    std::unique_ptr<Program> daemon_;
};

// Garbage first: what the daemon answers, and that it serves on afterwards.
TEST_F(MediadTest, GarbageOnTheCommandSocketIsRefusedAndCommandsOpenReportAndCloseListeners) {
    // What each command is answered with: a refusal's statusCode, PutMediaPort's per-call code, or
    // the statusCode of a gateway request's rsp.
    const std::vector<std::tuple<std::string, const char*, Json::Value>> exchanges = {
        {"not json", "statusCode", 400},
        {"", "statusCode", 400},
        {std::string(5000, '[') + std::string(5000, ']'), "statusCode", 400},
        {R"({"method":"PutMediaPort","moduleType":"10","params":{}})", "statusCode", 400},
        {R"({"method":"PutMediaPort","moduleType":10,"params":{"devices":{}}})", "statusCode", 400},
        {R"({"method":"PutMediaPort","moduleType":10,"params":{"devices":[)"
         R"({"devIndex":5,"rtspPort":"554","rtspPortBind":1}]}})",
         "code", "1"},
        {R"({"method":"Reboot","moduleType":10,"params":{}})", "statusCode", 405},
        {R"({"method":"GetMediaPortStatus","moduleType":10,"params":{"devindexCodeList":[1]}})", "statusCode", 400},
        {R"({"method":"gatewayProtocol","moduleType":10,"params":{"method":"PUT","uri":5}})", "data", 400},
        // Strings that are not UTF-8 would be answered as other strings (U+FFFD in their place).
        {"{\"method\":\"GetMediaPortStatus\",\"moduleType\":10,\"params\":{\"devindexCodeList\":[\"dev\xff\"]}}",
         "statusCode", 400},
        {R"({"method":"GetMediaPortStatus","moduleType":10,"params":{"devindexCodeList":["\udc00"]}})", "statusCode",
         400},
    };
    std::string frames;
    for (const auto& exchange : exchanges) {
        frames += ZQGateway::encodeMediaFrame(std::get<0>(exchange));
    }
    frames += std::string("\xff\xff\xff\xff{}", 6);  // a frame announced past the limit
    const int client = connectCommandSocket(home_);
    ASSERT_EQ(::send(client, frames.data(), frames.size(), MSG_NOSIGNAL), static_cast<ssize_t>(frames.size()));
    for (const auto& [command, member, expected] : exchanges) {
        const Json::Value answer = parseJson(readMediaFrame(client))[member];
        EXPECT_EQ(answer.isObject() ? answer["rsp"]["statusCode"] : answer, expected) << command.substr(0, 80);
    }
    EXPECT_EQ(parseJson(readMediaFrame(client))["statusCode"], 413);
    EXPECT_EQ(readUntil(client, ""), "") << "and the connection is closed";
    ::close(client);

    const int halfFrame = connectCommandSocket(home_);
    ::send(halfFrame, "\x00\x00\x01\x00{\"meth", 10, MSG_NOSIGNAL);
    ::close(halfFrame);

    const unsigned short portA = testPortBlock(3), portB = portA + 1, portC = portA + 2;
    inChild(home_, [&] {
        const std::string a = registerDevice(4, "CAM-A", "127.0.0.1:9");
        auto other = std::make_unique<Listener>(portB);  // another program holds B's port
        ASSERT_TRUE(other->ok());

        const std::string b = registerDevice(4, "CAM-B", "127.0.0.1:9");  // added after the daemon read the store
        EXPECT_EQ(putMediaPort({{a, portA, true}, {b, portB, true}}), kSomeRefused);
        EXPECT_TRUE(listening(portA));
        Json::Value expected;
        expected["data"]["listenStatus"].append(listenStatus(a, portA, "success"));
        expected["data"]["listenStatus"].append(listenStatus(b, portB, "fail"));
        EXPECT_EQ(portStatus({a, b, a, "no-such-device"}), expected) << "one entry per device with a listener";

        EXPECT_EQ(refresh(b, std::to_string(portB))["statusCode"], 409);
        other.reset();
        EXPECT_EQ(refresh(b, std::to_string(portB))["listenStatus"], listenStatus(b, portB, "success"))
            << "the port is free again: re-opened";
        EXPECT_EQ(portStatus({b})["data"]["listenStatus"][0]["status"], "success");

        EXPECT_EQ(refresh("no-such-device", std::to_string(portC))["statusCode"], 404);
        EXPECT_EQ(refresh(a, "0")["statusCode"], 400);
        EXPECT_EQ(refresh(a, std::to_string(portC), "/TELMI/Other")["statusCode"], 404);
        EXPECT_EQ(putMediaPort({{"no-such-device", portC, true}}), kSomeRefused);
        EXPECT_FALSE(listening(portC));
        EXPECT_EQ(putMediaPort({{a, portB, true}}), kSomeRefused) << "B's listener keeps its port";

        EXPECT_EQ(putMediaPort({{a, portA, false}, {b, portB, false}}), kAllDone);
        EXPECT_EQ(portStatus({a, b}), parseJson(R"({"data":{"listenStatus":[]}})"));
        EXPECT_FALSE(listening(portA));
        EXPECT_FALSE(listening(portB));
    });

    ::kill(daemon_->pid(), SIGSTOP);
    inChild(home_, [] {
        std::string error;
        EXPECT_NE(exchange(R"({"method":"PutMediaPort"})", 0, error), 0);
        EXPECT_THAT(error, HasSubstr("time limit")) << "a daemon that holds a command unanswered";
    });
    ::kill(daemon_->pid(), SIGCONT);
}

TEST_F(MediadTest, RelaysRtspAndBulkDataToTheDevices) {
    const unsigned short first = testPortBlock(6);
    std::string cameraAddress;
    const auto simulator = simulatedCamera(first, cameraAddress);
    const unsigned short port = first + 2, unusablePort = first + 3, echoPort = first + 4, devicePort = first + 5;
    inChild(home_, [&] {
        const std::string camera = registerDevice(4, "CAM-1", cameraAddress);
        const std::string silent = registerDevice(4, "CAM-2", "");
        ASSERT_EQ(putMediaPort({{camera, port, true}, {silent, unusablePort, true}}), kAllDone);

        const int unusable = connectTcp(unusablePort);
        EXPECT_EQ(readUntil(unusable, "\r\n"), "") << "a device without an RTSP address: the client is closed";
        ::close(unusable);

        // A live relay outlives its listener.
        const int live = connectTcp(port);
        EXPECT_NE(rtspOptions(live, 7).find("CSeq: 7"), std::string::npos);
        EXPECT_EQ(putMediaPort({{camera, port, false}}), kAllDone);
        EXPECT_EQ(connectTcp(port), -1);
        EXPECT_NE(rtspOptions(live, 8).find("CSeq: 8"), std::string::npos);
        ::close(live);

        // Far more bytes than the relay holds, both ways at once: each direction arrives whole and
        // in order, and the client's end of stream reaches the device before the device's reaches it.
        const Listener device(devicePort);
        ASSERT_TRUE(device.ok());
        const std::string echo = registerDevice(4, "ECHO", "127.0.0.1:" + std::to_string(devicePort));
        ASSERT_EQ(putMediaPort({{echo, echoPort, true}}), kAllDone);

        std::string sent(8 << 20, '\0');
        for (size_t i = 0; i < sent.size(); ++i) {
            sent[i] = static_cast<char>((i * 7919) >> 8);
        }
        const int client = connectTcp(echoPort);
        ASSERT_GE(client, 0);
        std::thread sender([&] {
            ::send(client, sent.data(), sent.size(), MSG_NOSIGNAL);
            ::shutdown(client, SHUT_WR);
        });
        std::string received;
        std::thread receiver([&] { received = readUntil(client, ""); });

        const int peer = ::accept(device.fd(), nullptr, nullptr);  // the device echoes until the client's end
        std::vector<char> chunk(100000);
        size_t echoed = 0;
        for (ssize_t n; (n = ::recv(peer, chunk.data(), chunk.size(), 0)) > 0; echoed += static_cast<size_t>(n)) {
            ASSERT_EQ(::send(peer, chunk.data(), static_cast<size_t>(n), MSG_NOSIGNAL), n);
        }
        ::close(peer);
        sender.join();
        receiver.join();
        EXPECT_EQ(echoed, sent.size());
        EXPECT_TRUE(received == sent) << "received " << received.size() << " of " << sent.size() << " bytes";
        ::close(client);
    });
}

TEST_F(MediadTest, SilentAndIdleClientsAreClosedWhileAPlayerPlaysAndCapsKeepOneClientFromTakingAll) {
    ASSERT_EQ(daemon_->stop(), 0);
    inChild(home_, [] {
        std::string error;
        EXPECT_NE(exchange(R"({"method":"PutMediaPort"})", 1, error), 0);
        EXPECT_THAT(error, HasSubstr("not reachable")) << "no daemon";
    });
    startDaemon({"--first-request-timeout", "2", "--idle-timeout", "4", "--max-relays-per-device", "10",
                 "--max-relays-per-client", "8"});
    const unsigned short first = testPortBlock(3);
    std::string cameraAddress;
    const auto simulator = simulatedCamera(first, cameraAddress);
    const unsigned short port = first + 2;
    inChild(home_, [&] {
        const std::string camera = registerDevice(4, "CAM-1", cameraAddress);
        ASSERT_EQ(putMediaPort({{camera, port, true}}), kAllDone);

        // A real player takes 8 s of the stream, longer than either limit, while silent and idle
        // clients are closed around it.
        std::string played;
        std::thread player([&] {
            played = runShell("timeout 60 ffmpeg -nostdin -v error -rtsp_transport tcp -i rtsp://127.0.0.1:" +
                              std::to_string(port) + "/stream -t 8 -f null -progress pipe:1 - 2>&1");
        });
        std::vector<int> silent;
        for (int i = 0; i < 5; ++i) {
            silent.push_back(connectTcp(port));
        }
        const int idle = connectTcp(port);
        EXPECT_NE(rtspOptions(idle, 1).find("CSeq: 1"), std::string::npos);
        for (const int fd : silent) {
            EXPECT_TRUE(closedByPeer(fd)) << "a client that sends no request is closed";
            ::close(fd);
        }
        EXPECT_TRUE(closedByPeer(idle)) << "a relay without traffic is closed";
        ::close(idle);
        player.join();
        const size_t at = played.rfind("out_time_us=");
        ASSERT_NE(at, std::string::npos) << played;
        EXPECT_GE(std::stoll(played.substr(at + 12)), 7000000) << "the player got its 8 s: " << played;
        EXPECT_NE(played.find("progress=end"), std::string::npos) << played;

        // One client (address) holds at most 8 relays, one device at most 10.
        std::vector<int> held;
        for (const char* client : {"127.0.0.1", "127.0.0.1", "127.0.0.1", "127.0.0.1", "127.0.0.1", "127.0.0.1",
                                   "127.0.0.1", "127.0.0.1", "127.0.0.2", "127.0.0.2"}) {
            held.push_back(connectTcp(port, client));
            EXPECT_NE(rtspOptions(held.back(), static_cast<int>(held.size())).find("CSeq"), std::string::npos)
                << "relay " << held.size() << " from " << client;
        }
        for (const char* client : {"127.0.0.1", "127.0.0.3"}) {
            const int refused = connectTcp(port, client);
            EXPECT_EQ(rtspOptions(refused, 99), "") << "a client past the per-client or per-device cap: " << client;
            ::close(refused);
        }
        for (const int fd : held) {
            ::close(fd);
        }
    });
}

}  // namespace
