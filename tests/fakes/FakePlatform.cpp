#include "FakePlatform.h"

#include <algorithm>
#include <cstdio>

namespace fake {

FakePlatform& fakePlatform() {
    static FakePlatform platform;
    return platform;
}

std::unique_lock<std::recursive_mutex> lockPlatform() {
    return std::unique_lock<std::recursive_mutex>(fakePlatform().mutex);
}

void FakePlatform::reset() {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    for (char* buffer : liveBuffers) {
        delete[] buffer;
    }
    static_cast<FakeState&>(*this) = FakeState();
}

// Store indexes are 36 characters long; add times sort in the order of adding.
template <class Record>
std::shared_ptr<Record> FakePlatform::addRecord(std::vector<std::shared_ptr<Record>>& records, char kind,
                                                const std::string& deviceIndex) {
    auto record = std::make_shared<Record>();
    char text[40];
    std::snprintf(text, sizeof(text), "%c0000000-0000-4000-8000-%012d", kind, ++counter);
    record->index = text;
    std::snprintf(text, sizeof(text), "2026-01-01T00:00:00.%06dZ", ++counter);
    record->addTime = text;
    record->deviceIndex = deviceIndex;
    records.push_back(record);
    return record;
}

std::shared_ptr<FakeDevice> FakePlatform::addDevice(const std::string& index, uint8_t protocol,
                                                    const std::string& accessId, const std::string& name,
                                                    uint8_t category) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    auto device = std::make_shared<FakeDevice>();
    device->index = index;
    device->protocol = protocol;
    (protocol == 4 ? device->tarn5Id : device->tarnId) = accessId;
    device->name = name;
    device->category = category;
    devices.push_back(device);
    return device;
}

std::shared_ptr<FakeUser> FakePlatform::addUser(const std::string& name, const std::string& deviceIndex,
                                                const std::string& digest) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    auto user = addRecord(users, 'a', deviceIndex);
    user->name = name;
    user->digest = digest;
    return user;
}

std::shared_ptr<FakePort> FakePlatform::addPort(const std::string& deviceIndex, unsigned short httpPort,
                                                unsigned short rtspPort) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    auto port = addRecord(ports, 'b', deviceIndex);
    port->httpPort = httpPort;
    port->rtspPort = rtspPort;
    return port;
}

void FakePlatform::removeDevice(const std::string& index) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    eraseByIndex(devices, index);
}

void FakePlatform::notify(ZQDeviceMgr::tagNotifyType type, const std::string& deviceIndex) {
    ZQDeviceMgr::DevChangeCallback cb;
    void* context;
    {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        cb = callback;
        context = callbackContext;
    }
    if (cb != nullptr) {
        std::string text = deviceIndex;
        cb(type, text.data(), context);
    }
}

bool FakePlatform::logged(int level, const std::string& format) const {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return std::any_of(logs.begin(), logs.end(),
                       [&](const LogLine& line) { return line.level == level && line.format == format; });
}

std::vector<std::string> FakePlatform::journalWith(const std::string& prefix) const {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    std::vector<std::string> entries;
    std::copy_if(journal.begin(), journal.end(), std::back_inserter(entries),
                 [&](const std::string& entry) { return entry.compare(0, prefix.size(), prefix) == 0; });
    return entries;
}

void FakePlatform::inject(const std::string& operation, int result) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    injected[operation].push_back(result);
}

std::optional<int> FakePlatform::call(const std::string& operation, const std::string& detail) {
    std::lock_guard<std::recursive_mutex> lock(mutex);
    journal.push_back(detail.empty() ? operation : operation + " " + detail);
    auto it = injected.find(operation);
    if (it == injected.end() || it->second.empty()) {
        return std::nullopt;
    }
    int result = it->second.front();
    it->second.pop_front();
    return result;
}

}  // namespace fake
