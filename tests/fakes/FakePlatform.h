// One scriptable in-memory gateway platform for the library's unit tests: device store, device
// bus, configuration, base library, nginx, media module, runtime and logging. Tests set it up
// through fakePlatform(), call the library, and read back the journal of side effects, the
// media commands and the log lines.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ZQBase.h"
#include "ZQConfigMgr.h"
#include "ZQDeviceMgr.h"
#include "ZQDeviceMgrBus.h"

namespace fake {

// Store codes of the fake; they collide with none of the library's result codes.
enum StoreCode : int { kStoreNotFound = 50404, kStoreRefused = 50409 };

// The platform's lock, which every record read and write takes, as the store's own would.
std::unique_lock<std::recursive_mutex> lockPlatform();
template <class T>
T locked(const T& field) {
    auto lock = lockPlatform();
    return field;
}
template <class T>
void set(T& field, const T& value) {
    auto lock = lockPlatform();
    field = value;
}

// Whether any of the records (users or bindings) names the device.
template <class Records>
bool holdsDevice(const Records& records, const std::string& deviceIndex) {
    return std::any_of(records.begin(), records.end(), [&](const auto& r) { return r->deviceIndex == deviceIndex; });
}

template <class Records>
auto findByIndex(Records& records, const std::string& index) {
    return std::find_if(records.begin(), records.end(), [&](const auto& r) { return r->index == index; });
}
// Removes the record of this index: 0, or kStoreNotFound.
template <class Records>
int eraseByIndex(Records& records, const std::string& index) {
    auto it = findByIndex(records, index);
    if (it == records.end()) {
        return kStoreNotFound;
    }
    records.erase(it);
    return 0;
}

// A record's failure counts and unlock times per lock key; tests may preset them.
struct FakeRecordLocks {
    int getLockNum(int slot, const char* key, int add);
    int getUnlockTime(int slot, const char* key);
    int destroyLock(int slot, const char* key);

    std::map<std::string, int> counts, unlockTimes;
};

// The lock-out calls of a user or port record, answered by its own locks.
template <class Record>
class FakeLockedRecord : public Record {
public:
    FakeRecordLocks locks;

    int getLockNum(int& slot, const char* key, int add) override { return locks.getLockNum(slot, key, add); }
    int getUnlockTime(int& slot, const char* key) override { return locks.getUnlockTime(slot, key); }
    int destroyLock(int& slot, const char* key) override { return locks.destroyLock(slot, key); }
};

class FakeUser : public FakeLockedRecord<ZQDeviceMgr::CTELMIUser> {
public:
    std::string index, name, deviceIndex, digest, addTime;

    std::string getUserIndex() const override { return locked(index); }
    std::string getUserName() const override { return locked(name); }
    std::string getDeviceIndex() const override { return locked(deviceIndex); }
    std::string getDigestPassword() const override { return locked(digest); }
    std::string getAddTime() const override { return locked(addTime); }
};

class FakePort : public FakeLockedRecord<ZQDeviceMgr::CTELMIPort> {
public:
    std::string index, deviceIndex, addTime;
    unsigned short httpPort = 0, rtspPort = 0;
    int httpStatus = -1, rtspStatus = -1;  // -1: never written

    std::string getPortIndex() const override { return locked(index); }
    std::string getDeviceIndex() const override { return locked(deviceIndex); }
    unsigned short getHttpPort() const override { return locked(httpPort); }
    unsigned short getRtspPort() const override { return locked(rtspPort); }
    std::string getAddTime() const override { return locked(addTime); }
    void setHttpPortStatus(int status) override { set(httpStatus, status); }
    void setRtspPortStatus(int status) override { set(rtspStatus, status); }
};

class FakeDevice : public ZQDeviceMgr::CKelDevice {
public:
    std::string index, tarnId, tarn5Id, name;
    uint8_t protocol = 2, category = 1;

    std::string getDeviceIndex() const override { return locked(index); }
    uint8_t getProtocol() const override { return locked(protocol); }
    std::string getTarnDeviceID() const override { return locked(tarnId); }
    std::string getTarn5DeviceID() const override { return locked(tarn5Id); }
    std::string getDeviceName() const override { return locked(name); }
    uint8_t getCategory() const override { return locked(category); }
    // Bound while a stored account, or binding, names the device.
    int getTELMIBoundStatus() const override;
    int getTELMIPortBoundStatus() const override;
};

struct LogLine {
    int level;
    std::string module, format, text;
};

struct MediaCommand {
    std::string text;
    int reserved, timeoutSec;
};

struct MediaReply {
    int rc = 0;          // transport result; non-zero is a failure
    std::string body;    // answer text handed back in a fresh buffer
    std::string errMsg;  // error text on failure
};

// Everything a test can set up or read back; reset() restores these defaults.
struct FakeState {
    // Device store contents, in store order.
    std::vector<std::shared_ptr<FakeDevice>> devices;
    std::vector<std::shared_ptr<FakeUser>> users;
    std::vector<std::shared_ptr<FakePort>> ports;
    std::vector<ZQDeviceMgrBus::tagDevQueryCond> deviceQueries;    // every condition the bus was asked
    std::function<void(const std::string& index)> afterGetDevice;  // runs after each device lookup

