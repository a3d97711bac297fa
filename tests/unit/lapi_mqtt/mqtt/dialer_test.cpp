#include "lapi_mqtt/mqtt/dialer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <mosquitto.h>
#include <unistd.h>

#include "lapi_mqtt/config/settings.h"

namespace {

using lapi_mqtt::Dialer;

/// Listens on an address of this machine and answers one SYN until that connection is accepted.
class Listener {
public:
    explicit Listener(const char* literal, int port = 0) {
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, literal, &address.sin_addr);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(descriptor, any(), size), 0);
        getsockname(descriptor, any(), &size);
        listen(descriptor, 0);
    }
    ~Listener() { close(descriptor); }
    int port() const { return ntohs(address.sin_port); }
    void accept_one() { close(accept(descriptor, nullptr, nullptr)); }
    sockaddr* any() { return reinterpret_cast<sockaddr*>(&address); }

private:
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
};

TEST(Dialer, GoesOnBesideASilentAddressAndComesBackToIt) {
    Listener silent("127.0.0.2"), open("127.0.0.4", silent.port());
    const int filler = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(filler, silent.any(), sizeof(sockaddr_in)), 0);
    Dialer dialer("host", {"127.0.0.3", "127.0.0.2", "127.0.0.4"}, [&](const std::string& address) {
        auto handle = lapi_mqtt::make_handle({}, "test", {}, 20, nullptr, nullptr);
        mosquitto_connect_async(handle.get(), address.c_str(), silent.port(), 60);
        return handle;
    });
    const std::atomic<bool> cancelled = false;
    const lapi_mqtt::ConnectLimit limit{std::chrono::seconds(5), cancelled};
    EXPECT_EQ(dialer.next(limit).value().address, "127.0.0.4");
    silent.accept_one();
    EXPECT_EQ(dialer.next(limit).value().address, "127.0.0.2");
    EXPECT_FALSE(dialer.next(limit));
    EXPECT_EQ(dialer.failures(), "127.0.0.3: Connection refused");
    close(filler);
}

}  // namespace
