#include "unit/store/store.h"

#include <exception>
#include <set>

#include "ecu/lapi/logging.h"
#include "protocol/record.h"

namespace unit {
namespace {

Entry entry_of(const Statement& row) {
    Entry entry;
    entry.set_otaid(static_cast<std::uint32_t>(row.number(0)));
    if (!row.is_null(1)) entry.set_did(static_cast<std::uint32_t>(row.number(1)));
    if (!row.is_null(2)) entry.set_xcpid(static_cast<std::uint32_t>(row.number(2)));
    if (!row.is_null(3)) entry.set_data(std::string(row.bytes(3)));
    return entry;
}

}  // namespace

Store::Store(const std::string& path) : database(open_store(path)), files(path) {}

std::optional<Entry> Store::find(std::uint32_t otaid) {
    std::optional<Entry> found;
    select_one.bind(1, otaid).run([&] { found = entry_of(select_one); });
    return found;
}

void Store::for_each(const std::vector<std::uint32_t>& otaids, const Visit& visit) {
    database.transact("BEGIN", [&] {
        for (const auto otaid : otaids) {
            if (auto entry = find(otaid)) visit(std::move(*entry));
        }
    });
}

void Store::for_each(const Visit& visit) {
    select_all.run([&] { visit(entry_of(select_all)); });
}

Store::~Store() {
    settle();
}

void Store::write(const std::vector<const Entry*>& entries) {
    change([&] {
        for (const Entry* entry : entries) upsert(*entry);
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
        for (const auto otaid : others) delete_one.bind(1, otaid).run();
    });
    return result;
}

std::vector<std::uint8_t> Store::blob() {
    std::vector<std::uint8_t> blob;
    select_blob.run([&] {
        const auto bytes = select_blob.bytes(0);
        blob.assign(bytes.begin(), bytes.end());
    });
    return blob;
}

void Store::replace_blob(const std::vector<std::uint8_t>& bytes) {
    change([&] { upsert_blob.bind(1, bytes.data(), bytes.size()).run(); });
}

void Store::upsert(const Entry& entry) {
    upsert_one.bind(1, entry.otaid());
    if (entry.has_did()) upsert_one.bind(2, entry.did());
    if (entry.has_xcpid()) upsert_one.bind(3, entry.xcpid());
    if (entry.has_data()) upsert_one.bind(4, entry.data().data(), entry.data().size());
    upsert_one.run();
}

void Store::change(const std::function<void()>& work) {
    try {
        database.transact("BEGIN IMMEDIATE", [&] {
            work();
            files.require();
        });
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
        if (!files.misplaced().empty()) database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (const std::exception& error) {
        ecu::lapi::logging::write(ecu::lapi::logging::ERROR,
                                  "Cannot settle the store's log: ", error.what());
    }
}

}  // namespace unit
