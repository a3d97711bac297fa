#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/config.h"

namespace lapi_mqtt {

/// What the library reads of a configuration. Borrows it.
class ConfigurationReader {
public:
    explicit ConfigurationReader(const ecu::lapi::config::Configuration& read_from)
        : configuration(read_from) {}

    /// The value under `key`; empty when there is none.
    std::string get(const std::string& key) const;

    /// Where the value under `key` comes from: a default, "FILE:LINE", a variable's name, or the
    /// program that set it.
    std::string origin(const std::string& key) const;

    /// What makes the configuration unusable, each with the place it came from.
    std::vector<std::string> errors() const;

    /// The defaults alone.
    static std::unique_ptr<ecu::lapi::config::Configuration> defaults();

private:
    const ecu::lapi::config::Configuration& configuration;
};

}  // namespace lapi_mqtt
