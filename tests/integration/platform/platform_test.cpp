// The reference platform's libraries, beyond what the platform contract (tests/contract) checks:
// signed and expiring nonces checked against an independent client (their scopes, through nginx:
// hostile_clients_test), the nonce book, text helpers, password rating, port probing and picking
// (libZQBase); the SQLite store's unique access IDs, records that outlive deletion, restarts,
// bounded lock-out books and device addresses that lead back into the gateway (libZQDeviceMgr);
// the device query (libZQDeviceMgrBus); the gateway's own settings (libZQGatewayCfg).
// libDriverMgr is tested with the media daemon.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <numeric>

#include "GatewayTestHome.h"
#include "StoreRecordText.h"
#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "ZQDeviceMgrBus.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayDigest.h"
#include "base/NonceUses.h"

using namespace gwtest;

TEST(DigestTest, IndependentHeadersPassAndForgedAndExpiredNoncesAreToldApart) {
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
        // qop answers of independent clients (curl, Python requests): gatewayd_test.
        EXPECT_EQ(check(nonce, "Gw#Pass2024", false), 0);
        // The nonce is proven ours now, but only in the scope it was issued in.
        ZQ_Gateway_SetDigestScope(ZQGateway::portModeScope(20001));
        EXPECT_EQ(check(nonce), -2);
        ZQ_Gateway_SetDigestScope("");
        EXPECT_EQ(check(nonce), 0) << "its first count";

        std::string forged = nonce;
        forged[30] = forged[30] == 'a' ? 'b' : 'a';  // inside the MAC that proves it ours
        EXPECT_EQ(check(forged), -3);
        std::string reissued = nonce;
        reissued[7] = reissued[7] == '0' ? '1' : '0';  // a changed issue time breaks the MAC too
        EXPECT_EQ(check(reissued), -3);

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
    const std::string macs(zqbase::NonceUses::kMacDigits, 'a');
    const zqbase::NonceUses::Proof p {macs, "user"};
    EXPECT_TRUE(book.admit(t, 1, 5, 0, p));
    EXPECT_TRUE(book.admit(t, 1, 3, 0, p)) << "parallel connections deliver counts out of order";
    EXPECT_FALSE(book.admit(t, 1, 3, 0, p));
    EXPECT_FALSE(book.admit(t, 1, 5, 0, p));
    EXPECT_TRUE(book.admit(t, 1, 5 + zqbase::NonceUses::kWindow - 1, 0, p));
    EXPECT_TRUE(book.admit(t, 1, 6, 0, p)) << "the oldest count the window still holds";
    EXPECT_FALSE(book.admit(t, 1, 4, 0, p)) << "below the window: cannot be told from a replay";
    EXPECT_TRUE(book.admit(t, 2, 0, 0, p));
    EXPECT_FALSE(book.admit(t, 2, 0, 0, p)) << "a nonce without qop serves one request";
    EXPECT_TRUE(book.proven(t, 2, p));
    const std::string otherMacs(zqbase::NonceUses::kMacDigits, 'b');
    EXPECT_FALSE(book.proven(t, 2, {otherMacs, "user"}));
    EXPECT_FALSE(book.proven(t, 2, {macs, "port:20001"}));
    EXPECT_FALSE(book.proven(t, 9, p));

    // Full: the earliest-issued nonce is forgotten, and with it every nonce issued no later.
    for (uint64_t r = 0; book.admit(t + 1, 100 + r, 1, 0, p) && r < zqbase::NonceUses::kCapacity; ++r) {
    }
    EXPECT_FALSE(book.admit(t, 1, 5 + zqbase::NonceUses::kWindow, 0, p)) << "forgotten: refused, never admitted afresh";
    EXPECT_FALSE(book.admit(t, 3, 1, 0, p));
    EXPECT_TRUE(book.admit(t + 2, 1, 1, 0, p));
    // Nonces past their lifetime are dropped first, without the capacity running out.
    EXPECT_FALSE(book.admit(t + 1, 7, 1, t + 2, p));
    EXPECT_TRUE(book.admit(t + 3, 7, 1, t + 2, p));
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

    // A password holding the user name in any case: telmictl_test's "MyAdmin1".
    EXPECT_EQ(ZQ_BASE_GetPasswrodLevel(nullptr, "u"), -1);
    const std::pair<const char*, int> levels[] = {{"p\xc3\xa4sswort1", -1}, {"tab\there1", -1}, {"Ab1!", 0},
                                                  {"abcdefgh", 0},          {"abcdefg1", 1},    {"Abcdefg1", 2},
                                                  {"Abcde f1!", 3}};
    for (const auto& [password, level] : levels) {
        EXPECT_EQ(ZQ_BASE_GetPasswrodLevel(password, "u"), level) << password;
    }
}

