#include "monitor/run.h"

#include <unistd.h>

#include <memory>

#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "monitor/options.h"
#include "program/end_signal.h"
#include "program/startup.h"
#include "topic_printer/topic_printer.h"

namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

// The highest QoS, so that each message comes with the one it was published at.
constexpr int SUBSCRIPTION = 2 + com::WATCH_ONLY;

void print_messages(com::ITransportClient& client, const MonitorOptions& options) {
    // One for all, so that a message that several filters match is printed once.
    const auto printer = std::make_shared<TopicPrinter>(options.shown);
    client.connect();
    client.start();
    for (const auto& topic : options.topics) client.subscribe(topic, SUBSCRIPTION, printer);
}

bool watch(const MonitorOptions& options) {
    auto configuration = load_configuration(MONITOR_NAME, options.common);
    const auto client = create_transport(configuration);
    const bool watched = guarded(MONITOR_NAME, [&] {
        EndSignal end_signal;
        print_messages(*client, options);
        end_signal.wait(STDOUT_FILENO, 0);  // also over when nobody reads it any more
        return true;
    });
    return close_connection(MONITOR_NAME, *client) && watched;
}

}  // namespace

int run_monitor(int argc, char** argv) {
    logging::set_log_mode(logging::LogMode::console);
    return run_program(MONITOR_NAME, parse_monitor_options(argc, argv), monitor_usage, watch);
}
