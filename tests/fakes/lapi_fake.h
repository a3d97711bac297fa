#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"

/// A platform library that keeps everything in memory: it records the calls that it gets and
/// answers as it is told to.
namespace fake {

using Observer = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;

/// A parameter record.
ecu::lapi::pb::SystemParameterEntry entry(std::uint32_t otaid, std::uint32_t did,
                                          std::uint32_t xcpid, const std::string& data);

/// What the library is told, and what was asked of it. Only `record` and the log are safe to use
/// from several threads.
struct Lapi {
    // Told.
    bool creates_client = true, creates_sysparams = true, writes = true;
    std::map<std::string, std::string> errors;  ///< call -> text of the error that it throws
    ecu::lapi::var::ParameterMap parameters{{288, entry(288, 255, 10, "Hi")}};
    ecu::lapi::var::ParameterMap refused;  ///< what a write returns
    bool module_enabled = true;
    /// Runs inside a subscription, when the client has taken the observer.
    std::function<void(const std::string& topic, const Observer& observer)> on_subscribe;
    int log_level = ecu::lapi::logging::LEVEL_WARNING;

    // Asked.
    std::vector<std::string> calls;                    ///< name and arguments, in order
    std::map<std::string, std::string> configuration;  ///< as the program set it
    ecu::lapi::var::ParameterMap handed_over;          ///< to set_parameters
    std::vector<std::pair<std::string, Observer>> subscribed, unsubscribed;
    std::vector<std::string> records;  ///< of the log, "LEVEL: text"
    int module_tests = 0;              ///< how often the active log module was asked for

    /// Notes a call, then throws the error that it was told for it.
    void record(const std::string& call);
};

/// The one library of the process. A new one, which `lapi() = {}` makes it, holds one parameter.
Lapi& lapi();

/// A transport client that records its calls.
std::shared_ptr<ecu::lapi::com::ITransportClient> transport();

}  // namespace fake
