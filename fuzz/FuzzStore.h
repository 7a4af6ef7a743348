#pragma once

#include "Expect.h"
#include "PrivateWorld.h"

#include <memory>
#include <sqlite3.h>
#include <string>

// A task database in a private world, and SQLite's own view of it.

struct Closer {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Closer>;

inline sqlite3* openDatabase()
{
    static std::unique_ptr<sqlite3, Closer> connection;
    if (connection == nullptr) {
        sqlite3* opened = nullptr;
        EXPECT(sqlite3_open(support::databasePath.c_str(), &opened) == SQLITE_OK);
        connection.reset(opened);
        EXPECT(sqlite3_exec(opened, "pragma synchronous=off", nullptr, nullptr, nullptr) == SQLITE_OK);
    }
    return connection.get();
}

inline Statement prepared(const std::string& sql)
{
    sqlite3_stmt* statement = nullptr;
    EXPECT(sqlite3_prepare_v2(openDatabase(), sql.c_str(), -1, &statement, nullptr) == SQLITE_OK);
    return Statement(statement);
}

inline void run(const Statement& statement)
{
    EXPECT(sqlite3_step(statement.get()) == SQLITE_DONE);
}
