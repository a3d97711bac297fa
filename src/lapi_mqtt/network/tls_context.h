#pragma once

#include <memory>
#include <string>

#include "lapi_mqtt/config/settings.h"

struct ssl_ctx_st;

namespace lapi_mqtt {

/// The TLS side of a connection: the broker's certificate is checked against the configured CA and
/// the name that was asked for, whichever address answers; TLS 1.2 at least. libmosquitto carries
/// it, but would look at one address only and stop at a NUL byte in a name.
class TlsContext {
public:
    /// Throws NetworkError that names the file which cannot be used. Never asks for a pass phrase.
    explicit TlsContext(const Settings& settings);
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    ssl_ctx_st* get() const { return context.get(); }

    /// Which certificate of the broker was refused and why; empty while none was.
    const std::string& refusal() const { return certificate_refusal; }

    /// The host's name, which the handshake tells; empty when the host is an address.
    const std::string& server_name() const { return name; }

    void note_refusal(const std::string& cause) { certificate_refusal = cause; }

private:
    struct Free {
        void operator()(ssl_ctx_st* context) const;
    };

    std::string name;
    std::unique_ptr<ssl_ctx_st, Free> context;
    std::string certificate_refusal;
};

}  // namespace lapi_mqtt
