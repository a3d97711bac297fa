#include "unit/store/store_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "ecu/lapi/logging.h"

namespace unit {
namespace {

/// What makes an empty file a store. The mark ("KVRU") keeps us from writing to another program's
/// database.
constexpr char STORE[] =
    "CREATE TABLE parameter ("
    "otaid INTEGER PRIMARY KEY, did INTEGER, xcpid INTEGER, data BLOB);"
    "CREATE TABLE secstore (id INTEGER PRIMARY KEY CHECK (id = 0), blob BLOB NOT NULL);"
    "PRAGMA application_id = 1263948373;";
constexpr char EMPTY[] = "PRAGMA application_id = 0;";

/// Files of the same layout differ in their blanks.
std::string without_blanks(std::string sql) {
    const auto is_blank = [](unsigned char character) { return std::isspace(character) != 0; };
    sql.erase(std::remove_if(sql.begin(), sql.end(), is_blank), sql.end());
    return sql;
}

/// Whether the file holds what `definition` makes, beside the statistics that ANALYZE leaves.
bool holds(const Database& database, const char* definition) {
    Statement contents(database,
                       "SELECT coalesce(sql, name) || ';' AS content FROM sqlite_schema "
                       "WHERE name NOT LIKE 'sqlite\\_stat%' ESCAPE '\\' UNION ALL "
                       "SELECT 'PRAGMA application_id = ' || application_id || ';' "
                       "FROM pragma_application_id ORDER BY content");
    std::string held;
    contents.run([&] { held += contents.bytes(0); });
    return without_blanks(held) == without_blanks(definition);
}

/// A marked file with more in it would run its own triggers and expressions inside our statements.
void require_own(const Database& database) {
    if (!holds(database, STORE)) throw SqliteError(SQLITE_NOTADB, "another program's database");
}

/// Tables and mark come together: whatever ends us, the file is empty or a whole store.
Database open_for_writing(const std::string& path) {
    // SQLite gives the files beside it the mode of the file itself.
    const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (created >= 0) close(created);  // else SQLite will say why
    Database database(path, Database::Access::read_write);
    database.execute("PRAGMA synchronous = FULL");
    database.transact("BEGIN IMMEDIATE", [&] {
        if (holds(database, EMPTY)) database.execute(STORE);
        require_own(database);
    });
    database.execute("PRAGMA journal_mode = WAL");
    database.execute("PRAGMA journal_size_limit = 1048576");
    require_own(database);  // a first read, which creates the files beside the store
    return database;
}

bool holds_something(const std::string& path) {
    std::error_code none;
    const auto size = std::filesystem::file_size(path, none);
    return !none && size > 0;
}

}  // namespace

Database open_store(const std::string& path) try {
    try {
        return open_for_writing(path);
    } catch (const SqliteError& error) {
        // On a medium that cannot be written it still serves its parameters. Changes that wait in
        // a log beside it could not be seen, so there must be none.
        const bool unwritable = error.code == SQLITE_READONLY || error.code == SQLITE_CANTOPEN;
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
} catch (const SqliteError& error) {
    throw SqliteError(error.code, "cannot open the store '" + path + "': " + error.what());
}

std::vector<FileAt> files_at(const std::string& store_path) {
    std::vector<FileAt> files;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::string path = store_path + suffix;
        struct stat status {};
        stat(path.c_str(), &status);
        files.emplace_back(path, status.st_dev, status.st_ino);
    }
    return files;
}

}  // namespace unit
