#include "lapi_mqtt/mqtt/failure_hints.h"

#include <gtest/gtest.h>
#include <mosquitto.h>

#include <cerrno>

namespace {

using lapi_mqtt::Failure;
using lapi_mqtt::Settings;

constexpr char CLOSED[] = "the connection was closed before it was accepted; does the broker ";

Settings configured(const char* ca_file, const char* cert_file, const char* username, const char* password_file) {
    Settings settings;
    settings.ca_file = ca_file;
    settings.cert_file = cert_file;
    settings.username = username;
    settings.password_file = password_file;
    return settings;
}

TEST(FailureHints, NameTheSettingThatIsMissing) {
    const Settings plain = configured("", "", "", ""), named = configured("", "", "me", "");
    const Settings complete = configured("ca", "cert", "me", "password");
    const auto refused = [](int code, bool after_connack) {
        Failure failure;
        failure.refusal = lapi_mqtt::reason_of(code, nullptr);
        failure.was_accepted = after_connack;
        return failure;
    };
    const std::tuple<Failure, Settings, std::string> table[] = {
        {refused(0x87, false), plain,
         "Not authorized: does the broker expect a user name and a password? (no username is set)"},
        {refused(0x87, false), named, "Not authorized: does the broker expect a password? (no password_file is set)"},
        {refused(0x87, false), complete, "Not authorized"},
        {refused(0x87, true), plain, "Not authorized"},
        {refused(0x88, false), plain, "Server unavailable"},
    };
    for (const auto& [failure, settings, text] : table) {
        EXPECT_EQ(lapi_mqtt::cause_with_hint(failure, settings), text);
    }
}

TEST(FailureHints, AreTheSameWithEveryVersionOfTheTlsLibraries) {
    const Settings without = configured("ca", "", "", ""), with = configured("ca", "cert", "", "");
    const std::string refused = "TLS: the broker refuses the certificate 'cert': ";
    const std::string expected = "TLS: the broker takes no client without a certificate (no cert_file is set): ";
    const std::string closed = std::string("TLS: ") + CLOSED + "speak TLS on this port, and take clients ";
    const std::string question = closed + "with the certificate 'cert'?";
    const std::string ssl = "OpenSSL Error[0]: error:0A000418:SSL routines::";
    const std::tuple<std::string, int, int, Settings, std::string> table[] = {
        // Log of libmosquitto, result, errno
        {ssl + "tlsv1 alert unknown ca", MOSQ_ERR_CONN_LOST, EPROTO, with, refused + "unknown ca"},
        {ssl + "sslv3 alert certificate expired", MOSQ_ERR_CONN_LOST, EPROTO, with, refused + "certificate expired"},
        {ssl + "ssl/tls alert certificate expired", MOSQ_ERR_TLS, 0, with, refused + "certificate expired"},
        {ssl + "tlsv13 alert certificate required", MOSQ_ERR_CONN_LOST, EPROTO, without,
         expected + "certificate required"},
        {ssl + "tlsv1 alert protocol version", MOSQ_ERR_TLS, 0, with,
         "TLS: the broker refuses the connection: protocol version"},
        {ssl + "wrong version number", MOSQ_ERR_TLS, EPROTO, without,
         "TLS: wrong version number: the broker does not speak TLS here"},
        {ssl + "unexpected eof while reading", MOSQ_ERR_TLS, EPIPE, without,
         closed + "without a certificate? (no cert_file is set)"},
        {"Error: Connection reset by peer", MOSQ_ERR_TLS, EPROTO, with, question},
        {"", MOSQ_ERR_CONN_LOST, ECONNRESET, with, question},
        {"", MOSQ_ERR_TLS, EPROTO, with, question},
        {"", MOSQ_ERR_ERRNO, EPROTO, with, question},
        {"", MOSQ_ERR_ERRNO, ECONNRESET, configured("", "", "", ""),
         std::string(CLOSED) + "expect TLS on this port? (no ca_file is set)"},
    };
    for (const auto& [record, result, system_error, settings, text] : table) {
        Failure failure;
        failure.tls_error = lapi_mqtt::tls_error_in(record);
        failure.result = result;
        failure.system_error = system_error;
        EXPECT_EQ(lapi_mqtt::cause_with_hint(failure, settings), text) << record;
        failure.was_accepted = true;
        if (text.find(CLOSED) == std::string::npos) continue;
        EXPECT_EQ(lapi_mqtt::cause_with_hint(failure, settings), "the connection was closed");
    }
}

}  // namespace