    // Change notifications, as registered by the library.
    ZQDeviceMgr::DevChangeCallback callback = nullptr;
    void* callbackContext = nullptr;

    // Configuration.
    int telmiParam = 0;
    bool userCfgPresent = true;
    std::string realm = "TELMI";
    std::map<std::string, std::string> gatewayHA1;  // gateway user -> HA1
    bool privateCfgPresent = true;
    uint16_t mediaTimeoutMs = 3000;

    // Base library.
    std::function<int(const std::string& password, const std::string& user)> passwordLevel;  // default: 3
    std::set<std::string> staleNonces;     // headers are really verified; these nonces are stale
    std::set<std::string> answeredNonces;  // "nonce/nc" of every answer accepted
    int noncesIssued = 0;
    unsigned short nextHttpPort = 20000, nextRtspPort = 30000;
    std::map<int, int> listeners;  // port -> pid of the process listening on it

    // nginx.
    std::vector<int> nginxPids;

    // Media module: scripted replies first, then a well-behaved module over mediaListening.
    std::deque<MediaReply> mediaReplies;
    std::function<void()> beforeMedia;  // runs, without the platform lock, as each command arrives
    std::vector<MediaCommand> mediaCommands;
    std::map<std::string, unsigned short> mediaListening;  // device index -> RTSP port
    int buffersAllocated = 0, buffersFreed = 0;
    int badFrees = 0;  // frees of unknown or already freed buffers
    std::set<char*> liveBuffers;

    // Runtime.
    int sleptMs = 0;
    std::function<void(int ms)> onSleep;

    // Logging.
    std::vector<LogLine> logs;

    // Journal of side effects, in call order ("store.BindTELMIPort ...", "media PutMediaPort", ...).
    std::vector<std::string> journal;

    std::map<std::string, std::deque<int>> injected;
    int counter = 0;
};

class FakePlatform : public FakeState {
public:
    void reset();

    std::shared_ptr<FakeDevice> addDevice(const std::string& index, uint8_t protocol, const std::string& accessId,
                                          const std::string& name = "", uint8_t category = 1);
    std::shared_ptr<FakeUser> addUser(const std::string& name, const std::string& deviceIndex,
                                      const std::string& digest = "");
    std::shared_ptr<FakePort> addPort(const std::string& deviceIndex, unsigned short httpPort, unsigned short rtspPort);
    void removeDevice(const std::string& index);
    std::shared_ptr<FakeUser> findUser(const std::string& index) { return find(users, index); }
    std::shared_ptr<FakePort> findPort(const std::string& index) { return find(ports, index); }
    std::shared_ptr<FakeDevice> findDevice(const std::string& index) { return find(devices, index); }

    // Calls the registered callback on the caller's thread, as the store's own thread would.
    void notify(ZQDeviceMgr::tagNotifyType type, const std::string& deviceIndex);

    bool logged(int level, const std::string& format) const;
    std::vector<std::string> journalWith(const std::string& prefix) const;

    // The next call of the operation (its journal name, "store.BindTELMIPort") returns this
    // result without doing its work.
    void inject(const std::string& operation, int result);
    // Journals a call of the operation and hands back the result injected for it, if any.
    std::optional<int> call(const std::string& operation, const std::string& detail = "");
    // A call whose work, under the platform lock, is skipped when a result was injected for it.
    template <class Work>
    int perform(const std::string& operation, const std::string& detail, Work work) {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        auto injected = call(operation, detail);
        return injected ? *injected : work();
    }

    static constexpr int kMediaPid = 777;
    mutable std::recursive_mutex mutex;

private:
    template <class Record>
    std::shared_ptr<Record> find(const std::vector<std::shared_ptr<Record>>& records, const std::string& index) {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        auto it = findByIndex(records, index);
        return it == records.end() ? nullptr : *it;
    }
    template <class Record>
    std::shared_ptr<Record> addRecord(std::vector<std::shared_ptr<Record>>& records, char kind,
                                      const std::string& deviceIndex);
};

FakePlatform& fakePlatform();

}  // namespace fake
