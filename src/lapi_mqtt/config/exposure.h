#pragma once

#include "lapi_mqtt/config/settings.h"

namespace lapi_mqtt {

/// Logs a WARNING for each secret of `settings` that others can get at: a file that other users of
/// this machine can read, a password that travels in the clear.
void warn_of_exposed_secrets(const Settings& settings);

}  // namespace lapi_mqtt
