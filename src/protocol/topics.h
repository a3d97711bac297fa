#pragma once

/// Names on the broker that a unit and its clients agree on; docs/protocol.md is their reference.
namespace protocol {

inline constexpr char SYSPARAM_READ_TOPIC[] = "system/vard/sysparam/read";
inline constexpr char SYSPARAM_WRITE_TOPIC[] = "system/vard/sysparam/write";

inline constexpr char SECSTORE_GET_TOPIC[] =
    "system/vard/secstore/get";  ///< from the unit: the blob
inline constexpr char SECSTORE_SET_TOPIC[] =
    "system/vard/secstore/set";  ///< to the unit: the new blob

/// A client publishes the name of each topic here that it has just subscribed, or published on at
/// QoS 0.
inline constexpr char ANNOUNCEMENT_TOPIC[] = "subscription/announcement";

/// Retained: whether the unit is there.
inline constexpr char PRESENCE_TOPIC[] = "system/vard/unit";
inline constexpr char PRESENT[] = "online";
inline constexpr char ABSENT[] = "offline";

}  // namespace protocol