// Listeners and their holders are the contract's; here what only real sockets show: a listener
// that connections to 127.0.0.1 never reach is found all the same, and ports listened on, bound
// or reserved by any process are skipped, until none is left.
TEST(PortTest, ProbingFindsIPv6OnlyListenersAndPickingSkipsListenedBoundAndReservedPortsAcrossProcesses) {
    const unsigned short port = testPortBlock(1);
    EXPECT_EQ(CheckPort(port, 2), -2);
    if (Listener ipv6Only(port, Listener::Family::ipv6Only); ipv6Only.ok()) {
        EXPECT_EQ(CheckPort(port, 1), -1);
        EXPECT_NE(CheckPortOccupy({1}, "0.0.0.0", port, 1), 0);
        EXPECT_EQ(CheckPortOccupy({getpid()}, "0.0.0.0", port, 1), 0);
    }

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
    std::istringstream picked(fileText(a) + fileText(b));
    std::vector<int> ports(std::istream_iterator<int>(picked), {});
    std::vector<int> expected(56);
    std::sort(ports.begin(), ports.end());
    std::iota(expected.begin(), expected.end(), first + 4);
    EXPECT_EQ(ports, expected) << "each free port handed out once";
}

// A restart loads what was committed, deletions and lock-outs too (bindings as stored: the port
// list of a restored home in gateway_operations_test; a port's state read back: telmictl_test).
TEST(DeviceStoreTest, AccessIdsAreUniqueRecordsOutliveDeletionAndBoundedLockOutsOutliveARestart) {
    TempHome home;
    inChild(home, [] {
        changeSettings([](auto& s) { s.lockPeriodSec = 4; });
        const std::string tarn = registerDevice(2, "T1"), tarn5 = registerDevice(4, "T5");
        ZQGateway::tagDeviceInfo twin;
        twin.protocol = 4;
        twin.tarn5DeviceID = "T1";
        std::string twinIndex;
        EXPECT_EQ(ZQ_DeviceMgr_RegisterDevice(twinIndex, twin), ZQGateway::storeDeviceIdTaken)
            << "an access ID names one device, whatever its protocol";
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> deleted, user;
        ZQDeviceMgr::tagTELMIUser unterminated = userRecord("dave", tarn5);
        std::memset(unterminated.userName, 'x', sizeof(unterminated.userName));
        EXPECT_EQ(ZQ_DeviceMgr_AddTELMIUser(user, unterminated), ZQGateway::storeBadArgument);
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(deleted, userRecord("alice", tarn)), 0);
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(user, userRecord("bob", tarn5)), 0);
        ASSERT_EQ(ZQ_DeviceMgr_DelTELMIUser(deleted->getUserIndex()), 0);
        EXPECT_EQ(deleted->getUserName(), "alice") << "a held record stays valid";
        int slot = 0;
        EXPECT_EQ(deleted->getLockNum(slot, "10.0.0.1", 1), 0) << "a deleted record counts nothing";

        for (int i = 1; i <= 7; ++i) {
            user->getLockNum(slot, "127.0.0.2", 1);
        }
        EXPECT_LE(user->getUnlockTime(slot, "127.0.0.2"), 4) << "locked for the configured period";
        // One failure each from 300 other requesters, IPv4 and IPv6 /64 keys as the front ends
        // make them: the locked key stays locked, and past the limit every requester is.
        for (int i = 0; i < 300; ++i) {
            char v6[19];
            std::snprintf(v6, sizeof(v6), "6fd000000000%04x", i);
            const std::string key =
                i % 2 == 0 ? "127.0." + std::to_string(i / 250 + 1) + "." + std::to_string(i % 250) : std::string(v6);
            user->getLockNum(slot, key.c_str(), 1);
            ASSERT_GE(user->getLockNum(slot, "127.0.0.2", 0), 7) << "after " << i + 1 << " requesters";
            ASSERT_GT(user->getUnlockTime(slot, "127.0.0.2"), 0) << "after " << i + 1 << " requesters";
        }
        EXPECT_EQ(user->getLockNum(slot, "10.9.9.9", 0), 7) << "a newcomer meets the record's lock";
        EXPECT_GT(user->getUnlockTime(slot, "10.9.9.9"), 0);
        user->destroyLock(slot, "10.9.9.9");
        EXPECT_GT(user->getUnlockTime(slot, "10.9.9.9"), 0) << "one requester's success does not lift it";
    });
    inChild(home, [&home] {
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ASSERT_EQ(ZQ_DeviceMgr_GetAllTELMIUser(users), 0);
        ASSERT_EQ(users.size(), 1u);
        EXPECT_EQ(users[0]->getUserName(), "bob") << "the deletion was committed too";
        int slot = 0;
        EXPECT_GT(users[0]->getUnlockTime(slot, "127.0.0.2"), 0) << "the lock survived a restart";
        EXPECT_GT(users[0]->getUnlockTime(slot, "10.9.9.9"), 0) << "so did the record's";
        const std::string rows = runPython(
            "import sqlite3, sys\n"
            "db = sqlite3.connect(f'file:{sys.argv[1]}?mode=ro', uri=True)\n"
            "print(db.execute('SELECT COUNT(*) FROM lockouts').fetchone()[0])\n",
            {home.path() + "/devices.db"});
        EXPECT_LE(std::stoul(rows), ZQGateway::kMaxLockKeysPerRecord + 1) << "memory and table stay bounded";
        ::sleep(5);  // past the lock period
        EXPECT_EQ(users[0]->getUnlockTime(slot, "127.0.0.2"), 0);
        EXPECT_EQ(users[0]->getUnlockTime(slot, "10.9.9.9"), 0);
        EXPECT_EQ(users[0]->getLockNum(slot, "127.0.0.2", 1), 1) << "counting starts again";
    });
}

