#include "devices/StoreDatabase.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "LogLevel.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "tvlog.h"

namespace zqgw {

Statement::Statement(sqlite3* db, const char* sql) {
    failed_ = sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK;
}

Statement::~Statement() { sqlite3_finalize(stmt_); }

Statement& Statement::bind(const std::string& text) {
    failed_ = failed_ || sqlite3_bind_text(stmt_, next_++, text.data(), static_cast<int>(text.size()),
                                           SQLITE_TRANSIENT) != SQLITE_OK;
    return *this;
}

Statement& Statement::bind(int64_t number) {
    failed_ = failed_ || sqlite3_bind_int64(stmt_, next_++, number) != SQLITE_OK;
    return *this;
}

bool Statement::row() {
    if (failed_) {
        return false;
    }
    int rc = sqlite3_step(stmt_);
    failed_ = rc != SQLITE_ROW && rc != SQLITE_DONE;
    return rc == SQLITE_ROW;
}

bool Statement::run() {
    while (row()) {
    }
    return !failed_;
}

std::string Statement::text(int column) const {
    const unsigned char* value = sqlite3_column_text(stmt_, column);
    return value == nullptr ? std::string()
                            : std::string(reinterpret_cast<const char*>(value),
                                          static_cast<size_t>(sqlite3_column_bytes(stmt_, column)));
}

int64_t Statement::number(int column) const { return sqlite3_column_int64(stmt_, column); }

StoreDatabase::~StoreDatabase() { sqlite3_close_v2(db_); }

namespace {

// The database holds every TELMI user's HA1: it is created owner-only here, whatever the
// process's umask, and SQLite gives its -wal and -shm files the database's mode and owner.
bool createPrivately(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno == EEXIST;
    }
    ZQ_Gateway_GiveToHomeOwner(fd, path);
    ::close(fd);
    return true;
}

}  // namespace

bool StoreDatabase::open(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!createPrivately(path)) {
        tvlog_format(gwlog::kError, "ZQDeviceMgr", "device store %s cannot be created: %s", path.c_str(),
                     std::strerror(errno));
        return false;
    }
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) != SQLITE_OK) {
        return false;
    }
    sqlite3_busy_timeout(db_, 5000);
    static const char* const kSchema =
        "BEGIN IMMEDIATE;"
        "CREATE TABLE IF NOT EXISTS devices(device_index TEXT PRIMARY KEY, protocol INTEGER NOT NULL,"
        " tarn_id TEXT NOT NULL, tarn5_id TEXT NOT NULL, name TEXT NOT NULL, category INTEGER NOT NULL,"
        " telmi_address TEXT NOT NULL, rtsp_address TEXT NOT NULL, add_time TEXT NOT NULL UNIQUE);"
        "CREATE TABLE IF NOT EXISTS telmi_users(user_index TEXT PRIMARY KEY, user_name TEXT NOT NULL UNIQUE,"
        " device_index TEXT NOT NULL UNIQUE, digest_ha1 TEXT NOT NULL, add_time TEXT NOT NULL UNIQUE);"
        "CREATE TABLE IF NOT EXISTS telmi_ports(port_index TEXT PRIMARY KEY, device_index TEXT NOT NULL UNIQUE,"
        " http_port INTEGER NOT NULL UNIQUE, rtsp_port INTEGER NOT NULL, add_time TEXT NOT NULL UNIQUE);"
        "CREATE UNIQUE INDEX IF NOT EXISTS telmi_ports_rtsp ON telmi_ports(rtsp_port) WHERE rtsp_port <> 0;"
        "CREATE TABLE IF NOT EXISTS lockouts(record_index TEXT NOT NULL, lock_key TEXT NOT NULL,"
        " failures INTEGER NOT NULL, unlock_at INTEGER NOT NULL, touched INTEGER NOT NULL,"
        " PRIMARY KEY(record_index, lock_key));"
        "CREATE TABLE IF NOT EXISTS port_reservations(port INTEGER PRIMARY KEY, expires_at INTEGER NOT NULL);"
        "COMMIT;";
    // Processes opening a new home at once race for the switch to WAL, and SQLite reports that
    // race as busy without waiting; the schema itself is created under a write lock taken first,
    // for which the busy timeout does wait.
    int result = SQLITE_BUSY;
    for (int attempt = 0; attempt < 50 && (result == SQLITE_BUSY || result == SQLITE_LOCKED); ++attempt) {
        if (attempt > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        result = sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr, nullptr, nullptr);
    }
    if (result == SQLITE_OK) {
        result = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
    }
    if (result != SQLITE_OK) {
        tvlog_format(gwlog::kError, "ZQDeviceMgr", "device store %s: %s", path.c_str(), sqlite3_errmsg(db_));
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return result == SQLITE_OK;
}

int StoreDatabase::transaction(const std::function<int(sqlite3*)>& work) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (db_ == nullptr || sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
        return ZQGateway::storeDatabase;
    }
    int result = work(db_);
    if (result == 0 && sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        result = ZQGateway::storeDatabase;
    }
    if (result != 0) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return result;
}

void StoreDatabase::use(const std::function<void(sqlite3*)>& work) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (db_ != nullptr) {
        work(db_);
    }
}

}  // namespace zqgw
