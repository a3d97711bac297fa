#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ecu/lapi/com.h"
#include "unit/store/store.h"

namespace unit {

/// How many OTAIDs or records one request may hold: small ones would cost far more time and memory
/// than the message that brings them.
inline constexpr std::size_t MAX_ELEMENTS = std::size_t{1} << 18U;

/// The OTAIDs of a ReadRequest, in ascending order and each once. Throws std::runtime_error with
/// the text for the requester.
std::vector<std::uint32_t> parse_read_request(const ecu::lapi::com::Message& request);

/// The records of a WriteRequest, each of which names its OTAID. Throws std::runtime_error with the
/// text for the requester.
std::vector<Entry> parse_write_request(const ecu::lapi::com::Message& request);

}  // namespace unit
