#include "lapi_mqtt/mqtt/tcp_socket.h"

#include <linux/tcp.h>  // not <netinet/tcp.h>: its tcp_info ends before the byte counts
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

namespace lapi_mqtt::tcp_socket {
namespace {

/// A refused option only costs time or patience, so results are not looked at.
void set_option(int socket, int level, int option, int value) {
    static_cast<void>(setsockopt(socket, level, option, &value, sizeof value));
}

}  // namespace

void give_up_after(int socket, std::chrono::milliseconds patience) {
    constexpr int PROBE_AFTER_S = 30;
    constexpr int PROBE_EVERY_S = 10;
    set_option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(patience.count()));
    set_option(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(socket, IPPROTO_TCP, TCP_KEEPIDLE, PROBE_AFTER_S);
    set_option(socket, IPPROTO_TCP, TCP_KEEPINTVL, PROBE_EVERY_S);
}

void acknowledge_at_once(int socket) {
    set_option(socket, IPPROTO_TCP, TCP_QUICKACK, 1);
}

Traffic traffic(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return {};
    return {info.tcpi_bytes_acked, info.tcpi_bytes_received};
}

void await_connected(const std::vector<int>& sockets, std::chrono::milliseconds timeout) {
    std::vector<pollfd> watched;
    watched.reserve(sockets.size());
    for (const int socket : sockets) watched.push_back({socket, POLLOUT, 0});
    static_cast<void>(poll(watched.data(), static_cast<nfds_t>(watched.size()),
                           static_cast<int>(timeout.count())));
}

std::optional<int> connection_state(int socket) {
    pollfd descriptor{socket, POLLOUT, 0};
    if (poll(&descriptor, 1, 0) <= 0) return std::nullopt;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    return error;
}

bool is_readable(int socket) {
    pollfd descriptor{socket, POLLIN, 0};
    return poll(&descriptor, 1, 0) > 0;
}

int next_byte(int socket) {
    unsigned char byte = 0;
    const ssize_t count = recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (count == 0) return END;
    return count == 1 ? byte : NOTHING;
}

void shut_down(int socket) {
    static_cast<void>(shutdown(socket, SHUT_RDWR));
}

}  // namespace lapi_mqtt::tcp_socket
