#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// SQLite's handles and errors, once. Every operation throws SqliteError.
namespace unit {

class SqliteError : public std::runtime_error {
public:
    SqliteError(int sqlite_code, const std::string& text)
        : std::runtime_error(text), error_code(sqlite_code) {}
    int code() const { return error_code; }  ///< primary result code

private:
    int error_code;
};

class Database;

/// A prepared statement.
class Statement {
public:
    Statement(Database& owner, const char* sql);

    /// Bytes are not copied: they must live until it has run.
    Statement& bind(int index, std::optional<std::int64_t> value);
    Statement& bind(int index, const void* bytes, std::size_t size);

    /// Runs to the end and calls `visit` for each row. The statement is as new afterwards, however
    /// it ended: an open read would hold up checkpoints.
    template <typename Visit>
    void run(Visit visit) {
        const ResetAtEnd reset{*this};
        while (step()) visit();
    }
    void run() {
        run([] {});
    }

    /// A column of the row that is visited; bytes are valid until the visit ends.
    std::optional<std::int64_t> number(int column) const;
    std::optional<std::string_view> bytes(int column) const;

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    struct ResetAtEnd {
        ~ResetAtEnd() { statement.reset(); }
        Statement& statement;
    };

    bool step();  ///< true when there is a row
    void reset();

    Database* database;
    std::unique_ptr<sqlite3_stmt, Finalize> handle;
};

/// A file that was opened. Whatever it defines, its triggers and views do not run.
class Database {
public:
    enum class Access {
        read_write,  ///< created when it is not there; SQLITE_READONLY when it cannot be written
        read_only,   ///< on a medium that nothing else writes either
    };
    Database(const std::string& path, Access access);

    void execute(const char* sql);
    std::int64_t pragma(const char* name);

    /// Throws SqliteError with the database's own text.
    [[noreturn]] void fail(int code) const;

private:
    friend class Statement;
    struct Close {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Close> handle;
};

/// Rolled back unless it was committed.
class Transaction {
public:
    enum class Kind {
        read,   ///< one state of the file for several reads, and one lock for all of them
        write,  ///< nobody else writes meanwhile
    };
    explicit Transaction(Database& owner, Kind kind = Kind::write);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// Returns when the changes are on disk.
    void commit();

private:
    Database& database;
    bool open = true;
};

}  // namespace unit
