// The input's first text is a configuration file, the others are variables of the environment. A
// configuration without complaint can be used.
#include <mosquitto.h>
#include <sys/mman.h>
#include <unistd.h>

#include <utility>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/config/settings.h"

namespace {

ecu::lapi::config::Configuration load(std::vector<std::string> texts) {
    static const int file = memfd_create("configuration", 0);
    require(ftruncate(file, 0) == 0 && pwrite(file, texts[0].data(), texts[0].size(), 0) >= 0);
    texts[0] = "ECU_LAPI_CONFIG=/proc/self/fd/" + std::to_string(file);
    std::vector<char*> variables;
    for (auto& text : texts) variables.push_back(text.data());
    variables.push_back(nullptr);
    char** const own = std::exchange(environ, variables.data());
    ecu::lapi::config::Configuration configuration;
    environ = own;
    return configuration;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto configuration = load(texts_of(data, size));
    if (!lapi_mqtt::ConfigurationReader(configuration).errors().empty()) return 0;
    const auto settings = lapi_mqtt::read_settings(configuration);
    require(settings.port >= 1 && settings.port <= 65535 && !settings.host.empty());
    require(settings.connect_timeout.count() > 0 && settings.request_timeout.count() > 0);
    for (const auto& topic : {settings.topic_prefix + "a", settings.client_name + "/reply"}) {
        require(mosquitto_pub_topic_check(topic.data()) == MOSQ_ERR_SUCCESS);
    }
    for (const auto& name :
         {settings.password_file, settings.ca_file, settings.cert_file, settings.key_file}) {
        require(name == name.data() && (name.empty() || access(name.data(), R_OK) == 0));
    }
    return 0;
}
