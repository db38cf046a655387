#include <cstring>
#include <string>
#include <vector>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

MediaPortInfo order(const char* devIndex, int32_t bind, uint16_t port) {
    MediaPortInfo info;
    std::strncpy(info.devIndex, devIndex, sizeof(info.devIndex) - 1);
    info.rtspPortBind = bind;
    info.rtspPort = port;
    return info;
}

class MediaTest : public LibraryTest {
protected:
    void answer(const std::string& body) { platform().mediaReplies.push_back({0, body, ""}); }

    const std::string& lastCommand() { return platform().mediaCommands.back().text; }

    // The transport's buffer is released once per successful call, and only then.
    void expectBuffersReleased(int count) {
        EXPECT_EQ(platform().buffersAllocated, count);
        EXPECT_EQ(platform().buffersFreed, count);
        EXPECT_THAT(platform().bufferErrors, IsEmpty());
    }

    int retry(int& listening) { return mgr().retryMediaTELMIPort(listening, "dev01", 554); }

    std::shared_ptr<fake::FakePort> port(const std::string& devIndex, unsigned short rtspPort) {
        return platform().addPort(devIndex, 8000, rtspPort);
    }
};

TEST_F(MediaTest, CommandsAreFastWriterTextWithTheirLengthAndTimeLimit) {
    platform().mediaTimeoutMs = 2500;
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("dev01", 1, 554)}), 1);
    const std::string put =
        "{\"method\":\"PutMediaPort\",\"moduleType\":10,\"params\":{\"devices\":[{\"devIndex\":\"dev01\","
        "\"rtspPort\":554,\"rtspPortBind\":true}]}}\n";
    ASSERT_EQ(platform().mediaCommands.size(), 1u);
    EXPECT_EQ(lastCommand(), put);
    EXPECT_EQ(platform().mediaCommands.back().length, static_cast<int>(put.size()));
    EXPECT_EQ(platform().mediaCommands.back().reserved, 0);
    EXPECT_EQ(platform().mediaCommands.back().timeoutSec, 2);

    platform().mediaTimeoutMs = 999;
    int listening = 0;
    EXPECT_EQ(retry(listening), 0);
    EXPECT_EQ(listening, 1);
    EXPECT_EQ(lastCommand(),
              "{\"method\":\"gatewayProtocol\",\"moduleType\":10,\"params\":{\"body\":null,\"method\":\"PUT\","
              "\"uri\":\"/TELMI/ContentMgmt/DeviceMgmt/refreshDevicePort?format=json&devIndex=dev01&newPort=false"
              "&portType=rtsp&portNo=554\"}}\n");
    EXPECT_EQ(platform().mediaCommands.back().timeoutSec, 0) << "999 ms truncate to 0 s";

    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports{port("dev01", 554)};
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 0);
    EXPECT_EQ(lastCommand(),
              "{\"method\":\"GetMediaPortStatus\",\"moduleType\":10,\"params\":{\"devindexCodeList\":[\"dev01\"]}}\n");
    EXPECT_EQ(platform().ports[0]->rtspStatus, 1);
    expectBuffersReleased(3);
}

TEST_F(MediaTest, PutMediaPortEncodesEveryOrderAndAcceptsAnyTextCode) {
    EXPECT_EQ(mgr().notifyMediaTELMIPort({}), 0);
    EXPECT_THAT(platform().mediaCommands, IsEmpty()) << "an empty list sends nothing";
    EXPECT_THAT(platform().logs, IsEmpty());

    MediaPortInfo full = order("", 2, 65535);
    std::memset(full.devIndex, 'x', sizeof(full.devIndex));  // no NUL inside the field
    answer("{\"code\":\"error\"}");
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 0, 1), full}), 1);
    EXPECT_EQ(lastCommand(), "{\"method\":\"PutMediaPort\",\"moduleType\":10,\"params\":{\"devices\":["
                             "{\"devIndex\":\"a\",\"rtspPort\":1,\"rtspPortBind\":false},"
                             "{\"devIndex\":\"" + std::string(37, 'x') +
                                 "\",\"rtspPort\":65535,\"rtspPortBind\":false}]}}\n");
    EXPECT_THAT(platform().logs.back().text, ::testing::EndsWith(")] notifyMediaTELMIPort rspCode=error"));

    for (const char* refused : {"{\"code\":0}", "{}", "[\"code\"]", "\"code\""}) {
        answer(refused);
        EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0) << refused;
    }
    EXPECT_EQ(platform().logsAt(5).size(), 4u);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] DriverCIf_InputCmdByDevSyn return err rsp."));
    expectBuffersReleased(5);
}

