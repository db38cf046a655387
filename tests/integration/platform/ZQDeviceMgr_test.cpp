// libZQDeviceMgr of the reference platform: what only the gateway's SQLite store does beyond the
// contract (tests/contract): unique access IDs, records that outlive deletion, restarts, bounded
// lock-out books, and device addresses that lead back into the gateway.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>

#include "GatewayTestHome.h"
#include "StoreRecordText.h"
#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"

using namespace gwtest;

TEST(DeviceStoreTest, AccessIdsAreUniqueRecordsOutliveDeletionAndARestartLoadsWhatWasCommitted) {
    TempHome home;
    inChild(home, [] {
        const std::string tarn = registerDevice(2, "T1"), tarn5 = registerDevice(4, "T5");
        ZQGateway::tagDeviceInfo twin;
        twin.protocol = 4;
        twin.tarn5DeviceID = "T1";
        std::string twinIndex;
        EXPECT_EQ(ZQ_DeviceMgr_RegisterDevice(twinIndex, twin), ZQGateway::storeDeviceIdTaken)
            << "an access ID names one device, whatever its protocol";
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> user, other;
        ZQDeviceMgr::tagTELMIUser unterminated = userRecord("dave", tarn5);
        std::memset(unterminated.userName, 'x', sizeof(unterminated.userName));
        EXPECT_EQ(ZQ_DeviceMgr_AddTELMIUser(other, unterminated), ZQGateway::storeBadArgument);
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(user, userRecord("alice", tarn)), 0);
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(other, userRecord("bob", tarn5)), 0);

        std::shared_ptr<ZQDeviceMgr::CTELMIPort> port, fetched;
        ASSERT_EQ(ZQ_DeviceMgr_BindTELMIPort(port, portRecord(tarn5, 38101, 38102)), 0);
        port->setHttpPortStatus(1);
        ASSERT_EQ(ZQ_DeviceMgr_GetTELMIPort(fetched, port->getPortIndex()), 0);
        EXPECT_EQ(dynamic_cast<ZQGateway::CGatewayPort&>(*fetched).getHttpPortStatus(), 1);

        ASSERT_EQ(ZQ_DeviceMgr_DelTELMIUser(user->getUserIndex()), 0);
        EXPECT_EQ(user->getUserName(), "alice") << "a held record stays valid";
        int slot = 0;
        EXPECT_EQ(user->getLockNum(slot, "10.0.0.1", 1), 0) << "a deleted record counts nothing";
    });
    inChild(home, [] {  // a restart loads what was committed, in add order
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>> users;
        ASSERT_EQ(ZQ_DeviceMgr_GetAllTELMIUser(users), 0);
        ASSERT_EQ(users.size(), 1u);
        EXPECT_EQ(users[0]->getUserName(), "bob");
        std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
        ZQ_DeviceMgr_GetAllTELMIPort(ports);
        ASSERT_EQ(ports.size(), 1u);
        EXPECT_EQ(ports[0]->getRtspPort(), 38102);
    });
}

TEST(DeviceStoreTest, LockOutCountsLocksAndCannotBeFlushedByManyRequesters) {
    TempHome home;
    inChild(home, [] {
        changeSettings([](auto& s) { s.lockPeriodSec = 4; });
        std::shared_ptr<ZQDeviceMgr::CTELMIUser> user;
        ASSERT_EQ(ZQ_DeviceMgr_AddTELMIUser(user, userRecord("alice", registerDevice(2, "T1"))), 0);
        int slot = 0;
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
        int slot = 0;
        EXPECT_GT(users[0]->getUnlockTime(slot, "127.0.0.2"), 0) << "the lock survived a restart";
        EXPECT_GT(users[0]->getUnlockTime(slot, "10.9.9.9"), 0) << "so did the record's";
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open_v2((home.path() + "/devices.db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr),
                  SQLITE_OK);
        sqlite3_stmt* rows = nullptr;
        sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM lockouts", -1, &rows, nullptr);
        ASSERT_EQ(sqlite3_step(rows), SQLITE_ROW);
        EXPECT_LE(sqlite3_column_int64(rows, 0), int64_t {ZQGateway::kMaxLockKeysPerRecord + 1})
            << "memory and table stay bounded";
        sqlite3_finalize(rows);
        sqlite3_close(db);
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
        EXPECT_EQ(registers("OK1", "rtsp://10.0.0.9:554/stream", "http://192.0.2.7"), 0);
        EXPECT_EQ(registers("OK2", "[2001:db8::5]:8554"), 0);

        ZQGateway::tagGatewaySettings settings;
        ZQ_Gateway_GetSettings(settings);
        settings.allowedDeviceNetworks = {"127.0.0.0/8", "fe80::/64"};
        ASSERT_EQ(ZQ_Gateway_SetSettings(settings), 0);
        EXPECT_EQ(registers("LOOP", "rtsp://127.0.0.1:9554", "http://[fe80::1]:8080"), 0) << "allowed networks";
        for (const uint16_t port :
             {settings.managementPort, settings.telmiUserPort, settings.httpPortFirst, settings.rtspPortLast}) {
            EXPECT_EQ(registers("OWN", "rtsp://127.0.0.1:" + std::to_string(port)), ZQGateway::storeAddressRefused)
                << "the gateway's own port " << port << ", allowed network or not";
            EXPECT_EQ(registers("OWN", "rtsp://0.0.0.0:" + std::to_string(port)), ZQGateway::storeAddressRefused);
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
