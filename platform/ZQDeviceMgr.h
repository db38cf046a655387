// Device store of the gateway (libZQDeviceMgr): devices, TELMI users, port bindings, lock-out.
//
// Requirements on an implementation:
// - every function and record is safe for concurrent use from any thread;
// - records are handed out by shared pointer and stay valid while held, even after deletion;
// - functions return 0 on success; other codes are the store's own and must not collide with
//   the library's result codes;
// - change notifications are delivered on the store's own thread, never from inside a call
//   the library is making.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace ZQDeviceMgr {

class CTELMIUser {
public:
    virtual ~CTELMIUser() = default;
    virtual std::string getUserIndex() const = 0;
    virtual std::string getUserName() const = 0;
    virtual std::string getDeviceIndex() const = 0;
    virtual std::string getDigestPassword() const = 0;  // the HA1
    virtual std::string getAddTime() const = 0;         // sorts chronologically byte by byte
    // Lock-out bookkeeping per requester key; slot belongs to the store.
    virtual int getLockNum(int& slot, const char* key, int add) = 0;
    virtual int getUnlockTime(int& slot, const char* key) = 0;
    virtual int destroyLock(int& slot, const char* key) = 0;
};

class CTELMIPort {
public:
    virtual ~CTELMIPort() = default;
    virtual std::string getPortIndex() const = 0;
    virtual std::string getDeviceIndex() const = 0;
    virtual unsigned short getHttpPort() const = 0;
    virtual unsigned short getRtspPort() const = 0;  // 0 when the device has none
    virtual std::string getAddTime() const = 0;
    virtual void setHttpPortStatus(int status) = 0;  // 1 listening, 0 not
    virtual void setRtspPortStatus(int status) = 0;
    virtual int getLockNum(int& slot, const char* key, int add) = 0;
    virtual int getUnlockTime(int& slot, const char* key) = 0;
    virtual int destroyLock(int& slot, const char* key) = 0;
};

class CKelDevice {
public:
    virtual ~CKelDevice() = default;
    virtual std::string getDeviceIndex() const = 0;
    virtual uint8_t getProtocol() const = 0;  // 2 Tarn, 4 Tarn5
    virtual std::string getTarnDeviceID() const = 0;
    virtual std::string getTarn5DeviceID() const = 0;
    virtual std::string getDeviceName() const = 0;
    virtual uint8_t getCategory() const = 0;
    virtual int getTELMIBoundStatus() const = 0;      // non-zero: the device has a TELMI user
    virtual int getTELMIPortBoundStatus() const = 0;  // non-zero: the device has a port binding
};

struct tagTELMIUser {
    char userName[34];
    char digestHA1[66];
    char deviceIndex[38];
};

struct tagTELMIPort {
    uint16_t httpPort;
    uint16_t spare;
    uint16_t rtspPort;
    char deviceIndex[38];

    tagTELMIPort() : httpPort(0), spare(0), rtspPort(0) { std::memset(deviceIndex, 0, sizeof(deviceIndex)); }
};

struct tagAddUserRet {
    int32_t result;
    std::shared_ptr<CTELMIUser> user;

    tagAddUserRet() : result(0), user() {}
};

enum tagNotifyType : int32_t {
    deviceRemoved = 1,
};

typedef void (*DevChangeCallback)(tagNotifyType type, void* deviceIndex, const void* context);

}  // namespace ZQDeviceMgr

int ZQ_DeviceMgr_AddTELMIUser(std::shared_ptr<ZQDeviceMgr::CTELMIUser>& user, const ZQDeviceMgr::tagTELMIUser& rec);
int ZQ_DeviceMgr_QuickAddTELMIUser(std::vector<ZQDeviceMgr::tagAddUserRet>& rets,
                                   const std::vector<ZQDeviceMgr::tagTELMIUser>& recs);
int ZQ_DeviceMgr_ModifyTELMIUser(const std::string& userIndex, const ZQDeviceMgr::tagTELMIUser& rec);
int ZQ_DeviceMgr_DelTELMIUser(const std::string& userIndex);
// Null when no account has that index.
std::shared_ptr<ZQDeviceMgr::CTELMIUser> ZQ_DeviceMgr_GetTELMIUser(std::string userIndex);
int ZQ_DeviceMgr_GetAllTELMIUser(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIUser>>& users);

int ZQ_DeviceMgr_BindTELMIPort(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const ZQDeviceMgr::tagTELMIPort& rec);
int ZQ_DeviceMgr_UnbindTELMIPort(const std::string& portIndex);
// Leaves port as it was when there is no such binding.
int ZQ_DeviceMgr_GetTELMIPort(std::shared_ptr<ZQDeviceMgr::CTELMIPort>& port, const std::string& portIndex);
int ZQ_DeviceMgr_GetAllTELMIPort(std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>>& ports);

// Null when there is no such device.
std::shared_ptr<ZQDeviceMgr::CKelDevice> ZQ_DeviceMgr_GetDevice(std::string deviceIndex);

int ZQ_DeviceMgr_NotifyAttach(ZQDeviceMgr::DevChangeCallback callback, void* context);
int ZQ_DeviceMgr_NotifyDetach(ZQDeviceMgr::DevChangeCallback callback);
