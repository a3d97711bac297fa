#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "ecu/lapi/config.h"
#include "program/options.h"
#include "program/process.h"

/// Steps that the programs with a connection share.
namespace program {

/// Puts what the options set, host and port, in place of what is configured.
void apply(const CommonOptions& options, ecu::lapi::config::Configuration& configuration);

/// The verified configuration of the program `client_name`, with the options applied; sets the log
/// level. Ends the process with status 1 when the configuration does not verify.
std::unique_ptr<ecu::lapi::config::Configuration> load_configuration(const std::string& client_name,
                                                                     const CommonOptions& options);

/// A transport client; takes `configuration` over as the platform does. Throws std::runtime_error
/// when the platform gives none.
std::shared_ptr<ecu::lapi::com::ITransportClient> create_transport(
    std::unique_ptr<ecu::lapi::config::Configuration>& configuration);

/// Runs a program that logs to standard error: secures the standard streams and attempts `work`.
/// Returns its exit status.
int run_program(const std::string& name, const std::function<int()>& work);

/// Attempts `work`, then disconnects and stops the client whatever came of it. Returns the exit
/// status of `work`, or EXIT_FAILURE when a later step failed.
int run_connected(const std::string& program, ecu::lapi::com::ITransportClient& client,
                  const std::function<int()>& work);

}  // namespace program
