#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

#include "ecu/lapi/config.h"
#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/config_file.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/config/settings.h"

extern char** environ;

namespace ecu::lapi::config {
namespace {

constexpr char DEFAULT_FILE[] = "/etc/ecu/lapi.conf";
constexpr char FILE_VARIABLE[] = "ECU_LAPI_CONFIG";
constexpr char VARIABLE_PREFIX[] = "ECU_LAPI_";

std::string lower_case(std::string text) {
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character | 0x20);
    }
    return text;
}

}  // namespace

Configuration::Configuration() : values(lapi_mqtt::default_values()) {
    const char* const named = std::getenv(FILE_VARIABLE);
    if (named != nullptr) {
        load_file(named, true);
    } else {
        load_file(DEFAULT_FILE, false);
    }
    load_environment();
}

Configuration::Configuration(std::map<std::string, std::string> settings)
    : values(std::move(settings)) {}

std::string& Configuration::operator[](const std::string& key) {
    origins[key].clear();  // from here on the value is the program's own
    return values[key];
}

void Configuration::load_file(const std::string& path, bool must_exist) {
    errno = 0;
    std::ifstream file(path);
    if (!file.is_open() && errno == ENOENT && !must_exist) return;
    lapi_mqtt::ConfigFile content;
    if (file.is_open()) content = lapi_mqtt::parse_config(file);
    if (!file.is_open() || file.bad()) {
        load_errors.push_back(path + ": cannot read the configuration: " + std::strerror(errno));
        return;
    }
    const auto place = [&path](int line) { return path + ":" + std::to_string(line); };
    for (const auto& error : content.errors) {
        load_errors.push_back(place(error.line) + ": " + error.cause);
    }
    for (const auto& entry : content.entries) take(entry.key, entry.value, place(entry.line));
}

void Configuration::load_environment() {
    const std::string prefix = VARIABLE_PREFIX;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string text = *variable;
        const auto equals = text.find('=');
        if (text.compare(0, prefix.size(), prefix) != 0 || equals == std::string::npos) continue;
        const std::string name = text.substr(0, equals);
        if (name == FILE_VARIABLE) continue;
        take(lower_case(name.substr(prefix.size())), text.substr(equals + 1), name);
    }
}

void Configuration::take(const std::string& key, const std::string& value,
                         const std::string& origin) {
    if (!lapi_mqtt::is_setting(key)) {
        load_errors.push_back(origin + ": unknown key '" + key + "'");
        return;
    }
    values[key] = value;
    origins[key] = origin;
}

bool Configuration::verify() const {
    const auto found = lapi_mqtt::ConfigurationReader(*this).errors();
    for (const auto& error : found) logging::write(logging::ERROR, error);
    return found.empty();
}

}  // namespace ecu::lapi::config

namespace lapi_mqtt {

using ecu::lapi::config::Configuration;

std::unique_ptr<Configuration> ConfigurationReader::defaults() {
    return std::unique_ptr<Configuration>(
        new Configuration(default_values()));  // its constructor is private
}

std::string ConfigurationReader::get(const std::string& key) const {
    const auto found = configuration.values.find(key);
    return found == configuration.values.end() ? std::string() : found->second;
}

std::string ConfigurationReader::origin(const std::string& key) const {
    const auto known = configuration.origins.find(key);
    if (known == configuration.origins.end()) return "default";
    return known->second.empty() ? "program or option" : known->second;
}

std::vector<std::string> ConfigurationReader::errors() const {
    std::vector<std::string> found = configuration.load_errors;
    const auto report = [&](const std::string& key, const std::string& cause) {
        const auto origin = configuration.origins.find(key);
        const bool was_read = origin != configuration.origins.end() && !origin->second.empty();
        found.push_back((was_read ? origin->second + ": " : "") + key + ": " + cause);
    };
    for (const auto& [key, value] : configuration.values) {
        if (const auto error = setting_error(key, value)) report(key, *error);
    }
    if (configuration.values.count("client_name") == 0) report("client_name", "missing value");
    // A setting that has no effect without another one is an oversight.
    const std::pair<const char*, const char*> needs[] = {
        {"password_file", "username"},
        {"cert_file", "key_file"},
        {"key_file", "cert_file"},
        {"cert_file", "ca_file"},
    };
    for (const auto& [key, needed] : needs) {
        if (configuration.values.count(key) != 0 && configuration.values.count(needed) == 0) {
            report(key, std::string("needs a value for ") + needed);
        }
    }
    return found;
}

}  // namespace lapi_mqtt
