#include "unit/store/store.h"

#include <algorithm>
#include <exception>
#include <map>
#include <stdexcept>

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

Store::Store(const std::string& file)
    : path(file), database(open_store(path)), files(files_at(path)) {}

void Store::for_each(const std::vector<std::uint32_t>& otaids, const Visit& visit) {
    database.transact("BEGIN", [&] {
        for (const auto otaid : otaids) {
            select_one.bind(1, otaid).run([&] { visit(entry_of(select_one)); });
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

ImportResult Store::import(const ecu::lapi::var::ParameterMap& parameters, bool replace) {
    ImportResult result;
    change([&] {
        std::map<std::uint32_t, const Entry*> to_write;
        for (const auto& [otaid, entry] : parameters) {
            to_write.emplace_hint(to_write.end(), otaid, &entry);
        }
        std::vector<std::uint32_t> others;
        for_each([&](const Entry& stored) {
            const auto imported = to_write.find(stored.otaid());
            if (imported == to_write.end()) return others.push_back(stored.otaid());
            const bool is_changed = protocol::changed_fields(*imported->second, stored,
                                                             protocol::Missing::zero_or_empty)
                                        .any();
            ++(is_changed ? result.changed : result.unchanged);
            if (!is_changed) to_write.erase(imported);
        });
        result.added = to_write.size() - result.changed;
        result.others = others.size();
        for (const auto& [otaid, entry] : to_write) upsert(*entry);
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
            require_files();
        });
        require_files();  // deleted in between, it took the changes with it
    } catch (...) {
        settle();
        throw;
    }
}

void Store::require_files() const {
    const auto found = files_at(path);
    const auto misplaced = std::mismatch(files.begin(), files.end(), found.begin()).first;
    if (misplaced == files.end()) return;
    throw std::runtime_error("the store's file '" + std::get<std::string>(*misplaced) +
                             "' was deleted or replaced while the unit runs: nothing is written "
                             "until it is restarted");
}

/// What the log holds belongs to the file that was moved away, and would spoil the one that lies in
/// its place at the next start.
void Store::settle() {
    try {
        if (files_at(path) != files) database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (const std::exception& error) {
        ecu::lapi::logging::write(ecu::lapi::logging::ERROR,
                                  "Cannot settle the store's log: ", error.what());
    }
}

}  // namespace unit
