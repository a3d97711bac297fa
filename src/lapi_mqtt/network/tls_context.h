#pragma once

#include <memory>
#include <string>

#include "lapi_mqtt/config/settings.h"

struct ssl_ctx_st;
struct ssl_st;
struct x509_store_ctx_st;

namespace lapi_mqtt {

/// The TLS side of a connection: the broker's certificate is checked against the configured CA and
/// the name that was asked for, whichever address answers; TLS 1.2 at least. libmosquitto carries
/// it, but would check one address only and stop at a NUL byte in a name.
class TlsContext {
public:
    /// Throws std::runtime_error that names the file which cannot be used. Never asks for a pass
    /// phrase.
    explicit TlsContext(const Settings& settings);
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    ssl_ctx_st* get() const { return context.get(); }

    /// What a handshake ended with, if it failed.
    struct Findings {
        std::string refusal;  ///< which certificate of the broker was refused, and why
        std::string alert;    ///< the broker's
    };
    const Findings& findings() const { return found; }
    void forget_findings() { found = {}; }

    /// Reads the alert of a broker that has closed the connection, unless it was read: libmosquitto
    /// does not read on when it cannot write any more. Call it when libmosquitto's handle is gone.
    void read_alert(int socket);

private:
    // Called by OpenSSL.
    static int on_verified(int accepted, x509_store_ctx_st* store);
    static void on_handshake(const ssl_st* connection, int where, int result);

    static TlsContext& of(const ssl_st* connection);
    void hold(ssl_st* connection);

    struct Free {
        void operator()(ssl_ctx_st* context) const;
        void operator()(ssl_st* connection) const;
    };

    std::string server_name;  ///< for the handshake (SNI); empty when the host is an address
    std::unique_ptr<ssl_ctx_st, Free> context;
    std::unique_ptr<ssl_st, Free> last_connection;
    Findings found;
};

}  // namespace lapi_mqtt
