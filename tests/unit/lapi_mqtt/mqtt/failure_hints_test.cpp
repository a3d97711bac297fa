#include "lapi_mqtt/mqtt/failure_hints.h"

#include <gtest/gtest.h>
#include <mosquitto.h>

#include <cerrno>

namespace {

using lapi_mqtt::Failure;

/// The cause that is told with settings that a letter each stands for.
std::string told(const Failure& failure, const std::string& letters) {
    const auto set = [&letters](char letter) {
        return letters.find(letter) == std::string::npos ? "" : std::string(1, letter);
    };
    lapi_mqtt::Settings settings;
    settings.ca_file = set('a');
    settings.cert_file = set('c');
    settings.username = set('u');
    settings.password_file = set('p');
    return lapi_mqtt::cause_with_hint(failure, settings);
}

TEST(FailureHints, NameTheLogInThatIsMissing) {
    Failure failure;
    failure.refusal = lapi_mqtt::reason_of(0x87, nullptr);
    const std::string text = "Not authorized", question = text + ": does the broker expect a ";
    EXPECT_EQ(told(failure, ""), question + "user name and a password? (no username is set)");
    EXPECT_EQ(told(failure, "u"), question + "password? (no password_file is set)");
    EXPECT_EQ(told(failure, "up"), text);
    failure.was_accepted = true;
    EXPECT_EQ(told(failure, ""), text);
}

TEST(FailureHints, AreTheSameWithEveryVersionOfTheTlsLibraries) {
    const std::string closed = "the connection was closed before it was accepted; does the broker ";
    const std::string question = "TLS: " + closed + "speak TLS on this port, and take clients ";
    const std::string with = question + "with the certificate 'c'?";
    const std::tuple<const char*, int, int, const char*, std::string> table[] = {
        // OpenSSL's reason in the log, libmosquitto's result, errno
        {"wrong version number", MOSQ_ERR_TLS, EPROTO, "a",
         "TLS: wrong version number: the broker does not speak TLS here"},
        {"unexpected eof while reading", MOSQ_ERR_TLS, EPIPE, "a",
         question + "without a certificate? (no cert_file is set)"},
        {"Connection reset by peer", MOSQ_ERR_TLS, EPROTO, "ac", with},
        {"", MOSQ_ERR_CONN_LOST, ECONNRESET, "ac", with},
        {"", MOSQ_ERR_TLS, EPROTO, "ac", with},
        {"", MOSQ_ERR_ERRNO, EPROTO, "ac", with},
        {"", MOSQ_ERR_ERRNO, ECONNRESET, "",
         closed + "expect TLS on this port? (no ca_file is set)"},
    };
    for (const auto& [reason, result, system_error, files, text] : table) {
        Failure failure;
        failure.tls_error = lapi_mqtt::tls_error_in(
            std::string("OpenSSL Error[0]: error:0A0:SSL routines::") + reason);
        failure.result = result;
        failure.system_error = system_error;
        EXPECT_EQ(told(failure, files), text);
        failure.was_accepted = true;
        EXPECT_EQ(told(failure, files),
                  text.find(closed) == std::string::npos ? text : "the connection was closed");
    }
}

}  // namespace
