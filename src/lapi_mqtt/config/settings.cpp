#include "lapi_mqtt/config/settings.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/logging/printable.h"

namespace lapi_mqtt {
namespace {

/// What is wrong with a value; nothing when it was read into the settings.
using Fault = std::optional<std::string>;

/// Reads the whole of `value` as a decimal number from 1 to `max`.
Fault read_number(const std::string& value, long max, long& number) {
    const char* const end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, number);
    if (error == std::errc() && stopped == end && number >= 1 && number <= max) return std::nullopt;
    return "'" + value + "' is not a number from 1 to " + std::to_string(max);
}

Fault read_port(Settings& settings, const std::string& value) {
    long number = 0;
    auto fault = read_number(value, 65535, number);
    settings.port = static_cast<int>(number);
    return fault;
}

template <std::chrono::milliseconds Settings::*MEMBER>
Fault read_timeout(Settings& settings, const std::string& value) {
    constexpr long HOUR_MS = 3'600'000;
    long number = 0;
    auto fault = read_number(value, HOUR_MS, number);
    settings.*MEMBER = std::chrono::milliseconds(number);
    return fault;
}

/// What MQTT counts in 16 bits, less room for the levels of topics and the random digits around it.
constexpr std::size_t MAX_TEXT = 65'000;

template <std::string Settings::*MEMBER>
Fault read_text(Settings& settings, const std::string& value) {
    if (value.size() > MAX_TEXT) {
        return "the value is longer than " + std::to_string(MAX_TEXT) + " bytes";
    }
    if (!is_text(value)) return "'" + value + "' is not UTF-8 text without control characters";
    settings.*MEMBER = value;
    return std::nullopt;
}

/// An IPv6 address may stand in brackets, as it does in front of a port.
Fault read_host(Settings& settings, const std::string& value) {
    const auto colon = value.find(':');
    if (colon != std::string::npos && colon == value.rfind(':')) {
        return "'" + value + "' holds a colon; the port is a setting of its own (-p)";
    }
    if (value.find_first_of(" /") != std::string::npos) {
        return "'" + value + "' is not a host name or address";
    }
    auto fault = read_text<&Settings::host>(settings, value);
    const bool bracketed = value.size() > 2 && value.front() == '[' && value.back() == ']';
    if (bracketed) settings.host = value.substr(1, value.size() - 2);
    return fault;
}

/// A client id becomes a level of a topic, where wildcards and separators mean something else.
Fault read_client_name(Settings& settings, const std::string& value) {
    if (value.find_first_of("/+#") == std::string::npos) {
        return read_text<&Settings::client_name>(settings, value);
    }
    return "'" + value + "' holds one of the characters / + #";
}

Fault read_topic_prefix(Settings& settings, const std::string& value) {
    if (!value.empty() && value.back() != '/') return "'" + value + "' does not end with '/'";
    if (value.find_first_of("+#$") == std::string::npos) {
        return read_text<&Settings::topic_prefix>(settings, value);
    }
    return "'" + value + "' holds one of the characters + # $";
}

template <std::string Settings::*MEMBER>
Fault read_file_name(Settings& settings, const std::string& value) {
    if (value.find('\0') != std::string::npos) return "'" + value + "' is not a file's name";
    errno = 0;
    std::ifstream file(value);
    settings.*MEMBER = value;
    if (file.is_open() && file.peek() != std::ifstream::traits_type::eof()) return std::nullopt;
    return "cannot read '" + value + "': " + (errno != 0 ? std::strerror(errno) : "it is empty");
}

/// All there is to a key.
struct Key {
    const char* name;
    const char* default_value;  ///< null: none
    Fault (*read)(Settings& settings, const std::string& value);
};

// In alphabetical order. To add a key: a member of Settings, and a line here.
constexpr Key KEYS[] = {
    {"ca_file", nullptr, read_file_name<&Settings::ca_file>},
    {"cert_file", nullptr, read_file_name<&Settings::cert_file>},
    {"client_name", nullptr, read_client_name},
    {"connect_timeout_ms", "3000", read_timeout<&Settings::connect_timeout>},
    {"host", "127.0.0.1", read_host},
    {"key_file", nullptr, read_file_name<&Settings::key_file>},
    {"password_file", nullptr, read_file_name<&Settings::password_file>},
    {"port", "1883", read_port},
    {"request_timeout_ms", "5000", read_timeout<&Settings::request_timeout>},
    {"topic_prefix", nullptr, read_topic_prefix},
    {"username", nullptr, read_text<&Settings::username>},
};

/// Null for an unknown name.
const Key* find_key(const std::string& name) {
    const auto* const found = std::find_if(std::begin(KEYS), std::end(KEYS),
                                           [&name](const Key& key) { return key.name == name; });
    return found == std::end(KEYS) ? nullptr : found;
}

}  // namespace

std::string Settings::place() const {
    const bool ipv6 = host.find(':') != std::string::npos;
    return (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::map<std::string, std::string> default_values() {
    std::map<std::string, std::string> values;
    for (const Key& key : KEYS) {
        if (key.default_value != nullptr) values[key.name] = key.default_value;
    }
    return values;
}

bool is_setting(const std::string& key) {
    return find_key(key) != nullptr;
}

std::optional<std::string> setting_error(const std::string& key, const std::string& value) {
    const Key* const known = find_key(key);
    if (known == nullptr) return "unknown key";
    if (value.empty() && key != "topic_prefix") return "missing value";
    Settings scratch;
    return known->read(scratch, value);
}

Settings read_settings(const ecu::lapi::config::Configuration& configuration) {
    Settings settings;
    for (const auto& [name, setting] : ConfigurationReader(configuration).settings()) {
        const Key* const key = find_key(name);
        if (key != nullptr && !setting.value.empty()) key->read(settings, setting.value);
    }
    return settings;
}

void log_settings(const ecu::lapi::config::Configuration& configuration) {
    namespace logging = ecu::lapi::logging;
    for (const auto& [name, setting] : ConfigurationReader(configuration).settings()) {
        if (setting.value.empty()) continue;
        logging::write(logging::DEBUG, "Setting ", name, " = ", setting.value, " (", setting.origin,
                       ")");
    }
}

std::string read_password(const std::string& path) {
    std::ifstream file(path);
    std::string password;
    if (!std::getline(file, password)) {
        throw std::runtime_error("cannot read the password file '" + path + "'");
    }
    if (!password.empty() && password.back() == '\r') password.pop_back();
    // What MQTT cannot carry, and what C strings would cut off.
    if (password.size() > 65535 || password.find('\0') != std::string::npos) {
        throw std::runtime_error("the first line of the password file '" + path +
                                 "' holds a NUL or more than 65535 bytes");
    }
    return password;
}

}  // namespace lapi_mqtt
