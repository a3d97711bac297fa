#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace lapi_mqtt {
class ConfigurationReader;
}

/// Configuration of the platform client library.
namespace ecu::lapi::config {

/// String settings by key, loaded from the configuration file and the environment.
/// Not thread-safe: filled by one thread, then handed to `com::create_client`.
class Configuration {
public:
    /// Loads defaults, file and environment. Never throws for bad content: `verify` reports it.
    Configuration();

    /// The value under `key`, inserted empty when the key is new.
    std::string& operator[](const std::string& key);

    /// True when the configuration can be used. Logs each error at ERROR.
    bool verify() const;

private:
    friend class lapi_mqtt::ConfigurationReader;

    struct Setting {
        std::string value;
        std::string origin;  ///< "FILE:LINE", a variable's name, or what is no place to look at
    };
    using Settings = std::map<std::string, Setting>;

    explicit Configuration(Settings own_settings) : settings(std::move(own_settings)) {}
    void load_file(const std::string& path, bool must_exist);
    void load_environment();
    void take(const std::string& key, const std::string& value, const std::string& origin);

    Settings settings;  ///< by key
    std::vector<std::string> load_errors;
};

}  // namespace ecu::lapi::config
