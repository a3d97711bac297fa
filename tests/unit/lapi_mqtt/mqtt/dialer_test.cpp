#include "lapi_mqtt/mqtt/dialer.h"

#include <gtest/gtest.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <unistd.h>

#include "lapi_mqtt/config/settings.h"

namespace {

/// Listens on 127.0.0.N and answers one SYN until that connection is accepted.
struct Listener {
    explicit Listener(unsigned n, in_port_t network_port = 0) {
        address.sin_family = AF_INET;
        address.sin_port = network_port;
        address.sin_addr.s_addr = htonl(0x7f000000 + n);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(descriptor, any, size), 0);
        getsockname(descriptor, any, &size);
        listen(descriptor, 0);
    }
    ~Listener() { close(descriptor); }

    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    sockaddr* const any = reinterpret_cast<sockaddr*>(&address);
};

TEST(Dialer, GoesOnBesideASilentAddressAndComesBackToIt) {
    const Listener silent(2), open(4, silent.address.sin_port);
    const int filler = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(filler, silent.any, sizeof silent.address), 0);
    lapi_mqtt::Dialer dialer("host", {"127.0.0.3", "127.0.0.2", "127.0.0.4"}, [&](auto& address) {
        auto handle = lapi_mqtt::make_handle({}, "test", {}, 20, nullptr, nullptr);
        const int port = ntohs(silent.address.sin_port);
        mosquitto_connect_async(handle.get(), address.c_str(), port, 60);
        return handle;
    });
    const std::atomic<bool> cancelled = false;
    const lapi_mqtt::ConnectLimit limit{std::chrono::seconds(5), cancelled};
    EXPECT_EQ(dialer.next(limit).value().address, "127.0.0.4");
    close(accept(silent.descriptor, nullptr, nullptr));
    EXPECT_EQ(dialer.next(limit).value().address, "127.0.0.2");
    EXPECT_FALSE(dialer.next(limit));
    EXPECT_EQ(dialer.failures(), "127.0.0.3: Connection refused");
    close(filler);
}

}  // namespace
