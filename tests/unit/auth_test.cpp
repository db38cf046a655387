#include <cstring>
#include <memory>
#include <string>

#include "LibraryTest.h"
#include "ZQTELMIMgrBus.h"
#include "base/Md5Hex.h"

using namespace ZQTELMIMgrBus;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

constexpr char kKey[] = "10.0.0.7:5123";

std::string ha1Of(const std::string& user, const std::string& realm, const std::string& password) {
    return zqbase::md5Hex(user + ":" + realm + ":" + password);
}

// A client's qop=auth answer computed from the HA1 it believes in.
std::string answer(const std::string& user, const std::string& ha1, const std::string& nonce = "n0") {
    const std::string uri = "/TELMI/System/deviceInfo";
    const std::string response =
        zqbase::md5Hex(ha1 + ":" + nonce + ":00000001:c0:auth:" + zqbase::md5Hex("GET:" + uri));
    return "Digest username=\"" + user + "\", realm=\"TELMI\", nonce=\"" + nonce + "\", uri=\"" + uri +
           "\", qop=auth, nc=00000001, cnonce=\"c0\", response=\"" + response + "\"";
}

// Heap-allocated at its exact size, so a read past the last field is caught under ASan.
std::unique_ptr<tagTELMIAuthReq> request(const std::string& header, unsigned short httpPort = 0,
                                         const std::string& key = kKey) {
    auto req = std::make_unique<tagTELMIAuthReq>();
    std::memset(req.get(), 0, sizeof(*req));
    req->httpPort = httpPort;
    std::memcpy(req->lockKey, key.data(), std::min(key.size(), sizeof(req->lockKey)));
    std::memcpy(req->authHeader, header.data(), std::min(header.size(), sizeof(req->authHeader)));
    return req;
}

// Sentinels everywhere, so a test sees exactly which fields the check wrote.
tagTelmiAuthRsp sentinelResponse() {
    tagTelmiAuthRsp rsp;
    rsp.leftTryNum = -999;
    rsp.remainLockTime = -888;
    std::memset(rsp.challenge, 'S', sizeof(rsp.challenge));
    std::memset(rsp.deviceIndex, 'D', sizeof(rsp.deviceIndex));
    return rsp;
}

bool challengeUntouched(const tagTelmiAuthRsp& rsp) {
    const tagTelmiAuthRsp sentinel = sentinelResponse();
    return std::memcmp(rsp.challenge, sentinel.challenge, sizeof(rsp.challenge)) == 0;
}
bool deviceIndexUntouched(const tagTelmiAuthRsp& rsp) {
    const tagTelmiAuthRsp sentinel = sentinelResponse();
    return std::memcmp(rsp.deviceIndex, sentinel.deviceIndex, sizeof(rsp.deviceIndex)) == 0;
}
// Field by field: the record's padding carries no meaning.
bool untouched(const tagTelmiAuthRsp& rsp) {
    return rsp.leftTryNum == -999 && rsp.remainLockTime == -888 && challengeUntouched(rsp) && deviceIndexUntouched(rsp);
}

std::string challengeText(const std::string& nonce, const char* stale, const std::string& realm = "TELMI") {
    return "Digest qop=\"auth\", realm=\"" + realm + "\", nonce=\"" + nonce + "\", stale=\"" + stale + "\"";
}

}  // namespace

class AuthTest : public LibraryTest {
protected:
    int check(tagTelmiAuthRsp& rsp, const tagTELMIAuthReq& req, ZQConfigMgr::TELMIMode mode,
              const std::string& method = "GET") {
        return ZQ_TELMIMgrBus_CheckDigest(rsp, method, req, mode);
    }

    // Seven wrong answers lock the requester out; once the store lets the lock lapse the
    // credentials are examined again, and a right answer clears the count.
    void runLockOutStory(ZQConfigMgr::TELMIMode mode, fake::FakeRecordLocks& locks, const tagTELMIAuthReq& wrong,
                         const tagTELMIAuthReq& right, const std::string& deviceIndex);
};

