#pragma once

#include <sys/types.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "unit/store/sqlite.h"

namespace unit {

/// Opens the store's file, or creates it, readable by its owner only. On read-only media it is
/// opened for reading. Throws SqliteError that names the file, also for a file that
/// is not exactly a store.
Database open_store(const std::string& path);

/// Which files lie at the store's paths. What is written into one that was deleted or replaced
/// meanwhile is lost, so that nothing may be acknowledged any more.
class FilesInPlace {
public:
    /// Notes the files of an open store.
    explicit FilesInPlace(const std::string& store_path);

    bool are_in_place() const { return !misplaced(); }

    /// Throws std::runtime_error when one of them is not at its path any more.
    void require() const;

private:
    using Identity = std::optional<std::pair<dev_t, ino_t>>;  ///< nothing: there is no such file
    static constexpr std::array<const char*, 3> SUFFIXES{"", "-wal", "-shm"};

    std::optional<std::string> misplaced() const;
    static Identity identity(const std::string& path);

    std::string path;
    std::array<Identity, SUFFIXES.size()> noted;
};

}  // namespace unit
