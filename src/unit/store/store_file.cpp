#include "unit/store/store_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "ecu/lapi/logging.h"
#include "program/poll_until.h"

namespace unit {
namespace {

constexpr std::chrono::milliseconds LOCK_TIMEOUT{2'000};

/// Marks the file as ours ("KVRU"), so that another program's database is never written to.
constexpr std::int64_t APPLICATION_ID = 0x4b565255;
static_assert(APPLICATION_ID == 1263948373);

constexpr char MARK[] = "PRAGMA application_id = 1263948373";
constexpr char PARAMETER_TABLE[] =
    "CREATE TABLE parameter ("
    "otaid INTEGER PRIMARY KEY, did INTEGER, xcpid INTEGER, data BLOB)";
constexpr char SECSTORE_TABLE[] =
    "CREATE TABLE secstore (id INTEGER PRIMARY KEY CHECK (id = 0), blob BLOB NOT NULL)";

std::string without_blanks(std::string_view sql) {
    std::string text(sql);
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char character) { return character == ' ' || character == '\n'; }),
               text.end());
    return text;
}

/// What the file defines, but for the statistics that ANALYZE leaves.
std::vector<std::string> schema_of(Database& database) {
    Statement schema(database,
                     "SELECT coalesce(sql, name) FROM sqlite_schema "
                     "WHERE name NOT LIKE 'sqlite\\_stat%' ESCAPE '\\' ORDER BY name");
    std::vector<std::string> definitions;
    schema.run([&] { definitions.push_back(without_blanks(schema.bytes(0).value_or(""))); });
    return definitions;
}

/// A marked file with more in it would run its own triggers and expressions inside our statements.
void require_own(Database& database) {
    const std::vector<std::string> own{without_blanks(PARAMETER_TABLE),
                                       without_blanks(SECSTORE_TABLE)};
    if (database.pragma("application_id") != APPLICATION_ID || schema_of(database) != own) {
        throw SqliteError(SQLITE_NOTADB, "another program's database");
    }
}

/// SQLite does not wait for the lock that the change of mode needs, as it does for all others.
void use_write_ahead_log(Database& database) {
    const char* const sql = "PRAGMA journal_mode = WAL";
    const bool is_done = program::poll_until(LOCK_TIMEOUT, [&] {
        try {
            database.execute(sql);
        } catch (const SqliteError& error) {
            if (error.code() == SQLITE_BUSY) return false;
            throw;
        }
        return true;
    });
    if (!is_done) database.execute(sql);
}

/// SQLite gives the files beside it the mode of the file itself.
void create_file(const std::string& path) {
    const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (created >= 0) close(created);  // else SQLite will say why
}

/// Tables and mark come together: whatever ends us, the file is empty or a whole store.
Database open_for_writing(const std::string& path) {
    create_file(path);
    Database database(path, Database::Access::read_write);
    database.execute("PRAGMA synchronous = FULL");
    Transaction transaction(database);
    if (database.pragma("application_id") == 0 && schema_of(database).empty()) {
        for (const char* sql : {PARAMETER_TABLE, SECSTORE_TABLE, MARK}) database.execute(sql);
    }
    require_own(database);
    transaction.commit();
    use_write_ahead_log(database);
    database.execute("PRAGMA journal_size_limit = 1048576");
    schema_of(database);  // a first read, which creates the files beside the store
    return database;
}

bool holds_something(const std::string& path) {
    std::error_code none;
    const auto size = std::filesystem::file_size(path, none);
    return !none && size > 0;
}

/// A store on a medium that cannot be written still serves its parameters. Changes that wait in
/// a log beside it could not be seen, so there must be none.
Database open(const std::string& path) {
    try {
        return open_for_writing(path);
    } catch (const SqliteError& error) {
        const bool unwritable = error.code() == SQLITE_READONLY || error.code() == SQLITE_CANTOPEN;
        if (!unwritable || !holds_something(path) || holds_something(path + "-wal") ||
            holds_something(path + "-journal")) {
            throw;
        }
    }
    Database database(path, Database::Access::read_only);
    require_own(database);
    ecu::lapi::logging::write(ecu::lapi::logging::WARNING, "The store '", path,
                              "' cannot be written: every write will be refused");
    return database;
}

}  // namespace

Database open_store(const std::string& path) {
    try {
        return open(path);
    } catch (const SqliteError& error) {
        throw SqliteError(error.code(), "cannot open the store '" + path + "': " + error.what());
    }
}

FilesInPlace::FilesInPlace(const std::string& store_path) : path(store_path) {
    for (std::size_t i = 0; i < noted.size(); ++i) noted.at(i) = identity(path + SUFFIXES.at(i));
}

void FilesInPlace::require() const {
    const auto file = misplaced();
    if (!file) return;
    throw std::runtime_error("the store's file '" + *file +
                             "' was deleted or replaced while the unit runs: nothing is written "
                             "until it is restarted");
}

/// The first that is not there any more.
std::optional<std::string> FilesInPlace::misplaced() const {
    for (std::size_t i = 0; i < noted.size(); ++i) {
        std::string file = path + SUFFIXES.at(i);
        if (identity(file) != noted.at(i)) return file;
    }
    return std::nullopt;
}

FilesInPlace::Identity FilesInPlace::identity(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return std::pair(status.st_dev, status.st_ino);
}

}  // namespace unit
