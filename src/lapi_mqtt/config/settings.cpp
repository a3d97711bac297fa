#include "lapi_mqtt/config/settings.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
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

template <long LEAST, long MOST>
std::optional<std::string> number_between(const std::string& value) {
    const auto parsed = number(value);
    if (parsed && *parsed >= LEAST && *parsed <= MOST) return std::nullopt;
    return "'" + value + "' is not a number from " + std::to_string(LEAST) + " to " +
           std::to_string(MOST);
}

/// What MQTT counts in 16 bits, less room for what is put around it: levels of topics, random
/// digits.
constexpr std::size_t MOST_TEXT = 65'000;

std::optional<std::string> text(const std::string& value) {
    if (value.size() > MOST_TEXT) {
        return "the value is longer than " + std::to_string(MOST_TEXT) + " bytes";
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

const std::map<std::string, Check>& checks() {
    static const std::map<std::string, Check> table = {
        {"host", host_name},
        {"port", number_between<1, 65535>},
        {"client_name", client_name},
        {"username", text},
        {"password_file", readable_file},
        {"ca_file", readable_file},
        {"cert_file", readable_file},
        {"key_file", readable_file},
        {"connect_timeout_ms", MILLISECONDS},
        {"request_timeout_ms", MILLISECONDS},
        {"topic_prefix", topic_prefix},
    };
    return table;
}

}  // namespace

std::string Settings::place() const {
    const bool ipv6 = host.find(':') != std::string::npos;
    return (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

const std::set<std::string>& setting_keys() {
    static const std::set<std::string> keys = [] {
        std::set<std::string> names;
        for (const auto& [key, check] : checks()) names.insert(key);
        return names;
    }();
    return keys;
}

std::optional<std::string> setting_fault(const std::string& key, const std::string& value) {
    if (value.empty() && key != "topic_prefix") return "missing value";
    return checks().at(key)(value);
}

Settings read_settings(const ecu::lapi::config::Configuration& loaded) {
    const ConfigurationReader configuration(loaded);
    const auto milliseconds = [&](const char* key) {
        return std::chrono::milliseconds(number(configuration.get(key)).value());
    };
    Settings settings;
    settings.host = without_brackets(configuration.get("host"));
    settings.port = static_cast<int>(number(configuration.get("port")).value());
    settings.client_name = configuration.get("client_name");
    settings.username = configuration.get("username");
    settings.password_file = configuration.get("password_file");
    settings.ca_file = configuration.get("ca_file");
    settings.cert_file = configuration.get("cert_file");
    settings.key_file = configuration.get("key_file");
    settings.topic_prefix = configuration.get("topic_prefix");
    settings.connect_timeout = milliseconds("connect_timeout_ms");
    settings.request_timeout = milliseconds("request_timeout_ms");
    return settings;
}

void log_settings(const ecu::lapi::config::Configuration& loaded) {
    namespace logging = ecu::lapi::logging;
    const ConfigurationReader configuration(loaded);
    for (const auto& key : setting_keys()) {
        const std::string value = configuration.get(key);
        if (value.empty()) continue;
        logging::write(logging::DEBUG, "Setting ", key, " = ", value, " (",
                       configuration.origin(key), ")");
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
