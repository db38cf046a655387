#include "LibraryTest.h"

namespace {

constexpr char kKey[] = "10.0.0.7:5123";
constexpr int kUser = ZQConfigMgr::userMode;
constexpr int kPort = ZQConfigMgr::portMode;

// A check's result code and response (leftTryNum, remainLockTime, challenge, deviceIndex), "-" for a
// text the check left alone.
using Outcome = std::tuple<int, int, int, std::string, std::string>;
Outcome untouched(int code) { return {code, -999, -888, "-", "-"}; }
Outcome refused(int leftTryNum, int remainLockTime, const std::string& challenge) {
    return {1028, leftTryNum, remainLockTime, challenge, "-"};
}
Outcome passed(const std::string& deviceIndex) { return {0, -999, -888, "-", deviceIndex}; }

std::string ha1Of(const std::string& user, const std::string& password, const std::string& realm = "TELMI") {
    return md5Of(user + ":" + realm + ":" + password);
}

// Heap-allocated at its exact size, so a read past the last field is caught under ASan.
std::unique_ptr<tagTELMIAuthReq> request(const std::string& header, unsigned short httpPort = 0,
                                         const std::string& key = kKey) {
    auto req = std::make_unique<tagTELMIAuthReq>();
    req->httpPort = httpPort;
    setField(req->lockKey, key);
    setField(req->authHeader, header);
    return req;
}

std::string challenge(const std::string& nonce, const char* stale, const std::string& realm = "TELMI") {
    return "Digest qop=\"auth\", realm=\"" + realm + "\", nonce=\"" + nonce + "\", stale=\"" + stale + "\"";
}

class AuthTest : public LibraryTest {
protected:
    // Checks with sentinels in every response field, so the outcome tells what the check wrote.
    Outcome check(const tagTELMIAuthReq& req, int mode, const std::string& method = "GET") {
        rsp_.leftTryNum = -999;
        rsp_.remainLockTime = -888;
        std::memset(rsp_.challenge, 'S', sizeof(rsp_.challenge));
        std::memset(rsp_.deviceIndex, 'D', sizeof(rsp_.deviceIndex));
        const int code = ZQ_TELMIMgrBus_CheckDigest(rsp_, method, req, static_cast<ZQConfigMgr::TELMIMode>(mode));
        auto text = [](const auto& field, char sentinel) {
            const std::string value(field, strnlen(field, sizeof(field)));
            return value == std::string(sizeof(field), sentinel) ? "-" : value;
        };
        return {code, rsp_.leftTryNum, rsp_.remainLockTime, text(rsp_.challenge, 'S'), text(rsp_.deviceIndex, 'D')};
    }

    // Seven wrong answers lock the requester out; once the store lets the lock lapse the
    // credentials are examined again, and a right answer clears the count. "viewer" answers
    // with one HA1 or the other; each right answer is accepted once, as a client's would be.
    void runLockOutStory(int mode, fake::FakeRecordLocks& locks, unsigned short httpPort, const std::string& wrongHA1,
                         const std::string& rightHA1, const std::string& deviceIndex) {
        const std::string key(kKey);
        const auto wrong = request(digestAnswer("viewer", wrongHA1), httpPort);
        const auto right = [&](const char* nonce, const char* requester) {
            return request(digestAnswer("viewer", rightHA1, nonce), httpPort, requester);
        };
        for (int failure = 1; failure <= 7; ++failure) {
            // The unlock time is the one read before the failure.
            const std::string nonce = "nonce" + std::to_string(failure);
            ASSERT_EQ(check(*wrong, mode), refused(7 - failure, 0, challenge(nonce, "FALSE")));
        }
        EXPECT_EQ(platform().journalWith("lock.getLockNum key=" + key + " slot=0 add=1").size(), 7u);

        const size_t examined = platform().journalWith("base.CheckDigest").size();
        EXPECT_EQ(check(*right("n0", kKey), mode), refused(0, 300, challenge("nonce8", "FALSE")));
        EXPECT_EQ(platform().journalWith("base.CheckDigest").size(), examined) << "locked: credentials not examined";
        EXPECT_EQ(check(*right("n1", "10.0.0.8:1"), mode), passed(deviceIndex)) << "another requester";

        locks.unlockTimes[key] = 0;
        EXPECT_EQ(check(*wrong, mode), refused(-1, 0, challenge("nonce9", "FALSE")))
            << "count 7 with no unlock time: examined again, not clamped";

        locks.unlockTimes[key] = 0;
        platform().journal.clear();
        EXPECT_EQ(check(*right("n2", kKey), mode), passed(deviceIndex));
        EXPECT_THAT(platform().journal, ElementsAre("lock.getLockNum key=" + key + " slot=0 add=0",
                                                    "lock.getUnlockTime key=" + key + " slot=0", "base.CheckDigest",
                                                    "lock.destroyLock key=" + key + " slot=0"));
        EXPECT_EQ(check(*wrong, mode), refused(6, 0, challenge("nonce10", "FALSE")))
            << "a right answer clears the count";
    }