void AuthTest::runLockOutStory(ZQConfigMgr::TELMIMode mode, fake::FakeRecordLocks& locks,
                               const tagTELMIAuthReq& wrong, const tagTELMIAuthReq& right,
                               const std::string& deviceIndex) {
    for (int failure = 1; failure <= 7; ++failure) {
        tagTelmiAuthRsp rsp = sentinelResponse();
        ASSERT_EQ(check(rsp, wrong, mode), 1028);
        EXPECT_EQ(rsp.leftTryNum, 7 - failure);
        EXPECT_EQ(rsp.remainLockTime, 0) << "the unlock time read before the failure";
        EXPECT_EQ(std::string(rsp.challenge), challengeText("nonce" + std::to_string(failure), "FALSE"));
        EXPECT_TRUE(deviceIndexUntouched(rsp));
    }
    EXPECT_EQ(platform().journalWith("lock.getLockNum key=" + std::string(kKey) + " slot=0 add=1").size(), 7u);

    const size_t examined = platform().digestCalls.size();
    tagTelmiAuthRsp locked = sentinelResponse();
    EXPECT_EQ(check(locked, right, mode), 1028);
    EXPECT_EQ(locked.leftTryNum, 0);
    EXPECT_EQ(locked.remainLockTime, 300);
    EXPECT_EQ(std::string(locked.challenge), challengeText("nonce8", "FALSE"));
    EXPECT_EQ(platform().digestCalls.size(), examined) << "a locked requester's credentials are not examined";

    // Another requester is not affected by this one's lock.
    auto other = request(right.authHeader, right.httpPort, "10.0.0.8:1");
    tagTelmiAuthRsp otherRsp = sentinelResponse();
    EXPECT_EQ(check(otherRsp, *other, mode), 0);

    // Count 7 with no unlock time: examined again, and a wrong answer goes below zero.
    locks.setUnlockTime(kKey, 0);
    tagTelmiAuthRsp again = sentinelResponse();
    EXPECT_EQ(check(again, wrong, mode), 1028);
    EXPECT_EQ(again.leftTryNum, -1);

    locks.setUnlockTime(kKey, 0);
    platform().journal.clear();
    tagTelmiAuthRsp ok = sentinelResponse();
    EXPECT_EQ(check(ok, right, mode), 0);
    EXPECT_EQ(std::string(ok.deviceIndex), deviceIndex);
    EXPECT_EQ(ok.leftTryNum, -999);
    EXPECT_EQ(ok.remainLockTime, -888);
    EXPECT_TRUE(challengeUntouched(ok));
    const std::string key(kKey);
    EXPECT_THAT(platform().journal,
                ElementsAre("lock.getLockNum key=" + key + " slot=0 add=0", "lock.getUnlockTime key=" + key + " slot=0",
                            "base.CheckDigest", "lock.destroyLock key=" + key + " slot=0"));

    tagTelmiAuthRsp afterReset = sentinelResponse();
    EXPECT_EQ(check(afterReset, wrong, mode), 1028);
    EXPECT_EQ(afterReset.leftTryNum, 6) << "a right answer clears the count";
}

TEST_F(AuthTest, RfcWorkedExampleReachesTheDigestCheckWithTheAccountsHA1AndMethod) {
    platform().realm = "testrealm@host.com";
    const std::string ha1 = ha1Of("Mufasa", "testrealm@host.com", "Circle Of Life");
    platform().addUser("Mufasa", "dev-mufasa", ha1);
    auto req = request(
        "Digest username=\"Mufasa\", realm=\"testrealm@host.com\", nonce=\"dcd98b7102dd2f0e8b11d0f600bfb0c093\", "
        "uri=\"/dir/index.html\", qop=auth, nc=00000001, cnonce=\"0a4f113b\", "
        "response=\"6629fae49393a05397450978507c4ef1\", opaque=\"5ccc069c403ebaf9f0171e9517f40e41\"");

    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *req, ZQConfigMgr::userMode), 0);
    EXPECT_EQ(std::string(rsp.deviceIndex), "dev-mufasa");
    ASSERT_EQ(platform().digestCalls.size(), 1u);
    EXPECT_EQ(platform().digestCalls[0].method, "GET");
    EXPECT_EQ(platform().digestCalls[0].ha1, ha1);
    EXPECT_EQ(platform().digestCalls[0].header, std::string(req->authHeader));

    // The same answer to another method is wrong: the method is handed through.
    tagTelmiAuthRsp post = sentinelResponse();
    EXPECT_EQ(check(post, *req, ZQConfigMgr::userMode, "POST"), 1028);
    EXPECT_EQ(post.leftTryNum, 6);
    EXPECT_EQ(std::string(post.challenge), challengeText("nonce1", "FALSE", "testrealm@host.com"));
}

