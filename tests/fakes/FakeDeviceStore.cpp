// The device store and device bus functions, and the records they hand out, over the fake's
// in-memory contents.
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "FakePlatform.h"

using fake::fakePlatform;
using fake::lockPlatform;
using ZQDeviceMgr::CKelDevice;
using ZQDeviceMgr::CTELMIPort;
using ZQDeviceMgr::CTELMIUser;

namespace {

// Reads a record's text field up to its NUL or its width, whichever comes first.
template <size_t N>
std::string field(const char (&text)[N]) {
    return std::string(text, strnlen(text, N));
}

std::string userDetail(const ZQDeviceMgr::tagTELMIUser& rec) {
    return field(rec.userName) + " dev=" + field(rec.deviceIndex) + " ha1=" + field(rec.digestHA1);
}

// Like the gateway's store: an account needs a device of its own and a name no other has.
int addUser(std::shared_ptr<CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec) {
    auto& platform = fakePlatform();
    const std::string name = field(rec.userName), deviceIndex = field(rec.deviceIndex);
    if (!platform.findDevice(deviceIndex)) {
        return fake::kStoreNotFound;
    }
    if (fake::holdsDevice(platform.users, deviceIndex) ||
        std::any_of(platform.users.begin(), platform.users.end(), [&](const auto& u) { return u->name == name; })) {
        return fake::kStoreRefused;
    }
    user = platform.addUser(name, deviceIndex, field(rec.digestHA1));
    return 0;
}

}  // namespace

namespace fake {

namespace {
constexpr int kLockThreshold = 7;
constexpr int kLockSeconds = 300;

std::string lockDetail(int slot, const char* key, int add = -1) {
    return std::string("key=") + key + " slot=" + std::to_string(slot) +
           (add >= 0 ? " add=" + std::to_string(add) : "");
}
}  // namespace

int FakeRecordLocks::getLockNum(int slot, const char* key, int add) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.getLockNum", lockDetail(slot, key, add));
    int& count = counts[key];
    if (add == 1 && ++count >= kLockThreshold) {
        unlockTimes[key] = kLockSeconds;
    }
    return count;
}

int FakeRecordLocks::getUnlockTime(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.getUnlockTime", lockDetail(slot, key));
    auto it = unlockTimes.find(key);
    return it == unlockTimes.end() ? 0 : it->second;
}

int FakeRecordLocks::destroyLock(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.destroyLock", lockDetail(slot, key));
    counts.erase(key);
    unlockTimes.erase(key);
    return 0;
}

int FakeDevice::getTELMIBoundStatus() const {
    auto lock = lockPlatform();
    return holdsDevice(fakePlatform().users, index);
}

int FakeDevice::getTELMIPortBoundStatus() const {
    auto lock = lockPlatform();
    return holdsDevice(fakePlatform().ports, index);
}

}  // namespace fake

int ZQ_DeviceMgr_AddTELMIUser(std::shared_ptr<CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec) {
    return fakePlatform().perform("store.AddTELMIUser", userDetail(rec), [&] { return addUser(user, rec); });
}

int ZQ_DeviceMgr_QuickAddTELMIUser(std::vector<ZQDeviceMgr::tagAddUserRet>& rets,
                                   const std::vector<ZQDeviceMgr::tagTELMIUser>& recs) {
    return fakePlatform().perform("store.QuickAddTELMIUser", "count=" + std::to_string(recs.size()), [&] {
        for (const auto& rec : recs) {
            auto& ret = rets.emplace_back();
            ret.result = addUser(ret.user, rec);
        }
        return 0;
    });
}

int ZQ_DeviceMgr_ModifyTELMIUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec) {
    return fakePlatform().perform("store.ModifyTELMIUser", userIndex + " " + userDetail(rec), [&] {
        auto user = fakePlatform().findUser(userIndex);
        if (!user) {
            return int(fake::kStoreNotFound);
        }
        user->name = field(rec.userName);
        user->digest = field(rec.digestHA1);
        user->deviceIndex = field(rec.deviceIndex);
        return 0;
    });
}

int ZQ_DeviceMgr_DelTELMIUser(const std::string& userIndex) {
    return fakePlatform().perform("store.DelTELMIUser", userIndex,
                                  [&] { return fake::eraseByIndex(fakePlatform().users, userIndex); });
}

std::shared_ptr<CTELMIUser> ZQ_DeviceMgr_GetTELMIUser(std::string userIndex) {
    return fakePlatform().findUser(userIndex);
}

