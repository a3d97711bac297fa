#include "unit/store.h"

#include <sqlite3.h>

#include <filesystem>

#include "ecu/lapi/logging.h"

namespace unit {
namespace {

/// Marks the file as ours ("KVRU"), so that another program's database is never written to.
constexpr std::int64_t APPLICATION_ID = 0x4b565255;

constexpr char SET_UP[] = R"(
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = FULL;
    PRAGMA journal_size_limit = 1048576;
    CREATE TABLE IF NOT EXISTS parameter (
        otaid INTEGER PRIMARY KEY, did INTEGER, xcpid INTEGER, data BLOB);
    CREATE TABLE IF NOT EXISTS secstore (
        id INTEGER PRIMARY KEY CHECK (id = 0), blob BLOB NOT NULL);
    PRAGMA application_id = 1263948373;
)";
static_assert(APPLICATION_ID == 1263948373);

Database open_for_writing(const std::string& path) {
    Database database(path, Database::Access::read_write);
    const bool is_new = database.pragma("schema_version") == 0;
    if (!is_new && database.pragma("application_id") != APPLICATION_ID) {
        throw SqliteError(SQLITE_NOTADB, "another program's database");
    }
    database.execute(SET_UP);
    return database;
}

/// A store on a medium that cannot be written still serves its parameters. Changes that wait in
/// a write-ahead log beside it could not be seen, so there must be none.
Database open(const std::string& path) {
    try {
        return open_for_writing(path);
    } catch (const SqliteError& error) {
        const bool unwritable = error.code() == SQLITE_READONLY || error.code() == SQLITE_CANTOPEN;
        std::error_code no_log;
        const auto log_size = std::filesystem::file_size(path + "-wal", no_log);
        if (!unwritable || !std::filesystem::exists(path) || (!no_log && log_size > 0)) {
            throw SqliteError(error.code(),
                              "cannot open the store '" + path + "': " + error.what());
        }
    }
    Database database(path, Database::Access::read_only);
    ecu::lapi::logging::write(ecu::lapi::logging::WARNING, "The store '", path,
                              "' cannot be written: every write will be refused");
    return database;
}

Entry entry_of(const Statement& row) {
    Entry entry;
    entry.set_otaid(static_cast<std::uint32_t>(row.number(0).value_or(0)));
    if (const auto did = row.number(1)) entry.set_did(static_cast<std::uint32_t>(*did));
    if (const auto xcpid = row.number(2)) entry.set_xcpid(static_cast<std::uint32_t>(*xcpid));
    if (auto data = row.bytes(3)) entry.set_data(std::move(*data));
    return entry;
}

/// Resets a statement at the end of a scope: an open read would hold up checkpoints.
class ResetAtEnd {
public:
    explicit ResetAtEnd(Statement& used) : statement(used) {}
    ~ResetAtEnd() { statement.reset(); }
    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;

private:
    Statement& statement;
};

}  // namespace

Store::Statements::Statements(Database& database)
    : find(database, "SELECT otaid, did, xcpid, data FROM parameter WHERE otaid = ?1"),
      all(database, "SELECT otaid, did, xcpid, data FROM parameter ORDER BY otaid"),
      write(database,
            "INSERT INTO parameter (otaid, did, xcpid, data) VALUES (?1, ?2, ?3, ?4) "
            "ON CONFLICT (otaid) DO UPDATE SET did = coalesce(?2, did), "
            "xcpid = coalesce(?3, xcpid), data = coalesce(?4, data)"),
      blob(database, "SELECT blob FROM secstore"),
      replace_blob(database, "INSERT OR REPLACE INTO secstore (id, blob) VALUES (0, ?1)") {}

Store::Store(const std::string& path) : database(open(path)), statements(database) {}

std::optional<Entry> Store::find(std::uint32_t otaid) {
    const ResetAtEnd reset(statements.find);
    statements.find.bind(1, otaid);
    if (!statements.find.step()) return std::nullopt;
    return entry_of(statements.find);
}

void Store::for_each(const std::function<void(Entry)>& visit) {
    const ResetAtEnd reset(statements.all);
    while (statements.all.step()) visit(entry_of(statements.all));
}

void Store::write(const std::vector<Entry>& entries) {
    Transaction transaction(database);
    for (const Entry& entry : entries) {
        const auto number = [](bool present, std::uint32_t value) {
            return present ? std::optional<std::int64_t>(value) : std::nullopt;
        };
        Statement& row = statements.write;
        row.bind(1, entry.otaid());
        row.bind(2, number(entry.has_did(), entry.did()));
        row.bind(3, number(entry.has_xcpid(), entry.xcpid()));
        if (entry.has_data()) row.bind(4, entry.data().data(), entry.data().size());
        row.run();
    }
    transaction.commit();
}

std::string Store::blob() {
    const ResetAtEnd reset(statements.blob);
    return statements.blob.step() ? statements.blob.bytes(0).value_or("") : std::string();
}

void Store::replace_blob(const std::vector<std::uint8_t>& bytes) {
    statements.replace_blob.bind(1, bytes.data(), bytes.size());
    statements.replace_blob.run();
}

}  // namespace unit
