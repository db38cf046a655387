#include "LibraryTest.h"

namespace {

using Ports = std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>;

MediaPortInfo order(const std::string& devIndex, int32_t bind, uint16_t port) {
    MediaPortInfo info;
    setField(info.devIndex, devIndex);
    info.rtspPortBind = bind;
    info.rtspPort = port;
    return info;
}

class MediaTest : public LibraryTest {
protected:
    void answer(const std::string& body) { platform().mediaReplies.push_back({0, body, ""}); }
    void transportFails() { platform().mediaReplies.push_back({3, "", "media down"}); }

    const fake::MediaCommand& lastCommand() { return platform().mediaCommands.back(); }

    // The transport's buffer is released once per successful call, and only then.
    void expectBuffersReleased(int count) {
        EXPECT_EQ(std::tuple(platform().buffersAllocated, platform().buffersFreed, platform().badFrees),
                  std::tuple(count, count, 0));
    }

    // (result, listening) of a refresh, from a listening flag that starts out set.
    std::pair<int, int> retry() {
        int listening = 5;
        const int result = mgr().retryMediaTELMIPort(listening, "dev01", 554);
        return {result, listening};
    }

    std::shared_ptr<fake::FakePort> port(const std::string& devIndex, unsigned short rtspPort) {
        return platform().addPort(devIndex, 8000, rtspPort);
    }
};

TEST_F(MediaTest, CommandsAreFastWriterTextWithTheTimeLimitInWholeSeconds) {
    platform().mediaTimeoutMs = 999;
    EXPECT_EQ(retry(), std::pair(0, 1));
    EXPECT_EQ(lastCommand().text,
              R"({"method":"gatewayProtocol","moduleType":10,"params":{"body":null,"method":"PUT",)"
              R"("uri":"/TELMI/ContentMgmt/DeviceMgmt/refreshDevicePort?format=json&devIndex=dev01&newPort=false)"
              "&portType=rtsp&portNo=554\"}}\n");
    EXPECT_EQ(lastCommand().timeoutSec, 0) << "999 ms truncate to 0 s";

    Ports ports {port("dev01", 554)};
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 0);
    EXPECT_EQ(lastCommand().text,
              "{\"method\":\"GetMediaPortStatus\",\"moduleType\":10,\"params\":{\"devindexCodeList\":[\"dev01\"]}}\n");
    EXPECT_EQ(platform().ports[0]->rtspStatus, 1);
    expectBuffersReleased(2);
}

TEST_F(MediaTest, PutMediaPortEncodesEveryOrderAndAcceptsAnyTextCode) {
    EXPECT_EQ(mgr().notifyMediaTELMIPort({}), 0);
    EXPECT_THAT(platform().mediaCommands, IsEmpty()) << "an empty list sends nothing";
    EXPECT_THAT(platform().logs, IsEmpty());

    answer(R"({"code":"error"})");
    platform().mediaTimeoutMs = 2500;
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1), order(std::string(37, 'x'), 2, 65535)}), 1);
    EXPECT_EQ(lastCommand().text, R"({"method":"PutMediaPort","moduleType":10,"params":{"devices":[)"
                                  R"({"devIndex":"a","rtspPort":1,"rtspPortBind":true},)"
                                  R"({"devIndex":")" +
                                      std::string(37, 'x') + "\",\"rtspPort\":65535,\"rtspPortBind\":false}]}}\n")
        << "a device index filling its field, and a bind value of 2";
    EXPECT_EQ(std::pair(lastCommand().reserved, lastCommand().timeoutSec), std::pair(0, 2));
    EXPECT_THAT(messagesAt(2), ElementsAre("notifyMediaTELMIPort rspCode=error"));

    for (const char* refused : {R"({"code":0})", "{}", R"(["code"])", R"("code")"}) {
        answer(refused);
        EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0) << refused;
    }
    EXPECT_EQ(messagesAt(5).size(), 4u);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] DriverCIf_InputCmdByDevSyn return err rsp."));
    expectBuffersReleased(5);
}

TEST_F(MediaTest, ExchangeFailuresAreLoggedForTheCallerAndReleaseOnlyBuffersHandedOut) {
    transportFails();
    EXPECT_EQ(retry(), std::pair(9, 0));
    EXPECT_THAT(platform().logs.back().text, StartsWith("[retryMediaTELMIPort("));
    answer(R"({"data":)");
    EXPECT_EQ(mgr().notifyMediaTELMIPort({order("a", 1, 1)}), 0);
    expectBuffersReleased(1);
    EXPECT_THAT(messagesAt(5), ElementsAre("[errMsg=media down]DriverCif_InputCmdToMediaSyn error.",
                                           R"(DriverCIf_InputCmdByDevSyn return rsp={"data": err.)"));

    platform().privateCfgPresent = false;
    EXPECT_EQ(retry(), std::pair(9, 0));
    EXPECT_EQ(platform().mediaCommands.size(), 2u) << "nothing is sent without the configuration";
    EXPECT_EQ(lastLog(5), "get basicCfg ptr error.");
}

