#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// SQLite's handles and errors, once. Every operation throws SqliteError.
namespace unit {

/// With the database's own text.
struct SqliteError : std::runtime_error {
    SqliteError(int primary_result_code, const std::string& text)
        : std::runtime_error(text), code(primary_result_code) {}
    int code;
};

/// A file that was opened. Whatever it defines, its triggers and views do not run.
class Database {
public:
    enum class Access {
        read_write,  ///< created when it is not there; SQLITE_READONLY when it cannot be written
        read_only,   ///< on a medium that nothing else writes either
    };
    Database(const std::string& path, Access access);

    /// Waits for locks that others hold, up to a timeout.
    void execute(const char* sql);

    /// Runs `work` in a transaction, on disk at the end; it is rolled back when that throws.
    /// `begin`: "BEGIN IMMEDIATE", so that nobody else writes meanwhile, or "BEGIN" to read one
    /// state of the file under one lock.
    void transact(const char* begin, const std::function<void()>& work);

private:
    friend class Statement;
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> handle;
};

/// A prepared statement.
class Statement {
public:
    Statement(const Database& database, const char* sql);

    /// What is not bound is NULL. Bytes are not copied: they must live until it has run.
    Statement& bind(int index, std::int64_t value);
    Statement& bind(int index, const void* bytes, std::size_t size);

    /// Runs to the end and calls `visit` for each row. The statement is as new afterwards, however
    /// it ended: an open read would hold up checkpoints.
    void run(const std::function<void()>& visit = [] {});

    /// A column of the row that is visited; bytes are valid until the visit ends.
    bool is_null(int column) const;
    std::int64_t number(int column) const;
    std::string_view bytes(int column) const;

private:
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> handle;
};

}  // namespace unit
