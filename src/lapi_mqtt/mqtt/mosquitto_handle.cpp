#include "lapi_mqtt/mqtt/mosquitto_handle.h"

#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/network/tls_context.h"

namespace lapi_mqtt {
namespace {

/// libmosquitto's global state, set up by the first connection and released at exit.
void use_library() {
    struct Library {
        Library() { mosquitto_lib_init(); }
        ~Library() { mosquitto_lib_cleanup(); }
    };
    static const Library library;
}

void set_credentials(mosquitto* handle, const Settings& settings) {
    if (settings.username.empty()) return;
    const bool has_password = !settings.password_file.empty();
    const std::string password = has_password ? read_password(settings.password_file) : "";
    check_result(mosquitto_username_pw_set(handle, settings.username.c_str(),
                                           has_password ? password.c_str() : nullptr));
}

void set_tls(mosquitto* handle, const TlsContext& tls) {
    check_result(mosquitto_int_option(handle, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0));
    check_result(mosquitto_void_option(handle, MOSQ_OPT_SSL_CTX, tls.get()));
    // Not insecure: our own context checks the name, which libmosquitto does not know.
    check_result(mosquitto_tls_insecure_set(handle, true));
}

void set_will(mosquitto* handle, const Will& will) {
    check_result(mosquitto_will_set(handle, will.topic.c_str(),
                                    static_cast<int>(will.payload.size()), will.payload.data(), 1,
                                    true));
}

}  // namespace

void MosquittoDeleter::operator()(mosquitto* handle) const {
    mosquitto_destroy(handle);
}

MosquittoHandle make_handle(const Settings& settings, const std::string& client_id,
                            const std::optional<Will>& will, int receive_maximum,
                            const TlsContext* tls, void* owner) {
    use_library();
    MosquittoHandle made(mosquitto_new(client_id.c_str(), true, owner));
    if (!made) throw MqttError("out of memory");
    mosquitto* const handle = made.get();
    check_result(mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5));
    check_result(mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1));
    check_result(mosquitto_int_option(handle, MOSQ_OPT_RECEIVE_MAXIMUM, receive_maximum));
    check_result(mosquitto_threaded_set(handle, true));
    set_credentials(handle, settings);
    if (tls != nullptr) set_tls(handle, *tls);
    if (will) set_will(handle, *will);
    return made;
}

}  // namespace lapi_mqtt