TEST(DeviceStoreTest, AddressesLeadingBackIntoTheGatewayAreRefusedAndLoggedEscaped) {
    TempHome home;
    inChild(home, [&home] {
        const auto registers = [](const std::string& id, const std::string& rtsp, const std::string& telmi = "") {
            ZQGateway::tagDeviceInfo info;
            info.tarnDeviceID = id;
            info.rtspAddress = rtsp;
            info.telmiAddress = telmi;
            std::string index;
            return ZQ_DeviceMgr_RegisterDevice(index, info);
        };
        for (const char* refused :
             {"rtsp://127.0.0.1:554", "127.8.9.10:8000", "rtsp://[::1]:554", "localhost", "rtsp://169.254.0.5/",
              "[fe80::1]:554", "224.0.0.1:554", "rtsp://[ff02::1]", "0.0.0.0:554", "[::]:554",
              "rtsp://[::ffff:127.0.0.1]:554", "rtsp://user:pw@127.0.0.1:554/stream", "rtsp://camera.example:554"}) {
            EXPECT_EQ(registers("R", refused), ZQGateway::storeAddressRefused) << refused;
            EXPECT_EQ(registers("R", "", std::string("http://") + refused), ZQGateway::storeAddressRefused) << refused;
        }
        // Private IPv4 devices are every test's registerDevice.
        EXPECT_EQ(registers("OK", "[2001:db8::5]:8554"), 0);

        ZQGateway::tagGatewaySettings settings;
        ZQ_Gateway_GetSettings(settings);
        settings.allowedDeviceNetworks = {"127.0.0.0/8", "fe80::/64"};
        ASSERT_EQ(ZQ_Gateway_SetSettings(settings), 0);
        EXPECT_EQ(registers("LOOP", "rtsp://127.0.0.1:9554", "http://[fe80::1]:8080"), 0) << "allowed networks";
        for (const uint16_t port :
             {settings.managementPort, settings.telmiUserPort, settings.httpPortFirst, settings.rtspPortLast}) {
            EXPECT_EQ(registers("OWN", "rtsp://127.0.0.1:" + std::to_string(port)), ZQGateway::storeAddressRefused)
                << "the gateway's own port " << port << ", allowed network or not";
        }
        settings.allowedDeviceNetworks = {"127.0.0.0/33"};
        EXPECT_EQ(ZQ_Gateway_SetSettings(settings), ZQGateway::configBadArgument);
        settings.allowedDeviceNetworks = {};
        settings.serviceUser = "root";
        EXPECT_EQ(ZQ_Gateway_SetSettings(settings), ZQGateway::configBadArgument);

        // The refusal names the device; a line break in its ID cannot start a line of its own.
        EXPECT_EQ(registers("EVIL\nERROR forged", "127.0.0.1:" + std::to_string(settings.managementPort)),
                  ZQGateway::storeAddressRefused);
        const std::string text = fileText(home.path() + "/log/gateway.log");
        EXPECT_NE(text.find("device EVIL\\x0aERROR forged not registered"), std::string::npos) << text;
        EXPECT_EQ(text.find("\nERROR forged"), std::string::npos) << text;
    });
}

