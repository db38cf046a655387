#include "devices/DeviceStore.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>

#include "FixedField.h"
#include "LogLevel.h"
#include "NowSeconds.h"
#include "ZQGatewayHome.h"
#include "tvlog.h"

namespace zqgw {
namespace {

using namespace ZQGateway;

constexpr int64_t kReservationSeconds = 120;

}  // namespace

DeviceStore& DeviceStore::instance() {
    static DeviceStore store;
    return store;
}

DeviceStore::DeviceStore() {
    const std::string path = ZQ_Gateway_HomePath("devices.db");
    open_ = !path.empty() && db_.open(path);
    if (!open_) {
        tvlog_format(gwlog::kError, "ZQDeviceMgr", "cannot open the device store %s", path.c_str());
        return;
    }
    load();
}

void DeviceStore::load() {
    db_.use([this](sqlite3* db) {
        Statement devices(db, ("SELECT device_index, add_time, " + std::string(kDeviceInfoColumns) +
                               " FROM devices ORDER BY add_time")
                                  .c_str());
        while (devices.row()) {
            devices_.push_back(
                std::make_shared<DeviceRecord>(*this, devices.text(0), deviceInfoAt(devices, 2), devices.text(1)));
            devicesByIndex_.emplace(devices_.back()->getDeviceIndex(), devices_.back());
            deviceClock_.observe(devices.text(1));
        }
        Statement users(db,
                        "SELECT user_index, user_name, device_index, digest_ha1, add_time FROM telmi_users"
                        " ORDER BY add_time");
        while (users.row()) {
            users_.push_back(std::make_shared<UserRecord>(locks_, std::make_shared<std::atomic<bool>>(true),
                                                          users.text(0), users.text(1), users.text(2), users.text(3),
                                                          users.text(4)));
            userClock_.observe(users.text(4));
        }
        Statement ports(db,
                        "SELECT port_index, device_index, http_port, rtsp_port, add_time FROM telmi_ports"
                        " ORDER BY add_time");
        while (ports.row()) {
            ports_.push_back(std::make_shared<PortRecord>(locks_, ports.text(0), ports.text(1),
                                                          static_cast<unsigned short>(ports.number(2)),
                                                          static_cast<unsigned short>(ports.number(3)), ports.text(4)));
            portClock_.observe(ports.text(4));
        }
        locks_.load(db);
    });
}

template <class Record>
auto DeviceStore::findIn(const std::vector<std::shared_ptr<Record>>& records, const std::string& index) {
    return std::find_if(records.begin(), records.end(), [&index](const auto& r) {
        if constexpr (std::is_same_v<Record, UserRecord>) {
            return r->getUserIndex() == index;
        } else if constexpr (std::is_same_v<Record, PortRecord>) {
            return r->getPortIndex() == index;
        } else {
            return r->getDeviceIndex() == index;
        }
    });
}

bool DeviceStore::deviceHasUser(const std::string& deviceIndex) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    return std::any_of(users_.begin(), users_.end(), [&](const auto& u) { return u->getDeviceIndex() == deviceIndex; });
}

bool DeviceStore::deviceHasPort(const std::string& deviceIndex) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    return std::any_of(ports_.begin(), ports_.end(), [&](const auto& p) { return p->getDeviceIndex() == deviceIndex; });
}

int DeviceStore::checkUser(const ZQDeviceMgr::tagTELMIUser& rec, const std::string& replacing) const {
    auto name = gwio::fieldText(rec.userName);
    auto ha1 = gwio::fieldText(rec.digestHA1);
    auto deviceIndex = gwio::fieldText(rec.deviceIndex);
    if (!name || !ha1 || !deviceIndex) {
        return storeBadArgument;
    }
    if (devicesByIndex_.count(*deviceIndex) == 0) {
        return storeNoDevice;
    }
    for (const auto& other : users_) {
        if (other->getUserIndex() == replacing) {
            continue;
        }
        if (other->getDeviceIndex() == *deviceIndex) {
            return storeDeviceHasUser;
        }
        if (other->getUserName() == *name) {
            return storeNameTaken;
        }
    }
    return storeOk;
}

int DeviceStore::addUser(std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (!open_) {
        return storeDatabase;
    }
    if (int refused = checkUser(rec, std::string()); refused != storeOk) {
        return refused;
    }
    auto record = std::make_shared<UserRecord>(locks_, std::make_shared<std::atomic<bool>>(true), newRecordIndex(),
                                               *gwio::fieldText(rec.userName), *gwio::fieldText(rec.deviceIndex),
                                               *gwio::fieldText(rec.digestHA1), userClock_.next());
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db,
                         "INSERT INTO telmi_users(user_index, user_name, device_index, digest_ha1, add_time)"
                         " VALUES(?,?,?,?,?)")
                       .bind(record->getUserIndex())
                       .bind(record->getUserName())
                       .bind(record->getDeviceIndex())
                       .bind(record->getDigestPassword())
                       .bind(record->getAddTime())
                       .run()
                   ? storeOk
                   : storeDatabase;
    });
    if (result == storeOk) {
        users_.push_back(record);
        user = record;
    }
    return result;
}

