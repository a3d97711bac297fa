#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/config.h"

namespace lapi_mqtt {

/// The origin of a value that the program, or an option of it, has set.
inline constexpr char PROGRAM_ORIGIN[] = "program or option";

/// What the library reads of a configuration. Borrows it.
class ConfigurationReader {
public:
    explicit ConfigurationReader(const ecu::lapi::config::Configuration& read_from)
        : configuration(read_from) {}

    /// Values and their origins, by key.
    const auto& settings() const { return configuration.settings; }

    /// What makes the configuration unusable, each with the place it came from.
    std::vector<std::string> errors() const;

    /// The defaults alone.
    static std::unique_ptr<ecu::lapi::config::Configuration> defaults();

private:
    const ecu::lapi::config::Configuration& configuration;
};

}  // namespace lapi_mqtt
