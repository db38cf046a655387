// libZQBase of the reference platform: signed, scoped and expiring nonces checked against an
// independent client, the nonce book, header text helpers, password rating, port probing and
// picking. What any platform owes the library is the contract's (tests/contract).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "GatewayTestHome.h"
#include "StoreRecordText.h"
#include "ZQBase.h"
#include "ZQDeviceMgr.h"
#include "ZQGatewayDigest.h"
#include "base/NonceUses.h"

using namespace gwtest;

TEST(DigestTest, IndependentHeadersPassAndForgedScopedAndExpiredNoncesAreToldApart) {
    TempHome home;
    inChild(home, [] {
        char nonce[64] = {};
        ASSERT_EQ(CreateNonce(nonce, sizeof(nonce)), 0);
        ASSERT_EQ(std::strlen(nonce), 56u);
        const std::string ha1 = md5Of("alice:TELMI:Gw#Pass2024");
        auto check = [&ha1](const std::string& n, const std::string& password = "Gw#Pass2024", bool qop = true) {
            const std::string header =
                pythonDigestHeader("alice", "TELMI", password, "GET", "/TELMI/System/status", n, qop);
            return ZQ_BASE_CheckDigest("GET", header.c_str(), ha1.c_str());
        };
        EXPECT_EQ(check(nonce), 0);
        EXPECT_EQ(check(nonce, "Gw#Pass2024", false), 0);

        std::string forged = nonce;
        forged[30] = forged[30] == 'a' ? 'b' : 'a';  // inside the MAC that proves it ours
        EXPECT_EQ(check(forged), -3);
        std::string reissued = nonce;
        reissued[7] = reissued[7] == '0' ? '1' : '0';  // a changed issue time breaks the MAC too
        EXPECT_EQ(check(reissued), -3);
        // A nonce of another service's scope is stale, so that an honest client of the wrong
        // scope simply answers a fresh challenge.
        ZQ_Gateway_SetDigestScope(ZQGateway::portModeScope(20001));
        char portNonce[64] = {};
        ASSERT_EQ(CreateNonce(portNonce, sizeof(portNonce)), 0);
        ZQ_Gateway_SetDigestScope(ZQGateway::portModeScope(20002));
        EXPECT_EQ(check(portNonce), -2);
        ZQ_Gateway_SetDigestScope(ZQGateway::portModeScope(20001));
        EXPECT_EQ(check(portNonce), 0);
        ZQ_Gateway_SetDigestScope("");

        // Shortened only now, so that a slow machine cannot age the nonces before the checks above.
        char aged[64] = {};
        ASSERT_EQ(CreateNonce(aged, sizeof(aged)), 0);
        changeSettings([](auto& s) { s.nonceLifetimeSec = 1; });
        ::sleep(3);
        EXPECT_EQ(check(aged), -2) << "never answered, but expired";
        EXPECT_EQ(check(aged, "wrong"), -1) << "a wrong answer is wrong before it is stale";

        const std::string n(nonce);
        for (const std::string& malformed :
             {std::string(), std::string("Digest"), std::string("Basic YWxpY2U6cHc="),
              "Digest username=\"alice, nonce=\"" + n + "\"", "Digest username=\"alice\",, nonce=\"" + n + "\"",
              "Digest username=\"a\", username=\"b\", nonce=\"" + n + "\", uri=\"/\", response=\"x\"",
              "Digest username=\"alice\", nonce=\"" + n + "\", uri=\"/\", qop=auth, response=\"00\"",
              "Digest " + std::string(9000, 'x')}) {
            EXPECT_EQ(ZQ_BASE_CheckDigest("GET", malformed.c_str(), ha1.c_str()), -1) << malformed.substr(0, 80);
        }
    });
}

TEST(DigestTest, NonceCountsAreAnsweredOnceInAnyOrderWithinABoundedBook) {
    zqbase::NonceUses book;
    const int64_t t = 1000;
    EXPECT_TRUE(book.admit(t, 1, 5, 0));
    EXPECT_TRUE(book.admit(t, 1, 3, 0)) << "parallel connections deliver counts out of order";
    EXPECT_FALSE(book.admit(t, 1, 3, 0));
    EXPECT_FALSE(book.admit(t, 1, 5, 0));
    EXPECT_TRUE(book.admit(t, 1, 5 + zqbase::NonceUses::kWindow - 1, 0));
    EXPECT_TRUE(book.admit(t, 1, 6, 0)) << "the oldest count the window still holds";
    EXPECT_FALSE(book.admit(t, 1, 4, 0)) << "below the window: cannot be told from a replay";
    EXPECT_TRUE(book.admit(t, 2, 0, 0));
    EXPECT_FALSE(book.admit(t, 2, 0, 0)) << "a nonce without qop serves one request";

    // Full: the earliest-issued nonce is forgotten, and with it every nonce issued no later.
    for (uint64_t r = 0; book.admit(t + 1, 100 + r, 1, 0) && r < zqbase::NonceUses::kCapacity; ++r) {
    }
    EXPECT_FALSE(book.admit(t, 1, 5 + zqbase::NonceUses::kWindow, 0)) << "forgotten: refused, never admitted afresh";
    EXPECT_FALSE(book.admit(t, 3, 1, 0));
    EXPECT_TRUE(book.admit(t + 2, 1, 1, 0));
    // Nonces past their lifetime are dropped first, without the capacity running out.
    EXPECT_FALSE(book.admit(t + 1, 7, 1, t + 2));
    EXPECT_TRUE(book.admit(t + 3, 7, 1, t + 2));
}