int DeviceStore::modifyUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(users_, userIndex);
    if (it == users_.end()) {
        return open_ ? storeNotFound : storeDatabase;
    }
    if (int refused = checkUser(rec, userIndex); refused != storeOk) {
        return refused;
    }
    const auto& old = *it;
    auto record = std::make_shared<UserRecord>(locks_, old->alive(), userIndex, *gwio::fieldText(rec.userName),
                                               *gwio::fieldText(rec.deviceIndex), *gwio::fieldText(rec.digestHA1),
                                               old->getAddTime());
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db,
                         "UPDATE telmi_users SET user_name = ?, device_index = ?, digest_ha1 = ? WHERE user_index = ?")
                       .bind(record->getUserName())
                       .bind(record->getDeviceIndex())
                       .bind(record->getDigestPassword())
                       .bind(userIndex)
                       .run()
                   ? storeOk
                   : storeDatabase;
    });
    if (result == storeOk) {
        users_[static_cast<size_t>(it - users_.begin())] = record;
    }
    return result;
}

int DeviceStore::deleteUser(const std::string& userIndex) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(users_, userIndex);
    if (it == users_.end()) {
        return open_ ? storeNotFound : storeDatabase;
    }
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db, "DELETE FROM telmi_users WHERE user_index = ?").bind(userIndex).run() ? storeOk
                                                                                                   : storeDatabase;
    });
    if (result == storeOk) {
        *(*it)->alive() = false;
        users_.erase(it);
        locks_.forgetRecord(userIndex);
    }
    return result;
}

std::shared_ptr<ZQDeviceMgr::CTELMIUser> DeviceStore::user(const std::string& userIndex) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(users_, userIndex);
    return it == users_.end() ? nullptr : *it;
}

int DeviceStore::allUsers(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    users.insert(users.end(), users_.begin(), users_.end());
    return open_ ? storeOk : storeDatabase;
}

int DeviceStore::bind(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const ZQDeviceMgr::tagTELMIPort& rec) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (!open_) {
        return storeDatabase;
    }
    auto deviceIndex = gwio::fieldText(rec.deviceIndex);
    if (!deviceIndex || rec.httpPort == 0 || rec.httpPort == rec.rtspPort) {
        return storeBadArgument;
    }
    if (devicesByIndex_.count(*deviceIndex) == 0) {
        return storeNoDevice;
    }
    for (const auto& other : ports_) {
        if (other->getDeviceIndex() == *deviceIndex) {
            return storeDeviceHasPort;
        }
        const auto heldByOther = [&other](unsigned short port) {
            return port == other->getHttpPort() || port == other->getRtspPort();
        };
        if (heldByOther(rec.httpPort) || (rec.rtspPort != 0 && heldByOther(rec.rtspPort))) {
            return storePortTaken;
        }
    }
    auto record = std::make_shared<PortRecord>(locks_, newRecordIndex(), *deviceIndex, rec.httpPort, rec.rtspPort,
                                               portClock_.next());
    int result = db_.transaction([&](sqlite3* db) {
        bool stored = Statement(db,
                                "INSERT INTO telmi_ports(port_index, device_index, http_port, rtsp_port, add_time)"
                                " VALUES(?,?,?,?,?)")
                          .bind(record->getPortIndex())
                          .bind(*deviceIndex)
                          .bind(int64_t {rec.httpPort})
                          .bind(int64_t {rec.rtspPort})
                          .bind(record->getAddTime())
                          .run();
        return stored && Statement(db, "DELETE FROM port_reservations WHERE port IN (?, ?)")
                             .bind(int64_t {rec.httpPort})
                             .bind(int64_t {rec.rtspPort})
                             .run()
                   ? storeOk
                   : storePortTaken;  // the constraints refuse what another process bound meanwhile
    });
    if (result == storeOk) {
        ports_.push_back(record);
        port = record;
    }
    return result;
}

int DeviceStore::unbind(const std::string& portIndex) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(ports_, portIndex);
    if (it == ports_.end()) {
        return open_ ? storeNotFound : storeDatabase;
    }
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db, "DELETE FROM telmi_ports WHERE port_index = ?").bind(portIndex).run() ? storeOk
                                                                                                   : storeDatabase;
    });
    if (result == storeOk) {
        (*it)->markRemoved();
        ports_.erase(it);
        locks_.forgetRecord(portIndex);
    }
    return result;
}

std::shared_ptr<ZQDeviceMgr::CTELMIPort> DeviceStore::port(const std::string& portIndex) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(ports_, portIndex);
    return it == ports_.end() ? nullptr : *it;
}

int DeviceStore::allPorts(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    ports.insert(ports.end(), ports_.begin(), ports_.end());
    return open_ ? storeOk : storeDatabase;
}

