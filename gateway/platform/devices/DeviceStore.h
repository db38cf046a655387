#pragma once

#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"
#include "devices/ChangeNotifier.h"
#include "devices/LockBook.h"
#include "devices/StoreDatabase.h"
#include "devices/StoreKeys.h"
#include "devices/StoreRecords.h"

namespace zqgw {

// The device store of this process: devices.db and its in-memory index. Reads cost a copy of
// shared pointers under a shared lock; every change commits to SQLite first and then updates
// the index, so a failed commit changes nothing.
class DeviceStore {
public:
    static DeviceStore& instance();

    int addUser(std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec);
    int modifyUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec);
    int deleteUser(const std::string& userIndex);
    std::shared_ptr<ZQDeviceMgr::CTELMIUser> user(const std::string& userIndex) const;
    int allUsers(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users) const;

    int bind(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const ZQDeviceMgr::tagTELMIPort& rec);
    int unbind(const std::string& portIndex);
    std::shared_ptr<ZQDeviceMgr::CTELMIPort> port(const std::string& portIndex) const;
    int allPorts(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports) const;

    int registerDevice(std::string& deviceIndex, const ZQGateway::tagDeviceInfo& info);
    int removeDevice(const std::string& deviceIndex);
    std::shared_ptr<ZQGateway::CGatewayDevice> device(const std::string& deviceIndex) const;
    int allDevices(std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>>& devices) const;
    bool deviceHasUser(const std::string& deviceIndex) const;
    bool deviceHasPort(const std::string& deviceIndex) const;

    int reservePort(unsigned short& port, unsigned short first, unsigned short last, bool (*inUse)(unsigned short));

    LockBook& locks() { return locks_; }
    ChangeNotifier& notifier() { return notifier_; }

private:
    DeviceStore();
    void load();
    // A user record's fields checked against the store; storeOk or the code refusing it.
    int checkUser(const ZQDeviceMgr::tagTELMIUser& rec, const std::string& replacing) const;
    const UserRecord* findUser(const std::string& index) const;
    template <class Record>
    static auto findIn(const std::vector<std::shared_ptr<Record>>& records, const std::string& index);

    bool open_ = false;
    StoreDatabase db_;
    LockBook locks_ {db_};
    ChangeNotifier notifier_;
    mutable std::shared_mutex mutex_;
    std::vector<std::shared_ptr<UserRecord>> users_;
    std::vector<std::shared_ptr<PortRecord>> ports_;
    std::vector<std::shared_ptr<DeviceRecord>> devices_;
    // devices_ by index: listings look a device up for every user or binding they show.
    std::unordered_map<std::string, std::shared_ptr<DeviceRecord>> devicesByIndex_;
    AddTimeClock userClock_, portClock_, deviceClock_;
};

}  // namespace zqgw
