#pragma once

#include <stdexcept>
#include <string>

namespace lapi_mqtt {

/// A broker operation that failed. The text names the step, the broker's host and port, and the
/// cause.
class TransportError : public std::runtime_error {
public:
    enum class Kind {
        failed,                   ///< the operation had no effect
        not_connected,            ///< neither had this one, as there is no connection
        no_matching_subscribers,  ///< nobody serves the request's topic
        outcome_unknown,          ///< sent, but whether it took effect is not known
        refused,                  ///< the service answered with an error text
    };

    TransportError(Kind kind_of_error, const std::string& text)
        : std::runtime_error(text), error_kind(kind_of_error) {}
    Kind kind() const { return error_kind; }

private:
    Kind error_kind;
};

}  // namespace lapi_mqtt
