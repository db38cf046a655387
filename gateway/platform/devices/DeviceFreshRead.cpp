// Reading one device straight from devices.db, for processes that share the home with the one
// that owns the store's index (the media daemon looks devices up while the host adds them).
#include <sqlite3.h>

#include <memory>
#include <string>
#include <utility>

#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "devices/StoreRecords.h"

namespace {

// A device as one read found it: its binding states are those of that moment, not live ones.
class DeviceSnapshot : public zqgw::StoredDevice {
public:
    DeviceSnapshot(std::string index, ZQGateway::tagDeviceInfo info, std::string addTime, bool hasUser, bool hasPort)
        : StoredDevice(std::move(index), std::move(info), std::move(addTime)), hasUser_(hasUser), hasPort_(hasPort) {}

    int getTELMIBoundStatus() const override { return hasUser_ ? 1 : 0; }
    int getTELMIPortBoundStatus() const override { return hasPort_ ? 1 : 0; }

private:
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
    const int opened =
        path.empty() ? SQLITE_CANTOPEN : sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    std::unique_ptr<sqlite3, ConnectionCloser> db(raw);
    if (opened != SQLITE_OK) {
        return ZQGateway::storeDatabase;
    }
    sqlite3_busy_timeout(db.get(), 1000);

    zqgw::Statement select(db.get(),
                           ("SELECT add_time,"
                            " EXISTS(SELECT 1 FROM telmi_users u WHERE u.device_index = d.device_index),"
                            " EXISTS(SELECT 1 FROM telmi_ports p WHERE p.device_index = d.device_index), " +
                            std::string(zqgw::kDeviceInfoColumns) + " FROM devices d WHERE d.device_index = ?")
                               .c_str());
    select.bind(deviceIndex);
    if (!select.row()) {
        return select.run() ? ZQGateway::storeNotFound : ZQGateway::storeDatabase;
    }
    device = std::make_shared<DeviceSnapshot>(deviceIndex, zqgw::deviceInfoAt(select, 3), select.text(0),
                                              select.number(1) != 0, select.number(2) != 0);
    return ZQGateway::storeOk;
}