TEST(TextHelpersTest, MiddleStringBoundsAndPasswordRating) {
    char out[8];
    const char* header = "Digest username=\"bob\", realm=\"x\"";
    EXPECT_EQ(GetMiddleString(header, 100, "username=\"", "\"", out, 4), 1);
    EXPECT_STREQ(out, "bob");
    EXPECT_EQ(GetMiddleString(header, 100, "username=\"", "\"", out, 3), 0) << "no room for the NUL";
    EXPECT_STREQ(out, "");
    EXPECT_EQ(GetMiddleString(header, 20, "username=\"", "\"", out, 8), 0) << "end marker beyond srcLen";
    EXPECT_EQ(GetMiddleString(header, 100, "nonce=\"", "\"", out, 8), 0);
    // A source without any NUL is read only within srcLen (AddressSanitizer watches).
    std::unique_ptr<char[]> raw(new char[6]);
    std::memcpy(raw.get(), "a=\"xy\"", 6);
    EXPECT_EQ(GetMiddleString(raw.get(), 6, "a=\"", "\"", out, 8), 1);
    EXPECT_STREQ(out, "xy");

    EXPECT_EQ(ZQ_BASE_GetPasswrodLevel(nullptr, "u"), -1);
    EXPECT_EQ(ZQ_BASE_GetPasswrodLevel("xxALICE99!", "alice"), 0) << "holds the user name";
    const std::pair<const char*, int> levels[] = {{"p\xc3\xa4sswort1", -1}, {"tab\there1", -1}, {"Ab1!", 0},
                                                  {"abcdefgh", 0},          {"abcdefg1", 1},    {"Abcdefg1", 2},
                                                  {"Abcde f1!", 3}};
    for (const auto& [password, level] : levels) {
        EXPECT_EQ(ZQ_BASE_GetPasswrodLevel(password, "u"), level) << password;
    }
}

// Listeners and their holders are the contract's; here what only real sockets show: a listener
// that connections to 127.0.0.1 never reach is found all the same.
TEST(PortTest, ProbingFindsIPv6OnlyListenersAndRefusesOtherModes) {
    const unsigned short port = testPortBlock(1);
    EXPECT_EQ(CheckPort(port, 2), -2);
    Listener ipv6Only(port, Listener::Family::ipv6Only);
    if (ipv6Only.ok()) {
        EXPECT_EQ(CheckPort(port, 1), -1);
        EXPECT_NE(CheckPortOccupy({1}, "0.0.0.0", port, 1), 0);
        EXPECT_EQ(CheckPortOccupy({getpid()}, "0.0.0.0", port, 1), 0);
    }
}

// Ports listened on, bound or reserved by any process are skipped, until none is left.
TEST(PortTest, PickingSkipsListenedBoundAndReservedPortsAcrossProcesses) {
    TempHome home;
    const unsigned short first = testPortBlock(60);
    Listener listener(first);
    ASSERT_TRUE(listener.ok());
    inChild(home, [first] {
        changeSettings([first](auto& s) {
            s.httpPortFirst = first;
            s.httpPortLast = static_cast<uint16_t>(first + 59);
        });
        std::shared_ptr<ZQDeviceMgr::CTELMIPort> bound;
        ASSERT_EQ(ZQ_DeviceMgr_BindTELMIPort(bound, portRecord(registerDevice(4, "P1"), first + 2, 0)), 0);
        unsigned short port = 0;
        EXPECT_EQ(getHttpPort(&port), 1);
        EXPECT_EQ(port, first + 1);
        EXPECT_EQ(getHttpPort(&port), 1);
        EXPECT_EQ(port, first + 3) << "first + 1 is reserved, first + 2 bound";
    });
    auto picker = [&home](const std::string& out) {
        return startChild(home, [out] {
            std::ofstream file(out);
            unsigned short port = 0;
            for (int i = 0; i < 60 && getHttpPort(&port) == 1; ++i) {
                file << port << "\n";
            }
        });
    };
    const std::string a = home.path() + "/a.txt", b = home.path() + "/b.txt";
    int childA = picker(a), childB = picker(b);
    if (!finished(childA) || !finished(childB)) {
        return;
    }
    std::multiset<int> ports, expected;
    for (const std::string& path : {a, b}) {
        std::ifstream in(path);
        ports.insert(std::istream_iterator<int>(in), {});
    }
    for (int port = first + 4; port <= first + 59; ++port) {
        expected.insert(port);
    }
    EXPECT_EQ(ports, expected) << "each free port handed out once";
}
