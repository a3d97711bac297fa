#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "ecu/lapi/config.h"

namespace lapi_mqtt {

/// What a transport client is built from, checked.
struct Settings {
    std::string host;
    int port = 0;
    std::string client_name;
    std::string username;
    std::string password_file;
    std::string ca_file;  ///< turns TLS on
    std::string cert_file;
    std::string key_file;
    std::string topic_prefix;  ///< empty, or ends with '/'
    std::chrono::milliseconds connect_timeout{};
    std::chrono::milliseconds request_timeout{};

    /// "HOST:PORT" as messages name the broker; an IPv6 address in brackets.
    std::string place() const;
};

/// The values that a configuration begins with.
std::map<std::string, std::string> default_values();

/// True for a key that a configuration may hold.
bool is_setting(const std::string& key);

/// What is wrong with `key` or its value, if anything. Files are tried for reading.
std::optional<std::string> setting_error(const std::string& key, const std::string& value);

/// The settings of a configuration that verifies.
Settings read_settings(const ecu::lapi::config::Configuration& configuration);

/// Logs at DEBUG what is set, and where. A secret is in a file of its own, which alone is named.
void log_settings(const ecu::lapi::config::Configuration& configuration);

/// The first line of the password file. Throws std::runtime_error that names the file.
std::string read_password(const std::string& path);

}  // namespace lapi_mqtt