TEST_F(AuthTest, UserModeLocksOutAfterSevenWrongAnswers) {
    const std::string ha1 = ha1Of("viewer", "TELMI", "Right#Pass1");
    auto user = platform().addUser("viewer", "dev-1", ha1);
    auto wrong = request(answer("viewer", ha1Of("viewer", "TELMI", "wrong")));
    auto right = request(answer("viewer", ha1));
    runLockOutStory(ZQConfigMgr::userMode, user->locks, *wrong, *right, "dev-1");
}

TEST_F(AuthTest, PortModeLocksOutAfterSevenWrongAnswersAgainstTheGatewayAdmin) {
    const std::string adminHA1 = ha1Of("admin", "TELMI", "Gateway#1");
    platform().gatewayHA1["admin"] = adminHA1;
    platform().addUser("viewer", "dev-user", ha1Of("viewer", "TELMI", "Other#1"));
    auto port = platform().addPort("dev-port", 20001, 30001);
    // The name in the header plays no part: only the admin's HA1 counts.
    auto wrong = request(answer("viewer", ha1Of("viewer", "TELMI", "Other#1")), 20001);
    auto right = request(answer("anyone", adminHA1), 20001);
    runLockOutStory(ZQConfigMgr::portMode, port->locks, *wrong, *right, "dev-port");
    EXPECT_EQ(platform().digestCalls.back().ha1, adminHA1);
}

TEST_F(AuthTest, StaleNonceIsNotCountedAndAsksForARetry) {
    const std::string ha1 = ha1Of("viewer", "TELMI", "Right#Pass1");
    auto user = platform().addUser("viewer", "dev-1", ha1);
    user->locks.setLockNum(kKey, 2);
    user->locks.setUnlockTime(kKey, 42);
    platform().staleNonces.insert("old");
    auto req = request(answer("viewer", ha1, "old"));

    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *req, ZQConfigMgr::userMode), 1028);
    EXPECT_EQ(rsp.leftTryNum, 5);
    EXPECT_EQ(rsp.remainLockTime, 42);
    EXPECT_EQ(std::string(rsp.challenge), challengeText("nonce1", "TRUE"));
    EXPECT_TRUE(deviceIndexUntouched(rsp));
    EXPECT_THAT(platform().journalWith("lock.getLockNum"), ElementsAre(StartsWith("lock.getLockNum key=")));
    EXPECT_THAT(platform().journalWith("lock.destroyLock"), IsEmpty());

    // In port mode the same.
    platform().gatewayHA1["admin"] = ha1Of("admin", "TELMI", "Gateway#1");
    platform().addPort("dev-port", 20001, 0);
    platform().digestResults.push_back(-2);
    auto portReq = request("Digest username=\"x\"", 20001);
    tagTelmiAuthRsp portRsp = sentinelResponse();
    EXPECT_EQ(check(portRsp, *portReq, ZQConfigMgr::portMode), 1028);
    EXPECT_EQ(portRsp.leftTryNum, 7);
    EXPECT_EQ(std::string(portRsp.challenge), challengeText("nonce2", "TRUE"));
}

