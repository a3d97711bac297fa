#pragma once

#include <sys/types.h>

#include <string>
#include <tuple>
#include <vector>

#include "unit/store/sqlite.h"

namespace unit {

/// Opens the store's file, or creates it, readable by its owner only. On read-only media it is
/// opened for reading. Throws SqliteError that names the file, also for a file that
/// is not exactly a store.
Database open_store(const std::string& path);

/// A path, and the device and inode of the file there: zeros when there is none.
using FileAt = std::tuple<std::string, dev_t, ino_t>;

/// The files of a store. What is written into one that was deleted or replaced meanwhile is lost.
std::vector<FileAt> files_at(const std::string& store_path);

}  // namespace unit
