#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ecu/lapi/var.h"
#include "unit/store/sqlite.h"
#include "unit/store/store_file.h"

namespace unit {

using Entry = ecu::lapi::pb::SystemParameterEntry;

/// What became of the parameters of an import.
struct ImportResult {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t unchanged = 0;
    std::size_t others = 0;  ///< that the store held beside them
};

/// What the unit remembers, in one SQLite file: its parameters and the secure-store blob. What an
/// operation wrote is on disk when it returns. Once the file was deleted or replaced nothing is
/// written any more; what it held can still be read, and so be saved. Operations throw
/// SqliteError, or std::runtime_error for such a file; one thread at a time.
class Store {
public:
    /// Opens the file, or creates it. On a medium that cannot be written the store can be read
    /// all the same. Throws SqliteError that names the file.
    explicit Store(const std::string& file);
    ~Store();

    /// Must not write: a read is open while it is called.
    using Visit = std::function<void(Entry)>;

    /// Every parameter, in ascending order of OTAID.
    void for_each(const Visit& visit);

    /// Those of `otaids` that there are, in that order.
    void for_each(const std::vector<std::uint32_t>& otaids, const Visit& visit);

    /// All of them or none. A field that an entry does not hold keeps its stored value.
    void write(const std::vector<const Entry*>& entries);

    /// All of them or none. A field that an entry does not hold keeps its stored value.
    /// With `replace` the store then holds no other parameters.
    ImportResult import(const ecu::lapi::var::ParameterMap& parameters, bool replace);

    /// Empty while there is none.
    std::vector<std::uint8_t> blob();
    void replace_blob(const std::vector<std::uint8_t>& bytes);

private:
    void upsert(const Entry& entry);
    void change(const std::function<void()>& work);
    void require_files() const;
    void settle();

    const std::string path;
    Database database;
    Statement select_one{database,
                         "SELECT otaid, did, xcpid, data FROM parameter WHERE otaid = ?1"};
    Statement select_all{database, "SELECT otaid, did, xcpid, data FROM parameter ORDER BY otaid"};
    Statement upsert_one{database,
                         "INSERT INTO parameter (otaid, did, xcpid, data) VALUES (?1, ?2, ?3, ?4) "
                         "ON CONFLICT (otaid) DO UPDATE SET did = coalesce(?2, did), "
                         "xcpid = coalesce(?3, xcpid), data = coalesce(?4, data)"};
    Statement delete_one{database, "DELETE FROM parameter WHERE otaid = ?1"};
    Statement select_blob{database, "SELECT blob FROM secstore"};
    Statement upsert_blob{database, "INSERT OR REPLACE INTO secstore (id, blob) VALUES (0, ?1)"};
    const std::vector<FileAt> files;
};

}  // namespace unit
