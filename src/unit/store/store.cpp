#include "unit/store/store.h"

#include <exception>
#include <set>

#include "ecu/lapi/logging.h"
#include "protocol/record.h"

namespace unit {
namespace {

Entry entry_of(const Statement& row) {
    Entry entry;
    entry.set_otaid(static_cast<std::uint32_t>(row.number(0).value_or(0)));
    if (const auto did = row.number(1)) entry.set_did(static_cast<std::uint32_t>(*did));
    if (const auto xcpid = row.number(2)) entry.set_xcpid(static_cast<std::uint32_t>(*xcpid));
    if (const auto data = row.bytes(3)) entry.set_data(data->data(), data->size());
    return entry;
}

}  // namespace

Store::Statements::Statements(Database& database)
    : find(database, "SELECT otaid, did, xcpid, data FROM parameter WHERE otaid = ?1"),
      all(database, "SELECT otaid, did, xcpid, data FROM parameter ORDER BY otaid"),
      write(database,
            "INSERT INTO parameter (otaid, did, xcpid, data) VALUES (?1, ?2, ?3, ?4) "
            "ON CONFLICT (otaid) DO UPDATE SET did = coalesce(?2, did), "
            "xcpid = coalesce(?3, xcpid), data = coalesce(?4, data)"),
      remove(database, "DELETE FROM parameter WHERE otaid = ?1"),
      blob(database, "SELECT blob FROM secstore"),
      replace_blob(database, "INSERT OR REPLACE INTO secstore (id, blob) VALUES (0, ?1)") {}

Store::Store(const std::string& path)
    : database(open_store(path)), statements(database), files(path) {}

std::optional<Entry> Store::find(std::uint32_t otaid) {
    std::optional<Entry> found;
    statements.find.bind(1, otaid).run([&] { found = entry_of(statements.find); });
    return found;
}

void Store::for_each(const std::vector<std::uint32_t>& otaids, const Visit& visit) {
    const Transaction transaction(database, Transaction::Kind::read);
    for (const auto otaid : otaids) {
        if (auto entry = find(otaid)) visit(std::move(*entry));
    }
}

void Store::for_each(const Visit& visit) {
    statements.all.run([&] { visit(entry_of(statements.all)); });
}

Store::~Store() {
    settle();
}

void Store::write(const std::vector<Entry>& entries) {
    change([&] {
        for (const Entry& entry : entries) upsert(entry);
    });
}

ImportResult Store::import(const std::vector<Entry>& entries, bool replace) {
    ImportResult result;
    change([&] {
        std::set<std::uint32_t> others;
        for_each([&](const Entry& stored) { others.insert(others.end(), stored.otaid()); });
        for (const Entry& entry : entries) {
            const bool is_known = others.erase(entry.otaid()) != 0;
            const bool is_changed =
                is_known && protocol::changed_fields(entry, *find(entry.otaid()),
                                                     protocol::Missing::zero_or_empty)
                                .any();
            ++(!is_known ? result.added : is_changed ? result.changed : result.unchanged);
            if (!is_known || is_changed) upsert(entry);
        }
        result.others = others.size();
        if (!replace) return;
        for (const auto otaid : others) statements.remove.bind(1, otaid).run();
    });
    return result;
}

std::vector<std::uint8_t> Store::blob() {
    std::vector<std::uint8_t> blob;
    statements.blob.run([&] {
        const auto bytes = statements.blob.bytes(0).value_or("");
        blob.assign(bytes.begin(), bytes.end());
    });
    return blob;
}

void Store::replace_blob(const std::vector<std::uint8_t>& bytes) {
    change([&] { statements.replace_blob.bind(1, bytes.data(), bytes.size()).run(); });
}

void Store::upsert(const Entry& entry) {
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

template <typename Change>
void Store::change(Change change) {
    try {
        Transaction transaction(database);
        change();
        files.require();
        transaction.commit();
        files.require();  // deleted in between, it took the changes with it
    } catch (...) {
        settle();
        throw;
    }
}

/// What the log holds belongs to the file that was moved away, and would spoil the one that lies in
/// its place at the next start.
void Store::settle() {
    try {
        if (!files.are_in_place()) database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (const std::exception& error) {
        ecu::lapi::logging::write(ecu::lapi::logging::ERROR,
                                  "Cannot settle the store's log: ", error.what());
    }
}

}  // namespace unit
