#include "lapi_mqtt/network/tcp_socket.h"

#include <fcntl.h>
#include <linux/tcp.h>  // not <netinet/tcp.h>: its tcp_info ends before the byte counts
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace lapi_mqtt {
namespace {

tcp_info info_of(int socket) {
    tcp_info info{};
    info.tcpi_data_segs_out = 1;  // where the system, or an emulator, does not tell
    socklen_t size = sizeof info;
    static_cast<void>(getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size));
    return info;
}

}  // namespace

std::optional<int> TcpSocket::connection_state(int socket) {
    pollfd watched{socket, POLLOUT, 0};
    if (poll(&watched, 1, 0) <= 0) return std::nullopt;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error != 0) return error;
    // Over TLS libmosquitto has written already, which consumed the error.
    constexpr int CLOSED = 7;  // TCP_CLOSE of <netinet/tcp.h>
    const tcp_info info = info_of(socket);
    if (info.tcpi_state != CLOSED) return 0;
    return info.tcpi_data_segs_out == 0 ? ECONNREFUSED : ECONNRESET;
}

TcpSocket::TcpSocket(int socket) : descriptor(fcntl(socket, F_DUPFD_CLOEXEC, 0)) {
    if (descriptor < 0) throw std::runtime_error(std::strerror(errno));
}

TcpSocket::~TcpSocket() {
    close(descriptor);
}

/// A refused option only costs time, so results are not looked at.
void TcpSocket::set_option(int level, int option, int value) const {
    static_cast<void>(setsockopt(descriptor, level, option, &value, sizeof value));
}

void TcpSocket::set_dead_peer_timeout(std::chrono::milliseconds timeout) const {
    constexpr int PROBE_AFTER_S = 30;
    constexpr int PROBE_INTERVAL_S = 10;
    set_option(IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(timeout.count()));
    set_option(SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(IPPROTO_TCP, TCP_KEEPIDLE, PROBE_AFTER_S);
    set_option(IPPROTO_TCP, TCP_KEEPINTVL, PROBE_INTERVAL_S);
}

void TcpSocket::acknowledge_at_once() const {
    set_option(IPPROTO_TCP, TCP_QUICKACK, 1);
}

Traffic TcpSocket::traffic() const {
    const tcp_info info = info_of(descriptor);
    return {info.tcpi_bytes_acked, info.tcpi_bytes_received};
}

bool TcpSocket::is_readable() const {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, 0) > 0;
}

int TcpSocket::next_byte() const {
    unsigned char byte = 0;
    const ssize_t count = recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (count == 0) return END;
    return count == 1 ? byte : NOTHING;
}

void TcpSocket::shut_down() const {
    static_cast<void>(shutdown(descriptor, SHUT_RDWR));
}

}  // namespace lapi_mqtt
