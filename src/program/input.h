#pragma once

#include <cstdint>
#include <functional>
#include <string>

/// Input that a command line names: a file, or standard input as "-".
namespace program {

/// How an error text calls it.
std::string input_name(const std::string& argument);

/// All of its bytes, from a file, a pipe or a terminal. `progress` is told the bytes read, and how
/// many there are, or 0 where that is not known. Throws std::system_error.
std::string read_input(
    const std::string& argument,
    const std::function<void(std::uint64_t done, std::uint64_t total)>& progress);

}  // namespace program