TEST_F(MediaTest, RefreshAnswerShapes) {
    const std::tuple<const char*, int, int> cases[] = {
        {"{}", 0, 0},
        {R"({"data":{}})", 0, 0},
        {R"({"data":"rsp"})", 0, 0},
        {R"({"data":{"rsp":{}}})", 9, 0},
        {R"({"data":{"rsp":[1]}})", 9, 0},
        {R"({"data":{"rsp":{"listenStatus":{"deviceIndex":"other","rtspPort":1,"status":"success"}}}})", 0, 1},
        {R"({"data":{"rsp":{"listenStatus":{"deviceIndex":"dev01","rtspPort":554,"status":"Success"}}}})", 260, 0},
        {R"({"data":{"rsp":{"listenStatus":{"deviceIndex":"dev01","rtspPort":"554","status":"success"}}}})", 9, 0},
        {R"({"data":{"rsp":{"listenStatus":[{"deviceIndex":"dev01","rtspPort":554,"status":"success"}]}}})", 9, 0},
        {R"({"data":{"rsp":{"statusCode":"x","statusString":1}}})", 9, 0},
        {R"({"data":{"rsp":{"statusCode":4,"statusString":"Invalid"}}})", 9, 0},
    };
    for (auto [body, result, listening] : cases) {
        answer(body);
        EXPECT_EQ(retry(), std::pair(result, listening)) << body;
    }
    EXPECT_THAT(platform().logs, ::testing::SizeIs(2)) << "only the not-listening report and the refusal";
    EXPECT_THAT(messagesAt(5), ElementsAre("[rtspport=554,listenstatus=Success] Retry result.",
                                           "DriverCIf_InputCmdByDevSyn return statusString=Invalid error"));
    expectBuffersReleased(11);
}

TEST_F(MediaTest, StatusReadWritesOnlyWhatTheAnswerReports) {
    Ports none {port("dev00", 0)};
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(none), 0);
    EXPECT_THAT(platform().mediaCommands, IsEmpty());

    Ports one {port("dev01", 554)};
    for (const char* body :
         {R"({"statusCode":4,"statusString":"Busy"})",
          R"({"data":{"rsp":{"listenStatus":{"deviceIndex":"dev01","rtspPort":554,"status":"success"}}}})",
          R"({"data":{"listenStatus":{}}})", R"({"data":{"statusCode":1,"statusString":"in"}})"}) {
        answer(body);
        EXPECT_EQ(mgr().updateMediaTELMIPortStatus(one), 9) << body;
    }
    transportFails();
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(one), 9);
    EXPECT_EQ(platform().ports[1]->rtspStatus, -1) << "a failed read touches no record";
    EXPECT_THAT(messagesAt(5),
                ElementsAre("DriverCIf_InputCmdByDevSyn return statusString=Busy error", "Error rsp.", "Error rsp.",
                            "Error rsp.", "[errMsg=media down]DriverCif_InputCmdToMediaSyn error."));

    Ports ports {port("dev01", 554), port("none", 0), port("dev01", 555), port("dev02", 556), port("dev03", 557)};
    answer(R"({"data":{"listenStatus":[)"
           R"({"deviceIndex":"dev01","rtspPort":554,"status":"success"},)"
           R"({"deviceIndex":"dev01","rtspPort":555,"status":"fail"},)"
           R"({"deviceIndex":"dev02","rtspPort":556,"status":"fail"},)"
           R"({"deviceIndex":"dev03","rtspPort":"557","status":"success"},)"
           "7]}}");
    EXPECT_EQ(mgr().updateMediaTELMIPortStatus(ports), 0);
    EXPECT_THAT(lastCommand().text, HasSubstr(R"(["dev01","dev01","dev02","dev03"])"))
        << "every port with an RTSP port is asked about, duplicates kept";
    // The first report of a device wins; no RTSP port or a malformed report leaves the record alone.
    EXPECT_THAT(eachOf(platform().ports, &fake::FakePort::rtspStatus), ElementsAre(-1, -1, 1, -1, 1, 0, -1));
    EXPECT_THAT(messagesAt(4), ElementsAre("[devIndex=dev01, rtspport=555,listenstatus=fail].",
                                           "[devIndex=dev02, rtspport=556,listenstatus=fail].",
                                           "Req number doest not equal rsp number.",
                                           "[devIndex=dev03]Don't have this device rtsp port status."));
    expectBuffersReleased(5);
}

}  // namespace
