#include "unit/store/sqlite.h"

#include <sqlite3.h>

#include <utility>

namespace unit {
namespace {

/// As a URI, in which no name but the file's own has a meaning, as ":memory:" would have.
std::string uri_of(const std::string& path) {
    constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string uri = path.rfind('/', 0) == 0 ? "file://" : "file:./";
    for (const char character : path) {
        if (character == '%' || character == '?' || character == '#') {
            const auto byte = static_cast<unsigned char>(character);
            uri += {'%', DIGITS[byte >> 4U], DIGITS[byte & 0xfU]};
        } else {
            uri += character;
        }
    }
    return uri;
}

constexpr int BUSY_TIMEOUT_MS = 2000;

}  // namespace

void Database::Close::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

Database::Database(const std::string& path, Access access) {
    sqlite3* opened = nullptr;
    const bool writes = access == Access::read_write;
    const std::string uri = uri_of(path) + (writes ? "" : "?immutable=1");
    const int flags = writes ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    const int code = sqlite3_open_v2(uri.c_str(), &opened, flags | SQLITE_OPEN_URI, nullptr);
    handle.reset(opened);
    if (code != SQLITE_OK) fail(code);
    if (writes && sqlite3_db_readonly(opened, "main") == 1) {
        throw SqliteError(SQLITE_READONLY, "the file cannot be written");
    }
    sqlite3_busy_timeout(opened, BUSY_TIMEOUT_MS);
    const std::pair<int, int> precautions[] = {
        {SQLITE_DBCONFIG_DEFENSIVE, 1},
        {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
        {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
        {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
    };
    for (const auto& [option, value] : precautions) {
        sqlite3_db_config(opened, option, value, nullptr);
    }
}

void Database::execute(const char* sql) {
    const int code = sqlite3_exec(handle.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(code);
}

std::int64_t Database::pragma(const char* name) {
    Statement statement(*this, (std::string("PRAGMA ") + name).c_str());
    std::int64_t value = 0;
    statement.run([&] { value = statement.number(0).value_or(0); });
    return value;
}

void Database::fail(int code) const {
    throw SqliteError(code & 0xff, handle ? sqlite3_errmsg(handle.get()) : sqlite3_errstr(code));
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement::Statement(Database& owner, const char* sql) : database(&owner) {
    sqlite3_stmt* prepared = nullptr;
    const int code = sqlite3_prepare_v3(owner.handle.get(), sql, -1, SQLITE_PREPARE_PERSISTENT,
                                        &prepared, nullptr);
    handle.reset(prepared);
    if (code != SQLITE_OK) owner.fail(code);
}

Statement& Statement::bind(int index, std::optional<std::int64_t> value) {
    const int code = value ? sqlite3_bind_int64(handle.get(), index, *value)
                           : sqlite3_bind_null(handle.get(), index);
    if (code != SQLITE_OK) database->fail(code);
    return *this;
}

Statement& Statement::bind(int index, const void* bytes, std::size_t size) {
    // SQLite takes a null pointer for NULL, also where there are no bytes to point to.
    const int code =
        sqlite3_bind_blob64(handle.get(), index, size == 0 ? "" : bytes, size, SQLITE_STATIC);
    if (code != SQLITE_OK) database->fail(code);
    return *this;
}

bool Statement::step() {
    const int code = sqlite3_step(handle.get());
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) database->fail(code);
    return false;
}

void Statement::reset() {
    sqlite3_reset(handle.get());
    sqlite3_clear_bindings(handle.get());
}

std::optional<std::int64_t> Statement::number(int column) const {
    if (sqlite3_column_type(handle.get(), column) == SQLITE_NULL) return std::nullopt;
    return sqlite3_column_int64(handle.get(), column);
}

std::optional<std::string_view> Statement::bytes(int column) const {
    if (sqlite3_column_type(handle.get(), column) == SQLITE_NULL) return std::nullopt;
    const auto* const blob = static_cast<const char*>(sqlite3_column_blob(handle.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle.get(), column));
    return size == 0 ? std::string_view("") : std::string_view(blob, size);
}

Transaction::Transaction(Database& owner, Kind kind) : database(owner) {
    database.execute(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    if (!open) return;
    try {
        database.execute("ROLLBACK");
    } catch (const SqliteError&) {
        open = false;  // SQLite had rolled back by itself
    }
}

void Transaction::commit() {
    database.execute("COMMIT");
    open = false;
}

}  // namespace unit