TEST_F(AuthTest, RefusalsBeforeAnyCheckWriteOnlyWhatTheyMust) {
    platform().addUser("viewer", "dev-1", ha1Of("viewer", "TELMI", "Right#Pass1"));
    platform().addPort("dev-port", 20001, 0);

    // No user name: a challenge and nothing else, no log.
    auto noName = request("Digest realm=\"TELMI\", nonce=\"n0\"");
    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *noName, ZQConfigMgr::userMode), 1);
    EXPECT_EQ(std::string(rsp.challenge), challengeText("nonce1", "FALSE"));
    EXPECT_EQ(rsp.leftTryNum, -999);
    EXPECT_EQ(rsp.remainLockTime, -888);
    EXPECT_TRUE(deviceIndexUntouched(rsp));
    EXPECT_THAT(platform().logs, IsEmpty());

    // Unknown names, including one longer than any account's and one far too long to hold.
    platform().addUser(std::string(34, 'n'), "dev-long", "");
    for (const std::string& name : {std::string("Viewer"), std::string(34, 'n'), std::string(600, 'x')}) {
        auto unknown = request(answer(name, "whatever"));
        tagTelmiAuthRsp unknownRsp = sentinelResponse();
        EXPECT_EQ(check(unknownRsp, *unknown, ZQConfigMgr::userMode), 274) << name.size();
        EXPECT_TRUE(untouched(unknownRsp));
    }
    EXPECT_EQ(platform().logsAt(5).size(), 3u);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] TELMI user is not exist."));
    EXPECT_THAT(platform().digestCalls, IsEmpty());

    // A name of 33 characters is still one an account can carry.
    const std::string longest(33, 'm');
    platform().addUser(longest, "dev-33", ha1Of(longest, "TELMI", "p"));
    auto req33 = request(answer(longest, ha1Of(longest, "TELMI", "p")));
    tagTelmiAuthRsp rsp33 = sentinelResponse();
    EXPECT_EQ(check(rsp33, *req33, ZQConfigMgr::userMode), 0);

    platform().logs.clear();
    for (int mode : {0, 3}) {
        tagTelmiAuthRsp modeRsp = sentinelResponse();
        EXPECT_EQ(check(modeRsp, *req33, static_cast<ZQConfigMgr::TELMIMode>(mode)), 274);
        EXPECT_TRUE(untouched(modeRsp));
    }
    ASSERT_EQ(platform().logs.size(), 2u);
    EXPECT_EQ(platform().logs[0].level, 5);
    EXPECT_EQ(platform().logs[0].module, "ZQN");
    EXPECT_EQ(platform().logs[0].format, "[%s(%d)] The mode is not support.");
    EXPECT_THAT(platform().logs[0].text, StartsWith("[checkDigest("));

    // Port mode: port 0 and an unbound port.
    platform().logs.clear();
    tagTelmiAuthRsp zeroRsp = sentinelResponse();
    EXPECT_EQ(check(zeroRsp, *request(answer("admin", "x"), 0), ZQConfigMgr::portMode), 1);
    EXPECT_TRUE(untouched(zeroRsp));
    tagTelmiAuthRsp unboundRsp = sentinelResponse();
    EXPECT_EQ(check(unboundRsp, *request(answer("admin", "x"), 20002), ZQConfigMgr::portMode), 274);
    EXPECT_TRUE(untouched(unboundRsp));
    ASSERT_EQ(platform().logs.size(), 2u);
    EXPECT_EQ(platform().logs[0].format, "[%s(%d)] [httpPort=%d]TELMI port is error.");
    EXPECT_THAT(platform().logs[0].text, StartsWith("[checkDigest("));
    EXPECT_THAT(platform().logs[0].text, HasSubstr(")] [httpPort=0]TELMI port is error."));
    EXPECT_EQ(platform().logs[1].format, "[%s(%d)] [httpPort=%d]TELMI port is not exist.");
    EXPECT_THAT(platform().logs[1].text, HasSubstr(")] [httpPort=20002]TELMI port is not exist."));
    EXPECT_EQ(platform().noncesIssued, 1);
}

