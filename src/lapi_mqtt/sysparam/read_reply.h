#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ecu/lapi/var.h"

namespace lapi_mqtt {

/// The records of a serialised protocol::ReadReply. Nothing unless it is well formed and whole,
/// with every record under an OTAID of its own. Fields of later versions are skipped.
///
/// Each record goes straight to its place in the map: the whole reply as one generated object would
/// take half as much memory again.
std::optional<ecu::lapi::var::ParameterMap> decode_read_reply(
    const std::vector<std::uint8_t>& payload);

}  // namespace lapi_mqtt
