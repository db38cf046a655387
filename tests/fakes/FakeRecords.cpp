// The device store's records as the fake hands them out.
#include <algorithm>

#include "FakePlatform.h"

namespace fake {

namespace {
constexpr int kLockThreshold = 7;
constexpr int kLockSeconds = 300;

std::string lockDetail(int slot, const char* key, int add = -1) {
    return std::string("key=") + key + " slot=" + std::to_string(slot) +
           (add >= 0 ? " add=" + std::to_string(add) : "");
}
}  // namespace

int FakeRecordLocks::getLockNum(int slot, const char* key, int add) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.getLockNum", lockDetail(slot, key, add));
    int& count = counts[key];
    if (add == 1 && ++count >= kLockThreshold) {
        unlockTimes[key] = kLockSeconds;
    }
    return count;
}

int FakeRecordLocks::getUnlockTime(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.getUnlockTime", lockDetail(slot, key));
    auto it = unlockTimes.find(key);
    return it == unlockTimes.end() ? 0 : it->second;
}

int FakeRecordLocks::destroyLock(int slot, const char* key) {
    auto lock = lockPlatform();
    fakePlatform().call("lock.destroyLock", lockDetail(slot, key));
    counts.erase(key);
    unlockTimes.erase(key);
    return 0;
}

int FakeDevice::getTELMIBoundStatus() const {
    auto lock = lockPlatform();
    return holdsDevice(fakePlatform().users, index);
}

int FakeDevice::getTELMIPortBoundStatus() const {
    auto lock = lockPlatform();
    return holdsDevice(fakePlatform().ports, index);
}

}  // namespace fake
