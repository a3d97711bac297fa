#pragma once

#include <chrono>
#include <cstdint>

/// What libmosquitto leaves to the owner of its socket. Every function takes the file descriptor
/// of a TCP socket and is harmless on -1.
namespace lapi_mqtt::tcp_socket {

/// Makes the kernel give a peer up that takes no data, or does not answer, for so long.
void give_up_after(int socket, std::chrono::milliseconds patience);

/// Sends the next acknowledgements at once. A broker with Nagle's algorithm on holds its next
/// packet until the last one is acknowledged, 40 ms later otherwise. The kernel falls back to
/// delayed ones by itself, so this is said again before each wait.
void acknowledge_at_once(int socket);

/// Bytes that the peer has acknowledged plus bytes received, since the connection began.
std::uint64_t bytes_moved(int socket);

/// True when there is something to read.
bool is_readable(int socket);

/// True when the peer has closed its end and nothing is left to read.
bool is_closed_by_peer(int socket);

/// Ends the connection: whoever reads or writes it next gets an error at once.
void shut_down(int socket);

}  // namespace lapi_mqtt::tcp_socket
