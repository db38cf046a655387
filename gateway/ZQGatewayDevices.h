// Reference gateway: device registration and the device store's own codes (libZQDeviceMgr).
// Only the reference gateway's programs and tests use this header.
//
// The store is devices.db in the gateway home (SQLite, WAL). The process that links this
// library keeps an index of it in memory, loaded at first use and written through; other
// processes (the media daemon) read the database and see every committed change.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ZQDeviceMgr.h"

namespace ZQGateway {

// The device store's result codes, 61001-61099; none collides with the library's codes.
enum tagStoreCode : int {
    storeOk = 0,
    storeBadArgument = 61001,  // empty or over-long text, port 0, same HTTP and RTSP port
    storeNotFound = 61002,     // no user, binding or device with that index
    storeNoDevice = 61003,     // the record names a device the store does not hold
    storeDeviceHasUser = 61004,
    storeDeviceHasPort = 61005,
    storeNameTaken = 61006,    // another TELMI user has that name
    storePortTaken = 61007,    // another binding holds the HTTP or RTSP port
    storeNoFreePort = 61008,
    storeDatabase = 61009,     // SQLite failed; the in-memory index is unchanged
    storeDeviceIdTaken = 61010,  // another device has that access ID
};

// Lock-out: the 7th failure of a requester key on a user or binding locks the key for the
// configured lock period; at most this many keys are kept per record (the oldest dropped).
constexpr int kLockThreshold = 7;
constexpr size_t kMaxLockKeysPerRecord = 256;

struct tagDeviceInfo {
    uint8_t protocol = 2;        // 2 Tarn, 4 Tarn5; others are stored but never TELMI-eligible
    std::string tarnDeviceID;    // at most 31 characters
    std::string tarn5DeviceID;   // at most 31 characters
    std::string name;            // at most 128 characters
    uint8_t category = 1;
    std::string telmiAddress;    // the device's TELMI HTTP address, e.g. "http://10.0.0.5:80"
    std::string rtspAddress;     // the device's RTSP address, e.g. "rtsp://10.0.0.5:554"
};

// A device as the store holds it: the interface's view plus how the gateway reaches it.
class CGatewayDevice : public ZQDeviceMgr::CKelDevice {
public:
    virtual std::string getTelmiAddress() const = 0;
    virtual std::string getRtspAddress() const = 0;
    virtual std::string getAddTime() const = 0;
    // The whole description, read in place: scans over every device copy no text.
    virtual const tagDeviceInfo& getInfo() const = 0;
};

// A binding as the store holds it, with the listening states last written by the setters
// (kept in memory only: they describe live listeners, not stored facts; 0 until written).
class CGatewayPort : public ZQDeviceMgr::CTELMIPort {
public:
    virtual int getHttpPortStatus() const = 0;
    virtual int getRtspPortStatus() const = 0;
};

}  // namespace ZQGateway

// Adds a device and sets deviceIndex to its new 36-character index.
int ZQ_DeviceMgr_RegisterDevice(std::string& deviceIndex, const ZQGateway::tagDeviceInfo& info);
// Removes a device; registered callbacks then hear of it (kind 1) on the store's thread. The
// device's TELMI user and binding stay until their owner (the TELMI manager) removes them.
int ZQ_DeviceMgr_RemoveDevice(const std::string& deviceIndex);
// Every device, in the order they were added.
int ZQ_DeviceMgr_GetAllDevices(std::vector<std::shared_ptr<ZQGateway::CGatewayDevice>>& devices);
// One device as committed to devices.db now, bypassing this process's index (for the other
// processes sharing the home, such as the media daemon): storeOk, storeNotFound or storeDatabase.
int ZQ_DeviceMgr_ReadDeviceFromDatabase(std::shared_ptr<ZQGateway::CGatewayDevice>& device,
                                        const std::string& deviceIndex);

// Picks the lowest port of [first, last] that no binding holds (as HTTP or RTSP port), that was
// not reserved in the last two minutes and for which inUse returns false, and reserves it until
// a binding takes it. Safe across processes sharing the home.
int ZQ_DeviceMgr_ReservePort(unsigned short& port, unsigned short first, unsigned short last,
                             bool (*inUse)(unsigned short port));
