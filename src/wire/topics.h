#pragma once

/// Names on the broker that both ends of the parameter service use; docs/protocol.md is their
/// reference.
namespace wire {

inline constexpr char SYSPARAM_READ_TOPIC[] = "system/vard/sysparam/read";
inline constexpr char SYSPARAM_WRITE_TOPIC[] = "system/vard/sysparam/write";

/// A client publishes the name of each topic here that it has just subscribed.
inline constexpr char ANNOUNCEMENT_TOPIC[] = "subscription/announcement";

/// Replies go to REPLY_PREFIX + client id + REPLY_SUFFIX.
inline constexpr char REPLY_PREFIX[] = "clients/";
inline constexpr char REPLY_SUFFIX[] = "/reply";

inline constexpr char CONTENT_TYPE[] = "application/x-protobuf";

/// User property of a request: how long its client waits, in milliseconds.
inline constexpr char TIMEOUT_PROPERTY[] = "timeout-ms";

/// User property that carries the error text of a reply without a result.
inline constexpr char ERROR_PROPERTY[] = "error";

}  // namespace wire