    tagTelmiAuthRsp rsp_;
};

TEST_F(AuthTest, RfcWorkedExamplePassesWithTheAccountsHA1AndTheRequestsMethod) {
    platform().realm = "testrealm@host.com";
    platform().addUser("Mufasa", "dev-mufasa", ha1Of("Mufasa", "Circle Of Life", "testrealm@host.com"));
    auto req =
        request(R"(Digest username="Mufasa", realm="testrealm@host.com", nonce="dcd98b7102dd2f0e8b11d0f600bfb0c093", )"
                R"(uri="/dir/index.html", qop=auth, nc=00000001, cnonce="0a4f113b", )"
                R"(response="6629fae49393a05397450978507c4ef1", opaque="5ccc069c403ebaf9f0171e9517f40e41")");
    EXPECT_EQ(check(*req, kUser), passed("dev-mufasa"));
    EXPECT_EQ(check(*req, kUser, "POST"), refused(6, 0, challenge("nonce1", "FALSE", "testrealm@host.com")))
        << "the same answer to another method is wrong";
}

TEST_F(AuthTest, UserModeLocksOutAfterSevenWrongAnswers) {
    const std::string ha1 = ha1Of("viewer", "Right#Pass1");
    auto user = platform().addUser("viewer", "dev-1", ha1);
    runLockOutStory(kUser, user->locks, 0, ha1Of("viewer", "wrong"), ha1, "dev-1");
}

TEST_F(AuthTest, PortModeLocksOutAfterSevenWrongAnswersAgainstTheGatewayAdmin) {
    const std::string adminHA1 = ha1Of("admin", "Gateway#1");
    platform().gatewayHA1["admin"] = adminHA1;
    platform().addUser("viewer", "dev-user", ha1Of("viewer", "Other#1"));
    auto port = platform().addPort("dev-port", 20001, 30001);
    // The name in the header plays no part: only the admin's HA1 counts, and the viewer's own is wrong.
    runLockOutStory(kPort, port->locks, 20001, ha1Of("viewer", "Other#1"), adminHA1, "dev-port");
}

TEST_F(AuthTest, StaleNoncesAndAMissingUserConfigurationAreNotCounted) {
    const std::string ha1 = ha1Of("viewer", "Right#Pass1");
    auto user = platform().addUser("viewer", "dev-1", ha1);
    user->locks.counts[kKey] = 2;
    user->locks.unlockTimes[kKey] = 42;
    platform().staleNonces.insert("old");
    EXPECT_EQ(check(*request(digestAnswer("viewer", ha1, "old")), kUser), refused(5, 42, challenge("nonce1", "TRUE")));

    platform().gatewayHA1["admin"] = ha1Of("admin", "Gateway#1");
    auto port = platform().addPort("dev-port", 20001, 0);
    EXPECT_EQ(check(*request(digestAnswer("x", platform().gatewayHA1["admin"], "old"), 20001), kPort),
              refused(7, 0, challenge("nonce2", "TRUE")));

    port->locks.counts[kKey] = 3;
    platform().userCfgPresent = false;
    EXPECT_EQ(check(*request(digestAnswer("admin", "x"), 20001), kPort),
              refused(4, 0, challenge("nonce3", "FALSE", "")));
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] Get user config failed."));
    EXPECT_EQ(platform().journalWith("base.CheckDigest").size(), 2u) << "no configuration, nothing examined";
    EXPECT_THAT(platform().journalWith("lock.getLockNum"), ::testing::Each(EndsWith("add=0")));
    EXPECT_EQ(platform().journalWith("lock.getLockNum").size(), 3u) << "read once per check, never counted";
    EXPECT_THAT(platform().journalWith("lock.destroyLock"), IsEmpty());
}