TEST_F(AuthTest, ChallengeCarriesAFreshNonceAndStaysWithinItsBuffer) {
    std::string head = "old";
    EXPECT_EQ(mgr().buildUnauthorHead(head, 0), 0);
    EXPECT_EQ(head, challengeText("nonce1", "FALSE"));
    EXPECT_EQ(mgr().buildUnauthorHead(head, 5), 0);
    EXPECT_EQ(head, challengeText("nonce2", "TRUE"));

    // Without the user configuration the realm is empty.
    platform().userCfgPresent = false;
    mgr().buildUnauthorHead(head, 0);
    EXPECT_EQ(head, challengeText("nonce3", "FALSE", ""));

    // A very long realm is cut at the formatting buffer, and the response copy is terminated.
    platform().userCfgPresent = true;
    platform().realm = std::string(1000, 'r');
    platform().addUser("viewer", "dev-1", "");
    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *request("Digest nonce=\"n0\""), ZQConfigMgr::userMode), 1);
    const std::string expected = challengeText("nonce4", "FALSE", platform().realm).substr(0, 255);
    EXPECT_EQ(std::string(rsp.challenge), expected);
    EXPECT_EQ(rsp.challenge[256], 'S') << "nothing written past the terminator";
}

TEST_F(AuthTest, FirstMatchWinsAndHostFieldsAreReadWithinTheirWidths) {
    const std::string ha1 = ha1Of("viewer", "TELMI", "Right#Pass1");
    platform().addUser("viewer", "dev-" + std::string(40, '1'), ha1);
    platform().addUser("viewer", "dev-2", ha1);

    // Every byte of the lock key and the header is text, with no terminator.
    auto req = request(answer("viewer", ha1));
    std::memset(req->lockKey, 'K', sizeof(req->lockKey));
    const size_t used = std::strlen(req->authHeader);
    std::memset(req->authHeader + used, ' ', sizeof(req->authHeader) - used);

    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *req, ZQConfigMgr::userMode), 0);
    EXPECT_EQ(std::string(rsp.deviceIndex), "dev-" + std::string(32, '1')) << "36 characters and a terminator";
    EXPECT_EQ(platform().digestCalls[0].header.size(), sizeof(req->authHeader));
    EXPECT_EQ(platform().journal.front(), "lock.getLockNum key=" + std::string(18, 'K') + " slot=0 add=0");
    EXPECT_THAT(platform().journal, ::testing::Contains("lock.destroyLock key=" + std::string(18, 'K') + " slot=0"));

    // Ports likewise: the first binding of the port is the one checked.
    platform().gatewayHA1["admin"] = ha1Of("admin", "TELMI", "Gateway#1");
    platform().addPort("dev-a", 20001, 0);
    platform().addPort("dev-b", 20001, 0);
    tagTelmiAuthRsp portRsp = sentinelResponse();
    EXPECT_EQ(check(portRsp, *request(answer("admin", platform().gatewayHA1["admin"]), 20001),
                    ZQConfigMgr::portMode), 0);
    EXPECT_EQ(std::string(portRsp.deviceIndex), "dev-a");
}

TEST_F(AuthTest, PortModeWithoutTheUserConfigurationRefusesWithoutCounting) {
    auto port = platform().addPort("dev-port", 20001, 0);
    port->locks.setLockNum(kKey, 3);
    platform().userCfgPresent = false;

    tagTelmiAuthRsp rsp = sentinelResponse();
    EXPECT_EQ(check(rsp, *request(answer("admin", "x"), 20001), ZQConfigMgr::portMode), 1028);
    EXPECT_EQ(rsp.leftTryNum, 4);
    EXPECT_EQ(rsp.remainLockTime, 0);
    EXPECT_EQ(std::string(rsp.challenge), challengeText("nonce1", "FALSE", ""));
    EXPECT_THAT(platform().digestCalls, IsEmpty());
    EXPECT_THAT(platform().journalWith("lock.getLockNum"), ElementsAre(HasSubstr("add=0")));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] Get user config failed."));
}
