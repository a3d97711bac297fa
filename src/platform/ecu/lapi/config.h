#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

/// Configuration of the platform client library.
namespace ecu::lapi::config {

/// String settings by key, loaded from the configuration file and the environment.
/// Not thread-safe: filled by one thread, then handed to `com::create_client`.
class Configuration {
public:
    /// Loads defaults, file and environment. Never throws for bad content: `verify` reports it.
    Configuration();

    /// The defaults alone, with nothing of this machine's.
    static Configuration defaults();

    /// The value under `key`, inserted empty when the key is new.
    std::string& operator[](const std::string& key);

    /// The value under `key`; empty when there is none.
    std::string get(const std::string& key) const;

    /// Where the value under `key` comes from: a default, "FILE:LINE", a variable's name, or the
    /// program that set it.
    std::string origin(const std::string& key) const;

    /// What makes the configuration unusable, each with the place it came from.
    std::vector<std::string> complaints() const;

    /// True when the configuration can be used. Logs each complaint at ERROR.
    bool verify() const;

private:
    explicit Configuration(std::map<std::string, std::string> settings);
    void load_file(const std::string& path, bool must_exist);
    void load_environment();
    void take(const std::string& key, const std::string& value, const std::string& origin);

    std::map<std::string, std::string> values;
    std::map<std::string, std::string> origins;  ///< of what was read: "FILE:LINE" or a variable
    std::set<std::string> own;                   ///< keys of the program's values
    std::vector<std::string> load_complaints;
};

}  // namespace ecu::lapi::config
