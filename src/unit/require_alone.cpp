#include "unit/require_alone.h"

#include <memory>
#include <stdexcept>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/service_client.h"
#include "program/startup.h"
#include "program/sysparams.h"

namespace unit {

namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;
using lapi_mqtt::TransportError;

void require_alone(const Configuration& configuration) {
    using Kind = TransportError::Kind;
    // A client of its own, without a last will: it would say that the other unit is gone.
    auto own = std::make_unique<Configuration>(configuration);
    const auto client = program::create_transport(own);
    client->connect();
    client->start();
    bool is_served = true;
    try {
        program::create_sysparams(client)->get_parameter(0, 0);
    } catch (const TransportError& error) {
        if (error.kind() == Kind::not_connected) throw;
        is_served = error.kind() == Kind::refused;
        if (error.kind() == Kind::outcome_unknown) {
            logging::write(logging::WARNING,
                           "Somebody listens for requests, but does not answer: ", error.what());
        } else if (error.kind() == Kind::failed) {
            logging::write(logging::WARNING,
                           "Cannot ask whether another unit serves: ", error.what(),
                           ". Without the right to publish there, a second unit goes unnoticed and "
                           "both answer clients");
        }
    }
    client->disconnect();
    client->stop();
    if (!is_served) return;
    throw std::runtime_error("another unit already serves parameters on the broker at " +
                             lapi_mqtt::broker_name(configuration));
}

}  // namespace unit
