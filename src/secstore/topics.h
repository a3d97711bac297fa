#pragma once

/// Broker topics of the secure store.
namespace secstore {

inline constexpr char GET_TOPIC[] = "system/vard/secstore/get";  ///< from the unit: the blob
inline constexpr char SET_TOPIC[] = "system/vard/secstore/set";  ///< to the unit: the new blob

}  // namespace secstore
