#include "HomeBackup.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "ZQGatewayHome.h"
#include "ZQGatewayNginx.h"
#include "base/ProcessTools.h"

namespace gatewayd {
namespace {

constexpr const char* kStoreFile = "devices.db";
// The settings and keys a backup carries besides the store; a file the home lacks is left out.
constexpr const char* kHomeFiles[] = {ZQGateway::kSettingsFile, "nonce.key", "admin-password", "port-admin-password"};

using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

Database openDatabase(const std::string& path, int flags, std::string& error) {
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    Database owned(db, &sqlite3_close);
    if (rc != SQLITE_OK) {
        error = path + ": " + (db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
        owned.reset();
    }
    return owned;
}

bool execute(sqlite3* db, const char* sql, std::string& error) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        error = sqlite3_errmsg(db);
        return false;
    }
    return true;
}

// Every page of from's main database into to's, as of one moment of from.
bool copyDatabase(sqlite3* from, sqlite3* to, std::string& error) {
    sqlite3_backup* backup = sqlite3_backup_init(to, "main", from, "main");
    if (backup == nullptr) {
        error = sqlite3_errmsg(to);
        return false;
    }
    const int stepped = sqlite3_backup_step(backup, -1);
    sqlite3_backup_finish(backup);
    if (stepped != SQLITE_DONE) {
        error = std::string("the store could not be copied: ") + sqlite3_errstr(stepped);
        return false;
    }
    return true;
}

// An empty owner-only file at path, given to the home's owner when it lies in the home.
bool createPrivateFile(const std::string& path, std::string& error) {
    ::unlink(path.c_str());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = path + ": cannot be created";
        return false;
    }
    ZQ_Gateway_GiveToHomeOwner(fd, path);
    ::close(fd);
    return true;
}

// SQLite creates the store's -wal and -shm files for any connection, a reading one included: run
// by root, they would otherwise lock the service user out of its own store.
void giveStoreFilesToHomeOwner() {
    for (const char* suffix : {"-wal", "-shm"}) {
        const std::string path = ZQ_Gateway_HomePath(std::string(kStoreFile) + suffix);
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            ZQ_Gateway_GiveToHomeOwner(fd, path);
            ::close(fd);
        }
    }
}

bool storeHomeFiles(sqlite3* db, std::string& error) {
    if (!execute(db, "CREATE TABLE home_files (name TEXT PRIMARY KEY, content BLOB NOT NULL)", error)) {
        return false;
    }
    for (const char* name : kHomeFiles) {
        std::ifstream in(ZQ_Gateway_HomePath(name), std::ios::binary);
        if (!in) {
            continue;
        }
        std::ostringstream content;
        content << in.rdbuf();
        const std::string bytes = content.str();
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO home_files (name, content) VALUES (?, ?)", -1, &insert, nullptr);
        sqlite3_bind_text(insert, 1, name, -1, SQLITE_STATIC);
        sqlite3_bind_blob(insert, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
        const bool stored = sqlite3_step(insert) == SQLITE_DONE;
        sqlite3_finalize(insert);
        if (!stored) {
            error = std::string(name) + " could not be stored: " + sqlite3_errmsg(db);
            return false;
        }
    }
    return true;
}

bool restoreHomeFiles(sqlite3* backup, std::string& error) {
    sqlite3_stmt* files = nullptr;
    if (sqlite3_prepare_v2(backup, "SELECT name, content FROM home_files", -1, &files, nullptr) != SQLITE_OK) {
        error = "not a gateway backup (" + std::string(sqlite3_errmsg(backup)) + ")";
        return false;
    }
    bool written = true;
    while (written && sqlite3_step(files) == SQLITE_ROW) {
        const std::string name = reinterpret_cast<const char*>(sqlite3_column_text(files, 0));
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(files, 1));
        const std::string content(bytes != nullptr ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(files, 1)));
        bool known = false;
        for (const char* homeFile : kHomeFiles) {
            known = known || name == homeFile;
        }
        written = known && ZQ_Gateway_WriteFileAtomically(ZQ_Gateway_HomePath(name), content) == 0;
        if (!written) {
            error = name + (known ? " could not be written" : " is not a file of a gateway home");
        }
    }
    sqlite3_finalize(files);
    return written;
}

bool running(const std::string& pidFile, const char* name) {
    std::ifstream in(ZQ_Gateway_HomePath(pidFile));
    int pid = 0;
    return in >> pid && zqbase::processAlive(pid) && zqbase::processName(pid) == name;
}

// The first of the home's daemons found running; empty when none runs.
std::string runningDaemon() {
    if (running("run/gatewayd.pid", "zqgatewayd")) {
        return "zqgatewayd";
    }
    if (running("run/mediad.pid", "zqmediad")) {
        return "zqmediad";
    }
    return ZQ_Gateway_NginxMasterPid() != 0 ? "nginx" : "";
}

}  // namespace

bool backupHome(const std::string& path, std::string& error) {
    const std::string partial = path + ".partial";
    bool written = false;
    {
        Database store = openDatabase(ZQ_Gateway_HomePath(kStoreFile), SQLITE_OPEN_READONLY, error);
        Database backup = store && createPrivateFile(partial, error)
                              ? openDatabase(partial, SQLITE_OPEN_READWRITE, error)
                              : Database(nullptr, &sqlite3_close);
        // A backup is a single file: the store's WAL mode is not kept.
        written = backup && copyDatabase(store.get(), backup.get(), error) &&
                  execute(backup.get(), "PRAGMA journal_mode=DELETE", error) && storeHomeFiles(backup.get(), error);
    }
    giveStoreFilesToHomeOwner();
    if (written && std::rename(partial.c_str(), path.c_str()) != 0) {
        error = path + ": cannot be written";
        written = false;
    }
    if (!written) {
        ::unlink(partial.c_str());
    }
    return written;
}

bool restoreHome(const std::string& path, std::string& error) {
    if (const std::string daemon = runningDaemon(); !daemon.empty()) {
        error = "the gateway of " + ZQ_Gateway_HomeDir() + " is running (" + daemon +
                "); stop it first (scripts/gateway.sh --home " + ZQ_Gateway_HomeDir() + " stop)";
        return false;
    }
    Database backup = openDatabase(path, SQLITE_OPEN_READONLY, error);
    if (!backup) {
        return false;
    }
    if (!execute(backup.get(), "SELECT count(*) FROM home_files", error)) {
        error = path + " is not a gateway backup (" + error + ")";
        return false;
    }
    const std::string storePath = ZQ_Gateway_HomePath(kStoreFile);
    for (const char* stale : {"-wal", "-shm"}) {
        ::unlink((storePath + stale).c_str());
    }
    if (!createPrivateFile(storePath, error)) {
        return false;
    }
    bool restored = false;
    {
        Database store = openDatabase(storePath, SQLITE_OPEN_READWRITE, error);
        restored = store && copyDatabase(backup.get(), store.get(), error) &&
                   execute(store.get(), "DROP TABLE home_files", error) && restoreHomeFiles(backup.get(), error);
    }
    giveStoreFilesToHomeOwner();
    return restored;
}

}  // namespace gatewayd
