#include "unit/store/sqlite.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdio>

#include "program/poll_until.h"

namespace unit {
namespace {

constexpr std::chrono::milliseconds BUSY_TIMEOUT{2'000};

/// As a URI, in which no name but the file's own has a meaning, as ":memory:" would have.
std::string uri_of(const std::string& path) {
    std::string uri = path.rfind('/', 0) == 0 ? "file:" : "file:./";
    for (const char character : path) {
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02x", static_cast<unsigned char>(character));
        uri += escaped;
    }
    return uri;
}

void check(sqlite3* database, int code) {
    if (code != SQLITE_OK) throw SqliteError(code, sqlite3_errmsg(database));
}

void check(sqlite3_stmt* statement, int code) {
    check(sqlite3_db_handle(statement), code);
}

}  // namespace

Database::Database(const std::string& path, Access access) : handle(nullptr, sqlite3_close) {
    sqlite3* opened = nullptr;
    const bool writes = access == Access::read_write;
    const std::string uri = uri_of(path) + (writes ? "" : "?immutable=1");
    const int flags = writes ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    const int code = sqlite3_open_v2(uri.c_str(), &opened, flags | SQLITE_OPEN_URI, nullptr);
    handle.reset(opened);
    check(opened, code);
    if (writes && sqlite3_db_readonly(opened, "main") == 1) {
        throw SqliteError(SQLITE_READONLY, "the file cannot be written");
    }
    sqlite3_busy_timeout(opened, static_cast<int>(BUSY_TIMEOUT.count()));
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

void Database::execute(const char* sql) {
    // SQLite does not wait for the lock that a change of the journal mode needs, as it does for all
    // others.
    int code = SQLITE_OK;
    program::poll_until(BUSY_TIMEOUT, [&] {
        code = sqlite3_exec(handle.get(), sql, nullptr, nullptr, nullptr);
        return code != SQLITE_BUSY;
    });
    check(handle.get(), code);
}

void Database::transact(const char* begin, const std::function<void()>& work) {
    execute(begin);
    try {
        work();
        execute("COMMIT");
    } catch (...) {
        // It fails where SQLite has rolled back by itself.
        sqlite3_exec(handle.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

Statement::Statement(const Database& database, const char* sql)
    : handle(nullptr, sqlite3_finalize) {
    sqlite3_stmt* prepared = nullptr;
    check(database.handle.get(), sqlite3_prepare_v3(database.handle.get(), sql, -1,
                                                    SQLITE_PREPARE_PERSISTENT, &prepared, nullptr));
    handle.reset(prepared);
}

Statement& Statement::bind(int index, std::int64_t value) {
    check(handle.get(), sqlite3_bind_int64(handle.get(), index, value));
    return *this;
}

Statement& Statement::bind(int index, const void* bytes, std::size_t size) {
    // SQLite takes a null pointer for NULL, also where there are no bytes to point to.
    const void* const blob = size == 0 ? "" : bytes;
    check(handle.get(), sqlite3_bind_blob64(handle.get(), index, blob, size, SQLITE_STATIC));
    return *this;
}

void Statement::run(const std::function<void()>& visit) {
    const auto reset = [](sqlite3_stmt* statement) {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    };
    const std::unique_ptr<sqlite3_stmt, void (*)(sqlite3_stmt*)> reset_at_end(handle.get(), reset);
    int code = SQLITE_OK;
    while ((code = sqlite3_step(handle.get())) == SQLITE_ROW) visit();
    if (code != SQLITE_DONE) check(handle.get(), code);
}

bool Statement::is_null(int column) const {
    return sqlite3_column_type(handle.get(), column) == SQLITE_NULL;
}

std::int64_t Statement::number(int column) const {
    return sqlite3_column_int64(handle.get(), column);
}

std::string_view Statement::bytes(int column) const {
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(handle.get(), column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(handle.get(), column))};
}

}  // namespace unit
