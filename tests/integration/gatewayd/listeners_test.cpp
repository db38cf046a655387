// The gateway keeps what nginx and the media daemon listen on equal to the stored bindings, by
// itself: after devices vanish under port-list reads, after either daemon is killed, after a
// restart; and telmictl doctor shows and repairs what is out of step. Listening ports are seen
// from outside the gateway, through the kernel.
#include <signal.h>

#include "DriverCif.h"
#include "GatewayRun.h"
#include "ZQBase.h"

namespace {

using namespace gwtest;

TEST(Listeners, FollowTheStoredBindingsThroughVanishingDevicesAndRestartsAndDoctorRepairsDrift) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    std::vector<std::string> deviceIndexes;
    for (const char* id : {"TARN50002", "TARN50003", "TARN50004"}) {
        deviceIndexes.push_back(gateway.registerDevice(4, id, gateway.freePort(1)));
        bindPort(gateway, id);
    }
    EXPECT_EQ(listenedPorts(gateway).size(), 8u) << "four bindings, HTTP and RTSP each";
    EXPECT_TRUE(listenersInStep(gateway));

    // Devices leave while an administrator keeps reading the port list, which drops the
    // binding of a vanished device without closing its listeners.
    std::atomic<bool> reading {true};
    std::thread reader([&] {
        while (reading) {
            gateway.api("GET", "/api/ports?start=0&max=500");
        }
    });
    for (const std::string& index : deviceIndexes) {
        EXPECT_EQ(gateway.api("DELETE", "/api/devices/" + index).status, 200);
    }
    reading = false;
    reader.join();
    EXPECT_TRUE(listenersInStep(gateway)) << "no listener outlives its binding";
    EXPECT_EQ(boundPorts(gateway).size(), 2u);

    // Stopped with a port no binding holds in nginx's list, started again: the list is rebuilt.
    ASSERT_TRUE(inChild(gateway.home(), [] {
        int orphan = 1;  // any port no binding holds
        ASSERT_NE(ZQBase::CNginxOper::getInstance()->ModifyConfig(ZQBase::addListenPort, &orphan, nullptr), 0);
    }));
    gateway.script("stop");
    gateway.start();
    const std::string ports = fileText(gateway.home().path() + "/nginx/telmi-ports.conf");
    EXPECT_THAT(ports, Not(HasSubstr("listen 1;")));
    EXPECT_TRUE(listenersInStep(gateway));

    // telmictl doctor shows drift the gateway does not repair by itself here, and repairs it.
    ASSERT_TRUE(inChild(gateway.home(),
                        [] { changeSettings([](ZQGateway::tagGatewaySettings& s) { s.listenerCheckSec = 0; }); }));
    const unsigned short orphanHttp = static_cast<unsigned short>(gateway.firstHttpPort() + 9);
    const unsigned short staleHttp = static_cast<unsigned short>(gateway.firstHttpPort() + 8);
    const unsigned short orphanRtsp = static_cast<unsigned short>(gateway.firstHttpPort() + 19);
    const std::string tarnIndex = gateway.api("GET", "/api/users").json()["users"][0]["deviceIndex"].asString();
    ASSERT_TRUE(inChild(gateway.home(), [&] {
        int port = orphanHttp, stale = staleHttp;
        ZQBase::CNginxOper* nginx = ZQBase::CNginxOper::getInstance();
        ASSERT_NE(nginx->ModifyConfig(ZQBase::addListenPort, &port, nullptr), 0);
        ASSERT_NE(nginx->ModifyConfig(ZQBase::addListenPort, &stale, nullptr), 0);
        ASSERT_NE(nginx->Reboot(), 0);
        // Dropped from the list without a reload, as an unbind whose store step failed leaves it.
        ASSERT_NE(nginx->ModifyConfig(ZQBase::delListenPort, &stale, nullptr), 0);
        const std::string open = R"({"method":"PutMediaPort","moduleType":10,"params":{"devices":[{"devIndex":")" +
                                 tarnIndex + R"(","rtspPortBind":true,"rtspPort":)" + std::to_string(orphanRtsp) +
                                 "}]}}";
        char* answer = nullptr;
        int length = 0;
        ASSERT_EQ(
            DriverCif_InputCmdToMediaSyn(open.c_str(), static_cast<int>(open.size()), &answer, &length, nullptr, 0, 3),
            0);
        DriverCif_FreeBuffer(answer);
    }));
    ASSERT_TRUE(listening(orphanHttp) && listening(staleHttp) && listening(orphanRtsp));

    const Outcome found = gateway.telmictl("--json doctor");
    EXPECT_EQ(found.status, 1) << found.err;
    const Json::Value views = found.json();
    EXPECT_FALSE(views["inStep"].asBool());
    EXPECT_EQ(views["orphans"]["nginx"][0].asInt(), orphanHttp);
    EXPECT_EQ(views["orphans"]["nginx"][1].asInt(), staleHttp) << "listened on, though no longer listed";
    EXPECT_EQ(views["orphans"]["media"][0]["rtspPort"].asInt(), orphanRtsp);
    EXPECT_EQ(views["bindings"][0]["nginx"].asString(), "listening");
    EXPECT_EQ(views["bindings"][0]["media"].asString(), "listening");

    EXPECT_THAT(gateway.telmictl("--json doctor --repair").withOut(), StatusWith(0, "which no binding holds"));
    // nginx's old workers let go of the port once they have seen the reload.
    EXPECT_TRUE(eventually([&] { return !listening(orphanHttp) && !listening(staleHttp) && !listening(orphanRtsp); }));
    EXPECT_TRUE(listenersInStep(gateway));
    EXPECT_EQ(gateway.telmictl("--json doctor").status, 0);
}

