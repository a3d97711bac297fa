#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace commands {

/// The OTAID that an argument begins with; what follows its digits is ignored. Nothing, and a
/// message on standard output, when it begins with none.
std::optional<std::int32_t> otaid_of_argument(const std::string& argument);

}  // namespace commands