TEST(DeviceBusTest, KindFilterKeyWordAndMaxNum) {
    TempHome home;
    inChild(home, [] {
        registerDevice(2, "T1", "");
        const std::string both = registerDevice(4, "T5-both");
        const std::string telmiOnly = registerDevice(4, "T5-telmi", "");
        registerDevice(4, "T5-none", "", "");
        registerDevice(1, "other");
        auto query = [](uint8_t kind, uint8_t filter, const char* keyWord = "", int maxNum = 100) {
            ZQDeviceMgrBus::tagDevQueryCond cond {};
            cond.maxNum = maxNum;
            std::strncpy(cond.keyWord, keyWord, sizeof(cond.keyWord) - 1);
            cond.devKind = kind;
            cond.devFilter = filter;
            std::vector<std::shared_ptr<ZQDeviceMgr::CKelDevice>> devices;
            int total = 0, count = 0;
            EXPECT_EQ(ZQ_DeviceMgrBus_QueryDeviceList(devices, total, count, cond), 0);
            EXPECT_EQ(count, static_cast<int>(devices.size()));
            return devices;
        };
        EXPECT_EQ(query(6, 1).size(), 3u);
        ASSERT_EQ(query(4, 3).size(), 1u);
        EXPECT_EQ(query(4, 3)[0]->getDeviceIndex(), both);
        EXPECT_EQ(query(0, 0).size(), 5u);
        EXPECT_EQ(query(6, 1, "T5-telmi").size(), 1u);
        EXPECT_EQ(query(6, 1, "T5").size(), 0u) << "the key word is a whole access ID";
        EXPECT_EQ(query(6, 0, "", 2).size(), 2u);

        // Quick users go to devices without an account; the key word still finds a bound one.
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> added;
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(added, userRecord("u", telmiOnly)), 0);
        EXPECT_EQ(query(6, 1).size(), 2u);
        EXPECT_EQ(query(6, 1, "T5-telmi").size(), 1u);
    });
}

TEST(ConfigTest, SwitchAndBothAdminsPersistHeldViewsLastAndABrokenFileIsNeverOverwritten) {
    TempHome home;
    inChild(home, [] {
        std::string ha1;
        EXPECT_NE(ZQ_Gateway_Init(""), 0);
        ASSERT_EQ(ZQ_Gateway_Init("Adm1n!pass"), 0);
        EXPECT_EQ(ZQ_Gateway_GetManagerHA1("admin", ha1), ZQGateway::configNoUser) << "two credentials, not one";
        ASSERT_EQ(ZQ_Gateway_SetManagerPassword("admin", "Adm1n!pass"), 0);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(1), 0);
    });
    inChild(home, [&home] {
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        // The TELMI realm's HA1 is the contract's; a process that did not set it reads it in every
        // port-mode login of gatewayd_test.
        std::string ha1;
        ASSERT_EQ(ZQ_Gateway_GetManagerHA1("admin", ha1), 0);
        EXPECT_EQ(ha1, md5Of("admin:ZQ gateway management:Adm1n!pass")) << "the management realm's own";

        ZQ_Gateway_HoldSettings(true);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        std::ofstream(home.path() + "/gateway.json") << "{ broken";
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1) << "a held view lasts until released";
        ZQ_Gateway_HoldSettings(false);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 0) << "released: the file as it is now";
        EXPECT_NE(ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(0), 0);
        EXPECT_EQ(fileText(home.path() + "/gateway.json"), "{ broken");

        // Replaced by a rename, as editors and the gateway's own writer do, then removed.
        std::ofstream(home.path() + "/gateway.json.new") << R"({"telmiParam": 1})";
        ASSERT_EQ(::rename((home.path() + "/gateway.json.new").c_str(), (home.path() + "/gateway.json").c_str()), 0);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        ASSERT_EQ(::unlink((home.path() + "/gateway.json").c_str()), 0);
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 0);
        // A child forked while the file is watched must not take the news of its own write away.
        EXPECT_TRUE(inChild(home, [] {
            EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->setTELMIParam(1), 0);
            EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
        }));
        EXPECT_EQ(ZQ_ConfigMgr_GetTELMICfg()->getTELMIParam(), 1);
    });
}
