#include "monitor/run.h"

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "main/options.h"
#include "main/startup.h"
#include "monitor/end_signal.h"
#include "monitor/usage.h"
#include "topic_printer/topic_printer.h"

namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

// The highest, so that each message comes with the QoS it was published at.
constexpr int QOS = 2;

std::shared_ptr<com::ITransportClient> create_client() {
    auto configuration = load_configuration(MONITOR_NAME, opt_loglevel, opt_host, opt_port);
    return com::create_client(configuration, com::TransportType::mqtt);
}

void print_messages(com::ITransportClient& client, const std::vector<std::string>& topics) {
    // One for all, so that a message that several filters match is printed once.
    const auto printer = std::make_shared<TopicPrinter>(
        DisplayFlags{opt_payload, opt_payload_size, opt_qos, opt_timestamp});
    client.connect();
    client.start();
    for (const auto& topic : topics) client.subscribe(topic, QOS, printer);
}

}  // namespace

int run_monitor(int argc, char** argv) {
    logging::set_log_mode(logging::LogMode::console);
    std::vector<std::string> topics;
    if (!parse_opts(argc, argv, topics, MONITOR_NAME) || topics.empty()) {
        monitor_usage();
        return 1;
    }

    std::shared_ptr<com::ITransportClient> client;
    bool succeeded = guarded(MONITOR_NAME, [&] {
        EndSignal end_signal;
        client = create_client();
        print_messages(*client, topics);
        end_signal.wait();
        return true;
    });
    if (client) succeeded = close_connection(MONITOR_NAME, *client) && succeeded;
    return succeeded ? 0 : 1;
}
