#include "lapi_mqtt/mqtt/failure_hints.h"

#include <cerrno>
#include <cstring>

#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace lapi_mqtt {
namespace {

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

std::string log_in_hint(const Failure& failure, const Settings& settings) {
    const int code = failure.refusal.code;
    const bool is_log_in =
        code == MQTT_RC_NOT_AUTHORIZED || code == MQTT_RC_BAD_USERNAME_OR_PASSWORD;
    if (failure.was_accepted || !is_log_in) return "";
    if (settings.username.empty()) {
        return ": does the broker expect a user name and a password? (no username is set)";
    }
    if (settings.password_file.empty()) {
        return ": does the broker expect a password? (no password_file is set)";
    }
    return "";
}

std::string alert_cause(const std::string& alert, const Settings& settings) {
    const bool is_certificate = contains(alert, "certificate") || alert == "unknown CA";
    if (!is_certificate) return "the broker refuses the connection: " + alert;
    if (settings.cert_file.empty()) {
        return "the broker takes no client without a certificate (no cert_file is set): " + alert;
    }
    return "the broker refuses the certificate '" + settings.cert_file + "': " + alert;
}

/// What OpenSSL says of a peer that is gone, and libmosquitto in its place.
bool says_closed(const std::string& tls_error) {
    return tls_error == "unexpected eof while reading" || tls_error == std::strerror(ECONNRESET) ||
           tls_error == std::strerror(EPIPE);
}

/// True when the peer has closed or reset the connection without a reason. Within TLS libmosquitto
/// reports a reset, as any system error, as EPROTO.
bool is_closed(const Failure& failure, bool over_tls) {
    if (over_tls && (!failure.tls_error.empty() || failure.system_error == EPROTO)) return true;
    const int error = failure.system_error;
    const bool is_reset = error == 0 || error == ECONNRESET || error == EPIPE;
    return failure.result == MOSQ_ERR_CONN_LOST || (failure.result == MOSQ_ERR_ERRNO && is_reset);
}

/// What a broker does that expects TLS and gets none, or the other way round.
std::string closed_early(const Settings& settings) {
    const std::string closed = "the connection was closed before it was accepted; does the broker ";
    if (settings.ca_file.empty()) return closed + "expect TLS on this port? (no ca_file is set)";
    return "TLS: " + closed + "speak TLS on this port, and take clients " +
           (settings.cert_file.empty() ? "without a certificate? (no cert_file is set)"
                                       : "with the certificate '" + settings.cert_file + "'?");
}

}  // namespace

/// Records are "OpenSSL Error[0]: error:CODE:LIBRARY::REASON" or "Error: REASON".
std::string tls_error_in(const std::string& record) {
    const auto reason_at = record.rfind(": ");
    std::string reason = reason_at == std::string::npos ? record : record.substr(reason_at + 2);
    const auto library_end = reason.rfind(':');
    return library_end == std::string::npos ? reason : reason.substr(library_end + 1);
}

std::string cause_with_hint(const Failure& failure, const Settings& settings) {
    if (!failure.refusal.text.empty()) {
        return failure.refusal.text + log_in_hint(failure, settings);
    }
    if (!failure.certificate_refusal.empty()) {
        return "TLS: the broker's certificate " + failure.certificate_refusal;
    }
    if (failure.speaks_tls) return "TLS: the broker speaks TLS on this port, and no ca_file is set";
    if (!failure.tls_alert.empty()) return "TLS: " + alert_cause(failure.tls_alert, settings);
    if (!failure.tls_error.empty() && !says_closed(failure.tls_error)) {
        const bool is_plain = contains(failure.tls_error, "wrong version number");
        return "TLS: " + failure.tls_error +
               (is_plain ? ": the broker does not speak TLS here" : "");
    }
    const bool closed = is_closed(failure, !settings.ca_file.empty());
    if (closed && !failure.was_accepted) return closed_early(settings);
    return cause_of_result(closed ? MOSQ_ERR_CONN_LOST : failure.result, failure.system_error);
}

}  // namespace lapi_mqtt
