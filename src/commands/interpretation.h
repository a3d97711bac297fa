#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// How the set command's textual values become data bytes.
namespace commands {

enum class Interpretation { BYTES, STRING, DEC, HEX, UNKNOWN };

/// Where the values begin in the set command's argument list, behind OTAID and AS word.
inline constexpr std::size_t FIRST_VALUE = 2;

/// Characters of HEX text that a 64-bit number has digits for.
inline constexpr std::size_t HEX_TEXT_LIMIT = 16;

/// The interpretation that an AS word stands for.
Interpretation parse_interpretation(const std::string& as);

/// The data bytes of the value in `args`, the set command's whole argument list with at least one
/// value. Never refuses a text: what is no number is 0, what is too large
/// the largest number. `interpretation` must not be UNKNOWN.
std::string interpret_value(Interpretation interpretation, const std::vector<std::string>& args);

}  // namespace commands
