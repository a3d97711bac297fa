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

Configuration::Configuration() : Configuration(*lapi_mqtt::ConfigurationReader::defaults()) {
    const char* const named = std::getenv(FILE_VARIABLE);
    load_file(named != nullptr ? named : DEFAULT_FILE, named != nullptr);
    load_environment();
}

std::string& Configuration::operator[](const std::string& key) {
    Setting& setting = settings[key];
    setting.origin = lapi_mqtt::PROGRAM_ORIGIN;
    return setting.value;
}

void Configuration::load_file(const std::string& path, bool must_exist) {
    errno = 0;
    std::ifstream file(path);
    if (!file.is_open() && errno == ENOENT && !must_exist) return;
    const auto lines = lapi_mqtt::parse_config(file);
    if (!file.is_open() || file.bad()) {
        load_errors.push_back(path + ": cannot read the configuration: " + std::strerror(errno));
        return;
    }
    const auto place = [&path](const auto& line) {
        return path + ":" + std::to_string(line.number);
    };
    for (const auto& line : lines) {
        if (!line.error.empty()) load_errors.push_back(place(line) + ": " + line.error);
    }
    for (const auto& line : lines) {
        if (line.error.empty()) take(line.key, line.value, place(line));
    }
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
    settings[key] = {value, origin};
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
    Configuration::Settings settings;
    for (const auto& [key, value] : default_values()) settings[key] = {value, "default"};
    return std::unique_ptr<Configuration>(
        new Configuration(std::move(settings)));  // its constructor is private
}

std::vector<std::string> ConfigurationReader::errors() const {
    const auto& settings = configuration.settings;
    std::vector<std::string> found = configuration.load_errors;
    const auto report = [&](const std::string& key, const std::string& cause) {
        const auto setting = settings.find(key);
        const bool was_read = setting != settings.end() && setting->second.origin != PROGRAM_ORIGIN;
        found.push_back((was_read ? setting->second.origin + ": " : "") + key + ": " + cause);
    };
    for (const auto& [key, setting] : settings) {
        if (const auto error = setting_error(key, setting.value)) report(key, *error);
    }
    if (settings.count("client_name") == 0) report("client_name", "missing value");
    // A setting that has no effect without another one is an oversight.
    const std::pair<const char*, const char*> needs[] = {
        {"password_file", "username"},
        {"cert_file", "key_file"},
        {"key_file", "cert_file"},
        {"cert_file", "ca_file"},
    };
    for (const auto& [key, needed] : needs) {
        if (settings.count(key) != 0 && settings.count(needed) == 0) {
            report(key, std::string("needs a value for ") + needed);
        }
    }
    return found;
}

}  // namespace lapi_mqtt