TEST_F(MediaTest, ExchangeFailuresReleaseTheBufferOnlyWhenOneWasHandedOut) {
    platform().mediaReplies.push_back({3, "", "media down"});
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0);
    int listening = 7;
    platform().mediaReplies.push_back({3, "", "media down"});
    EXPECT_EQ(retry(listening), 9);
    EXPECT_EQ(listening, 0);
    expectBuffersReleased(0);
    ASSERT_EQ(platform().logsAt(5).size(), 2u);
    EXPECT_EQ(platform().logsAt(5)[0].format, "[%s(%d)] [errMsg=%s]DriverCif_InputCmdToMediaSyn error.");
    EXPECT_NE(platform().logsAt(5)[0].text.find("[errMsg=media down]"), std::string::npos);

    answer("not json");
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0);
    answer("{\"data\":");
    EXPECT_EQ(retry(listening), 9);
    expectBuffersReleased(2);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] DriverCIf_InputCmdByDevSyn return rsp=%s err."));
    EXPECT_NE(platform().logs.back().text.find("rsp={\"data\": err."), std::string::npos);

    platform().privateCfgPresent = false;
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0);
    EXPECT_EQ(retry(listening), 9);
    EXPECT_EQ(platform().mediaCommands.size(), 4u) << "nothing is sent without the configuration";
    EXPECT_EQ(platform().logsAt(5).back().format, "[%s(%d)] get basicCfg ptr error.");
}

TEST_F(MediaTest, RefreshAnswerShapes) {
    struct Case {
        const char* answer;
        int result, listening;
    } cases[] = {
        {"{}", 0, 0},
        {"{\"data\":{}}", 0, 0},
        {"{\"data\":\"rsp\"}", 0, 0},
        {"{\"data\":{\"rsp\":{}}}", 9, 0},
        {"{\"data\":{\"rsp\":[1]}}", 9, 0},
        {"{\"data\":{\"rsp\":{\"listenStatus\":{\"deviceIndex\":\"other\",\"rtspPort\":1,\"status\":\"success\"}}}}",
         0, 1},
        {"{\"data\":{\"rsp\":{\"listenStatus\":{\"deviceIndex\":\"dev01\",\"rtspPort\":554,\"status\":\"Success\"}}}}",
         260, 0},
        {"{\"data\":{\"rsp\":{\"listenStatus\":{\"deviceIndex\":\"dev01\",\"rtspPort\":\"554\",\"status\":\"success\"}}}}",
         9, 0},
        {"{\"data\":{\"rsp\":{\"listenStatus\":[{\"deviceIndex\":\"dev01\",\"rtspPort\":554,\"status\":\"success\"}]}}}",
         9, 0},
        {"{\"data\":{\"rsp\":{\"statusCode\":\"x\",\"statusString\":1}}}", 9, 0},
    };
    for (const auto& c : cases) {
        answer(c.answer);
        int listening = 5;
        EXPECT_EQ(retry(listening), c.result) << c.answer;
        EXPECT_EQ(listening, c.listening) << c.answer;
    }
    ASSERT_EQ(platform().logs.size(), 1u) << "only the not-listening report is logged";
    EXPECT_EQ(platform().logs[0].level, 5);
    EXPECT_THAT(platform().logs[0].text, ::testing::StartsWith("[retryMediaTELMIPort("));
    EXPECT_THAT(platform().logs[0].text, ::testing::EndsWith(")] [rtspport=554,listenstatus=Success] Retry result."));

    answer("{\"data\":{\"rsp\":{\"statusCode\":4,\"statusString\":\"Invalid\"}}}");
    int listening = 0;
    EXPECT_EQ(retry(listening), 9);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] DriverCIf_InputCmdByDevSyn return statusString=%s error"));
    EXPECT_NE(platform().logs.back().text.find("statusString=Invalid error"), std::string::npos);
    expectBuffersReleased(11);
}

