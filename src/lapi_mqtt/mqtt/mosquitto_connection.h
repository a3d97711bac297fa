#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/mqtt/dialer.h"
#include "lapi_mqtt/mqtt/failure_hints.h"
#include "lapi_mqtt/mqtt/mosquitto_handle.h"
#include "lapi_mqtt/network/tcp_socket.h"
#include "lapi_mqtt/network/tls_context.h"

struct mosquitto_message;

namespace lapi_mqtt {

/// A connection over libmosquitto, the only owner of its handle.
class MosquittoConnection final : public Connection {
public:
    /// Borrows all of its arguments. Who has a will serves requests.
    MosquittoConnection(const Settings& connection_settings, const std::string& id,
                        const std::optional<Will>& last_will, ConnectionEvents& owner);

    void open(const std::atomic<bool>& cancelled) override;
    bool loop(std::chrono::milliseconds timeout) override;
    std::string end_cause() const override;
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const PublishProperties& properties) override;
    int subscribe(const std::string& filter, int qos, RetainHandling retained) override;
    int unsubscribe(const std::string& filter) override;
    void disconnect() override;
    void abort() override { socket->shut_down(); }
    Traffic traffic() const override { return socket->traffic(); }

private:
    using Clock = std::chrono::steady_clock;

    MosquittoHandle begin(const std::string& to);
    static void set_callbacks(mosquitto* client);
    void forget_failure();
    void wait_for_connack(const Dialer& dialer, const ConnectLimit& limit);
    template <auto METHOD, typename... Arguments>
    static void call(mosquitto* client, void* object, Arguments... arguments) noexcept;
    void on_connack(int code, int flags, const mqtt5__property* properties);
    void on_disconnect(int code, const mqtt5__property* properties);
    void on_publish(const mosquitto_message* message, const mqtt5__property* properties);
    void on_published(int id, int code, const mqtt5__property* properties);
    void on_suback(int id, int count, const int* granted, const mqtt5__property* properties);
    void on_unsuback(int id, const mqtt5__property* properties);
    void on_log(int level, const char* text);
    Clock::time_point earliest_sending(int qos);

    const Settings& settings;
    const std::string& client_id;
    const std::optional<Will>& will;
    ConnectionEvents& events;
    std::unique_ptr<TlsContext> tls;

    // Constant after open.
    std::string address;
    MosquittoHandle handle;
    std::optional<TcpSocket> socket;

    // Of the thread that calls open and loop.
    Failure failure;
    Clock::time_point last_found_empty;       ///< the socket had nothing to read
    std::deque<Clock::time_point> last_read;  ///< of messages that are flow-controlled
};

}  // namespace lapi_mqtt
