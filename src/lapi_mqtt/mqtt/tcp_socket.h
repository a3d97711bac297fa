#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "lapi_mqtt/mqtt/connection.h"

/// What libmosquitto leaves to the owner of its socket. Every function takes the file descriptor
/// of a TCP socket and is harmless on -1.
namespace lapi_mqtt::tcp_socket {

/// Makes the kernel give a peer up that takes no data, or does not answer, for so long.
void give_up_after(int socket, std::chrono::milliseconds patience);

/// Sends the next acknowledgements at once. A broker with Nagle's algorithm on holds its next
/// packet until the last one is acknowledged, 40 ms later otherwise. The kernel falls back to
/// delayed ones by itself, so this is said again before each wait.
void acknowledge_at_once(int socket);

Traffic traffic(int socket);

/// Waits until one of the sockets is connected or has failed, for at most `timeout`.
void await_connected(const std::vector<int>& sockets, std::chrono::milliseconds timeout);

/// The system error of a connection that was begun, 0 once it is there; nothing while it is open.
std::optional<int> connection_state(int socket);

/// True when there is something to read.
bool is_readable(int socket);

/// The next byte to be read, left where it is; NOTHING, or END when the peer has closed its end and
/// all is read.
inline constexpr int NOTHING = -1;
inline constexpr int END = -2;
int next_byte(int socket);

/// Ends the connection: whoever reads or writes it next gets an error at once.
void shut_down(int socket);

}  // namespace lapi_mqtt::tcp_socket