TEST_F(MediaTest, StatusReadWritesOnlyWhatTheAnswerReports) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports{port("dev01", 554), port("none", 0),
                                                                port("dev01", 555), port("dev02", 556),
                                                                port("dev03", 557)};
    answer("{\"data\":{\"listenStatus\":["
           "{\"deviceIndex\":\"dev01\",\"rtspPort\":554,\"status\":\"success\"},"
           "{\"deviceIndex\":\"dev01\",\"rtspPort\":555,\"status\":\"fail\"},"
           "{\"deviceIndex\":\"dev02\",\"rtspPort\":556,\"status\":\"fail\"},"
           "{\"deviceIndex\":\"dev03\",\"rtspPort\":\"557\",\"status\":\"success\"},"
           "7]}}");
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 0);
    EXPECT_NE(lastCommand().find("[\"dev01\",\"dev01\",\"dev02\",\"dev03\"]"), std::string::npos)
        << "every port with an RTSP port is asked about, duplicates kept";
    const auto& stored = platform().ports;
    EXPECT_EQ(stored[0]->rtspStatus, 1) << "first report of a device wins";
    EXPECT_EQ(stored[1]->rtspStatus, -1) << "no RTSP port, never touched";
    EXPECT_EQ(stored[2]->rtspStatus, 1);
    EXPECT_EQ(stored[3]->rtspStatus, 0);
    EXPECT_EQ(stored[4]->rtspStatus, -1) << "a malformed report counts as absent";
    std::vector<std::string> warnings;
    for (const auto& line : platform().logsAt(4)) {
        warnings.push_back(line.text.substr(line.text.find("] ") + 2));
    }
    EXPECT_THAT(warnings, ElementsAre("[devIndex=dev01, rtspport=555,listenstatus=fail].",
                                      "[devIndex=dev02, rtspport=556,listenstatus=fail].",
                                      "Req number doest not equal rsp number.",
                                      "[devIndex=dev03]Don't have this device rtsp port status."));
    expectBuffersReleased(1);
}

TEST_F(MediaTest, StatusReadFailuresTouchNoRecord) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> none{port("dev00", 0)};
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(none), 0);
    EXPECT_THAT(platform().mediaCommands, IsEmpty());

    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports{port("dev01", 554)};
    const char* refused[] = {
        "{\"statusCode\":4,\"statusString\":\"Busy\"}",
        "{\"data\":{\"rsp\":{\"listenStatus\":{\"deviceIndex\":\"dev01\",\"rtspPort\":554,\"status\":\"success\"}}}}",
        "{\"data\":{\"listenStatus\":{}}}",
        "{\"data\":{\"statusCode\":1,\"statusString\":\"inner\"}}",
    };
    for (const char* body : refused) {
        answer(body);
        EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 9) << body;
    }
    platform().mediaReplies.push_back({1, "", "down"});
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 9);
    EXPECT_EQ(platform().ports[1]->rtspStatus, -1);

    std::vector<std::string> formats;
    for (const auto& line : platform().logsAt(5)) {
        formats.push_back(line.format.substr(std::strlen("[%s(%d)] ")));
    }
    EXPECT_THAT(formats, ElementsAre("DriverCIf_InputCmdByDevSyn return statusString=%s error", "Error rsp.",
                                     "Error rsp.", "Error rsp.", "[errMsg=%s]DriverCif_InputCmdToMediaSyn error."));
    expectBuffersReleased(4);
}

}  // namespace
