#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ecu/lapi/var.h"

namespace lapi_mqtt {

/// The records of a serialised wire::ReadReply. Nothing unless it is well formed and whole, with
/// every OTAID once. Fields of later versions are skipped.
///
/// Decodes each record straight into its place in the map: by way of the generated class a full
/// read would build, move and destroy every record twice, which shows in its time and memory.
std::optional<ecu::lapi::var::ParameterMap> decode_read_reply(
    const std::vector<std::uint8_t>& payload);

}  // namespace lapi_mqtt
