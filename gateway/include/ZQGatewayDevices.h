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
    storeNameTaken = 61006,  // another TELMI user has that name
    storePortTaken = 61007,  // another binding holds the HTTP or RTSP port
    storeNoFreePort = 61008,
    storeDatabase = 61009,        // SQLite failed; the in-memory index is unchanged
    storeDeviceIdTaken = 61010,   // another device has that access ID
    storeAddressRefused = 61011,  // a device address the gateway must not reach (ZQ_DeviceMgr_CheckDeviceAddress)
};

// Lock-out: the 7th failure of a requester key on a user or binding locks the key for the
// configured lock period. A record tracks at most kMaxLockKeysPerRecord failing keys and never
// drops one: the failure of one more key locks the record for every requester for the lock
// period (so that no one gets past it by failing from many addresses).
constexpr int kLockThreshold = 7;
constexpr size_t kMaxLockKeysPerRecord = 64;

// One failure count of the lock-out bookkeeping, as the device store holds it.
struct tagLockout {
    std::string recordIndex;  // the TELMI user's or binding's index
    std::string requester;    // the requester key; empty: the record is locked for every requester
    int failures = 0;
    int secondsLeft = 0;  // until the lock ends; 0 while the requester is not locked
};

// Ports a device address means when it names none.
constexpr uint16_t kTelmiDefaultPort = 80;
constexpr uint16_t kRtspDefaultPort = 554;

// Where a device address leads: a numeric host (or "localhost", read as 127.0.0.1) and a port.
struct tagDeviceEndpoint {
    std::string host;  // an IPv6 address without its brackets
    uint16_t port = 0;
};

struct tagDeviceInfo {
    uint8_t protocol = 2;       // 2 Tarn, 4 Tarn5; others are stored but never TELMI-eligible
    std::string tarnDeviceID;   // at most 31 characters
    std::string tarn5DeviceID;  // at most 31 characters
    std::string name;           // at most 128 characters
    uint8_t category = 1;
    std::string telmiAddress;  // the device's TELMI HTTP address, e.g. "http://10.0.0.5:80"
    std::string rtspAddress;   // the device's RTSP address, e.g. "rtsp://10.0.0.5:554"
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

// Reads "scheme://[user:password@]host[:port][/path]", "host:port", "host", "[IPv6]:port" or a
// bare IPv6 address; defaultPort when none is given. false when the text has none of these forms.
bool ZQ_DeviceMgr_ParseDeviceAddress(const std::string& address, uint16_t defaultPort,
                                     ZQGateway::tagDeviceEndpoint& endpoint);
// Whether the gateway may reach a device at address (empty: the device offers no such
// interface): storeOk, or storeAddressRefused with the reason in why. Refused: a host that is
// not a numeric address; loopback, link-local, multicast, unspecified and broadcast addresses
// and the gateway's own addresses, unless a network of the settings' allowedDeviceNetworks holds
// them; and, always, this machine's address with one of the gateway's listening ports (the
// management API, the user-mode front end, the HTTP and RTSP port ranges).
int ZQ_DeviceMgr_CheckDeviceAddress(const std::string& address, uint16_t defaultPort, std::string& why);

// Adds a device and sets deviceIndex to its new 36-character index. Both addresses must pass
// ZQ_DeviceMgr_CheckDeviceAddress (storeAddressRefused, logged with the reason, otherwise).
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

// Every failure count and lock in force, in no particular order.
int ZQ_DeviceMgr_GetLockouts(std::vector<ZQGateway::tagLockout>& lockouts);
// Forgets the failure counts and locks of one record (empty: every record) and one requester
// key (empty: every requester, a lock of the whole record included), so that they may try
// again at once; cleared is how many entries went. The counting rules are untouched.
int ZQ_DeviceMgr_ClearLockouts(const std::string& recordIndex, const std::string& requester, int& cleared);
// The accounts the last ZQ_DeviceMgr_QuickAddTELMIUser on this thread was asked to create, in
// the order of its outcomes (a failed outcome has no user record to name its device); taken
// once, so that a quick add that never reached the store finds none.
std::vector<ZQDeviceMgr::tagTELMIUser> ZQ_DeviceMgr_TakeQuickAddRequests();
