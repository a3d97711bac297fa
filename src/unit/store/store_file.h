#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

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

    /// The first that is not at its path any more; empty when all are.
    std::string misplaced() const;

    /// Throws std::runtime_error when one is misplaced.
    void require() const;

private:
    using Identity = std::pair<dev_t, ino_t>;  ///< zeros: there is no such file
    static Identity identity(const std::string& path);

    std::vector<std::pair<std::string, Identity>> noted;
};

}  // namespace unit
