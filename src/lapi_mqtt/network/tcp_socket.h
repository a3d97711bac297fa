#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace lapi_mqtt {

/// Bytes since the connection began.
struct Traffic {
    std::uint64_t bytes_acked = 0;  ///< sent, and acknowledged by the peer's system
    std::uint64_t bytes_received = 0;
};

/// The TCP socket of a connection, and what libmosquitto leaves to the owner of it. Holds a
/// descriptor of its own: libmosquitto may close its own at any time, and the number may be another
/// file's by then. Every function may be called by any thread.
class TcpSocket {
public:
    /// The system error of a connection, 0 once it is established; nothing until then.
    static std::optional<int> connection_state(int socket);

    /// Throws std::runtime_error.
    explicit TcpSocket(int socket);
    ~TcpSocket();
    TcpSocket(const TcpSocket&) = delete;
    TcpSocket& operator=(const TcpSocket&) = delete;

    int number() const { return descriptor; }

    /// Makes the kernel end a connection whose peer takes no data, or does not answer, for so long.
    void set_dead_peer_timeout(std::chrono::milliseconds timeout) const;

    /// Sends the next acknowledgements at once. A broker with Nagle's algorithm on holds its next
    /// packet until the last one is acknowledged, 40 ms later otherwise. The kernel falls back to
    /// delayed ones by itself, so this is said again before each wait.
    void acknowledge_at_once() const;

    Traffic traffic() const;

    /// True when there is something to read.
    bool is_readable() const;

    /// The next byte to be read, left where it is; NOTHING, or END when the peer has closed its end
    /// and all is read.
    int next_byte() const;
    static constexpr int NOTHING = -1;
    static constexpr int END = -2;

    /// Ends the connection: whoever reads or writes it next gets an error at once.
    void shut_down() const;

private:
    void set_option(int level, int option, int value) const;

    const int descriptor;
};

}  // namespace lapi_mqtt
