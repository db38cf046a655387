#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ZQGatewayDevices.h"

#include "devices/StoreDatabase.h"

namespace zqgw {

// Failure counts and locks per record (user or binding index) and requester key, kept in
// memory and written through to the lockouts table, so that locks survive a restart.
// Requester keys are read up to 18 bytes, the width of the host's lock key field. A record
// holds at most kMaxLockKeysPerRecord keys and never drops one before its lock ends; a failure
// from one key more locks the whole record (every requester) for the lock period instead, kept
// as an entry under a key longer than any requester's.
class LockBook {
public:
    explicit LockBook(StoreDatabase& db) : db_(db) {}

    void load(sqlite3* db);
    // The key's failure count, after counting one more failure when add is set. The count that
    // reaches the threshold locks the key for the configured period; an expired lock is
    // forgotten first, so counting starts again.
    // While the record is locked for every requester, every key counts at least the threshold
    // and no failure is added.
    int failures(const std::string& record, const char* key, bool add);
    // Seconds until the key is unlocked (it or its whole record); 0 when it is not locked.
    int secondsLocked(const std::string& record, const char* key);
    // Forgets the key's own count and lock; a lock of the whole record stays.
    void forget(const std::string& record, const char* key);
    void forgetRecord(const std::string& record);

    // Every count and lock still in force (expired locks are forgotten on the way); the whole
    // record's lock has an empty requester.
    std::vector<ZQGateway::tagLockout> list();
    // Forgets the counts and locks of record (empty: every record) and requester (empty: every
    // requester, the whole record's lock included); how many entries went.
    int clear(const std::string& record, const std::string& requester);

private:
    struct Entry {
        int failures = 0;
        int64_t unlockAt = 0;  // UTC seconds; 0 while not locked
        int64_t touched = 0;   // UTC microseconds of the last failure
    };
    using Entries = std::map<std::string, Entry>;

    // The entry, or null when absent or just expired (then it is gone from the table too).
    Entry* liveEntry(Entries& entries, const std::string& record, const std::string& key, int64_t now);
    void save(const std::string& record, const std::string& key, const Entry& entry);
    static void warnUnstored(const std::string& record, const std::string& key, sqlite3* db);
    void erase(Entries& entries, const std::string& record, std::string key);  // key may live in entries
    // Locks the record for every requester; its keys' counts no longer matter and are dropped,
    // their locks kept.
    void lockRecord(Entries& entries, const std::string& record, int64_t now);

    StoreDatabase& db_;
    std::mutex mutex_;
    std::map<std::string, Entries> records_;
};

}  // namespace zqgw
