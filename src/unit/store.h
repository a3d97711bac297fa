#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "system_parameter_entry.pb.h"
#include "unit/sqlite.h"

namespace unit {

using Entry = ecu::lapi::pb::SystemParameterEntry;

/// What the unit remembers, in one SQLite file: its parameters and the secure-store blob. What an
/// operation wrote is on disk when it returns. Operations throw SqliteError; one thread at a time.
class Store {
public:
    /// Opens the file, or creates it. On a medium that cannot be written the store can be read
    /// all the same. Throws SqliteError that names the file.
    explicit Store(const std::string& path);

    std::optional<Entry> find(std::uint32_t otaid);

    /// Every parameter, in ascending order of OTAID.
    void for_each(const std::function<void(Entry)>& visit);

    /// All of them or none. A field that an entry does not hold keeps its stored value.
    void write(const std::vector<Entry>& entries);

    /// Empty while there is none.
    std::string blob();
    void replace_blob(const std::vector<std::uint8_t>& bytes);

private:
    struct Statements {
        explicit Statements(Database& database);
        Statement find;
        Statement all;
        Statement write;
        Statement blob;
        Statement replace_blob;
    };

    Database database;
    Statements statements;
};

}  // namespace unit
