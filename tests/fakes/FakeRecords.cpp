// The device store's records as the fake hands them out.
#include <algorithm>

#include "FakePlatform.h"

namespace fake {

namespace {
constexpr int kLockThreshold = 7;
constexpr int kLockSeconds = 300;

std::unique_lock<std::recursive_mutex> lockPlatform() { return std::unique_lock<std::recursive_mutex>(fakePlatform().mutex); }

std::string lockEntry(const char* op, int slot, const char* key, int add) {
    return std::string("lock.") + op + " key=" + key + " slot=" + std::to_string(slot) +
           (add >= 0 ? " add=" + std::to_string(add) : "");
}
}  // namespace

int FakeRecordLocks::getLockNum(int slot, const char* key, int add) {
    auto lock = lockPlatform();
    fakePlatform().record(lockEntry("getLockNum", slot, key, add));
    int& count = counts_[key];
    if (add == 1 && ++count >= kLockThreshold) {
        unlockTimes_[key] = kLockSeconds;
    }
    return count;
}

int FakeRecordLocks::getUnlockTime(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().record(lockEntry("getUnlockTime", slot, key, -1));
    auto it = unlockTimes_.find(key);
    return it == unlockTimes_.end() ? 0 : it->second;
}

int FakeRecordLocks::destroyLock(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().record(lockEntry("destroyLock", slot, key, -1));
    counts_.erase(key);
    unlockTimes_.erase(key);
    return 0;
}

void FakeRecordLocks::setUnlockTime(const std::string& key, int seconds) {
    auto lock = lockPlatform();
    unlockTimes_[key] = seconds;
}

void FakeRecordLocks::setLockNum(const std::string& key, int count) {
    auto lock = lockPlatform();
    counts_[key] = count;
}

std::string FakeUser::getUserIndex() const { auto l = lockPlatform(); return index; }
std::string FakeUser::getUserName() const { auto l = lockPlatform(); return name; }
std::string FakeUser::getDeviceIndex() const { auto l = lockPlatform(); return deviceIndex; }
std::string FakeUser::getDigestPassword() const { auto l = lockPlatform(); return digest; }
std::string FakeUser::getAddTime() const { auto l = lockPlatform(); return addTime; }
int FakeUser::getLockNum(int& slot, const char* key, int add) { return locks.getLockNum(slot, key, add); }
int FakeUser::getUnlockTime(int& slot, const char* key) { return locks.getUnlockTime(slot, key); }
int FakeUser::destroyLock(int& slot, const char* key) { return locks.destroyLock(slot, key); }

std::string FakePort::getPortIndex() const { auto l = lockPlatform(); return index; }
std::string FakePort::getDeviceIndex() const { auto l = lockPlatform(); return deviceIndex; }
unsigned short FakePort::getHttpPort() const { auto l = lockPlatform(); return httpPort; }
unsigned short FakePort::getRtspPort() const { auto l = lockPlatform(); return rtspPort; }
std::string FakePort::getAddTime() const { auto l = lockPlatform(); return addTime; }
void FakePort::setHttpPortStatus(int status) { auto l = lockPlatform(); httpStatus = status; }
void FakePort::setRtspPortStatus(int status) { auto l = lockPlatform(); rtspStatus = status; }
int FakePort::getLockNum(int& slot, const char* key, int add) { return locks.getLockNum(slot, key, add); }
int FakePort::getUnlockTime(int& slot, const char* key) { return locks.getUnlockTime(slot, key); }
int FakePort::destroyLock(int& slot, const char* key) { return locks.destroyLock(slot, key); }

std::string FakeDevice::getDeviceIndex() const { auto l = lockPlatform(); return index; }
uint8_t FakeDevice::getProtocol() const { auto l = lockPlatform(); return protocol; }
std::string FakeDevice::getTarnDeviceID() const { auto l = lockPlatform(); return tarnId; }
std::string FakeDevice::getTarn5DeviceID() const { auto l = lockPlatform(); return tarn5Id; }
std::string FakeDevice::getDeviceName() const { auto l = lockPlatform(); return name; }
uint8_t FakeDevice::getCategory() const { auto l = lockPlatform(); return category; }

int FakeDevice::getTELMIBoundStatus() const {
    auto l = lockPlatform();
    if (accountBound >= 0) {
        return accountBound;
    }
    const auto& users = fakePlatform().users;
    return std::any_of(users.begin(), users.end(), [this](const auto& u) { return u->deviceIndex == index; });
}

int FakeDevice::getTELMIPortBoundStatus() const {
    auto l = lockPlatform();
    if (portBound >= 0) {
        return portBound;
    }
    const auto& ports = fakePlatform().ports;
    return std::any_of(ports.begin(), ports.end(), [this](const auto& p) { return p->deviceIndex == index; });
}

}  // namespace fake
