#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "ZQDeviceMgr.h"
#include "ZQGatewayDevices.h"
#include "devices/LockBook.h"
#include "devices/StoreDatabase.h"

namespace zqgw {

class DeviceStore;

// Whether a user or binding index is still stored: shared by every record object that stood
// for it (a modified user is a new object), so that lock-out calls on a removed record's object
// neither count nor persist anything.
using Liveness = std::shared_ptr<std::atomic<bool>>;

class UserRecord : public ZQDeviceMgr::CTELMIUser {
public:
    UserRecord(LockBook& locks, Liveness alive, std::string index, std::string name, std::string deviceIndex,
               std::string ha1, std::string addTime);

    std::string getUserIndex() const override { return index_; }
    std::string getUserName() const override { return name_; }
    std::string getDeviceIndex() const override { return deviceIndex_; }
    std::string getDigestPassword() const override { return ha1_; }
    std::string getAddTime() const override { return addTime_; }
    int getLockNum(int& slot, const char* key, int add) override;
    int getUnlockTime(int& slot, const char* key) override;
    int destroyLock(int& slot, const char* key) override;

    const Liveness& alive() const { return alive_; }

private:
    LockBook& locks_;
    Liveness alive_;
    const std::string index_, name_, deviceIndex_, ha1_, addTime_;
};

class PortRecord : public ZQGateway::CGatewayPort {
public:
    PortRecord(LockBook& locks, std::string index, std::string deviceIndex, unsigned short httpPort,
               unsigned short rtspPort, std::string addTime);

    std::string getPortIndex() const override { return index_; }
    std::string getDeviceIndex() const override { return deviceIndex_; }
    unsigned short getHttpPort() const override { return httpPort_; }
    unsigned short getRtspPort() const override { return rtspPort_; }
    std::string getAddTime() const override { return addTime_; }
    void setHttpPortStatus(int status) override { httpStatus_ = status; }
    void setRtspPortStatus(int status) override { rtspStatus_ = status; }
    int getHttpPortStatus() const override { return httpStatus_; }
    int getRtspPortStatus() const override { return rtspStatus_; }
    int getLockNum(int& slot, const char* key, int add) override;
    int getUnlockTime(int& slot, const char* key) override;
    int destroyLock(int& slot, const char* key) override;

    void markRemoved() { *alive_ = false; }

private:
    LockBook& locks_;
    Liveness alive_;
    const std::string index_, deviceIndex_;
    const unsigned short httpPort_, rtspPort_;
    const std::string addTime_;
    std::atomic<int> httpStatus_ {0}, rtspStatus_ {0};
};

// The columns of a device's description in the devices table, in the order deviceInfoAt reads.
constexpr const char* kDeviceInfoColumns = "protocol, tarn_id, tarn5_id, name, category, telmi_address, rtsp_address";
// A device's description from a row whose kDeviceInfoColumns start at column first.
ZQGateway::tagDeviceInfo deviceInfoAt(const Statement& row, int first);

// A stored device's description; whether it has an account or a binding is up to the kind.
class StoredDevice : public ZQGateway::CGatewayDevice {
public:
    StoredDevice(std::string index, ZQGateway::tagDeviceInfo info, std::string addTime)
        : index_(std::move(index)), info_(std::move(info)), addTime_(std::move(addTime)) {}

    std::string getDeviceIndex() const override { return index_; }
    uint8_t getProtocol() const override { return info_.protocol; }
    std::string getTarnDeviceID() const override { return info_.tarnDeviceID; }
    std::string getTarn5DeviceID() const override { return info_.tarn5DeviceID; }
    std::string getDeviceName() const override { return info_.name; }
    uint8_t getCategory() const override { return info_.category; }
    std::string getTelmiAddress() const override { return info_.telmiAddress; }
    std::string getRtspAddress() const override { return info_.rtspAddress; }
    std::string getAddTime() const override { return addTime_; }
    const ZQGateway::tagDeviceInfo& getInfo() const override { return info_; }

protected:
    const std::string index_;
    const ZQGateway::tagDeviceInfo info_;
    const std::string addTime_;
};

// A device of the store's index: its account and binding are looked up live.
class DeviceRecord : public StoredDevice {
public:
    DeviceRecord(const DeviceStore& store, std::string index, ZQGateway::tagDeviceInfo info, std::string addTime)
        : StoredDevice(std::move(index), std::move(info), std::move(addTime)), store_(store) {}

    int getTELMIBoundStatus() const override;
    int getTELMIPortBoundStatus() const override;

private:
    const DeviceStore& store_;
};

}  // namespace zqgw
