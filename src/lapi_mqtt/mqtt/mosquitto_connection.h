#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/mqtt/tls.h"

struct mosquitto;
struct mosquitto_message;

namespace lapi_mqtt {

/// What the broker publishes, to be kept, once this connection is lost without a goodbye.
struct Will {
    std::string topic;
    std::string payload;
};

/// A connection over libmosquitto, the only owner of its handle. Tries the addresses of a name one
/// after the other: the next one starts when the one before it has refused or kept silent for
/// 250 ms, and the first that accepts is taken.
class MosquittoConnection final : public Connection {
public:
    /// Borrows all of its arguments.
    MosquittoConnection(const Settings& connection_settings, const std::string& id,
                        const std::optional<Will>& last_will, ConnectionEvents& owner);
    ~MosquittoConnection() override;
    MosquittoConnection(const MosquittoConnection&) = delete;
    MosquittoConnection& operator=(const MosquittoConnection&) = delete;

    void open(const std::atomic<bool>& abandoned) override;
    bool loop(std::chrono::milliseconds timeout) override;
    std::string end_cause() const override;
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const PublishProperties& properties) override;
    int subscribe(const std::string& filter, int qos, RetainHandling retained) override;
    int unsubscribe(const std::string& filter) override;
    void disconnect() override;
    void abort() override;
    Traffic traffic() const override;

private:
    using Clock = std::chrono::steady_clock;
    struct HandleDeleter {
        void operator()(mosquitto* client) const;
    };
    using Handle = std::unique_ptr<mosquitto, HandleDeleter>;
    struct Attempt {
        std::string address;
        Handle handle;
    };

    // mosquitto_handle.cpp: a handle and what it calls.
    Handle make_handle();
    void set_credentials(mosquitto* client);
    void set_tls(mosquitto* client);
    void set_will(mosquitto* client);
    static void set_callbacks(mosquitto* client);
    template <typename Action>
    void guarded(Action action) noexcept;
    void greeted(int code, const mqtt5__property* properties);
    void received(const mosquitto_message* message, const mqtt5__property* properties);
    Clock::time_point earliest_sending(int qos);
    void note_log(int level, const char* text);

    void reach_one_of(std::vector<std::string>& addresses, Clock::time_point deadline,
                      const std::atomic<bool>& abandoned);
    bool begin(const std::string& address, std::vector<Attempt>& under_way);
    bool take_reached(std::vector<Attempt>& under_way);
    void await_greeting(Clock::time_point deadline, const std::atomic<bool>& abandoned);
    void require_time(Clock::time_point deadline, const std::atomic<bool>& abandoned) const;
    void note_failure(const std::string& address, const std::string& cause);
    std::string closed_early() const;
    int socket() const;

    const Settings& settings;
    const std::string& client_id;
    const std::optional<Will>& will;
    ConnectionEvents& events;
    std::unique_ptr<TlsContext> tls;
    Handle handle;

    // Of the thread that calls open and loop.
    std::string address;                                ///< the one that is connected to
    std::string failures;                               ///< of the addresses tried before
    Clock::time_point last_found_empty = Clock::now();  ///< the socket had nothing to read
    std::deque<Clock::time_point> last_read;            ///< of messages that are flow-controlled
    bool accepted = false;
    std::string refusal;    ///< the broker's own reason for an end
    std::string tls_cause;  ///< libmosquitto tells it to its log only
    int last_result = 0;
    int last_errno = 0;
};

}  // namespace lapi_mqtt
