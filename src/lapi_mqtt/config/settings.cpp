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

using Check = std::optional<std::string> (*)(const std::string& value);

/// The whole of `text` as a decimal number; nothing when it is not one.
std::optional<long> number(const std::string& text) {
    long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stopped != end) return std::nullopt;
    return value;
}

template <long MIN, long MAX>
std::optional<std::string> number_between(const std::string& value) {
    const auto parsed = number(value);
    if (parsed && *parsed >= MIN && *parsed <= MAX) return std::nullopt;
    return "'" + value + "' is not a number from " + std::to_string(MIN) + " to " +
           std::to_string(MAX);
}

/// What MQTT counts in 16 bits, less room for the levels of topics and the random digits around it.
constexpr std::size_t MAX_TEXT = 65'000;

std::optional<std::string> text(const std::string& value) {
    if (value.size() > MAX_TEXT) {
        return "the value is longer than " + std::to_string(MAX_TEXT) + " bytes";
    }
    if (is_text(value)) return std::nullopt;
    return "'" + value + "' is not UTF-8 text without control characters";
}

std::optional<std::string> host_name(const std::string& value) {
    const auto colon = value.find(':');
    if (colon != std::string::npos && colon == value.rfind(':')) {
        return "'" + value + "' holds a colon; the port is a setting of its own (-p)";
    }
    if (value.find_first_of(" /") == std::string::npos) return text(value);
    return "'" + value + "' is not a host name or address";
}

/// An IPv6 address may stand in brackets, as it does in front of a port.
std::string without_brackets(const std::string& host) {
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

/// A client id becomes a level of a topic, where wildcards and separators mean something else.
std::optional<std::string> client_name(const std::string& value) {
    if (value.find_first_of("/+#") == std::string::npos) return text(value);
    return "'" + value + "' holds one of the characters / + #";
}

std::optional<std::string> topic_prefix(const std::string& value) {
    if (!value.empty() && value.back() != '/') return "'" + value + "' does not end with '/'";
    if (value.find_first_of("+#$") == std::string::npos) return text(value);
    return "'" + value + "' holds one of the characters + # $";
}

std::optional<std::string> readable_file(const std::string& value) {
    if (value.find('\0') != std::string::npos) return "'" + value + "' is not a file's name";
    errno = 0;
    std::ifstream file(value);
    if (file.is_open() && file.peek() != std::ifstream::traits_type::eof()) return std::nullopt;
    return "cannot read '" + value + "': " + (errno != 0 ? std::strerror(errno) : "it is empty");
}

constexpr long HOUR_MS = 3'600'000;
constexpr auto MILLISECONDS = number_between<1, HOUR_MS>;

using Reader = void (*)(Settings& settings, const std::string& value);

template <std::string Settings::*MEMBER>
void read_text(Settings& settings, const std::string& value) {
    settings.*MEMBER = value;
}

template <std::chrono::milliseconds Settings::*MEMBER>
void read_milliseconds(Settings& settings, const std::string& value) {
    settings.*MEMBER = std::chrono::milliseconds(number(value).value());
}

void read_host(Settings& settings, const std::string& value) {
    settings.host = without_brackets(value);
}

void read_port(Settings& settings, const std::string& value) {
    settings.port = static_cast<int>(number(value).value());
}

/// All there is to a key.
struct Key {
    const char* name;
    const char* default_value;  ///< null: none
    Check check;
    Reader read;
};

// In alphabetical order. To add a key: a member of Settings, and a line here.
constexpr Key KEYS[] = {
    {"ca_file", nullptr, readable_file, read_text<&Settings::ca_file>},
    {"cert_file", nullptr, readable_file, read_text<&Settings::cert_file>},
    {"client_name", nullptr, client_name, read_text<&Settings::client_name>},
    {"connect_timeout_ms", "3000", MILLISECONDS, read_milliseconds<&Settings::connect_timeout>},
    {"host", "127.0.0.1", host_name, read_host},
    {"key_file", nullptr, readable_file, read_text<&Settings::key_file>},
    {"password_file", nullptr, readable_file, read_text<&Settings::password_file>},
    {"port", "1883", number_between<1, 65535>, read_port},
    {"request_timeout_ms", "5000", MILLISECONDS, read_milliseconds<&Settings::request_timeout>},
    {"topic_prefix", nullptr, topic_prefix, read_text<&Settings::topic_prefix>},
    {"username", nullptr, text, read_text<&Settings::username>},
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
    return known->check(value);
}

Settings read_settings(const ecu::lapi::config::Configuration& configuration) {
    const ConfigurationReader reader(configuration);
    Settings settings;
    for (const Key& key : KEYS) {
        const std::string value = reader.get(key.name);
        if (!value.empty()) key.read(settings, value);
    }
    return settings;
}

void log_settings(const ecu::lapi::config::Configuration& loaded) {
    namespace logging = ecu::lapi::logging;
    const ConfigurationReader configuration(loaded);
    for (const Key& key : KEYS) {
        const std::string value = configuration.get(key.name);
        if (value.empty()) continue;
        logging::write(logging::DEBUG, "Setting ", key.name, " = ", value, " (",
                       configuration.origin(key.name), ")");
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