int ZQ_DeviceMgr_GetAllTELMIUser(std::vector<std::shared_ptr<CTELMIUser>>& users) {
    auto lock = lockPlatform();
    users.insert(users.end(), fakePlatform().users.begin(), fakePlatform().users.end());
    return 0;
}

int ZQ_DeviceMgr_BindTELMIPort(std::shared_ptr<CTELMIPort>& port, const ZQDeviceMgr::tagTELMIPort& rec) {
    const std::string detail = "dev=" + field(rec.deviceIndex) + " http=" + std::to_string(rec.httpPort) +
                               " rtsp=" + std::to_string(rec.rtspPort) + " spare=" + std::to_string(rec.spare);
    return fakePlatform().perform("store.BindTELMIPort", detail, [&] {
        auto& platform = fakePlatform();
        const std::string deviceIndex = field(rec.deviceIndex);
        if (!platform.findDevice(deviceIndex)) {
            return int(fake::kStoreNotFound);
        }
        // One binding per device, and an HTTP port serves one device.
        if (fake::holdsDevice(platform.ports, deviceIndex) ||
            std::any_of(platform.ports.begin(), platform.ports.end(),
                        [&](const auto& p) { return p->httpPort == rec.httpPort; })) {
            return int(fake::kStoreRefused);
        }
        port = platform.addPort(deviceIndex, rec.httpPort, rec.rtspPort);
        return 0;
    });
}

int ZQ_DeviceMgr_UnbindTELMIPort(const std::string& portIndex) {
    return fakePlatform().perform("store.UnbindTELMIPort", portIndex,
                                  [&] { return fake::eraseByIndex(fakePlatform().ports, portIndex); });
}

int ZQ_DeviceMgr_GetTELMIPort(std::shared_ptr<CTELMIPort>& port, const std::string& portIndex) {
    if (auto found = fakePlatform().findPort(portIndex)) {
        port = found;
        return 0;
    }
    return fake::kStoreNotFound;
}

int ZQ_DeviceMgr_GetAllTELMIPort(std::vector<std::shared_ptr<CTELMIPort>>& ports) {
    auto lock = lockPlatform();
    ports.insert(ports.end(), fakePlatform().ports.begin(), fakePlatform().ports.end());
    return 0;
}

std::shared_ptr<CKelDevice> ZQ_DeviceMgr_GetDevice(std::string deviceIndex) {
    auto device = fakePlatform().findDevice(deviceIndex);
    if (auto after = fake::locked(fakePlatform().afterGetDevice)) {
        after(deviceIndex);
    }
    return device;
}

int ZQ_DeviceMgr_NotifyAttach(ZQDeviceMgr::DevChangeCallback callback, void* context) {
    return fakePlatform().perform("store.NotifyAttach", "", [&] {
        fakePlatform().callback = callback;
        fakePlatform().callbackContext = context;
        return 0;
    });
}

int ZQ_DeviceMgr_NotifyDetach(ZQDeviceMgr::DevChangeCallback callback) {
    return fakePlatform().perform("store.NotifyDetach", "", [&] {
        if (fakePlatform().callback == callback) {
            fakePlatform().callback = nullptr;
            fakePlatform().callbackContext = nullptr;
        }
        return 0;
    });
}

// The fake bus returns, in store order, the devices whose Tarn or Tarn5 ID equals the key word in
// any letter case (every device for an empty one), whatever their protocol, at most maxNum of them:
// the library itself must tell which of them are a match.
int ZQ_DeviceMgrBus_QueryDeviceList(std::vector<std::shared_ptr<CKelDevice>>& devices, int& total, int& count,
                                    const ZQDeviceMgrBus::tagDevQueryCond& cond) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    platform.deviceQueries.push_back(cond);
    return platform.perform("bus.QueryDeviceList", "", [&] {
        const std::string keyWord = field(cond.keyWord);
        for (const auto& device : platform.devices) {
            if (static_cast<int>(devices.size()) >= cond.maxNum) {
                break;
            }
            if (keyWord.empty() || strcasecmp(device->tarnId.c_str(), keyWord.c_str()) == 0 ||
                strcasecmp(device->tarn5Id.c_str(), keyWord.c_str()) == 0) {
                devices.push_back(device);
            }
        }
        total = count = static_cast<int>(devices.size());
        return 0;
    });
}
