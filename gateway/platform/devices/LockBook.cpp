#include "devices/LockBook.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>

#include "LogLevel.h"
#include "NowSeconds.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "devices/StoreKeys.h"
#include "tvlog.h"

namespace zqgw {
namespace {

constexpr size_t kKeyWidth = 18;
// Longer than kKeyWidth, so that no requester's key can be it.
const std::string kEveryRequester = "<every requester of the record>";

std::string keyText(const char* key) { return std::string(key, strnlen(key, kKeyWidth)); }

int lockPeriod() {
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    return settings.lockPeriodSec;
}

int64_t nowMicros() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

void LockBook::load(sqlite3* db) {
    std::lock_guard<std::mutex> lock(mutex_);
    Statement rows(db, "SELECT record_index, lock_key, failures, unlock_at, touched FROM lockouts");
    while (rows.row()) {
        Entry entry;
        entry.failures = static_cast<int>(rows.number(2));
        entry.unlockAt = rows.number(3);
        entry.touched = rows.number(4);
        records_[rows.text(0)][rows.text(1)] = entry;
    }
}

LockBook::Entry* LockBook::liveEntry(Entries& entries, const std::string& record, const std::string& key, int64_t now) {
    auto it = entries.find(key);
    if (it == entries.end()) {
        return nullptr;
    }
    if (it->second.unlockAt != 0 && it->second.unlockAt <= now) {
        erase(entries, record, key);
        return nullptr;
    }
    return &it->second;
}

int LockBook::failures(const std::string& record, const char* key, bool add) {
    if (key == nullptr) {
        return 0;
    }
    const std::string k = keyText(key);
    const int64_t now = gwio::nowSeconds();
    std::lock_guard<std::mutex> lock(mutex_);
    Entries& entries = records_[record];
    const bool recordLocked = liveEntry(entries, record, kEveryRequester, now) != nullptr;
    Entry* entry = liveEntry(entries, record, k, now);
    const int count = entry == nullptr ? 0 : entry->failures;
    if (recordLocked) {
        return std::max(count, ZQGateway::kLockThreshold);
    }
    if (!add) {
        return count;
    }
    if (entry == nullptr) {
        if (entries.size() >= ZQGateway::kMaxLockKeysPerRecord) {
            lockRecord(entries, record, now);
            return ZQGateway::kLockThreshold;
        }
        entry = &entries[k];
    }
    ++entry->failures;
    entry->touched = nowMicros();
    if (entry->failures >= ZQGateway::kLockThreshold && entry->unlockAt == 0) {
        entry->unlockAt = now + lockPeriod();
    }
    save(record, k, *entry);
    return entry->failures;
}

void LockBook::lockRecord(Entries& entries, const std::string& record, int64_t now) {
    for (auto it = entries.begin(); it != entries.end();) {
        const auto next = std::next(it);
        if (it->second.unlockAt == 0) {
            erase(entries, record, it->first);
        }
        it = next;
    }
    Entry& every = entries[kEveryRequester];
    every.failures = ZQGateway::kLockThreshold;
    every.unlockAt = now + lockPeriod();
    every.touched = nowMicros();
    save(record, kEveryRequester, every);
    tvlog_format(gwlog::kWarning, "ZQDeviceMgr", "%s locked for every requester: more than %zu requesters failed",
                 record.c_str(), ZQGateway::kMaxLockKeysPerRecord);
}

int LockBook::secondsLocked(const std::string& record, const char* key) {
    if (key == nullptr) {
        return 0;
    }
    const int64_t now = gwio::nowSeconds();
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = records_.find(record);
    if (it == records_.end()) {
        return 0;
    }
    int64_t unlockAt = 0;
    for (const std::string& k : {keyText(key), kEveryRequester}) {
        const Entry* entry = liveEntry(it->second, record, k, now);
        unlockAt = entry == nullptr ? unlockAt : std::max(unlockAt, entry->unlockAt);
    }
    return unlockAt == 0 ? 0 : static_cast<int>(unlockAt - now);
}

void LockBook::forget(const std::string& record, const char* key) {
    if (key == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = records_.find(record);
    if (it != records_.end() && it->second.count(keyText(key)) != 0) {
        erase(it->second, record, keyText(key));
    }
}

void LockBook::forgetRecord(const std::string& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.erase(record);
    db_.use([&](sqlite3* db) {
        if (!Statement(db, "DELETE FROM lockouts WHERE record_index = ?").bind(record).run()) {
            warnUnstored(record, "every requester", db);
        }
    });
}

std::vector<ZQGateway::tagLockout> LockBook::list() {
    const int64_t now = gwio::nowSeconds();
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ZQGateway::tagLockout> lockouts;
    for (auto& [record, entries] : records_) {
        std::vector<std::string> keys;
        for (const auto& entry : entries) {
            keys.push_back(entry.first);
        }
        for (const std::string& key : keys) {
            if (const Entry* entry = liveEntry(entries, record, key, now)) {
                lockouts.push_back({record, key == kEveryRequester ? "" : key, entry->failures,
                                    entry->unlockAt == 0 ? 0 : static_cast<int>(entry->unlockAt - now)});
            }
        }
    }
    return lockouts;
}

int LockBook::clear(const std::string& record, const std::string& requester) {
    std::lock_guard<std::mutex> lock(mutex_);
    int cleared = 0;
    for (auto& [index, entries] : records_) {
        if (!record.empty() && index != record) {
            continue;
        }
        for (auto it = entries.begin(); it != entries.end();) {
            const auto next = std::next(it);
            if (requester.empty() || it->first == requester) {
                erase(entries, index, it->first);
                ++cleared;
            }
            it = next;
        }
    }
    return cleared;
}

// The count in memory stays right; only a restart would bring back the stored one.
void LockBook::warnUnstored(const std::string& record, const std::string& key, sqlite3* db) {
    tvlog_format(gwlog::kWarning, "ZQDeviceMgr", "lock-out of %s for %s not written to the device store: %s",
                 key.c_str(), record.c_str(), sqlite3_errmsg(db));
}

void LockBook::save(const std::string& record, const std::string& key, const Entry& entry) {
    db_.use([&](sqlite3* db) {
        const bool written =
            Statement(db,
                      "INSERT INTO lockouts(record_index, lock_key, failures, unlock_at, touched) VALUES(?,?,?,?,?)"
                      " ON CONFLICT(record_index, lock_key) DO UPDATE SET failures = excluded.failures,"
                      " unlock_at = excluded.unlock_at, touched = excluded.touched")
                .bind(record)
                .bind(key)
                .bind(int64_t {entry.failures})
                .bind(entry.unlockAt)
                .bind(entry.touched)
                .run();
        if (!written) {
            warnUnstored(record, key, db);
        }
    });
}

void LockBook::erase(Entries& entries, const std::string& record, std::string key) {
    entries.erase(key);
    db_.use([&](sqlite3* db) {
        if (!Statement(db, "DELETE FROM lockouts WHERE record_index = ? AND lock_key = ?")
                 .bind(record)
                 .bind(key)
                 .run()) {
            warnUnstored(record, key, db);
        }
    });
}

}  // namespace zqgw
