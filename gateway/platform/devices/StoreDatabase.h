#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace zqgw {

// One prepared statement; binds 1-based parameters in order.
class Statement {
public:
    Statement(sqlite3* db, const char* sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(const std::string& text);
    Statement& bind(int64_t number);
    bool row();  // steps; true while a row is available
    bool run();  // steps to the end; true on success
    std::string text(int column) const;
    int64_t number(int column) const;

private:
    sqlite3_stmt* stmt_ = nullptr;
    int next_ = 1;
    bool failed_ = false;
};

// The SQLite connection of this process (WAL, busy timeout for the other processes' writers).
// Every use holds the connection's mutex, so that one thread's transaction never swallows
// another thread's statements.
class StoreDatabase {
public:
    ~StoreDatabase();
    bool open(const std::string& path);
    // Runs work inside BEGIN IMMEDIATE/COMMIT; rolls back when work returns non-zero (its result)
    // or when SQLite fails (storeDatabase).
    int transaction(const std::function<int(sqlite3*)>& work);
    // Runs work with the connection, outside any transaction of ours.
    void use(const std::function<void(sqlite3*)>& work);

private:
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
};

}  // namespace zqgw
