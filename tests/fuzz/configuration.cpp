// The input's first text is a configuration file, the others are variables of the environment. Each
// value of the file counts or is complained of, and a configuration without complaint can be used.
#include <mosquitto.h>
#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <utility>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/config/config_file.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/config/settings.h"

namespace {

lapi_mqtt::ConfigFile parse(const std::string& text) {
    std::istringstream input(text);
    return lapi_mqtt::parse_config(input);
}

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

void check_settings(const lapi_mqtt::Settings& settings) {
    require(settings.port >= 1 && settings.port <= 65535 && !settings.host.empty());
    require(settings.connect_timeout.count() > 0 && settings.request_timeout.count() > 0);
    for (const auto& text : {settings.host, settings.client_name, settings.username, settings.topic_prefix}) {
        require(mosquitto_validate_utf8(text.data(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS);
    }
    for (const auto& topic : {settings.topic_prefix + "a", "clients/" + settings.client_name + "/reply"}) {
        require(mosquitto_pub_topic_check(topic.data()) == MOSQ_ERR_SUCCESS);
    }
    for (const auto& name : {settings.password_file, settings.ca_file, settings.cert_file, settings.key_file}) {
        require(name == name.data() && (name.empty() || access(name.data(), R_OK) == 0));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto texts = texts_of(data, size);
    const auto file = parse(texts[0]);
    std::map<std::string, std::string> given;
    for (const auto& [line, key, value] : file.entries) {
        const auto again = parse(key + '=' + value).entries;
        require(again.size() == 1 && again[0].key == key && again[0].value == value);
        given[key] = value;
    }
    const auto configuration = load({texts[0]});
    const lapi_mqtt::ConfigurationReader reader(configuration);
    std::string errors;
    for (const auto& error : reader.errors()) errors += error + '\n';
    const auto require_told = [&](const std::string& what) { require(errors.find(what) != std::string::npos); };
    for (const auto& [line, cause] : file.errors) require_told(':' + std::to_string(line) + ": " + cause);
    for (const auto& [key, value] : given) {
        const bool is_known = lapi_mqtt::is_setting(key);
        is_known ? require(reader.get(key) == value) : require_told("unknown key '" + key + "'");
    }
    const auto with_environment = load(texts);
    if (!lapi_mqtt::ConfigurationReader(with_environment).errors().empty()) return 0;
    check_settings(lapi_mqtt::read_settings(with_environment));
    return 0;
}
