// Reading one device straight from devices.db, for processes that share the home with the one
// that owns the store's index (the media daemon looks devices up while the host adds them).
#include <sqlite3.h>

#include <memory>
#include <string>
#include <utility>

#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "devices/StoreDatabase.h"

namespace {

// A device as one read found it: its binding states are those of that moment, not live ones.
class DeviceSnapshot : public ZQGateway::CGatewayDevice {
public:
    DeviceSnapshot(std::string index, ZQGateway::tagDeviceInfo info, std::string addTime, bool hasUser,
                   bool hasPort)
        : index_(std::move(index)),
          info_(std::move(info)),
          addTime_(std::move(addTime)),
          hasUser_(hasUser),
          hasPort_(hasPort) {}

    std::string getDeviceIndex() const override { return index_; }
    uint8_t getProtocol() const override { return info_.protocol; }
    std::string getTarnDeviceID() const override { return info_.tarnDeviceID; }
    std::string getTarn5DeviceID() const override { return info_.tarn5DeviceID; }
    std::string getDeviceName() const override { return info_.name; }
    uint8_t getCategory() const override { return info_.category; }
    int getTELMIBoundStatus() const override { return hasUser_ ? 1 : 0; }
    int getTELMIPortBoundStatus() const override { return hasPort_ ? 1 : 0; }
    std::string getTelmiAddress() const override { return info_.telmiAddress; }
    std::string getRtspAddress() const override { return info_.rtspAddress; }
    std::string getAddTime() const override { return addTime_; }

private:
    const std::string index_;
    const ZQGateway::tagDeviceInfo info_;
    const std::string addTime_;
    const bool hasUser_, hasPort_;
};

struct ConnectionCloser {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};

}  // namespace

int ZQ_DeviceMgr_ReadDeviceFromDatabase(std::shared_ptr<ZQGateway::CGatewayDevice>& device,
                                        const std::string& deviceIndex) {
    const std::string path = ZQ_Gateway_HomePath("devices.db");
    sqlite3* raw = nullptr;
    // Opened read-write (never created) only so that this connection can share the WAL index
    // with the writer; it runs nothing but one SELECT.
    const int opened = path.empty() ? SQLITE_CANTOPEN
                                    : sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    std::unique_ptr<sqlite3, ConnectionCloser> db(raw);
    if (opened != SQLITE_OK) {
        return ZQGateway::storeDatabase;
    }
    sqlite3_busy_timeout(db.get(), 1000);

    zqgw::Statement select(db.get(),
                           "SELECT protocol, tarn_id, tarn5_id, name, category, telmi_address, rtsp_address, add_time,"
                           " EXISTS(SELECT 1 FROM telmi_users u WHERE u.device_index = d.device_index),"
                           " EXISTS(SELECT 1 FROM telmi_ports p WHERE p.device_index = d.device_index)"
                           " FROM devices d WHERE d.device_index = ?");
    select.bind(deviceIndex);
    if (!select.row()) {
        return select.run() ? ZQGateway::storeNotFound : ZQGateway::storeDatabase;
    }
    ZQGateway::tagDeviceInfo info;
    info.protocol = static_cast<uint8_t>(select.number(0));
    info.tarnDeviceID = select.text(1);
    info.tarn5DeviceID = select.text(2);
    info.name = select.text(3);
    info.category = static_cast<uint8_t>(select.number(4));
    info.telmiAddress = select.text(5);
    info.rtspAddress = select.text(6);
    device = std::make_shared<DeviceSnapshot>(deviceIndex, std::move(info), select.text(7), select.number(8) != 0,
                                              select.number(9) != 0);
    return ZQGateway::storeOk;
}
