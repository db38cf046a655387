#include "devices/StoreRecords.h"

#include "devices/DeviceStore.h"

namespace zqgw {

// The slot argument of the lock-out calls is not used by this store: entries are found by
// record and requester key alone, and slot is left as the caller passed it.

UserRecord::UserRecord(LockBook& locks, Liveness alive, std::string index, std::string name, std::string deviceIndex,
                       std::string ha1, std::string addTime)
    : locks_(locks),
      alive_(std::move(alive)),
      index_(std::move(index)),
      name_(std::move(name)),
      deviceIndex_(std::move(deviceIndex)),
      ha1_(std::move(ha1)),
      addTime_(std::move(addTime)) {}

int UserRecord::getLockNum(int&, const char* key, int add) {
    return *alive_ ? locks_.failures(index_, key, add == 1) : 0;
}

int UserRecord::getUnlockTime(int&, const char* key) { return *alive_ ? locks_.secondsLocked(index_, key) : 0; }

int UserRecord::destroyLock(int&, const char* key) {
    if (*alive_) {
        locks_.forget(index_, key);
    }
    return 0;
}

PortRecord::PortRecord(LockBook& locks, std::string index, std::string deviceIndex, unsigned short httpPort,
                       unsigned short rtspPort, std::string addTime)
    : locks_(locks),
      alive_(std::make_shared<std::atomic<bool>>(true)),
      index_(std::move(index)),
      deviceIndex_(std::move(deviceIndex)),
      httpPort_(httpPort),
      rtspPort_(rtspPort),
      addTime_(std::move(addTime)) {}

int PortRecord::getLockNum(int&, const char* key, int add) {
    return *alive_ ? locks_.failures(index_, key, add == 1) : 0;
}

int PortRecord::getUnlockTime(int&, const char* key) { return *alive_ ? locks_.secondsLocked(index_, key) : 0; }

int PortRecord::destroyLock(int&, const char* key) {
    if (*alive_) {
        locks_.forget(index_, key);
    }
    return 0;
}

ZQGateway::tagDeviceInfo deviceInfoAt(const Statement& row, int first) {
    ZQGateway::tagDeviceInfo info;
    info.protocol = static_cast<uint8_t>(row.number(first));
    info.tarnDeviceID = row.text(first + 1);
    info.tarn5DeviceID = row.text(first + 2);
    info.name = row.text(first + 3);
    info.category = static_cast<uint8_t>(row.number(first + 4));
    info.telmiAddress = row.text(first + 5);
    info.rtspAddress = row.text(first + 6);
    return info;
}

int DeviceRecord::getTELMIBoundStatus() const { return store_.deviceHasUser(index_) ? 1 : 0; }

int DeviceRecord::getTELMIPortBoundStatus() const { return store_.deviceHasPort(index_) ? 1 : 0; }

}  // namespace zqgw
