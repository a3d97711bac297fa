#include "lapi_mqtt/network/tls_context.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <array>
#include <stdexcept>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;

std::string subject_of(X509* certificate) {
    std::array<char, 256> text{};
    if (certificate == nullptr) return "none";
    X509_NAME_oneline(X509_get_subject_name(certificate), text.data(), text.size());
    return text.data();
}

/// A pass phrase is never asked for: nobody may be there to answer.
int refuse_pass_phrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

[[noreturn]] void fail_with(const std::string& file, const char* content) {
    const auto error = ERR_peek_error();
    const char* const reason = ERR_reason_error_string(error);
    ERR_clear_error();
    const int code = ERR_GET_REASON(error);
    const bool is_other = code == PEM_R_NO_START_LINE || code == ERR_R_UNSUPPORTED ||
                          code == X509_R_NO_CERTIFICATE_OR_CRL_FOUND;
    if (is_other)
        throw std::runtime_error("TLS: '" + file + "' holds no " + content + " in PEM format");
    throw std::runtime_error("TLS: cannot use '" + file +
                             "': " + (reason == nullptr ? "error" : reason));
}

void load_key(SSL_CTX* context, const Settings& settings) {
    if (SSL_CTX_use_certificate_chain_file(context, settings.cert_file.c_str()) != 1) {
        fail_with(settings.cert_file, "certificate");
    }
    bool asked = false;
    SSL_CTX_set_default_passwd_cb(context, refuse_pass_phrase);
    SSL_CTX_set_default_passwd_cb_userdata(context, &asked);
    const bool loaded =
        SSL_CTX_use_PrivateKey_file(context, settings.key_file.c_str(), SSL_FILETYPE_PEM) == 1;
    SSL_CTX_set_default_passwd_cb_userdata(context, nullptr);
    if (asked) {
        ERR_clear_error();
        throw std::runtime_error("TLS: the key '" + settings.key_file +
                                 "' is encrypted, and no pass phrase is asked for");
    }
    if (!loaded || SSL_CTX_check_private_key(context) != 1) {
        fail_with(settings.key_file, "private key");
    }
}

}  // namespace

void TlsContext::Free::operator()(ssl_ctx_st* owned) const {
    SSL_CTX_free(owned);
}

void TlsContext::Free::operator()(ssl_st* connection) const {
    SSL_free(connection);
}

void TlsContext::hold(ssl_st* connection) {
    if (last_connection.get() == connection) return;
    SSL_up_ref(connection);
    last_connection.reset(connection);
}

TlsContext& TlsContext::of(const SSL* connection) {
    return *static_cast<TlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
}

int TlsContext::on_verified(int accepted, X509_STORE_CTX* store) {
    if (accepted != 0) return accepted;
    const auto* connection = static_cast<const SSL*>(
        X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    of(connection).found.refusal =
        "(" + subject_of(X509_STORE_CTX_get_current_cert(store)) +
        ") is refused: " + X509_verify_cert_error_string(X509_STORE_CTX_get_error(store));
    return accepted;
}

/// libmosquitto is given an address, so the name that the broker is to show is set here.
void TlsContext::on_handshake(const SSL* connection, int where, int result) {
    TlsContext& context = of(connection);
    // OpenSSL hands out its own object as a constant.
    auto* own = const_cast<SSL*>(connection);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    context.hold(own);
    if ((where & SSL_CB_HANDSHAKE_START) != 0 && !context.server_name.empty()) {
        static_cast<void>(SSL_set_tlsext_host_name(own, context.server_name.c_str()));
    }
    const bool is_fatal = (result >> 8) == SSL3_AL_FATAL;
    if ((where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT && is_fatal) {
        // OpenSSL has no text for this one.
        const bool is_required = (result & 0xff) == SSL_AD_CERTIFICATE_REQUIRED;
        context.found.alert =
            is_required ? "certificate required" : SSL_alert_desc_string_long(result);
    }
    if ((where & SSL_CB_HANDSHAKE_DONE) != 0) {
        X509* const peer = SSL_get0_peer_certificate(connection);
        logging::write(logging::DEBUG, "TLS: ", SSL_get_version(connection), ", ",
                       SSL_get_cipher_name(connection), ", broker ", subject_of(peer));
    }
}

void TlsContext::read_alert(int socket) {
    if (!last_connection) return;
    char byte = 0;
    SSL_set_fd(last_connection.get(), socket);
    SSL_read(last_connection.get(), &byte, 1);
    ERR_clear_error();
}

TlsContext::TlsContext(const Settings& settings) : context(SSL_CTX_new(TLS_client_method())) {
    SSL_CTX* const own = context.get();
    if (own == nullptr) throw std::runtime_error("TLS: out of memory");
    SSL_CTX_set_app_data(own, this);
    SSL_CTX_set_min_proto_version(own, TLS1_2_VERSION);
    SSL_CTX_set_mode(own, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                              SSL_MODE_AUTO_RETRY);
    if (SSL_CTX_load_verify_locations(own, settings.ca_file.c_str(), nullptr) != 1) {
        fail_with(settings.ca_file, "certificate");
    }
    if (!settings.cert_file.empty()) load_key(own, settings);

    X509_VERIFY_PARAM* const checks = SSL_CTX_get0_param(own);
    X509_VERIFY_PARAM_set_hostflags(checks, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const std::string& host = settings.host;
    if (X509_VERIFY_PARAM_set1_ip_asc(checks, host.c_str()) != 1) {
        if (X509_VERIFY_PARAM_set1_host(checks, host.data(), host.size()) != 1) {
            throw std::runtime_error("TLS: '" + host + "' cannot be looked for in a certificate");
        }
        server_name = host;
    }
    SSL_CTX_set_verify(own, SSL_VERIFY_PEER, on_verified);
    SSL_CTX_set_info_callback(own, on_handshake);
}

}  // namespace lapi_mqtt