int DeviceStore::registerDevice(std::string& deviceIndex, const tagDeviceInfo& info) {
    if (info.tarnDeviceID.size() > 31 || info.tarn5DeviceID.size() > 31 || info.name.size() > 128 ||
        (info.protocol == 2 && info.tarnDeviceID.empty()) || (info.protocol == 4 && info.tarn5DeviceID.empty())) {
        return storeBadArgument;
    }
    // The access ID is how users and bindings name a device: two devices sharing one would make
    // every later lookup by it ambiguous.
    const auto accessIdOf = [](const tagDeviceInfo& d) -> const std::string& {
        return d.protocol == 4 ? d.tarn5DeviceID : d.tarnDeviceID;
    };
    const std::string& accessId = accessIdOf(info);
    for (const auto& [address, defaultPort] :
         {std::make_pair(&info.telmiAddress, kTelmiDefaultPort), std::make_pair(&info.rtspAddress, kRtspDefaultPort)}) {
        std::string why;
        if (ZQ_DeviceMgr_CheckDeviceAddress(*address, defaultPort, why) != storeOk) {
            tvlog_format(gwlog::kWarning, "ZQDeviceMgr", "device %s not registered: %s", accessId.c_str(), why.c_str());
            return storeAddressRefused;
        }
    }
    std::unique_lock<std::shared_mutex> lock(mutex_);
    if (!open_) {
        return storeDatabase;
    }
    for (const auto& device : devices_) {
        if (!accessId.empty() && accessIdOf(device->getInfo()) == accessId) {
            return storeDeviceIdTaken;
        }
    }
    auto record = std::make_shared<DeviceRecord>(*this, newRecordIndex(), info, deviceClock_.next());
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db,
                         "INSERT INTO devices(device_index, protocol, tarn_id, tarn5_id, name, category,"
                         " telmi_address, rtsp_address, add_time) VALUES(?,?,?,?,?,?,?,?,?)")
                       .bind(record->getDeviceIndex())
                       .bind(int64_t {info.protocol})
                       .bind(info.tarnDeviceID)
                       .bind(info.tarn5DeviceID)
                       .bind(info.name)
                       .bind(int64_t {info.category})
                       .bind(info.telmiAddress)
                       .bind(info.rtspAddress)
                       .bind(record->getAddTime())
                       .run()
                   ? storeOk
                   : storeDatabase;
    });
    if (result == storeOk) {
        devices_.push_back(record);
        devicesByIndex_.emplace(record->getDeviceIndex(), record);
        deviceIndex = record->getDeviceIndex();
    }
    return result;
}

int DeviceStore::removeDevice(const std::string& deviceIndex) {
    std::unique_lock<std::shared_mutex> lock(mutex_);
    auto it = findIn(devices_, deviceIndex);
    if (it == devices_.end()) {
        return open_ ? storeNotFound : storeDatabase;
    }
    int result = db_.transaction([&](sqlite3* db) {
        return Statement(db, "DELETE FROM devices WHERE device_index = ?").bind(deviceIndex).run() ? storeOk
                                                                                                   : storeDatabase;
    });
    if (result == storeOk) {
        devices_.erase(it);
        devicesByIndex_.erase(deviceIndex);
        notifier_.post(ZQDeviceMgr::deviceRemoved, deviceIndex);
    }
    return result;
}

std::shared_ptr<ZQGateway::CGatewayDevice> DeviceStore::device(const std::string& deviceIndex) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    auto it = devicesByIndex_.find(deviceIndex);
    return it == devicesByIndex_.end() ? nullptr : it->second;
}

int DeviceStore::allDevices(std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>>& devices) const {
    std::shared_lock<std::shared_mutex> lock(mutex_);
    devices.insert(devices.end(), devices_.begin(), devices_.end());
    return open_ ? storeOk : storeDatabase;
}

int DeviceStore::reservePort(unsigned short& port, unsigned short first, unsigned short last,
                             bool (*inUse)(unsigned short)) {
    if (first == 0 || first > last) {
        return storeBadArgument;
    }
    if (!open_) {
        return storeDatabase;
    }
    return db_.transaction([&](sqlite3* db) {
        const int64_t now = gwio::nowSeconds();
        if (!Statement(db, "DELETE FROM port_reservations WHERE expires_at <= ?").bind(now).run()) {
            return storeDatabase;
        }
        std::set<int64_t> taken;
        Statement held(db,
                       "SELECT http_port FROM telmi_ports UNION SELECT rtsp_port FROM telmi_ports"
                       " UNION SELECT port FROM port_reservations");
        while (held.row()) {
            taken.insert(held.number(0));
        }
        for (unsigned candidate = first; candidate <= last; ++candidate) {
            if (taken.count(candidate) != 0 || (inUse != nullptr && inUse(static_cast<unsigned short>(candidate)))) {
                continue;
            }
            if (!Statement(db, "INSERT INTO port_reservations(port, expires_at) VALUES(?, ?)")
                     .bind(int64_t {candidate})
                     .bind(now + kReservationSeconds)
                     .run()) {
                return storeDatabase;
            }
            port = static_cast<unsigned short>(candidate);
            return storeOk;
        }
        return storeNoFreePort;
    });
}

}  // namespace zqgw
