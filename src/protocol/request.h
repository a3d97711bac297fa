#pragma once

/// What makes a message a request or a reply; docs/protocol.md is the reference.
namespace protocol {

/// Replies go to REPLY_PREFIX + client id + REPLY_SUFFIX.
inline constexpr char REPLY_PREFIX[] = "clients/";
inline constexpr char REPLY_SUFFIX[] = "/reply";

inline constexpr char CONTENT_TYPE[] = "application/x-protobuf";

/// User property of a request: how long its client waits, in milliseconds.
inline constexpr char TIMEOUT_PROPERTY[] = "timeout-ms";

/// User property that carries the error text of a reply without a result.
inline constexpr char ERROR_PROPERTY[] = "error";

}  // namespace protocol