TEST(Listeners, KilledDaemonsComeBackWithTheirListenersAndASilentMediaDaemonIsShownAsSuch) {
    GatewayRun gateway;
    TwoDevices devices(gateway);
    // A camera whose stream the media daemon relays, played while the daemons are killed.
    std::string cameraRtsp;
    const auto camera = simulatedCamera(gateway.freePort(3), cameraRtsp);
    gateway.registerDevice(4, "CAMRTSP", gateway.freePort(3), gateway.freePort(4));
    const auto relayPort = static_cast<unsigned short>(bindPort(gateway, "CAMRTSP")["rtspPort"].asUInt());
    const std::set<int> bound = boundPorts(gateway);
    ASSERT_EQ(bound.size(), 4u);

    // A media daemon that does not answer: no RTSP port is known to listen, and the list says why.
    const int mediad = pidIn(gateway.home(), "run/mediad.pid");
    ASSERT_EQ(::kill(mediad, SIGSTOP), 0);
    const Json::Value silent = gateway.api("GET", "/api/ports?start=0&max=10").json();
    ::kill(mediad, SIGCONT);
    EXPECT_EQ(silent["ports"][0]["rtspListening"].asInt(), 0);
    EXPECT_EQ(silent["mediaModule"]["code"].asInt(), 9);
    const Json::Value answered = gateway.api("GET", "/api/ports?start=0&max=10").json();
    EXPECT_EQ(answered["ports"][0]["rtspListening"].asInt(), 1);
    EXPECT_FALSE(answered.isMember("mediaModule"));

    // Killed outright while clients play and ask, each daemon is started again and listens on its
    // bindings' ports again.
    std::atomic<bool> playing {true};
    std::thread clients([&] {
        while (playing) {
            ffprobe(relayPort);
            digestCurl(devices.httpPort, "admin", gateway.portPassword());
        }
    });
    ASSERT_EQ(::kill(mediad, SIGKILL), 0);
    EXPECT_TRUE(eventually(
        [&] { return pidIn(gateway.home(), "run/mediad.pid") != mediad && listenedPorts(gateway) == bound; }));
    const int nginx = pidIn(gateway.home(), "nginx/nginx.pid");
    runShell("kill -9 $(pgrep -P " + std::to_string(nginx) + ") " + std::to_string(nginx));
    EXPECT_TRUE(eventually(
        [&] { return pidIn(gateway.home(), "nginx/nginx.pid") != nginx && listenedPorts(gateway) == bound; }));
    playing = false;
    clients.join();
    EXPECT_EQ(digestCurl(devices.httpPort, "admin", gateway.portPassword()).withOut(), deviceAnswer("tarn5-cam"));
    EXPECT_EQ(ffprobe(relayPort), "pcm_mulaw,8000,25\n");
    EXPECT_EQ(gateway.api("GET", "/api/ports?start=0&max=10").json()["ports"][0]["rtspListening"].asInt(), 1);

    Json::Value health;
    EXPECT_TRUE(eventually([&] {
        health = gateway.api("GET", "/api/health").json();
        return health["daemons"][0]["running"].asBool() && health["daemons"][1]["running"].asBool();
    })) << health;
    for (const Json::Value& daemon : health["daemons"]) {
        EXPECT_EQ(daemon["restarts"].asInt(), 1) << daemon;
    }
    EXPECT_THAT(gateway.script("status"), HasSubstr("last repair: "));
}

}  // namespace
