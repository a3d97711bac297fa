#pragma once

#include <string>

#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/error.h"

namespace lapi_mqtt {

/// What is known of a connection that has ended, or never came to be.
struct Failure {
    bool was_accepted = false;        ///< by CONNACK
    int result = 0;                   ///< of libmosquitto's last call
    int system_error = 0;             ///< errno, as that call left it
    Reason refusal;                   ///< of CONNACK or DISCONNECT, or why we ended it ourselves
    std::string certificate_refusal;  ///< why we refused the broker's certificate
    std::string tls_alert;            ///< with which the broker ended the handshake
    std::string tls_error;            ///< from libmosquitto's log, which alone has it
    bool speaks_tls = false;          ///< the broker, to a client without
};

/// Takes the cause of a failed TLS handshake out of a record of libmosquitto's log.
std::string tls_error_in(const std::string& record);

/// Why a connection ended, and which setting may be the reason.
std::string cause_with_hint(const Failure& failure, const Settings& settings);

}  // namespace lapi_mqtt
