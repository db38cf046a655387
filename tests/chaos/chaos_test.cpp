// A seeded random walk over a running gateway: binds, unbinds, devices coming and going, list
// reads, user changes and kill -9 of either daemon, in any order. After every step, once the
// gateway has settled, what it listens on equals the stored bindings, no port is handed out
// twice, every account belongs to an existing device, and a lock-out made at the start holds.
//
// ZQ_CHAOS_SEED replays a walk (a failure prints its seed); ZQ_CHAOS_STEPS sets its length.

#include <cstdlib>
#include <random>

#include "GatewayRun.h"

namespace {

using namespace gwtest;

unsigned long fromEnvironment(const char* name, unsigned long otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtoul(text, nullptr, 10) : otherwise;
}

class Walk {
public:
    // Starts with a TELMI user locked out, whose device and account no step touches.
    Walk(GatewayRun& gateway, unsigned long seed) : gateway_(gateway), random_(seed) {
        gateway_.registerDevice(2, "CHAOSKEEP", gateway_.freePort(0));
        gwtest::addUser(gateway_, "keeper", "CHAOSKEEP");
        for (int attempt = 0; attempt < 7; ++attempt) {
            digestCurl(gateway_.userPort(), "keeper", "Wrong!Pass1");
        }
    }

    // One random step; its name.
    std::string step() {
        switch (pick(9)) {
            case 0: return api("POST", "/api/ports", R"({"deviceIDs":[")" + freeDevice("portBound") + R"("]})"), "bind";
            case 1:
                return api("POST", "/api/ports/unbind",
                           R"({"portIndexes":[")" + any(records("ports", "portIndex")) + R"("]})"),
                       "unbind";
            case 2:
                if (records("devices", "deviceIndex").size() < 8) {  // besides the keeper's
                    gateway_.registerDevice(4, "CHAOS" + std::to_string(++devicesAdded_), gateway_.freePort(0));
                }
                return "add a device";
            case 3: return api("DELETE", "/api/devices/" + any(records("devices", "deviceIndex"))), "remove a device";
            case 4: return api("GET", "/api/ports?start=0&max=500&keyWord=CHAOS"), "list ports";
            case 5:
                return api("POST", "/api/users",
                           R"({"users":[{"userName":"user)" + std::to_string(++usersAdded_) + R"(","password":")" +
                               kUserPassword + R"(","deviceID":")" + freeDevice("telmiBound") + R"("}]})"),
                       "add a user";
            case 6:
                return api("POST", "/api/users/delete",
                           R"({"userIndexes":[")" + any(records("users", "userIndex")) + R"("]})"),
                       "delete a user";
            case 7: return kill("run/mediad.pid"), "kill -9 zqmediad";
            default: return kill("nginx/nginx.pid"), "kill -9 nginx";
        }
    }

    // Every promise holds once the gateway has settled.
    void check() {
        // Settled: both daemons run and answer, and the gateway finds nothing out of step.
        EXPECT_TRUE(eventually([this] { return api("GET", "/api/listeners")["inStep"].asBool(); }))
            << gateway_.api("GET", "/api/listeners").out;
        EXPECT_TRUE(listenersInStep(gateway_));
        EXPECT_THAT(records("users", "deviceIndex"),
                    testing::Each(testing::AnyOfArray(records("devices", "deviceIndex"))))
            << "an account of a device that is gone";
        EXPECT_THAT(digestCurl(gateway_.userPort(), "keeper", kUserPassword).withOut(),
                    StartsWith("401 too many failed attempts: locked out"));
    }

private:
    size_t pick(size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(random_); }
    std::string any(const std::vector<std::string>& items) {
        return items.empty() ? "none" : items[pick(items.size())];
    }

    Json::Value api(const std::string& method, const std::string& path, const std::string& body = "") {
        return gateway_.api(method, path, body).json();
    }
    void kill(const std::string& pidFile) {
        if (const int pid = pidIn(gateway_.home(), pidFile); pid > 0) {
            runShell("kill -9 $(pgrep -P " + std::to_string(pid) + ") " + std::to_string(pid) + " 2>/dev/null");
        }
    }

    // The member of every record of the list route that keep accepts (every record by default), but
    // the lock-out keeper's device and account.
    std::vector<std::string> records(const std::string& list, const std::string& member,
                                     const std::function<bool(const Json::Value&)>& keep = nullptr) {
        std::vector<std::string> found;
        const Json::Value answer = api("GET", "/api/" + list + (list == "devices" ? "" : "?start=0&max=500"));
        for (const Json::Value& record : answer[list]) {
            if (record["deviceID"] != "CHAOSKEEP" && record["userName"] != "keeper" && (!keep || keep(record))) {
                found.push_back(record[member].asString());
            }
        }
        return found;
    }
    // The access ID of a device that boundKey ("portBound", "telmiBound") says is free; a Tarn5
    // one for a binding.
    std::string freeDevice(const std::string& boundKey) {
        return any(records("devices", "deviceID", [&boundKey](const Json::Value& d) {
            return d[boundKey].asInt() == 0 && (boundKey != "portBound" || d["protocol"].asInt() == 4);
        }));
    }

    GatewayRun& gateway_;
    std::mt19937 random_;
    int devicesAdded_ = 0;
    int usersAdded_ = 0;
};

TEST(Chaos, ARandomWalkKeepsEveryPromise) {
    const unsigned long seed = fromEnvironment("ZQ_CHAOS_SEED", std::random_device {}());
    const unsigned long steps = fromEnvironment("ZQ_CHAOS_STEPS", 12);
    std::printf("chaos walk: ZQ_CHAOS_SEED=%lu ZQ_CHAOS_STEPS=%lu\n", seed, steps);
    SCOPED_TRACE("replay with ZQ_CHAOS_SEED=" + std::to_string(seed));

    GatewayRun gateway;
    StandInDevice device("chaos-cam", gateway.freePort(0));
    gateway.start();
    switchTelmi(gateway, 1);
    Walk walk(gateway, seed);
    for (unsigned long n = 1; n <= steps && !testing::Test::HasFailure(); ++n) {
        const std::string what = walk.step();
        SCOPED_TRACE("after step " + std::to_string(n) + ": " + what);
        walk.check();
    }
}

}  // namespace
