// The device store and device bus functions, over the fake's in-memory contents.
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

template <class Records>
int eraseByIndex(Records& records, const std::string& index) {
    auto it = std::find_if(records.begin(), records.end(), [&](const auto& r) { return r->index == index; });
    if (it == records.end()) {
        return fake::kStoreNotFound;
    }
    records.erase(it);
    return 0;
}

}  // namespace

int ZQ_DeviceMgr_AddTELMIUser(std::shared_ptr<CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.AddTELMIUser", field(rec.userName) + " dev=" + field(rec.deviceIndex) +
                                                                " ha1=" + field(rec.digestHA1))) {
        return *injected;
    }
    user = platform.addUser(field(rec.userName), field(rec.deviceIndex), field(rec.digestHA1));
    return 0;
}

int ZQ_DeviceMgr_QuickAddTELMIUser(std::vector<ZQDeviceMgr::tagAddUserRet>& rets,
                                   const std::vector<ZQDeviceMgr::tagTELMIUser>& recs) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.QuickAddTELMIUser", "count=" + std::to_string(recs.size()))) {
        return *injected;
    }
    for (const auto& rec : recs) {
        ZQDeviceMgr::tagAddUserRet ret;
        ret.user = platform.addUser(field(rec.userName), field(rec.deviceIndex), field(rec.digestHA1));
        rets.push_back(ret);
    }
    return 0;
}

int ZQ_DeviceMgr_ModifyTELMIUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.ModifyTELMIUser", userIndex + " " + field(rec.userName) + " dev=" +
                                                                   field(rec.deviceIndex) + " ha1=" + field(rec.digestHA1))) {
        return *injected;
    }
    auto user = platform.findUser(userIndex);
    if (!user) {
        return fake::kStoreNotFound;
    }
    user->name = field(rec.userName);
    user->digest = field(rec.digestHA1);
    user->deviceIndex = field(rec.deviceIndex);
    return 0;
}

int ZQ_DeviceMgr_DelTELMIUser(const std::string& userIndex) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.DelTELMIUser", userIndex)) {
        return *injected;
    }
    return eraseByIndex(platform.users, userIndex);
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
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.BindTELMIPort", "dev=" + field(rec.deviceIndex) + " http=" +
                                                                 std::to_string(rec.httpPort) + " rtsp=" +
                                                                 std::to_string(rec.rtspPort) + " spare=" +
                                                                 std::to_string(rec.spare))) {
        return *injected;
    }
    port = platform.addPort(field(rec.deviceIndex), rec.httpPort, rec.rtspPort);
    return 0;
}

int ZQ_DeviceMgr_UnbindTELMIPort(const std::string& portIndex) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    if (auto injected = platform.call("store.UnbindTELMIPort", portIndex)) {
        return *injected;
    }
    return eraseByIndex(platform.ports, portIndex);
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
    return fakePlatform().findDevice(deviceIndex);
}

int ZQ_DeviceMgr_NotifyAttach(ZQDeviceMgr::DevChangeCallback callback, void* context) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    platform.call("store.NotifyAttach");
    platform.callback = callback;
    platform.callbackContext = context;
    return 0;
}

int ZQ_DeviceMgr_NotifyDetach(ZQDeviceMgr::DevChangeCallback callback) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    platform.call("store.NotifyDetach");
    if (platform.callback == callback) {
        platform.callback = nullptr;
        platform.callbackContext = nullptr;
    }
    return 0;
}

// The fake bus returns, in store order, the devices whose Tarn or Tarn5 ID equals the key word in
// any letter case (every device for an empty one), whatever their protocol, at most maxNum of them:
// the library itself must tell which of them are a match.
int ZQ_DeviceMgrBus_QueryDeviceList(std::vector<std::shared_ptr<CKelDevice>>& devices, int& total, int& count,
                                    const ZQDeviceMgrBus::tagDevQueryCond& cond) {
    auto& platform = fakePlatform();
    auto lock = lockPlatform();
    platform.deviceQueries.push_back(cond);
    if (auto injected = platform.call("bus.QueryDeviceList")) {
        return *injected;
    }
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
}