TEST_F(AuthTest, RefusalsBeforeAnyCheckWriteOnlyWhatTheyMust) {
    platform().addUser("viewer", "dev-1", ha1Of("viewer", "Right#Pass1"));
    platform().addPort("dev-port", 20001, 0);
    // No user name: a challenge with a fresh nonce and the whole realm, up to the longest accounts
    // accept; the response field cuts a longer one at 5120 characters and terminates it.
    platform().realm = std::string(kMaxRealmLength, 'r');
    EXPECT_EQ(check(*request(R"(Digest realm="TELMI", nonce="n0")"), kUser),
              Outcome(1, -999, -888, challenge("nonce1", "FALSE", platform().realm), "-"));
    platform().realm = std::string(6000, 'r');
    EXPECT_EQ(check(*request(digestAnswer(std::string(600, 'x'), "whatever")), kUser),
              Outcome(1, -999, -888, challenge("nonce2", "FALSE", platform().realm).substr(0, 5120), "-"))
        << "a name too long to extract is no name";
    EXPECT_EQ(rsp_.challenge[5120], '\0');
    EXPECT_THAT(platform().logs, IsEmpty());

    // Unknown names, including one longer than any account's.
    platform().addUser(std::string(34, 'n'), "dev-long", "");
    for (const std::string& name : {std::string("Viewer"), std::string(34, 'n')}) {
        EXPECT_EQ(check(*request(digestAnswer(name, "whatever")), kUser), untouched(274)) << name.size();
    }
    EXPECT_EQ(messagesAt(5).size(), 2u);
    EXPECT_TRUE(platform().logged(5, "[%s(%d)] TELMI user is not exist."));
    EXPECT_THAT(platform().journalWith("base.CheckDigest"), IsEmpty());

    const std::string longest(33, 'm');  // still a name an account can carry
    platform().addUser(longest, "dev-33", ha1Of(longest, "p"));
    auto req33 = request(digestAnswer(longest, ha1Of(longest, "p")));
    EXPECT_EQ(check(*req33, kUser), passed("dev-33"));

    platform().logs.clear();
    EXPECT_EQ(check(*req33, 0), untouched(274));
    EXPECT_EQ(check(*req33, 3), untouched(274));
    EXPECT_EQ(check(*request(digestAnswer("admin", "x"), 0), kPort), untouched(1));
    EXPECT_EQ(check(*request(digestAnswer("admin", "x"), 20002), kPort), untouched(274));
    EXPECT_THAT(messagesAt(5),
                ElementsAre("The mode is not support.", "The mode is not support.", "[httpPort=0]TELMI port is error.",
                            "[httpPort=20002]TELMI port is not exist."));
    EXPECT_EQ(platform().noncesIssued, 2) << "only the missing names drew a challenge";
}

TEST_F(AuthTest, FirstMatchWinsAndHostFieldsAreReadWithinTheirWidths) {
    const std::string ha1 = ha1Of("viewer", "Right#Pass1");
    platform().addUser("viewer", "dev-" + std::string(40, '1'), ha1);
    platform().addUser("viewer", "dev-2", ha1);

    // Every byte of the lock key and the header is text, with no terminator.
    auto req = request(digestAnswer("viewer", ha1));
    std::memset(req->lockKey, 'K', sizeof(req->lockKey));
    const size_t used = std::strlen(req->authHeader);
    std::memset(req->authHeader + used, ' ', sizeof(req->authHeader) - used);
    EXPECT_EQ(check(*req, kUser), passed("dev-" + std::string(32, '1'))) << "36 characters and a terminator";
    EXPECT_EQ(platform().journal.front(), "lock.getLockNum key=" + std::string(18, 'K') + " slot=0 add=0");

    platform().gatewayHA1["admin"] = ha1Of("admin", "Gateway#1");
    platform().addPort("dev-a", 20001, 0);
    platform().addPort("dev-b", 20001, 0);
    EXPECT_EQ(check(*request(digestAnswer("admin", platform().gatewayHA1["admin"], "n1"), 20001), kPort),
              passed("dev-a"));
}

}  // namespace
